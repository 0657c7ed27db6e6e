"""The command line of script/run; called itself, it only judges it: before anything takes time."""

import argparse
import os
import re
import shutil
import signal
from pathlib import Path


def make_parser():
    parser = argparse.ArgumentParser(
        prog="script/run", allow_abbrev=False,
        description="Builds the daemon and shows it at work. Without options: on live packets of a "
        "small LAN in network namespaces of its own, which needs no router and touches nothing.")
    source = parser.add_mutually_exclusive_group()
    source.add_argument("--interface", metavar="NAME", help="watch this interface (needs root)")
    source.add_argument("--capture", metavar="FILE", help="replay this pcap or pcapng file")
    source.add_argument("--scenario", metavar="FILE", help="play this scenario (docs/scenario.md)")
    parser.add_argument("--gateway-mac", metavar="MAC",
                        help="the router's own address on the LAN, for --interface and --capture")
    parser.add_argument("--seconds", type=int, default=120, metavar="N",
                        help="ask for the report after so long at the latest (default 120)")
    parser.add_argument("--idle-passes", type=int, default=1, metavar="N",
                        help="a period ends after so many passes without growth, and one more "
                        "(default here 1; the daemon's own is 30, five minutes)")
    parser.add_argument("--stay", action="store_true",
                        help="leave the LAN with its clients at work until Ctrl-C, and print how to "
                        "look at it")
    parser.add_argument("--look-up-names", action="store_true",
                        help="ask the name server for devices that did not say their name")
    return parser


def fault_of_file(option, path):
    if not os.path.exists(path):
        return f"{option} {path}: there is no such file"
    if not os.path.isfile(path):
        return f"{option} {path}: this is no file"
    if not os.access(path, os.R_OK):
        return f"{option} {path}: you may not read it"
    return None


def fault_of_interface(name):
    if not name or "/" in name or not Path("/sys/class/net", name).exists():
        known = ", ".join(sorted(entry.name for entry in Path("/sys/class/net").iterdir()))
        return f"--interface {name}: there is no such interface (there are {known})"
    if os.geteuid() != 0 and not shutil.which("sudo"):
        return f"--interface {name}: reading its packets needs root, and there is no sudo here"
    return None


def fault_of(arguments):
    """What is wrong with them, in the user's words; None when nothing is."""
    for option, path in (("--capture", arguments.capture), ("--scenario", arguments.scenario)):
        if path is not None and (fault := fault_of_file(option, path)):
            return fault
    if arguments.interface is not None and (fault := fault_of_interface(arguments.interface)):
        return fault
    if arguments.gateway_mac is not None:
        if arguments.capture is None and arguments.interface is None:
            return "--gateway-mac is for --interface and --capture"
        if not re.fullmatch("[0-9a-fA-F]{2}(:[0-9a-fA-F]{2}){5}", arguments.gateway_mac):
            return f"--gateway-mac {arguments.gateway_mac}: this is no aa:bb:cc:dd:ee:ff"
    if arguments.stay and (arguments.interface or arguments.capture or arguments.scenario):
        return "--stay is for the LAN of its own: without --interface, --capture and --scenario"
    for option, number in (("--seconds", arguments.seconds),
                           ("--idle-passes", arguments.idle_passes)):
        if number < 1:
            return f"{option} {number}: must be above 0"
    return None


def parse():
    """The arguments; a wrong one ends the program with a sentence and status 2."""
    parser = make_parser()
    arguments = parser.parse_args()
    if fault := fault_of(arguments):
        parser.error(fault)
    return arguments


if __name__ == "__main__":
    signal.signal(signal.SIGINT, signal.SIG_DFL)  # no traceback
    parse()
