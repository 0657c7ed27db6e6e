"""A home network in namespaces: a router with "br0", clients on it, a server beyond it."""

import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

HERE = Path(__file__).parent
GATEWAY = "192.168.77.1"
SERVER = "198.51.100.10"


@dataclass
class Client:
    name: str  # its host name
    mac: str
    address: str
    vendor_class: str  # how its DHCP client introduces itself
    actions: str


CLIENTS = [
    Client("laptop", "02:00:5e:00:00:11", "192.168.77.11", "MSFT 5.0",
           "https:www.youtube.com:16000000 https:github.com:200000 upload:drive.google.com:4000000"),
    Client("phone", "02:00:5e:00:00:12", "192.168.77.12", "android-dhcp-13",
           "https:www.instagram.com:900000 https:web.whatsapp.com:60000 http:neverssl.com:40000"),
    Client("tv", "02:00:5e:00:00:13", "192.168.77.13", "udhcp 1.36.1",
           "https:www.netflix.com:9000000 https:api.spotify.com:300000"),
]


def ip(*words):
    subprocess.run(["ip", *words], check=True)


def set_sysctl(name, value):
    Path("/proc/sys", name).write_text(value)


class Namespace:
    """A process in a network namespace of its own, which waits for its interface to work on."""

    def __init__(self, script, *arguments):
        self.process = subprocess.Popen(
            ["unshare", "--net", sys.executable, str(HERE / script), *arguments],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.expect("in its namespace")

    def expect(self, what):
        line = self.process.stdout.readline().strip()
        if line != what:
            name = Path(self.process.args[3]).name
            raise RuntimeError(f"the LAN's {name} said {line!r} instead of {what!r}")

    def tell(self, what):
        self.process.stdin.write(what + "\n")
        self.process.stdin.flush()

    def give(self, interface):
        ip("link", "set", interface, "netns", str(self.process.pid))
        self.tell("go")


class Lan:
    """Builds everything in the namespace that it runs in, which becomes the router."""

    def __init__(self):
        ip("link", "set", "lo", "up")
        ip("link", "add", "name", "br0", "address", "02:00:5e:00:00:01", "type", "bridge")
        set_sysctl("net/ipv6/conf/br0/disable_ipv6", "1")
        ip("address", "add", f"{GATEWAY}/24", "dev", "br0")
        ip("link", "set", "br0", "up")
        set_sysctl("net/ipv4/ip_forward", "1")

        self.server = Namespace("servers.py", SERVER)
        ip("link", "add", "name", "wan0", "type", "veth", "peer", "name", "internet0")
        ip("address", "add", "198.51.100.1/24", "dev", "wan0")
        ip("link", "set", "wan0", "up")
        self.server.give("internet0")
        self.server.expect("serving")

        self.busy = []
        self.clients = [self._connect(client) for client in CLIENTS]

    @staticmethod
    def _connect(client):
        port = f"port-{client.name}"
        namespace = Namespace("client.py", client.name, client.mac, client.address, GATEWAY, SERVER,
                              client.vendor_class, *client.actions.split())
        ip("link", "add", "name", port, "type", "veth", "peer", "name", "home0",
           "address", client.mac)
        set_sysctl(f"net/ipv6/conf/{port}/disable_ipv6", "1")
        ip("link", "set", port, "master", "br0", "up")
        namespace.give("home0")
        namespace.expect("connected")
        return namespace

    def use_the_network(self):
        """Lets all clients do what they do, at the same time."""
        for client in self.clients:
            client.tell("go")
            self.busy.append(client)

    def wait_until_done(self):
        while self.busy:
            self.busy[0].expect("done")
            self.busy.pop(0)
