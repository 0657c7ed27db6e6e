"""Makes captures of what a client may send to make the engine grow. The same arguments make the same
bytes.

usage: make_floods.py KIND PACKETS OUTPUT

quic       an Initial of each of many connections, that never go on
fragments  first pieces of datagrams whose other pieces never come
dhcp       a DISCOVER of each of many devices, with a name
arp        an announcement of each of many devices
addresses  a datagram from each of many devices to each of many hosts
"""

import random
import struct
import sys

from make_traffic import GATEWAY, Capture, ipv4

BROADCAST = bytes([255] * 6)
CLIENT = bytes.fromhex("02005e000101")


def udp(ports, body):
    return struct.pack("!HHHH", *ports, 8 + len(body), 0) + body


def device(number):
    return b"\x02\x11" + struct.pack("!I", number)


def host(number):
    return struct.pack("!I", 0xC6120000 + number)


def quic(number, noise):
    head = b"\xc3\0\0\0\1\x08" + noise.randbytes(8) + b"\0\0" + struct.pack("!H", 0x4000 + 1170)
    body = udp((1024 + number % 60000, 443), head + noise.randbytes(1170))
    return CLIENT, GATEWAY, ipv4(bytes([192, 168, 1, 11]), host(number), 17, body)


def fragments(number, noise):
    packet = bytearray(ipv4(bytes([192, 168, 1, 11]), host(number), 17, noise.randbytes(1400)))
    packet[4:8] = struct.pack("!HH", number & 0xFFFF, 0x2000)
    return CLIENT, GATEWAY, bytes(packet)


def dhcp(number, _):
    name = f"device-{number}".encode()
    options = b"\x63\x82\x53\x63\x35\1\1" + bytes([12, len(name)]) + name + b"\xff"
    head = struct.pack("!BBBBIHH16x", 1, 1, 6, 0, number, 0, 0x8000) + device(number) + bytes(202)
    body = udp((68, 67), head + options)
    return device(number), BROADCAST, ipv4(bytes(4), bytes([255] * 4), 17, body)


def arp(number, _):
    address = struct.pack("!I", 0x0A000000 + number)
    body = struct.pack("!HHBBH", 1, 0x800, 6, 4, 1) + device(number) + address + bytes(6) + address
    return device(number), BROADCAST, body


def addresses(number, noise):
    source = struct.pack("!I", 0x0A000000 + number)
    return device(number), GATEWAY, ipv4(source, host(number), 17, udp((5000, 6000), noise.randbytes(80)))


KINDS = {"quic": quic, "fragments": fragments, "dhcp": dhcp, "arp": arp, "addresses": addresses}


def main():
    if len(sys.argv) != 4 or sys.argv[1] not in KINDS:
        sys.exit(__doc__)
    capture, noise = Capture(sys.argv[3]), random.Random(1)
    for number in range(int(sys.argv[2])):
        source, target, packet = KINDS[sys.argv[1]](number, noise)
        capture.frame(source, target, packet, 10, b"\x08\x06" if sys.argv[1] == "arp" else b"\x08\0")


if __name__ == "__main__":
    main()
