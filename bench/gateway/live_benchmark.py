"""Measures the engine on a live interface: what a pause costs, what several readers gain, what floods
make of its memory. Everything happens between two virtual cards in a network namespace of its own.

usage: live_benchmark.py ENGINE [pause] [readers] [floods]

pause    the engine is stopped while a second of full-sized packets at 1 Gbit/s passes by: with a ring
         for it, and with the ring that it has by itself
readers  the engine is stopped until the ring holds home-like traffic, or 500,000 conversations; how long
         it then takes to count it, with one reader and with two, and that they count the same as from
         the file
floods   half a million packets of each kind, as fast as they can be sent

Needs root and tcpreplay; two idle cores for the figures to mean something.
"""

import argparse
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
SENT_FROM, SEEN_BY = "from0", "seen0"
ROUNDS = 5
FLOOD = 500_000


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def make_cards():
    run("ip", "link", "set", "lo", "up")
    run("ip", "link", "add", SENT_FROM, "type", "veth", "peer", "name", SEEN_BY)
    for card in (SENT_FROM, SEEN_BY):
        # What the cards' own kernel would say is no part of the traffic.
        Path(f"/proc/sys/net/ipv6/conf/{card}/disable_ipv6").write_text("1", encoding="ascii")
        run("ip", "link", "set", card, "arp", "off", "mtu", "9000", "up")


def make(script, *arguments):
    subprocess.run([sys.executable, HERE / script, *arguments], check=True)


def send(capture, *speed):
    """Packets a second that were reached."""
    told = run("tcpreplay", "--preload-pcap", "--intf1", SENT_FROM, *speed, capture)
    return float(re.search(r"([\d.]+) pps", told).group(1))


class Engine:
    """The engine at work on one source, until it is left."""

    def __init__(self, program, folder, *source):
        self.folder = folder
        self.dump = Path(folder, "dump.json")
        self.errors = open(Path(folder, "errors"), "w", encoding="utf-8")
        self.process = subprocess.Popen(
            [program, *source, "--gateway-mac", "02:00:5e:00:00:01", "--device", "socket",
             "--socket", f"{folder}/socket", "--databases", folder, "--dump", self.dump],
            stdout=subprocess.PIPE, stderr=self.errors, text=True)
        while "at most" not in (line := self.process.stdout.readline()):
            if not line:
                sys.exit(Path(folder, "errors").read_text(encoding="utf-8"))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGCONT)
        self.process.terminate()
        self.process.wait()
        self.errors.close()

    def signal(self, number):
        self.process.send_signal(number)

    def computing(self):
        """Nanoseconds of all threads."""
        tasks = Path(f"/proc/{self.process.pid}/task").glob("*/schedstat")
        return sum(int(task.read_text(encoding="ascii").split()[0]) for task in tasks)

    def busy_until(self):
        """The moment when it had nothing left to do: a quarter of a second shows no work."""
        done, last = self.computing(), time.monotonic()
        while time.monotonic() - last < 0.25:
            time.sleep(0.002)
            now = self.computing()
            if now - done > 300_000:
                done, last = now, time.monotonic()
        return last

    def resident(self):
        """Megabytes, at most so far."""
        status = Path(f"/proc/{self.process.pid}/status").read_text(encoding="ascii")
        return int(re.search(r"VmHWM:\s+(\d+)", status).group(1)) / 1024

    def counters(self):
        """At the end of the engine, when everything is shown."""
        self.process.terminate()
        self.process.wait()
        return json.loads(self.dump.read_text(encoding="utf-8"))


def totals(counters):
    """Packets and bytes of each device and application."""
    return {(user["mac"], row["application"]): (row["down_packets"] + row["up_packets"],
                                                row["down_bytes"] + row["up_bytes"])
            for user in counters["users"] for row in user["rows"]}


def counted(counters):
    return sum(packets for packets, _ in totals(counters).values())


def live(arguments, folder, *options):
    return Engine(arguments.engine, folder, "--interface", SEEN_BY, *options)


