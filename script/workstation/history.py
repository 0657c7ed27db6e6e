"""The history service beside the daemon, asked as anybody would, and held against the engine."""

import json
import subprocess
import time
from datetime import datetime

from router import wait_until

INSTANCE = "lan"
LOG = "/var/log/history.log"
PAGE = ("127.0.0.1", 8080)  # where the LAN's router is
SAMPLING_SECONDS = 2


def rows_of(counters):
    """(MAC, category, application) -> (up, down), as the history names them."""
    rows = {}
    for user in counters["users"]:
        for row in user["rows"]:
            category = row["category"] or f"Category {row['cat_id']}"
            application = row["application"] or f"Application {row['cat_id']}/{row['app_id']}"
            if row["up_bytes"] or row["down_bytes"]:
                rows[(user["mac"].upper(), category, application)] = (row["up_bytes"],
                                                                      row["down_bytes"])
    return rows


class History:
    def __init__(self, root):
        self.root = root
        self.process = None

    def start(self, has_page):
        for folder in ("state", "runtime"):
            (self.root.path / "history" / folder).mkdir(parents=True)
        listen = ":".join(map(str, PAGE)) if has_page else "none"
        with open(self.root.path / LOG.lstrip("/"), "w") as log:
            self.process = self.root.start(
                [*self.command("serve"), "--every", str(SAMPLING_SECONDS), "--listen", listen],
                stdout=log, stderr=log, env={"LD_PRELOAD": "/lib/libidpfw-shim.so"})
        wait_until(lambda: self.ask() is not None, "the history service", seconds=30)

    @staticmethod
    def command(name):
        return ["/bin/traffic-usage", name, "--instance", INSTANCE, "--state", "/history/state",
                "--runtime", "/history/runtime"]

    def ask(self):
        """Everything of today and yesterday by device and application; None without an answer."""
        if self.process.poll() is not None:
            raise RuntimeError(f"the history service has ended: {self.root.read(LOG).strip()}")
        show = self.root.start([*self.command("show"), "--since", "24h", "--by",
                                "device,application", "--format", "json"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        answer = show.communicate()[0]
        return json.loads(answer) if show.returncode == 0 else None

    def _ask_after(self, moment, seconds=20):
        """An answer with a sample that was taken later than that."""
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            answer = self.ask()
            sampled = answer and answer["state"]["last_sample"]
            if sampled and datetime.fromisoformat(sampled).timestamp() > moment:
                return answer
            time.sleep(0.5)
        raise RuntimeError(f"waited {seconds} seconds in vain for a sample of the history")

    def compare(self, router):
        """Prints how the history stands to the engine's counters; True when they agree."""
        before = rows_of(router.counters())
        answer = self._ask_after(time.time() + 1)  # moments are told in whole seconds
        after = rows_of(router.counters())
        kept = {(row["device"]["mac"].upper(), row["category"], row["application"]):
                (row["up"], row["down"]) for row in answer["rows"]}
        quiet = {key: value for key, value in before.items() if after.get(key) == value}
        faults = {key: value for key, value in quiet.items() if kept.get(key) != value}
        for key, value in faults.items():
            print(f"DISAGREES: {' / '.join(key)}: in the history {kept.get(key)}, counted {value}")
        print(f"history: {len(quiet) - len(faults)} of {len(quiet)} rows agree with the engine's "
              "counters to the byte")
        return not faults

    def stop(self):
        if self.process is not None:
            self.process.terminate()
            self.process.wait()
