"""A fleet on loopback: servers, ingesters, simulated routers, faults, questions, verdict."""

import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import drills
import faults
import questions
import uplinks
from process import tie_to_parent, wait_until
from stage import DEVICE_KEY, INGESTERS, PASSWORD, PROGRAMS, Stage

# Megabytes; what a run takes altogether stays well below 8 GB.
MEMORY = {"node": 1000, "zookeeper": 256, "replica": 2500, "ingester": 2048}

SHORT = {"routers": 60, "rate": 60.0, "seconds": 20.0}
SHORT_ACK_WAIT = 20  # what a lost connection had fetched is fetched anew after so many seconds


def parse():
    parser = argparse.ArgumentParser(
        prog="script/fleet",
        description="Runs three nodes of the buffer, two replicas of the store, ZooKeeper, two "
                    "ingesters and many simulated routers on loopback, and holds what is then in the "
                    "store against the routers' own ledger.")
    parser.add_argument("--routers", type=int, default=500)
    parser.add_argument("--rate", type=float, default=200, help="reports a second, of all together")
    parser.add_argument("--records", type=int, default=20, help="records in a report, 294 at most")
    parser.add_argument("--seconds", type=float, default=60, help="how long reports are made")
    parser.add_argument("--each", action="store_true", help="routers connect for each report")
    parser.add_argument("--bad-every", type=int, default=1000, help="one report in so many is bad")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--faults", type=int, metavar="SEED",
                        help="kill nodes, replicas and ingesters at random moments, and start them again")
    parser.add_argument("--short", action="store_true",
                        help="about a minute, one node killed: for the ordinary tests")
    parser.add_argument("--ingesters", type=int, default=INGESTERS, choices=range(1, 10))
    parser.add_argument("--late", action="store_true",
                        help="start the ingesters only when no more reports are made")
    parser.add_argument("--buffer-bytes", type=int, default=4_000_000_000,
                        help="what the buffer may hold; with --late and little room it refuses")
    parser.add_argument("--store-away", type=float, default=0, metavar="SECONDS",
                        help="kill both replicas a third into the run, for so long")
    parser.add_argument("--drill", action="append", default=[], choices=drills.NAMES,
                        help="lose a node's folder, lose a replica's folder, let the store refuse the "
                             "bad reports' rows, drop old months; may be repeated")
    parser.add_argument("--sanitized", action="store_true",
                        help="ingesters of build/dev, with sanitizers and without a limit of memory")
    parser.add_argument("--ports", type=int, default=25000, help="first of 100 ports")
    parser.add_argument("--keep", action="store_true", help="leave the folder with data and logs")
    options = parser.parse_args()
    if options.drill and (options.faults is not None or options.late):
        parser.error("drills need a run without --faults and --late")
    if options.short:
        for name, value in SHORT.items():
            setattr(options, name, value)
    if options.faults is not None:
        options.seed = options.faults
    return options


