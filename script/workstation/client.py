"""A device of the household: introduces itself by DHCP, then uses the network when told to."""

import socket
import ssl
import struct
import subprocess
import sys
import time

from namespace import bring_up, say, wait_for_go


def introduce(name, mac, address, vendor_class):
    """A DHCPINFORM: the device has its address, but says who it is."""
    options = b"\x63\x82\x53\x63" + b"\x35\x01\x08"
    options += bytes([12, len(name)]) + name.encode()
    options += bytes([60, len(vendor_class)]) + vendor_class.encode()
    options += b"\x37\x06\x01\x03\x06\x0f\x2c\x2e" + b"\xff"
    hardware = bytes.fromhex(mac.replace(":", ""))
    message = struct.pack(">BBBBIHH4s4s4s4s16s192x", 1, 1, 6, 0, 0x5EED, 0, 0,
                          socket.inet_aton(address), bytes(4), bytes(4), bytes(4), hardware)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        sender.bind((address, 68))
        sender.sendto(message + options, ("255.255.255.255", 67))


def look_up(host, server):
    labels = b"".join(bytes([len(label)]) + label.encode() for label in host.split("."))
    query = struct.pack(">HHHHHH", 0x1234, 0x0100, 1, 0, 0, 0) + labels + b"\0\0\1\0\1"
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as resolver:
        resolver.settimeout(5)
        resolver.sendto(query, (server, 53))
        return socket.inet_ntoa(resolver.recv(512)[-4:])


def exchange(connection, host, method, size):
    upload = size if method == "POST" else 0
    path = "/" if method == "POST" else f"/{size}"
    head = (f"{method} {path} HTTP/1.1\r\nHost: {host}\r\nContent-Length: {upload}\r\n"
            "User-Agent: demonstration\r\nConnection: close\r\n\r\n")
    connection.sendall(head.encode())
    for _ in range(0, upload, 65536):
        connection.sendall(bytes(65536))
    while connection.recv(65536):
        pass


def use(action, server):
    """Does one "KIND:HOST:SIZE": a look-up, then a download or an upload."""
    kind, host, size = action.split(":")
    address = look_up(host, server)
    port = 80 if kind == "http" else 443
    method = "POST" if kind == "upload" else "GET"
    size = int(size) // 65536 * 65536 if kind == "upload" else int(size)
    with socket.create_connection((address, port), timeout=20) as plain:
        if kind == "http":
            exchange(plain, host, method, size)
            return
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
        context.set_alpn_protocols(["http/1.1"])
        with context.wrap_socket(plain, server_hostname=host) as secured:
            exchange(secured, host, method, size)


def main():
    name, mac, address, gateway, server, vendor_class, *actions = sys.argv[1:]
    say("in its namespace")
    wait_for_go()
    bring_up("home0", [f"{address}/24"], gateway)
    say("connected")
    while wait_for_go():
        time.sleep(0.5)
        introduce(name, mac, address, vendor_class)
        for action in actions:
            use(action, server)
        say("done")


try:
    main()
except (OSError, subprocess.CalledProcessError) as error:
    sys.exit(f"{sys.argv[1]}: {error}")
