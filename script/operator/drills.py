"""What an operator hopes never to need, rehearsed amid a run: disks that are lost, a store that refuses
rows, months that are dropped."""

import json
import shutil
import subprocess
import time

from process import wait_until
from stage import JARS, NODES, REPLICAS

NAMES = ["node", "replica", "refusal", "retention"]
TABLES = ["reports", "arrivals", "daily", "retention"]
STREAMS = {"$MQTT_msgs", "USAGE_DEAD"}
KNOWN_TYPES = ["", "Android phone", "Windows PC", "Embedded device", "TV", "Tablet"]
MONTHS_KEPT = 1
OLD_MONTHS = 3


class Drills:
    """Those that were asked for; step(now) is called often while reports are made."""

    def __init__(self, names, stage, seconds, setup, say):
        self.names = names
        self.stage = stage
        self.setup = setup
        self.say = say
        moments = {"node": (0.2, self.lose_node), "replica": (0.5, self.lose_replica)}
        self.waiting = sorted((seconds * moments[name][0], name) for name in names if name in moments)
        self.actions = {name: action for name, (_, action) in moments.items()}

    def step(self, now):
        while self.waiting and self.waiting[0][0] <= now:
            self.actions[self.waiting.pop(0)[1]]()

    # -- disks

    def lose_node(self):
        """One node's folder is gone; when it is back, another one is killed, so that it is needed."""
        stage, lost = self.stage, NODES - 1
        stage.nodes[lost].kill()
        shutil.rmtree(stage.path(f"node{lost}"))
        self.say(f"killed {stage.nodes[lost].name} and deleted its folder")
        time.sleep(3)
        stage.nodes[lost].start()
        begun = time.monotonic()
        wait_until(self.streams_are_whole, 180, "the node fetching its streams")
        self.say(f"{stage.nodes[lost].name} has both streams again after {time.monotonic() - begun:.0f} s; "
                 f"killed {stage.nodes[0].name} for 10 s")
        stage.nodes[0].kill()
        time.sleep(10)
        stage.nodes[0].start()

    def streams_are_whole(self):
        """The leader of each stream says that all copies are there and current."""
        whole = set()
        for number in range(NODES):
            status, text = self.stage.fetch(self.stage.address("monitor", number), "/jsz?streams=true")
            if status != 200:
                return False
            answer = json.loads(text)
            for account in answer.get("account_details") or []:
                for stream in account.get("stream_detail") or []:
                    copies = stream["cluster"].get("replicas") or []
                    if (stream["cluster"].get("leader") == f"buffer-{number + 1}"
                            and len(copies) == NODES - 1
                            and all(copy["current"] and not copy.get("offline") for copy in copies)):
                        whole.add(stream["name"])
        return STREAMS <= whole

    def lose_replica(self):
        """One replica's folder is gone; an empty one with a new name takes its place."""
        stage, lost = self.stage, REPLICAS - 1
        stage.replicas[lost].kill()
        shutil.rmtree(stage.path(f"replica{lost}"))
        self.say(f"killed {stage.replicas[lost].name} and deleted its folder")
        stage.replicas[lost] = stage.make_replica(lost, f"store-{REPLICAS + 1}")
        stage.replicas[lost].start()
        wait_until(lambda: stage.replica_answers(lost), 60, "the empty replica coming up")
        stage.ingest(*self.setup)
        for table in TABLES:
            self.zookeeper("deleteall", f"/clickhouse/usage/{table}/replicas/store-{REPLICAS}")
        self.say("an empty replica is in its place, and the old one's name is forgotten")

    def zookeeper(self, *command):
        jars = ":".join(f"{JARS}/{name}.jar" for name in
                        ("zookeeper", "zookeeper-jute", "slf4j-simple", "commons-cli"))
        result = subprocess.run(["java", "-Dorg.slf4j.simpleLogger.defaultLogLevel=error", "-cp", jars,
                                 "org.apache.zookeeper.ZooKeeperMain", "-server",
                                 self.stage.address("zookeeper", 0), *command],
                                capture_output=True, text=True, stdin=subprocess.DEVNULL)
        if result.returncode != 0:
            raise RuntimeError(f"zookeeper {' '.join(command)}: {result.stdout}{result.stderr}")

    def judged_store(self):
        """Whom the ledger is held against: the replica that had to fetch everything."""
        first = REPLICAS - 1 if "replica" in self.names else 0
        return ",".join(f"http://{self.stage.address('http', i)}" for i in range(first, REPLICAS))

    # -- a store that refuses

    def begin_refusing(self):
        if "refusal" in self.names:
            types = ", ".join(f"'{name}' = {i}" for i, name in enumerate(KNOWN_TYPES))
            self.stage.ask(f"ALTER TABLE usage.reports MODIFY COLUMN device_type Enum8({types})")

    def end_refusing(self):
        if "refusal" in self.names:
            self.stage.ask("ALTER TABLE usage.reports MODIFY COLUMN device_type String")

    # -- months

    def retain(self):
        """Rows of older months are made from those that are there, and dropped; true when exactly those
        are gone, on all replicas, and the sums are what they were."""
        if "retention" not in self.names:
            return True
        stage = self.stage
        for table in ("reports", "arrivals"):
            for months in range(1, OLD_MONTHS + 1):
                self.copy_to_older_month(table, months)
        stage.ingest("rollup")
        before, sums = self.partitions(0), self.sums()
        stage.ingest("retain", str(MONTHS_KEPT))
        kept = dict(sorted(before.items())[-2 * (MONTHS_KEPT + 1):])
        wait_until(lambda: all(len(self.partitions(i)) == len(kept) for i in range(REPLICAS)), 60,
                   "the replicas dropping what is old")
        good = (len(before) == 2 * (OLD_MONTHS + 1) and self.sums() == sums
                and all(self.partitions(i) == kept for i in range(REPLICAS)))
        print(f"retention      months {OLD_MONTHS + 1}, kept {len(kept) // 2}: "
              + ("the others' rows are gone, and no other row" if good else "WRONG"))
        return good

    def copy_to_older_month(self, table, months):
        names = self.stage.ask("SELECT name FROM system.columns WHERE database = 'usage' AND "
                               f"table = '{table}'").split()
        older = {"router": "concat('old-', router)", "outbox": f"concat('{months}', outbox)",
                 "received": f"toDateTime(addMonths(toDate(received), -{months}))"}
        self.stage.ask(f"INSERT INTO usage.{table} ({', '.join(names)}) SELECT "
                       + ", ".join(older.get(name, name) for name in names)
                       + f" FROM usage.{table} FINAL WHERE router LIKE 'r-%'")

    def partitions(self, replica):
        """Rows by (month, table) on a replica, duplicates left out."""
        found = {}
        for table in ("reports", "arrivals"):
            text = self.stage.ask("SELECT toYYYYMM(received) AS month, count() FROM "
                                  f"usage.{table} FINAL GROUP BY month", replica)
            found |= {(line.split()[0], table): int(line.split()[1]) for line in text.splitlines()}
        return found

    def sums(self):
        return self.stage.ask("SELECT sum(records), sum(upload), sum(download) FROM usage.daily FINAL")