class Run:
    def __init__(self, options):
        self.options = options
        self.begun = time.monotonic()
        os.makedirs("build/fleet", exist_ok=True)
        self.folder = tempfile.mkdtemp(prefix="run-", dir="build/fleet")
        self.stage = None
        self.routers = None
        self.faults = None
        self.drills = None
        self.uplinks = []
        self.next_look = 0.0

    def say(self, text):
        print(f"{time.monotonic() - self.begun:6.0f} s  {text}", flush=True)

    # -- the parts of a run

    def set_up(self):
        o = self.options
        self.stage = Stage(os.path.join(self.folder, "data"), o.ports, o.seed, o.routers, MEMORY)
        self.say("starting three nodes, ZooKeeper and two replicas")
        self.stage.start_servers()
        arguments = ["setup", "--buffer-bytes", str(o.buffer_bytes), "--dead-bytes", "100000000"]
        if o.short:
            arguments += ["--ack-wait", str(SHORT_ACK_WAIT)]
        self.stage.ingest(*arguments)
        self.drills = drills.Drills(o.drill, self.stage, o.seconds, arguments, self.say)
        self.drills.begin_refusing()
        self.say("consumer, limits, tables and questions are set up")
        if not o.late:
            self.start_ingesters()
        if o.faults is not None and uplinks.available():
            self.uplinks = [uplinks.Uplink(self.stage, i, PASSWORD) for i in range(uplinks.COUNT)]
            for uplink in self.uplinks:
                uplink.process.start()

    def start_ingesters(self):
        self.stage.start_ingesters(self.options.ingesters, self.options.sanitized)
        wait_until(lambda: all(self.stage.fetch(self.stage.address("health", i), "/healthz")[0]
                               for i in range(self.options.ingesters)), 30, "ingesters answering")

    def start_routers(self):
        o = self.options
        command = [f"{PROGRAMS}/fleet-simulate", "run", "--nodes", self.stage.mqtt_addresses(),
                   "--ca", self.stage.path("ca.crt"), "--ledger", self.stage.path("ledger"),
                   "--seed", str(o.seed), "--routers", str(o.routers), "--rate", str(o.rate),
                   "--records", str(o.records), "--seconds", str(o.seconds), "--drain", "180",
                   "--bad-every", str(o.bad_every)]
        if o.each:
            command.append("--each")
        if o.faults is not None or o.short:
            command.append("--odd")
        if "refusal" in o.drill:
            command.append("--refused")
        self.say(f"{o.routers} routers, {o.rate:g} reports/s of {o.records} records for {o.seconds:g} s"
                 + (", connecting for each" if o.each else ""))
        self.routers = subprocess.Popen(command, preexec_fn=tie_to_parent)

    def plan_faults(self):
        o, stage = self.options, self.stage
        if o.short:
            planned = [faults.Fault(o.seconds * 0.3, stage.nodes[o.seed % 3], 6)]
        elif o.faults is not None:
            groups = {"nodes": stage.nodes, "replicas": stage.replicas, "ingesters": stage.ingesters}
            if self.uplinks:
                groups["uplinks"] = [uplink.process for uplink in self.uplinks]
            planned = faults.plan(o.faults, o.seconds, groups)
        else:
            planned = [faults.Fault(o.seconds / 3, replica, o.store_away)
                       for replica in stage.replicas if o.store_away]
        self.faults = faults.Faults(planned, self.say)

    def look(self, now):
        """Samples the ingesters' memory, and tells how the reports are getting on."""
        if now < self.next_look:
            return
        self.next_look = now + 10
        seen = []
        for number, process in enumerate(self.stage.ingesters):
            measured = process.measure()
            metrics = self.stage.metrics(number)
            if measured:
                process.samples.append((now, measured[1]))
            seen.append(metrics)
        known = [m for m in seen if m]
        if known:
            self.say(f"stored {sum(m['fleet_reports_total'] for m in known)} reports since their start, "
                     f"waiting in the buffer {max(m['fleet_waiting'] for m in known)}, "
                     f"fetched {max(m['fleet_ack_pending'] for m in known)}")

    def watch_routers(self):
        begun = time.monotonic()
        while self.routers.poll() is None:
            now = time.monotonic() - begun
            self.faults.step(now)
            self.drills.step(now)
            if now > self.options.seconds and self.options.late and not self.stage.ingesters:
                self.say("starting the ingesters")
                self.start_ingesters()
            if now < self.options.seconds:
                for uplink in self.uplinks:
                    uplink.write(now)
            for uplink in self.uplinks:
                uplink.watch()
            self.look(now)
            time.sleep(0.2)
        while self.faults.down and self.options.store_away:
            self.faults.step(time.monotonic() - begun)
            self.look(time.monotonic() - begun)
            time.sleep(0.2)
        self.faults.end()
        if self.routers.returncode not in (0, 4):
            raise RuntimeError(f"the routers ended with status {self.routers.returncode}")

    def is_drained(self):
        known = [self.stage.metrics(i) for i in range(self.options.ingesters)]
        return all(m and m["fleet_consumer"] and m["fleet_waiting"] == 0 and m["fleet_ack_pending"] == 0
                   for m in known)

    def drain(self):
        begun = time.monotonic()
        for uplink in self.uplinks:
            wait_until(lambda u=uplink: u.is_delivered(self.stage), 300, f"all of {uplink.name}'s reports")
        if not self.stage.ingesters:
            self.start_ingesters()
        wait_until(self.is_drained, 600, "an empty buffer")
        took = time.monotonic() - begun
        self.say(f"the buffer is empty {took:.0f} s after the last acknowledgement"
                 " (looked at every 5 s)")
        return took

    def judge(self):
        stage = self.stage
        for process in stage.ingesters:
            status = process.stop(60)
            if status != 0:
                raise RuntimeError(f"{process.name} ended with status {status}")
        for number in range(len(stage.replicas)):
            wait_until(lambda n=number: stage.replica_answers(n), 60, "the replicas answering")
        self.drills.end_refusing()
        begun = time.monotonic()
        cpu = sum(replica.total_cpu() for replica in stage.replicas)
        days = stage.ingest("rollup").split()
        cpu = sum(replica.total_cpu() for replica in stage.replicas) - cpu
        self.say(f"daily sums of {', '.join(days) or 'no day'} took {time.monotonic() - begun:.1f} s, "
                 f"the replicas' CPU {cpu:.1f} s")
        stage.ingest("rollup")  # repeating must change nothing
        print("\nledger against store", flush=True)
        status = subprocess.run(
            [f"{PROGRAMS}/fleet-simulate", "check", "--ledger", stage.path("ledger"),
             "--store", self.drills.judged_store(), "--device-key", DEVICE_KEY,
             "--buffer", stage.buffer_addresses(), "--buffer-ca", stage.path("ca.crt"),
             "--buffer-user", "ingest", "--buffer-password", PASSWORD]).returncode
        if self.uplinks and not uplinks.judge(self.uplinks, stage):
            return status or 3
        return status if self.drills.retain() else status or 3

    def tell_costs(self, seconds):
        print("\nprocess        CPU s  of a core   peak MB")
        for process in self.stage.everything():
            cpu = process.total_cpu()
            print(f"{process.name:12}  {cpu:6.1f}  {100 * cpu / seconds:7.0f} %  {process.peak / 1024:8.0f}")
        for process in self.stage.ingesters:
            settled = [size for at, size in process.samples if at >= 120]
            if len(settled) > 2:
                growth = 100 * (settled[-1] - settled[0]) / settled[0]
                print(f"{process.name}: memory {settled[0] / 1024:.1f} MB after two minutes, "
                      f"{settled[-1] / 1024:.1f} MB at the end ({growth:+.1f} %)")
        rows = self.stage.ask("SELECT sum(rows), sum(bytes) FROM system.parts WHERE active "
                              "AND database = 'usage' AND table = 'reports'").split()
        if int(rows[0]):
            print(f"store: {int(rows[0]):,} rows of reports in {int(rows[1]) / 1e6:.1f} MB, "
                  f"{int(rows[1]) / int(rows[0]):.1f} bytes a row, on each replica")
        violations = sum(self.count_in_log(node, b"Publish Violation") for node in self.stage.nodes)
        print(f"reports in another router's name that the nodes refused: {violations}")

    def count_in_log(self, process, words):
        with open(process.log, "rb") as log:
            return sum(words in line for line in log)

    def go(self):
        self.set_up()
        begun = time.monotonic()
        self.start_routers()
        self.plan_faults()
        self.watch_routers()
        self.drain()
        seconds = time.monotonic() - begun
        for process in self.stage.everything():
            process.measure()
        status = self.judge()
        questions.show(self.stage)
        self.tell_costs(seconds)
        self.say(f"{self.faults.done} faults; " + ("every report is there once, unaltered" if status == 0
                                                   else "NOT every report is there once, unaltered"))
        return status

    def clean_up(self):
        if self.routers and self.routers.poll() is None:
            self.routers.kill()
            self.routers.wait()
        for uplink in self.uplinks:
            uplink.process.stop(10)
        if self.stage:
            self.stage.stop()
        if self.options.keep:
            print(f"data and logs are in {self.folder}")
        else:
            shutil.rmtree(self.folder, ignore_errors=True)


def main():
    options = parse()
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(143))
    run = Run(options)
    try:
        return run.go()
    except KeyboardInterrupt:
        return 130
    except RuntimeError as error:
        options.keep = True
        print(f"script/fleet: {error}", file=sys.stderr)
        return 1
    finally:
        run.clean_up()


sys.exit(main())
