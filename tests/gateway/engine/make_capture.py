#!/usr/bin/env python3
"""Makes a small capture of a home network, and counts what is in it.

make_capture.py OUTDIR writes home.pcap and expected.json: for each client and each application
that its conversations were meant to be, the bytes up and down. The output is the same at every run.
"""

import ipaddress
import json
import os
import struct
import sys

GATEWAY = "02:00:5e:00:00:01"
PC = "02:00:5e:00:00:0a"
PHONE = "02:00:5e:00:00:0b"
TABLET = "02:00:5e:00:00:0c"
CAMERA = "02:00:5e:00:00:0d"  # on VLAN 20
BROADCAST = "ff:ff:ff:ff:ff:ff"
ADDRESSES = {
    GATEWAY: "192.168.1.1",
    PC: "192.168.1.10",
    PHONE: "192.168.1.11",
    TABLET: "2001:db8:1::c",
    CAMERA: "192.168.20.13",
}
CATEGORIES = {
    "Unknown": "Unspecified",
    "DNS": "Network",
    "MDNS": "Network",
    "DHCP": "Network",
    "ICMP": "Network",
    "ICMPV6": "Network",
    "HTTP": "Web",
    "YouTube": "Media",
    "NetFlix": "Video",
    "Dropbox": "Cloud",
}
TCP, UDP, ICMP, ICMPV6 = 6, 17, 1, 58
FIN, SYN, PUSH, ACK = 1, 2, 8, 16


def mac_bytes(mac):
    return bytes.fromhex(mac.replace(":", ""))


