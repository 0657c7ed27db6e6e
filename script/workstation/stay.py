"""Leaves the LAN at work until Ctrl-C, and says how to look at it."""

import os
import signal
import socket
import threading
import time

PAGE_DESCRIPTOR = "WORKSTATION_ROUTER_PAGE"
PAUSE_SECONDS = 5  # between two rounds of the clients


def open_page_port():
    """A port of this machine's loopback, opened before the namespaces are entered: a socket stays in
    the network that it was made in. Gives what the program inside is to be started with."""
    listener = socket.create_server(("127.0.0.1", 0))
    listener.set_inheritable(True)
    return listener, {PAGE_DESCRIPTOR: str(listener.fileno())}


def pump(source, target):
    try:
        while piece := source.recv(65536):
            target.sendall(piece)
    except OSError:
        pass  # either side has gone
    finally:
        for end, how in ((source, socket.SHUT_RD), (target, socket.SHUT_WR)):
            try:
                end.shutdown(how)
            except OSError:
                pass


def forward(client, target):
    with client:
        try:
            server = socket.create_connection(target, timeout=10)
        except OSError:
            return
        with server:
            server.settimeout(None)
            back = threading.Thread(target=pump, args=[server, client], daemon=True)
            back.start()
            pump(client, server)
            back.join()


def forward_page(target):
    """Passes connections on from the machine's port to the namespace; the page's address there."""
    listener = socket.socket(fileno=int(os.environ[PAGE_DESCRIPTOR]))
    address = "http://{}:{}/".format(*listener.getsockname())

    def serve():
        while True:
            client, _ = listener.accept()
            threading.Thread(target=forward, args=[client, target], daemon=True).start()

    threading.Thread(target=serve, daemon=True).start()
    return address


def print_commands(root, page, show):
    """How to look at it, from another terminal of this machine."""
    # The /proc that is mounted here is the machine's, and names this process as the machine does.
    inside = f"nsenter --target {os.readlink('/proc/self')} --all"
    chroot = f"{inside} chroot {root.path}"
    print(f"""
The LAN stays at work until Ctrl-C. Look at it from another terminal, as the same user:
  the page            {page}
  the history         {chroot} {show}
  a report            {chroot} /bin/killall -SIGUSR1 trafficUsageDetailsD
                      cat {root.path}/var/log/published-*.json
  the daemon's log    tail -f {root.path}/var/log/daemon.log
  its settings        {chroot} /bin/nvram show
  the packets         {inside} tcpdump -ni br0
  a shell in it       {inside} sh
""", flush=True)


def stay(lan, interrupt):
    """Lets the clients use the network again and again; returns when they have finished after the
    first Ctrl-C. A second one goes through."""
    try:
        while True:
            lan.use_the_network()
            lan.wait_until_done()
            time.sleep(PAUSE_SECONDS)
    except KeyboardInterrupt:
        print("\nEnding: the clients finish first (Ctrl-C again: at once) ...", flush=True)
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, interrupt)
    lan.wait_until_done()
