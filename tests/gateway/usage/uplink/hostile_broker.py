"""A broker that fails in one way: python3 hostile_broker.py BEHAVIOUR CERTIFICATE KEY

  silent   accepts the connection and says nothing, not even TLS
  refuse   answers CONNECT with "not authorised"
  hold     acknowledges no message
  close    closes on the first message
Prints its port, then a line for each message that it was sent.
"""
import socket
import ssl
import sys
import threading

CONNACK = b"\x20\x02\x00\x00"
NOT_AUTHORISED = b"\x20\x02\x00\x05"


def packet(stream):
    """The first byte of the next MQTT packet, the rest of which is skipped."""
    kind = more = stream.read(1)
    size = shift = 0
    while more:
        byte = stream.read(1)[0]
        size |= (byte & 127) << shift
        shift += 7
        more = byte & 128
    stream.read(size)
    return kind


def talk(plain, context):
    if BEHAVIOUR == "silent":
        plain.recv(1 << 20)
        threading.Event().wait(60)
    try:
        connection = context.wrap_socket(plain, server_side=True)
        stream = connection.makefile("rb")
        packet(stream)
        connection.sendall(NOT_AUTHORISED if BEHAVIOUR == "refuse" else CONNACK)
        while BEHAVIOUR != "refuse" and (kind := packet(stream)):
            if kind[0] & 0xF0 == 0x30:
                print("message", flush=True)
            if BEHAVIOUR == "close":
                connection.shutdown(socket.SHUT_RDWR)
    except (OSError, IndexError):  # the other side has gone away
        pass


BEHAVIOUR = sys.argv[1]
server_context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
server_context.load_cert_chain(sys.argv[2], sys.argv[3])
listener = socket.create_server(("127.0.0.1", 0))
print(listener.getsockname()[1], flush=True)
while True:
    threading.Thread(target=talk, args=(listener.accept()[0], server_context), daemon=True).start()
