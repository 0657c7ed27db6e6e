"""Processes that a run starts, and that end with it whatever way it ends."""

import ctypes
import os
import resource
import signal
import subprocess
import time

PR_SET_PDEATHSIG = 1
TICKS = os.sysconf("SC_CLK_TCK")


def tie_to_parent():
    """The kernel kills the child when this program is gone, even when it had no time to clean up."""
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


class Process:
    """A program that can be killed and started again, with what it took to run."""

    def __init__(self, name, command, log, environment=None, memory=None, descriptors=None):
        self.name = name
        self.command = command
        self.log = log
        self.environment = {**os.environ, **(environment or {})}
        self.memory = memory
        self.descriptors = descriptors
        self.process = None
        self.cpu = 0.0
        self.peak = 0
        self.samples = []

    def prepare(self):
        tie_to_parent()
        os.setpgid(0, 0)  # a Ctrl-C is this program's to handle
        if self.memory:
            resource.setrlimit(resource.RLIMIT_AS, (self.memory, self.memory))
        if self.descriptors:
            hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
            resource.setrlimit(resource.RLIMIT_NOFILE, (min(self.descriptors, hard), hard))

    def start(self):
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                self.command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                env=self.environment, preexec_fn=self.prepare)

    def running(self):
        return self.process is not None and self.process.poll() is None

    def measure(self):
        """CPU seconds so far and the resident kilobytes now; keeps the peak."""
        if not self.running():
            return None
        try:
            with open(f"/proc/{self.process.pid}/stat") as file:
                fields = file.read().rsplit(")", 1)[1].split()
            with open(f"/proc/{self.process.pid}/status") as file:
                status = dict(line.split(":", 1) for line in file if ":" in line)
        except OSError:
            return None
        self.peak = max(self.peak, int(status.get("VmHWM", "0").split()[0]))
        return (int(fields[11]) + int(fields[12])) / TICKS, int(status["VmRSS"].split()[0])

    def note_end(self):
        measured = self.measure()
        if measured:
            self.cpu += measured[0]

    def kill(self):
        self.note_end()
        self.process.kill()
        self.process.wait()

    def stop(self, patience=20):
        """Asks it to end; the exit status, or None when it had to be killed."""
        if not self.running():
            return None
        self.note_end()
        self.process.terminate()
        try:
            return self.process.wait(patience)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            return None

    def total_cpu(self):
        measured = self.measure()
        return self.cpu + (measured[0] if measured else 0.0)


def wait_until(condition, patience, what):
    """Calls the condition until it is true; RuntimeError when it doesn't become so."""
    end = time.monotonic() + patience
    while time.monotonic() < end:
        if condition():
            return
        time.sleep(0.2)
    raise RuntimeError(f"{what} did not happen within {patience} seconds")