def measure_pause(arguments, folder):
    capture = f"{folder}/pause.pcap"
    make("make_traffic.py", "full", capture)
    for ring in (144, 8):
        with live(arguments, folder, "--ring", str(ring)) as engine:
            engine.signal(signal.SIGSTOP)
            speed = send(capture, "--pps", "81000", "--limit", "81000")
            engine.signal(signal.SIGCONT)
            engine.busy_until()
            memory = engine.resident()
            result = engine.counters()
        print(f"pause    --ring {ring:3}: {speed:.0f} packets/s for a second, {counted(result)} counted, "
              f"{result['capture_drops']} dropped, {memory:.0f} MB resident", flush=True)


def drain(arguments, folder, capture, readers):
    """Seconds that a full ring takes, and what was counted."""
    with live(arguments, folder, "--ring", "1000", "--readers", str(readers)) as engine:
        time.sleep(1.5)  # the threads begin with the first work
        engine.signal(signal.SIGSTOP)
        send(capture, "--topspeed")
        begun = time.monotonic()
        engine.signal(signal.SIGCONT)
        seconds = engine.busy_until() - begun
        result = engine.counters()
    if result["capture_drops"] != 0:
        sys.exit(f"{result['capture_drops']} packets did not fit into the ring")
    return seconds, totals(result)


def measure_readers(arguments, folder):
    for kind in ("home", "flows"):
        capture = f"{folder}/readers.pcap"
        make("make_traffic.py", kind, capture)
        with Engine(arguments.engine, folder, "--capture", capture, "--fast") as engine:
            while "finished" not in engine.process.stdout.readline():
                pass
            expected = totals(engine.counters())
        best, otherwise = {}, 0
        for _ in range(ROUNDS):
            for readers in (1, 2):
                seconds, result = drain(arguments, folder, capture, readers)
                best[readers] = min(best.get(readers, seconds), seconds)
                otherwise += sum(abs(result.get(key, (0, 0))[1] - expected.get(key, (0, 0))[1])
                                 for key in result.keys() | expected.keys())
        print(f"readers  {kind}: one {best[1]:.3f} s, two {best[2]:.3f} s, {best[1] / best[2]:.2f} times "
              f"as fast, {otherwise} bytes otherwise than from the file in all rounds", flush=True)


def measure_floods(arguments, folder):
    for kind in ("quic", "fragments", "dhcp", "arp", "addresses", "hellos", "flows"):
        capture = f"{folder}/flood.pcap"
        if kind in ("hellos", "flows"):
            make("make_traffic.py", kind, capture)
        else:
            make("make_floods.py", kind, str(FLOOD), capture)
        with live(arguments, folder) as engine:
            speed = send(capture, "--topspeed")
            engine.busy_until()
            memory = engine.resident()
            result = engine.counters()
        refused = sum(device["packets"] for device in result["refused"])
        print(f"floods   {kind:9}: {speed:7.0f} packets/s, {counted(result)} counted, "
              f"{result['capture_drops']} dropped, {refused} of refused devices told, "
              f"{memory:.0f} MB resident", flush=True)


def main():
    parts = {"pause": measure_pause, "readers": measure_readers, "floods": measure_floods}
    parser = argparse.ArgumentParser(prog="script/bench --live")
    parser.add_argument("engine")
    parser.add_argument("parts", nargs="*", metavar="PART", help=", ".join(parts))
    arguments = parser.parse_args()
    if os.geteuid() != 0 or shutil.which("tcpreplay") is None:
        sys.exit("script/bench --live needs root, and tcpreplay")
    if os.environ.get("IN_NAMESPACE") != "1":
        os.execvpe("unshare", ["unshare", "--net", sys.executable, *sys.argv],
                   {**os.environ, "IN_NAMESPACE": "1"})
    make_cards()
    with tempfile.TemporaryDirectory() as folder:
        for part in arguments.parts or parts:
            parts[part](arguments, folder)


if __name__ == "__main__":
    main()
