"""Makes captures to measure the engine on. The same arguments make the same bytes.

usage: make_traffic.py home|evening|merged|full|flows|hellos OUTPUT

home    10 clients, 12,000 TLS connections of 20 to 60 packets to 400 names, and their look-ups
evening the same with one connection in twenty that is a film: 2,000 packets
merged  home as a card with segmentation offload hands it over: frames of up to 64 KB
full    81,000 packets of 1,514 bytes, of one connection of each of 10 clients
flows   500,000 connections of four packets
hellos  16,000 TLS hellos of 36 segments that never end
"""

import random
import struct
import sys

GATEWAY = bytes.fromhex("02005e000001")
SYN, PUSH_ACK, ACK, SYN_ACK, FIN_ACK = 2, 24, 16, 18, 17


class Capture:
    def __init__(self, path):
        self.file = open(path, "wb")
        self.file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 1))
        self.time = 1_800_000_000_000_000

    def frame(self, source, target, packet, pause, kind=b"\x08\x00"):
        self.time += pause
        head = struct.pack("<IIII", *divmod(self.time, 1_000_000), len(packet) + 14, len(packet) + 14)
        self.file.write(head + target + source + kind + packet)


def ipv4(source, target, protocol, body):
    size = 20 + len(body)
    head = struct.pack("!BBHHHBBH", 0x45, 0, size if size < 65536 else 0, 0, 0x4000, 64, protocol, 0)
    return head + source + target + body


class Connection:
    """One TCP connection of a client, packet by packet."""

    def __init__(self, capture, client, server, port, pause):
        self.capture, self.pause, self.port = capture, pause, port
        self.ends = [bytes([192, 168, 1, 10 + client]), server]
        self.macs = [bytes.fromhex("02005e0001") + bytes([client]), GATEWAY]
        self.sequence = [1000, 5000]

    def send(self, side, flags, payload=b""):
        ports = (self.port, 443) if side == 0 else (443, self.port)
        numbers = self.sequence[side], self.sequence[1 - side] if flags & ACK else 0
        body = struct.pack("!HHIIBBHHH", *ports, *numbers, 0x50, flags, 64240, 0, 0) + payload
        packet = ipv4(self.ends[side], self.ends[1 - side], 6, body)
        self.capture.frame(self.macs[side], self.macs[1 - side], packet, self.pause)
        self.sequence[side] += len(payload) + (1 if flags & (SYN | 1) else 0)

    def open(self):
        self.send(0, SYN)
        self.send(1, SYN_ACK)
        self.send(0, ACK)


def record(kind, body):
    return struct.pack("!BHH", kind, 0x303, len(body)) + body


def client_hello(name, padding=0):
    host = b"\0" + struct.pack("!H", len(name)) + name
    extensions = struct.pack("!HHH", 0, len(host) + 2, len(host)) + host
    if padding:
        extensions += struct.pack("!HH", 21, padding) + bytes(padding)
    ciphers = b"\xc0\x2b\xc0\x2f\xc0\x2c\xc0\x30"
    body = b"\3\3" + bytes(32) + b"\0" + struct.pack("!H", len(ciphers)) + ciphers + b"\1\0"
    body += struct.pack("!H", len(extensions)) + extensions
    return record(22, b"\1" + struct.pack("!I", len(body))[1:] + body)


def server_hello():
    body = b"\3\3" + bytes(32) + b"\0\xc0\x2f\0"
    return record(22, b"\2" + struct.pack("!I", len(body))[1:] + body) + record(20, b"\1")


def query(name, number):
    labels = b"".join(bytes([len(part)]) + part for part in name.split(b".")) + b"\0"
    return struct.pack("!HHHHHH", number, 0x0100, 1, 0, 0, 0) + labels + b"\0\1\0\1"


def names():
    known = [b"www.youtube.com", b"www.netflix.com", b"www.instagram.com", b"web.whatsapp.com",
             b"api.spotify.com", b"www.google.com", b"outlook.office365.com", b"www.amazon.com"]
    return known + [f"host{number}.site{number % 40}.example.org".encode() for number in range(392)]


def home(capture, payload, film=0):
    generator = random.Random(1)
    hosts = names()
    for number in range(12_000):
        client, host = number % 10, generator.randrange(len(hosts))
        server = bytes([203, host >> 8, host & 255, 1 + number % 4])
        ends = bytes([192, 168, 1, 10 + client]), bytes([192, 168, 1, 1])
        question = query(hosts[host], number & 0xFFFF)
        datagram = struct.pack("!HHHH", 20000 + number % 30000, 53, 8 + len(question), 0) + question
        mac = bytes.fromhex("02005e0001") + bytes([client])
        capture.frame(mac, GATEWAY, ipv4(*ends, 17, datagram), 200)
        connection = Connection(capture, client, server, 10000 + number % 50000, 150)
        connection.open()
        connection.send(0, PUSH_ACK, client_hello(hosts[host]))
        connection.send(1, PUSH_ACK, server_hello())
        connection.send(0, PUSH_ACK, record(20, b"\1") + record(22, bytes(40)))
        for _ in range(film if film and number % 20 == 0 else generator.randrange(7, 27)):
            connection.send(1, PUSH_ACK, record(23, bytes(payload - 5)))
            connection.send(0, ACK)
        connection.send(0, FIN_ACK)
        connection.send(1, FIN_ACK)


def full(capture):
    for client in range(10):
        connection = Connection(capture, client, bytes([203, 0, 113, 1 + client]), 40000 + client, 12)
        for _ in range(8_100):
            connection.send(1, PUSH_ACK, record(23, bytes(1455)))


def flows(capture):
    for number in range(500_000):
        server = bytes([198, number >> 16, number >> 8 & 255, number & 255])
        connection = Connection(capture, number % 10, server, 1024 + number % 60000, 20)
        connection.open()
        connection.send(0, PUSH_ACK, client_hello(b"www.example.org"))


def hellos(capture):
    hello = client_hello(b"www.youtube.com", padding=40_000)
    for number in range(16_000):
        server = bytes([198, 51, number >> 8, number & 255])
        connection = Connection(capture, number % 10, server, 1024 + number % 60000, 5)
        connection.open()
        for start in range(0, 36 * 1100, 1100):
            connection.send(0, PUSH_ACK, hello[start : start + 1100])


def main():
    kinds = {"home": lambda to: home(to, 1400),
             "evening": lambda to: home(to, 1400, film=1000), "merged": lambda to: home(to, 16_000),
             "full": full, "flows": flows, "hellos": hellos}
    if len(sys.argv) != 3 or sys.argv[1] not in kinds:
        sys.exit(__doc__)
    kinds[sys.argv[1]](Capture(sys.argv[2]))


if __name__ == "__main__":
    main()
