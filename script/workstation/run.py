"""Shows the daemon at work and holds its report against the engine's own counters."""

import argparse
import os
import signal
import subprocess
import sys
import time
from pathlib import Path

from private_root import PrivateRoot
from report import compare, print_table, records_of, rows_of
from router import Router, wait_until

PROJECT = Path(__file__).resolve().parents[2]
BUILD = PROJECT / "build/release"
SCENARIO = PROJECT / "gateway/engine/scenario/evening.json"
INSIDE = "WORKSTATION_ROUTER_INSIDE"

# A period ends at the second pass without growth; one more for growth between a pass and the look
# at the counters.
QUIET_LOOKS = 4


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="script/run",
        description="Builds the daemon and shows it at work. Without options: on live packets of a "
        "small LAN in network namespaces of its own, which needs no router and touches nothing.")
    source = parser.add_mutually_exclusive_group()
    source.add_argument("--interface", metavar="NAME", help="watch this interface (needs root)")
    source.add_argument("--capture", metavar="FILE", help="replay this pcap or pcapng file")
    source.add_argument("--scenario", metavar="FILE", help="play this scenario (docs/scenario.md)")
    parser.add_argument("--gateway-mac", metavar="MAC",
                        help="the router's own address on the LAN, for --interface and --capture")
    parser.add_argument("--seconds", type=int, default=None, metavar="N",
                        help="ask for the report after so long at the latest (default 120)")
    return parser.parse_args()


def is_permitted(wrapper):
    return subprocess.run([*wrapper, "true"], capture_output=True).returncode == 0


def enter_namespaces(arguments):
    """Starts this program again in namespaces of its own, where the machine permits them."""
    if INSIDE in os.environ:
        return os.environ[INSIDE]
    user = [] if os.geteuid() == 0 else ["--map-root-user"]
    if arguments.interface and user:
        os.execvp("sudo", ["sudo", sys.executable, *sys.argv])
    network = [] if arguments.interface else ["--net"]
    wrapper = ["unshare", *user, *network, "--mount", "--pid", "--fork", "--kill-child=SIGTERM"]
    if not is_permitted(wrapper):
        if user:
            os.execvp("sudo", ["sudo", sys.executable, *sys.argv])
        return "none"
    sys.exit(run_inside(wrapper))


def run_inside(wrapper):
    """Waits for the program in the namespaces; its end takes along whatever it has started."""
    inside = subprocess.Popen([*wrapper, sys.executable, *sys.argv],
                              env=os.environ | {INSIDE: "own"})
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # Ctrl-C reaches the program itself
    signal.signal(signal.SIGTERM, lambda *_: inside.kill())  # unshare alone would ignore it
    return 143 if inside.wait() < 0 else inside.returncode


def choose_source(arguments, namespaces, root):
    """The engine's options, and the LAN that feeds it, if any."""
    gateway = ["--gateway-mac", arguments.gateway_mac] if arguments.gateway_mac else []
    for kind, file in (("--capture", arguments.capture), ("--scenario", arguments.scenario)):
        if file:
            root.install(Path(file).resolve(strict=True), "/input")
            return [kind, "/input", *(["--fast"] if kind == "--capture" else []), *gateway], None
    if arguments.interface:
        return ["--interface", arguments.interface, *gateway], None
    if namespaces == "none":
        print("This machine permits no network namespaces: playing a scenario instead.")
        root.install(SCENARIO, "/input")
        return ["--scenario", "/input"], None
    from lan import Lan
    print("Building a LAN: bridge br0, three clients, a server beyond the router ...")
    return ["--interface", "br0"], Lan()


def volume(rows, side):
    return f"{sum(row[side] for row in rows.values()) / 1e6:.1f} MB"


def watch(router, seconds):
    """Follows the passes until every period has ended, or time is up; what had ended then."""
    looks = []
    deadline = time.monotonic() + seconds
    while True:
        number = len(looks) + 1
        wait_until(lambda: router.passes() >= number, f"pass {number}", seconds=30)
        counters = router.counters()
        rows = rows_of(counters)
        looks.append(rows)
        print(f"pass {number:2}: {len(counters['users'])} devices, {len(rows)} rows of traffic, "
              f"{volume(rows, 0)} up, {volume(rows, 1)} down, "
              f"{router.records()} periods finished", flush=True)
        recent = looks[-QUIET_LOOKS:]
        ended = {key for key, value in rows.items()
                 if len(recent) == QUIET_LOOKS and all(look.get(key) == value for look in recent)}
        if rows and len(ended) == len(rows) or time.monotonic() > deadline:
            return counters, ended


def show(router, arguments, lan):
    if lan:
        lan.use_the_network()
        print("The clients look names up, download, stream and upload.")
    print("The daemon makes a pass every 10 seconds; a period ends at the second quiet one.")
    counters, ended = watch(router, arguments.seconds or 120)
    if lan:
        lan.wait_until_done()
    print("Asking for the report with SIGUSR1: it comes with the next pass ...", flush=True)
    expected = len(router.published()) + 1
    router.request_report()
    wait_until(lambda: len(router.published()) >= expected, "the report", seconds=30)
    reports = router.published()
    print()
    print_table(reports, counters)
    if arguments.capture:
        print("(A period starts at the time in the capture and ends when the daemon saw it end: now.)")
    print()
    print(f"{len(records_of(reports))} finished periods in {len(reports)} report(s), taken by the "
          "uploader from /tmp/aws_json_dir/aws_traffic_usage_details.json.")
    return compare(reports, counters, ended)


def interrupt(*_):
    raise KeyboardInterrupt


def main():
    arguments = parse_arguments()
    for number in (signal.SIGINT, signal.SIGTERM):  # process 1 of a namespace has no defaults
        signal.signal(number, interrupt)
    namespaces = enter_namespaces(arguments)
    root = PrivateRoot(BUILD)
    router = Router(root)
    try:
        engine_options, lan = choose_source(arguments, namespaces, root)
        router.start(engine_options)
        agrees = show(router, arguments, lan)
    except KeyboardInterrupt:
        print("\nInterrupted.")
        return 130
    except (OSError, RuntimeError, subprocess.CalledProcessError) as error:
        print(f"script/run: {error}", file=sys.stderr)
        return 1
    finally:
        try:
            router.stop()
        finally:
            root.remove()
    return 0 if agrees else 1


sys.exit(main())
