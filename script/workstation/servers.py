"""The far side of the router: DNS, HTTP and TLS servers that answer for every name."""

import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

from namespace import bring_up, say, wait_for_go


class Handler(BaseHTTPRequestHandler):
    """GET /N answers N bytes; POST takes what comes."""

    protocol_version = "HTTP/1.1"

    def do_GET(self):
        left = int(self.path.lstrip("/"))
        self.answer(left)
        chunk = bytes(65536)
        while left > 0:
            self.wfile.write(chunk[:left])
            left -= len(chunk)

    def do_POST(self):
        left = int(self.headers["Content-Length"])
        while left > 0:
            left -= len(self.rfile.read(min(left, 65536)))
        self.answer(0)

    def answer(self, length):
        self.send_response(200)
        self.send_header("Content-Length", str(length))
        self.end_headers()

    def log_message(self, *_):
        pass


def open_dns(address):
    listener = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    listener.bind((address, 53))
    return listener


def serve_dns(listener, address):
    """Answers every question for an address with the one server there is."""
    while True:
        query, client = listener.recvfrom(512)
        question = query[12:]
        header = query[:2] + struct.pack(">HHHHH", 0x8180, 1, 1, 0, 0)
        record = struct.pack(">HHHIH", 0xC00C, 1, 1, 300, 4) + socket.inet_aton(address)
        listener.sendto(header + question + record, client)


def open_web(address, port, context=None):
    server = ThreadingHTTPServer((address, port), Handler)
    server.daemon_threads = True
    if context is not None:
        server.socket = context.wrap_socket(server.socket, server_side=True)
    return server


def make_context():
    """A certificate for this run; clients of the demonstration don't check it."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
             "-nodes", "-days", "1", "-subj", "/CN=workstation", "-keyout", f"{folder}/key",
             "-out", f"{folder}/certificate"],
            check=True, capture_output=True)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(f"{folder}/certificate", f"{folder}/key")
    return context


def main():
    address = sys.argv[1]
    say("in its namespace")
    wait_for_go()
    bring_up("internet0", [f"{address}/24"], "198.51.100.1")
    services = [
        (serve_dns, open_dns(address), address),
        (open_web(address, 80).serve_forever,),
        (open_web(address, 443, make_context()).serve_forever,),
    ]
    for service, *arguments in services:
        threading.Thread(target=service, args=arguments, daemon=True).start()
    say("serving")
    sys.stdin.read()


try:
    main()
except (OSError, subprocess.CalledProcessError) as error:
    sys.exit(f"the server: {error}")