class Capture:
    """Frames in order, each with the application that its bytes belong to."""

    def __init__(self):
        self.frames = []
        self.time = 1_700_000_000_000_000
        self.identification = 0
        self.totals = {}

    def wait(self, seconds):
        self.time += int(seconds * 1_000_000)

    def frame(self, source, target, ether_type, body, application, vlan=None, captured=None, wire=None):
        tag = b"" if vlan is None else struct.pack("!HH", 0x8100, vlan)
        data = mac_bytes(target) + mac_bytes(source) + tag + struct.pack("!H", ether_type) + body
        data += b"\0" * (60 - len(data))
        length = wire or len(data)
        self.frames.append((self.time, data[:captured], length))
        self.time += 1500
        for mac, way in ((source, "up"), (target, "down")):
            if mac != GATEWAY and not mac_bytes(mac)[0] & 1:
                row = self.totals.setdefault((mac, application), {"up": 0, "down": 0})
                row[way] += length

    def ip(self, ends, protocol, body, application, fragment=0, identification=0, **options):
        """One packet between ends: (MAC, address) of the sender and of the receiver."""
        (source_mac, source), (target_mac, target) = ends
        source, target = (ipaddress.ip_address(address) for address in (source, target))
        if source.version == 6:
            header = struct.pack("!IHBB", 6 << 28, len(body), protocol, 64)
            packet = header + source.packed + target.packed + body
            self.frame(source_mac, target_mac, 0x86DD, packet, application, **options)
            return
        fields = (0x45, 0, 20 + len(body), identification, fragment, 64, protocol)
        header = struct.pack("!BBHHHBB", *fields) + b"\0\0" + source.packed + target.packed
        self.frame(source_mac, target_mac, 0x0800, header + body, application, **options)

    def udp(self, ends, ports, payload, application, **options):
        body = struct.pack("!HHHH", *ports, 8 + len(payload), 0) + payload
        self.ip(ends, UDP, body, application, **options)

    def pieces(self, ends, protocol, body, application, size=1480):
        """One packet in fragments."""
        self.identification += 1
        for start in range(0, len(body), size):
            more = 0x2000 if start + size < len(body) else 0
            piece = body[start : start + size]
            self.ip(ends, protocol, piece, application, more | start // 8, self.identification)


class Connection:
    """A TCP connection from a client's port to a server."""

    def __init__(self, capture, client, server, ports, application, vlan=None):
        self.capture, self.application, self.vlan = capture, application, vlan
        self.ends, self.ports = (client, server), ports
        self.sequence = [1000, 5000]
        self.segment(0, b"", SYN)
        self.segment(1, b"", SYN | ACK)
        self.segment(0, b"", ACK)

    def segment(self, side, payload, flags=PUSH | ACK, **options):
        ends = self.ends if side == 0 else self.ends[::-1]
        ports = self.ports if side == 0 else self.ports[::-1]
        numbers = (self.sequence[side], self.sequence[1 - side] if flags & ACK else 0)
        header = struct.pack("!HHIIBBHHH", *ports, *numbers, 5 << 4, flags, 64240, 0, 0)
        length = options.pop("length", len(payload))
        self.sequence[side] += length + (1 if flags & (SYN | FIN) else 0)
        body = header + payload
        self.capture.ip(ends, TCP, body, self.application, vlan=self.vlan, **options)

    def ask(self, payload):
        self.segment(0, payload)

    def answer(self, payload, **options):
        self.segment(1, payload, **options)

    def close(self):
        self.segment(0, b"", FIN | ACK)
        self.segment(1, b"", FIN | ACK)
        self.segment(0, b"", ACK)


def dns_name(name):
    return b"".join(bytes([len(part)]) + part.encode() for part in name.split(".")) + b"\0"


def dns_query(number, name):
    return struct.pack("!HHHHHH", number, 0x0100, 1, 0, 0, 0) + dns_name(name) + b"\0\1\0\1"


def dns_answer(number, name, address, more=b""):
    answer = b"\xc0\x0c\0\1\0\1" + struct.pack("!IH", 300, 4) + ipaddress.ip_address(address).packed
    head = struct.pack("!HHHHHH", number, 0x8180, 1, 1, 0, 0)
    return head + dns_name(name) + b"\0\1\0\1" + answer + more


def client_hello(name):
    """A TLS 1.2 hello that names the server."""
    host = name.encode()
    entry = b"\0" + struct.pack("!H", len(host)) + host
    server_name = struct.pack("!HHH", 0, len(entry) + 2, len(entry)) + entry
    ciphers = b"\xc0\x2b\xc0\x2f\xc0\x2c\xc0\x30"
    body = b"\3\3" + bytes(range(32)) + b"\0" + struct.pack("!H", len(ciphers)) + ciphers + b"\1\0"
    body += struct.pack("!H", len(server_name)) + server_name
    hello = b"\1" + struct.pack("!I", len(body))[1:] + body
    return b"\x16\3\1" + struct.pack("!H", len(hello)) + hello


def http_get(host, path="/"):
    return f"GET {path} HTTP/1.1\r\nHost: {host}\r\nUser-Agent: browser\r\nAccept: */*\r\n\r\n".encode()


def http_answer(length):
    head = f"HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: {length}\r\n\r\n"
    return head.encode() + b"a" * min(length, 1000)


def dhcp_request(mac, host_name, vendor_class):
    head = struct.pack("!BBBBIHH", 1, 1, 6, 0, 0x1234, 0, 0) + b"\0" * 16
    head += mac_bytes(mac) + b"\0" * (10 + 64 + 128) + b"\x63\x82\x53\x63"
    options = b"\x35\1\3\x37\4\1\3\6\x0f"
    for code, text in ((12, host_name), (60, vendor_class)):
        options += bytes([code, len(text)]) + text.encode()
    return head + options + b"\xff"


def lan(mac):
    return (mac, ADDRESSES[mac])


def wan(address):
    return (GATEWAY, address)


def look_up(capture, mac, port, name, address):
    ends, ports = (lan(mac), lan(GATEWAY)), (port, 53)
    capture.udp(ends, ports, dns_query(port, name), "DNS")
    capture.udp(ends[::-1], ports[::-1], dns_answer(port, name, address), "DNS")


def arrival(capture):
    """The PC and the phone get their addresses; everybody asks for the router."""
    for mac, name, kind in ((PC, "living-room-pc", "MSFT 5.0"), (PHONE, "my-phone", "android-dhcp-13")):
        ends = ((mac, "0.0.0.0"), (BROADCAST, "255.255.255.255"))
        capture.udp(ends, (68, 67), dhcp_request(mac, name, kind), "DHCP")
        body = struct.pack("!HHBBH", 1, 0x0800, 6, 4, 1) + mac_bytes(mac)
        body += ipaddress.ip_address(ADDRESSES[mac]).packed + b"\0" * 6 + bytes([192, 168, 1, 1])
        capture.frame(mac, BROADCAST, 0x0806, body, "Unknown")
        capture.frame(GATEWAY, mac, 0x0806, body, "Unknown")


def browsing(capture):
    """The PC reads a page, downloads a file (some frames merged, one cut), watches a video."""
    look_up(capture, PC, 50001, "www.example.com", "203.0.113.10")
    page = Connection(capture, lan(PC), wan("203.0.113.10"), (50100, 80), "HTTP")
    page.ask(http_get("www.example.com"))
    page.answer(http_answer(900))
    page.close()
    file = Connection(capture, lan(PC), wan("203.0.113.11"), (50101, 80), "HTTP")
    file.ask(http_get("downloads.example.com", "/file.txt"))
    file.answer(http_answer(1_000_000))
    for _ in range(300):
        file.answer(b"b" * 1448)
    for _ in range(5):
        file.answer(b"b" * 1448, length=65160, captured=200, wire=65160 + 54)
        file.segment(0, b"", ACK)
    file.answer(b"b" * 1448, captured=60)
    file.close()
    look_up(capture, PC, 50002, "www.youtube.com", "203.0.113.12")
    video = Connection(capture, lan(PC), wan("203.0.113.12"), (50102, 443), "YouTube")
    video.ask(client_hello("www.youtube.com"))
    for _ in range(50):
        video.answer(b"\x17\3\3\x05\x00" + bytes(range(256)) * 5)


def uploading(capture):
    """The phone uploads, talks to the PC, pings, and fetches an answer that comes in pieces."""
    upload = Connection(capture, lan(PHONE), wan("198.51.100.5"), (40001, 443), "Dropbox")
    upload.ask(client_hello("client.dropbox.com"))
    for _ in range(120):
        upload.ask(b"\x17\3\3\x05\x00" + bytes(range(256)) * 5)
        upload.segment(1, b"", ACK)
    near = Connection(capture, lan(PHONE), lan(PC), (40002, 80), "HTTP")
    near.ask(http_get("living-room-pc.lan"))
    near.answer(http_answer(500))
    near.close()
    ping = struct.pack("!BBHHH", 8, 0, 0, 1, 1) + b"p" * 56
    for side in (1, -1):
        ends = (lan(PHONE), lan(GATEWAY))[::side]
        capture.ip(ends, ICMP, ping, "ICMP")
        capture.pieces(ends, ICMP, ping + b"p" * 4000, "ICMP")
    ends, ports = (lan(PHONE), lan(GATEWAY)), (40003, 53)
    capture.udp(ends, ports, dns_query(7, "big.example.com"), "DNS")
    answer = dns_answer(7, "big.example.com", "203.0.113.9", b"\0" * 3000)
    body = struct.pack("!HHHH", *ports[::-1], 8 + len(answer), 0) + answer
    capture.pieces(ends[::-1], UDP, body, "DNS")
    for number in range(3):
        noise = bytes((number * 37 + index * 101 + 13) % 251 for index in range(200))
        capture.udp((lan(PHONE), wan("198.51.100.77")), (47111, 47112), noise, "Unknown")


def ipv6_and_vlan(capture):
    """The tablet lives on IPv6, the camera on a VLAN."""
    neighbour = struct.pack("!BBHI", 135, 0, 0, 0) + ipaddress.ip_address("2001:db8:1::1").packed
    capture.ip((lan(TABLET), ("33:33:ff:00:00:01", "ff02::1:ff00:1")), ICMPV6, neighbour, "ICMPV6")
    film = Connection(capture, lan(TABLET), wan("2001:db8:f::1"), (42001, 443), "NetFlix")
    film.ask(client_hello("api-global.netflix.com"))
    for _ in range(40):
        film.answer(b"\x17\3\3\x05\x00" + bytes(range(256)) * 5)
    group = ((TABLET, ADDRESSES[TABLET]), ("33:33:00:00:00:fb", "ff02::fb"))
    capture.udp(group, (5353, 5353), dns_query(0, "_http._tcp.local"), "MDNS")
    still = Connection(capture, lan(CAMERA), wan("203.0.113.20"), (43001, 80), "HTTP", vlan=20)
    still.ask(http_get("camera.example.com", "/status"))
    still.answer(http_answer(300))
    still.close()


def write_pcap(path, frames):
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 1))
        for time, data, length in frames:
            file.write(struct.pack("<IIII", *divmod(time, 1_000_000), len(data), length) + data)


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: make_capture.py OUTDIR")
    capture = Capture()
    for scene in (arrival, browsing, uploading, ipv6_and_vlan):
        scene(capture)
        capture.wait(1)
    rows = [
        {"mac": mac, "application": name, "category": CATEGORIES[name], **row}
        for (mac, name), row in sorted(capture.totals.items())
    ]
    os.makedirs(sys.argv[1], exist_ok=True)
    write_pcap(os.path.join(sys.argv[1], "home.pcap"), capture.frames)
    with open(os.path.join(sys.argv[1], "expected.json"), "w", encoding="ascii") as file:
        json.dump(rows, file, indent=1)


if __name__ == "__main__":
    main()
