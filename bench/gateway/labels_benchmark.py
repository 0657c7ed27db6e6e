"""Holds the engine's applications against those of ndpiReader, byte by byte, on the captures of a folder.

usage: labels_benchmark.py ENGINE FOLDER [--all]

For each capture that differs (--all: for each one) the bytes that both list, how many of them the
engine has under another application, and where they are. Then the sum over all captures.

What ndpiReader lists otherwise by construction:
- Look-ups count as what was asked for ("DNS.Google"), here as DNS: its list of flows tells both.
- What is no IP, later fragments and cut packets are not listed; here they are counted as unknown,
  or with the flow that they belong to. So many bytes more don't count as a difference.
- Link types other than Ethernet: the engine has no devices there. Frames from no device's address
  (all zero) are in no device's count, and there are 63 devices at most. Captures of which the engine
  lists less are left out, and counted.
"""

import argparse
import collections
import csv
import json
import signal
import subprocess
import tempfile
from pathlib import Path

UNKNOWN, DNS = 0, 5


def read_by_reader(capture, folder):
    """Bytes by application, and the names of the applications."""
    listed, names = collections.Counter(), {}
    table = Path(folder, "flows.csv")
    subprocess.run(["ndpiReader", "-q", "-i", capture, "-C", table], check=False,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    with open(table, encoding="latin-1", newline="") as file:
        for flow in csv.DictReader(file):
            ids = [int(part) for part in flow["ndpi_proto_num"].split(".")]
            application = DNS if ids[0] == DNS else ids[-1]
            name = flow["ndpi_proto"].split(".", len(ids) - 1)  # there are names with a dot
            names[application] = name[0 if application == DNS else -1]
            listed[application] += int(flow["c_to_s_bytes"]) + int(flow["s_to_c_bytes"])
    table.unlink()
    return listed, names


def read_by_engine(engine, capture, folder):
    """The same; nothing when it refuses the capture, or had no room for all of its devices."""
    dump = Path(folder, "dump.json")
    arguments = [engine, "--capture", capture, "--fast", "--device", "socket", "--dump", dump,
                 "--socket", f"{folder}/socket", "--databases", folder]
    with subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                          text=True) as process:
        for line in process.stdout:
            if line.endswith("finished\n"):
                process.send_signal(signal.SIGTERM)
    if process.returncode != 0:
        return None, {}
    listed, names = collections.Counter(), {}
    tables = json.loads(dump.read_text(encoding="utf-8"))
    if tables["overflow"]["packets"] or tables["forgotten"]["packets"]:
        return None, {}
    for user in tables["users"]:
        for row in user["rows"]:
            listed[row["app_id"]] += row["up_bytes"]
            names[row["app_id"]] = row["application"]
    return listed, names


def difference(reader, engine):
    """Bytes that the engine has under another application than the reader, at least."""
    missing = sum((reader - engine).values())
    more = sum(count for application, count in (engine - reader).items() if application != UNKNOWN)
    return max(missing, more - (engine.total() - reader.total()))


def show(capture, total, differing, reader, engine, names):
    print(f"{capture.name:56} {total:12,} {differing:11,}")
    for application in sorted(reader.keys() | engine.keys()):
        if reader[application] != engine[application]:
            print(f"    {names[application]:28} {reader[application]:12,} "
                  f"{engine[application]:12,}")


def main():
    parser = argparse.ArgumentParser(prog="script/bench --labels")
    parser.add_argument("engine")
    parser.add_argument("folder", type=Path)
    parser.add_argument("--all", action="store_true", help="name captures without a difference too")
    arguments = parser.parse_args()
    print(f"{'capture, and applications: ndpiReader, the engine':56} {'bytes':>12} {'otherwise':>11}")
    total = otherwise = held = same = left_out = 0
    with tempfile.TemporaryDirectory() as folder:
        for capture in sorted(arguments.folder.iterdir()):
            engine, names = read_by_engine(arguments.engine, capture, folder)
            reader, more_names = read_by_reader(capture, folder)
            if engine is None or not reader or engine.total() < reader.total():
                left_out += 1
                continue
            differing = difference(reader, engine)
            held, same = held + 1, same + (differing == 0)
            total, otherwise = total + reader.total(), otherwise + differing
            if differing or arguments.all:
                show(capture, reader.total(), differing, reader, engine, names | more_names)
    print(f"{held} captures, {same} of them without a difference; {left_out} were left out")
    print(f"{total:,} bytes, {otherwise:,} of them under another application: "
          f"{100 * otherwise / max(total, 1):.4f} %")


if __name__ == "__main__":
    main()
