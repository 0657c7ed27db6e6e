"""The router's programs at work in a private root: settings, engine, uploader, daemon."""

import json
import os
import signal
import subprocess
import time
from pathlib import Path

HERE = Path(__file__).parent
PID_FILE = "/var/run/trafficUsageDetailsD.pid"
DAEMON_LOG = "/var/log/daemon.log"
COUNTERS = "/var/log/counters.json"

SETTINGS = {
    "sku_name": "NA",
    "enable_trafficUsageDetails": "1",
    "tud_dbg": "1",  # progress is read from the debug log
}


def wait_until(condition, what, seconds=20):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise RuntimeError(f"waited {seconds} seconds in vain for {what}")
        time.sleep(0.05)


class Router:
    def __init__(self, root, idle_passes):
        self.root = root
        self.settings = SETTINGS | {"tud_max_idle_time": str(idle_passes)}
        self.started = []  # the uploader, then the engine
        self.daemon_pid = None

    def start(self, engine_options):
        self._give_settings()
        self._start_uploader()
        self._start_engine(engine_options)
        self._start_daemon()

    def _give_settings(self):
        settings = self.root.path / "settings"
        settings.write_text("".join(f"{name}={value}\n" for name, value in self.settings.items()))
        self.root.run(["/bin/nvram", "import", "/settings"])

    def _start_uploader(self):
        for tool in ("sleep", "mv"):
            self.root.install(f"/bin/{tool}", f"/bin/{tool}")
        self.root.install(HERE / "aws_json", "/bin/aws_json")
        self.started.append(self.root.start(["/bin/aws_json"]))
        wait_until(lambda: self.root.read("/var/run/aws_json.pid").strip(), "the uploader")

    def _start_engine(self, options):
        self.engine = self.root.start(
            ["/bin/idpfwd", "--device", "socket", "--dump", COUNTERS, *options],
            folder=self._folder(), stdout=subprocess.PIPE, text=True)
        self.started.append(self.engine)
        line = self.engine.stdout.readline().strip()
        if not line:
            raise RuntimeError("the engine did not start")
        print(line)

    def _folder(self):
        """Where files were named from, if one was given."""
        return os.getcwd() if (self.root.path / os.getcwd().lstrip("/")).is_dir() else "/"

    def _start_daemon(self):
        with open(self.root.path / DAEMON_LOG.lstrip("/"), "w") as log:
            self.root.run(["/bin/trafficUsageDetailsD"], stdout=log, stdin=subprocess.DEVNULL,
                          env={"LD_PRELOAD": "/lib/libidpfw-shim.so"})
        wait_until(lambda: self.root.read(PID_FILE), "the daemon's pid file")
        self.daemon_pid = int(self.root.read(PID_FILE))

    def log(self):
        return self.root.read(DAEMON_LOG)

    def passes(self):
        """How many passes the daemon has finished reading."""
        return self.log().count("removeUntrackedTrafficUsageDEntry 1368 count:")

    def records(self):
        """How many finished periods it has recorded."""
        return self.log().count("Save TraffUsageD entry to Traffic Buffer")

    def counters(self):
        """The engine's own counters now."""
        file = self.root.path / COUNTERS.lstrip("/")
        file.unlink(missing_ok=True)
        self.engine.send_signal(signal.SIGUSR1)
        wait_until(file.exists, "the engine's counters")
        return json.loads(file.read_text())

    def published(self):
        """Every report that the uploader has taken."""
        files = sorted((self.root.path / "var/log").glob("published-*.json"))
        return [json.loads(file.read_text(errors="replace")) for file in files]

    def request_report(self):
        os.kill(self.daemon_pid, signal.SIGUSR1)

    def stop(self):
        try:
            if self.daemon_pid is not None:
                os.kill(self.daemon_pid, signal.SIGTERM)
                wait_until(lambda: not self.root.read(PID_FILE), "the daemon's end")
        except ProcessLookupError:
            pass  # it has died; what made it die was said
        finally:
            for process in reversed(self.started):
                process.terminate()
                process.wait()
