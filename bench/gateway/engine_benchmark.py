"""Holds the engine against ndpiReader: packets and bytes per second of processor time, and memory.

usage: engine_benchmark.py ENGINE [--rounds N] [KIND...]

Each capture of make_traffic.py is read by both in turns, and the best of the rounds counts for
each: other programs on the machine only ever add to a figure. Processor time is the process's own,
user and system, from its start to its end.
"""

import argparse
import os
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
KINDS = ("home", "evening", "merged", "flows", "hellos")


def usage_of(process):
    """Processor seconds and largest resident memory (MB) of a process that has ended."""
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{process.args[0]} ended with status {process.returncode}")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def run_engine(engine, capture, folder):
    arguments = [engine, "--capture", capture, "--fast", "--gateway-mac", "02:00:5e:00:00:01",
                 "--device", "socket", "--socket", f"{folder}/socket", "--databases", folder]
    with open(f"{folder}/errors", "w", encoding="utf-8") as errors:
        process = subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=errors, text=True)
    for line in process.stdout:
        if line.endswith("finished\n"):
            process.send_signal(signal.SIGTERM)
    return usage_of(process)


def run_reader(capture):
    arguments = ["ndpiReader", "-q", "-i", capture]
    return usage_of(subprocess.Popen(arguments, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))


def count(capture):
    """Packets and bytes of a capture."""
    packets = 0
    with open(capture, "rb") as file:
        file.seek(24)
        while len(head := file.read(16)) == 16:
            packets += 1
            file.seek(int.from_bytes(head[8:12], "little"), os.SEEK_CUR)
    return packets, os.path.getsize(capture) - 24 - 16 * packets


def measure(kind, arguments, folder):
    capture = os.path.join(folder, f"{kind}.pcap")
    subprocess.run([sys.executable, HERE / "make_traffic.py", kind, capture], check=True)
    packets, size = count(capture)
    best = {}
    for _ in range(arguments.rounds):
        for name, result in (("idpfwd", run_engine(arguments.engine, capture, folder)),
                             ("ndpiReader", run_reader(capture))):
            best[name] = min(best.get(name, result), result)
    os.unlink(capture)
    for name, (seconds, memory) in best.items():
        print(f"{kind:8} {name:11} {packets / seconds / 1e6:8.2f} {size / seconds / 1e6:10.0f} "
              f"{memory:10.1f}", flush=True)
    ratio = best["ndpiReader"][0] / best["idpfwd"][0]
    print(f"{kind:8} idpfwd reads {ratio:.1f} times as much in the same time", flush=True)


def main():
    parser = argparse.ArgumentParser(prog="script/bench --engine")
    parser.add_argument("engine")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("kinds", nargs="*", metavar="KIND", help=", ".join(KINDS))
    arguments = parser.parse_intermixed_args()
    print(f"{'':8} {'':11} {'M packets/s':>8} {'MB/s':>7} {'MB resident':>12}")
    with tempfile.TemporaryDirectory() as folder:
        for kind in arguments.kinds or KINDS:
            measure(kind, arguments, folder)


if __name__ == "__main__":
    main()
