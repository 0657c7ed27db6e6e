"""An engine that plays a scenario and the service that samples it, for tests in Python.

Their scripts are called as SCRIPT TRAFFIC_USAGE IDPFWD SHIM [unittest's own arguments], and run in a
mount namespace with a /tmp and a /dev of its own. They end with 77 when the machine lacks what they need.
"""

import http.client
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

PASSWORD = "correct horse"
OWN_FOLDERS = """set -e
mount -t tmpfs none /tmp
mkdir -p /tmp/trend /tmp/dev/shm
for device in null zero random urandom; do
  touch /tmp/dev/$device
  mount --bind /dev/$device /tmp/dev/$device
done
mount --rbind /tmp/dev /dev
OWN_FOLDERS=1 exec "$@"
"""
TRAFFIC_USAGE, IDPFWD, SHIM = (os.path.abspath(path) for path in sys.argv[1:4])


def skip(reason):
    print("skipped: " + reason)
    sys.exit(77)


def main(*programs):
    lacking = [program for program in ("unshare", "openssl", *programs) if shutil.which(program) is None]
    if lacking:
        skip(f"{lacking[0]} is not installed")
    if "OWN_FOLDERS" not in os.environ:
        user = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
        namespace = ["unshare", *user, "--mount", "--propagation", "private", "sh", "-c", OWN_FOLDERS, "sh"]
        if subprocess.run([*namespace, "true"], capture_output=True, check=False).returncode != 0:
            skip("no mount namespace of its own is allowed here")
        os.execvp(namespace[0], [*namespace, sys.executable, *sys.argv])
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)


def password_settings():
    crypted = subprocess.run(["openssl", "passwd", "-6", PASSWORD], capture_output=True, text=True, check=True)
    return {"password": crypted.stdout.strip()}


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(condition, what, seconds=15):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError(f"not within {seconds} s: {what}")


def household(names=("laptop", "phone", "tv"), grows=False):
    users = {name: {"mac": f"02:00:5e:00:00:{16 + at:02x}"} for at, name in enumerate(names)}
    rows = [{"user": name, "app": app, "down": 1000003 * (at + 1), "up": 20011 * (at + 1)}
            for at, name in enumerate(names) for app in ("YouTube", "DNS")]
    steps = [{"users": users, "set": rows}]
    if grows:
        steps.append({"at": 1, "repeat": {"times": 600, "every": 0.5}, "add": rows[:2]})
    return {"categories": {"1": "Media", "2": "Network"}, "steps": steps,
            "applications": {"YouTube": {"category": 1, "id": 1, "behaviour": 0},
                             "DNS": {"category": 2, "id": 2, "behaviour": 0}}}


class Service:
    def __init__(self, scenario, settings=None, zone="Europe/Berlin", listens=True, every=1):
        self.folder = tempfile.mkdtemp()
        self.port = free_port() if listens else None
        self.every = every
        shim = f"{self.folder}/shim"  # no path in a list of what is preloaded may have a space
        os.symlink(SHIM, shim)
        linked = subprocess.run(["ldd", TRAFFIC_USAGE], capture_output=True, text=True, check=True).stdout.split()
        self.preloaded = ":".join([word for word in linked if word.startswith("/") and "libasan" in word] + [shim])
        self.environment = dict(os.environ, IDPFWD_SOCKET=f"{self.folder}/idpfw", TZ=zone,
                                ASAN_OPTIONS="quarantine_size_mb=1:verify_asan_link_order=0:detect_leaks=0")
        for name, content in (("settings.json", settings), ("scenario.json", scenario)):
            if content:
                with open(f"{self.folder}/{name}", "w", encoding="utf-8") as file:
                    json.dump(content, file)
        self.engine = scenario and self.launch([IDPFWD, "--scenario", f"{self.folder}/scenario.json",
                                                "--databases", "/tmp/trend", "--dump", f"{self.folder}/dump"])
        wait_for(lambda: not scenario or "idpfwd" in self.log(), "the engine")
        self.start()
        wait_for(self.answers, "an answer of the service", 30)

    def launch(self, command, **more):
        with open(f"{self.folder}/log", "ab") as log:
            return subprocess.Popen(command, env=dict(self.environment, **more), stdout=log, stderr=log)

    def command(self, *words):
        return [TRAFFIC_USAGE, *words, "--state", f"{self.folder}/state", "--runtime", f"{self.folder}/run"]

    def start(self):
        listen = ["--listen", f"127.0.0.1:{self.port}"] if self.port else []
        self.process = self.launch(self.command("serve", "--instance", "br0", "--every", str(self.every), "--settings",
                                                f"{self.folder}/settings.json", *listen), LD_PRELOAD=self.preloaded)

    def log(self):
        with open(f"{self.folder}/log", encoding="utf-8", errors="replace") as log:
            return log.read()

    def answers(self):
        if self.process.poll() is not None:
            raise AssertionError("the service ended: " + self.log()[-2000:])
        return self.run("show").returncode == 0

    def run(self, *words):
        return subprocess.run(self.command(*words), capture_output=True, text=True, env=self.environment, check=False)

    def show(self, *arguments):
        return json.loads(self.run("show", "--format", "json", *arguments).stdout)

    def sampled(self):
        wait_for(lambda: self.show()["total"]["down"] > 0, "a first sample")
        return self

    def get(self, path, **headers):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        connection.request("GET", path, headers=headers)
        reply = connection.getresponse()
        body = reply.read()
        connection.close()
        return reply.status, body

    def end(self, process, number=signal.SIGTERM):
        process.send_signal(number)
        status = process.wait(20)
        if "Sanitizer" in self.log():
            raise AssertionError(self.log())
        return status

    def close(self):
        for process in filter(None, (self.process, self.engine)):
            self.end(process)
        shutil.rmtree(self.folder)


class ServiceTest(unittest.TestCase):
    def service(self, *arguments, **named):
        made = Service(*arguments, **named)
        self.addCleanup(made.close)
        return made
