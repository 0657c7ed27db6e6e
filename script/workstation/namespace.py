"""What the processes at both ends of the LAN share: their interface, and talk with the parent."""

import signal
import subprocess
import sys
from pathlib import Path

signal.signal(signal.SIGINT, signal.SIG_IGN)  # they end with their parent


def say(what):
    print(what, flush=True)


def wait_for_go():
    """True, each time that the parent says so; ends the process when the parent is gone."""
    if sys.stdin.readline().strip() != "go":
        sys.exit(0)
    return True


def bring_up(interface, addresses, gateway):
    """IPv4 only: neighbour discovery would keep the LAN chattering after everybody is done."""
    Path("/proc/sys/net/ipv6/conf/all/disable_ipv6").write_text("1")
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    for address in addresses:
        subprocess.run(["ip", "address", "add", address, "dev", interface], check=True)
    subprocess.run(["ip", "link", "set", interface, "up"], check=True)
    subprocess.run(["ip", "route", "add", "default", "via", gateway], check=True)
