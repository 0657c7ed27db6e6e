"""What the devices of the table are called."""

import json
import socket
import subprocess
import threading
import time

LOOK_UP_SECONDS = 3


def neighbours(interface):
    """MAC -> address, of the kernel's neighbour table of an interface; link-local ones only where
    there is nothing better."""
    listing = subprocess.run(["ip", "-json", "neighbour", "show", "dev", interface],
                             capture_output=True, text=True)
    entries = json.loads(listing.stdout or "[]") if listing.returncode == 0 else []
    found = {}
    for entry in sorted(entries, key=lambda entry: entry["dst"].startswith("fe80")):
        if "lladdr" in entry:
            found.setdefault(entry["lladdr"].upper(), entry["dst"])
    return found


def address_of(user):
    """The address that the engine has seen the device use: from its packets, ARP included."""
    return user.get("ipv4") or user.get("ipv6")


def looked_up(addresses):
    """Address -> name, of those that the name server knows; it is not waited for for long."""
    found = {}

    def ask(address):
        try:
            found[address] = socket.gethostbyaddr(address)[0]
        except OSError:
            pass

    threads = [threading.Thread(target=ask, args=[address], daemon=True) for address in addresses]
    for thread in threads:
        thread.start()
    deadline = time.monotonic() + LOOK_UP_SECONDS
    for thread in threads:
        thread.join(max(0, deadline - time.monotonic()))
    return dict(found)


def names_of(counters, interface=None, look_up=False):
    """MAC -> what to call it: the name that it said by DHCP, else its address, or the name that the
    address has. A device of which nothing is known is not in it."""
    known = neighbours(interface) if interface else {}
    names, addresses = {}, {}
    for user in counters["users"]:
        mac = user["mac"].upper()
        if user["host_name"]:
            names[mac] = user["host_name"]
        elif address := address_of(user) or known.get(mac):
            addresses[mac] = address
    found = looked_up(set(addresses.values())) if look_up else {}
    return names | {mac: found.get(address, address) for mac, address in addresses.items()}
