"""Shows the daemon at work and holds its report against the engine's own counters."""

import signal

signal.signal(signal.SIGINT, signal.SIG_DFL)  # no traceback while it is starting

import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

from arguments import parse
from devices import names_of
from history import PAGE, History
from private_root import PrivateRoot
from report import compare, print_table, records_of, rows_of
from router import Router, wait_until
from stay import forward_page, open_page_port, print_commands, stay

PROJECT = Path(__file__).resolve().parents[2]
BUILD = PROJECT / "build/release"
SCENARIO = PROJECT / "gateway/engine/scenario/evening.json"
INSIDE = "WORKSTATION_ROUTER_INSIDE"


def is_permitted(wrapper):
    return subprocess.run([*wrapper, "true"], capture_output=True).returncode == 0


def become_root():
    if not shutil.which("sudo"):
        raise RuntimeError("neither root nor sudo here, and the machine permits no namespaces of "
                           "an ordinary user")
    os.execvp("sudo", ["sudo", sys.executable, *sys.argv])


def enter_namespaces(arguments):
    """Starts this program again in namespaces of its own, where the machine permits them."""
    if INSIDE in os.environ:
        return os.environ[INSIDE]
    user = [] if os.geteuid() == 0 else ["--map-root-user"]
    if arguments.interface and user:
        become_root()
    network = [] if arguments.interface else ["--net"]
    wrapper = ["unshare", *user, *network, "--mount", "--pid", "--fork", "--kill-child=SIGTERM"]
    if not is_permitted(wrapper):
        if user:
            become_root()
        return "none"
    sys.exit(run_inside(wrapper, arguments.stay))


def run_inside(wrapper, with_page):
    """Waits for the program in the namespaces; its end takes along whatever it has started."""
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # Ctrl-C reaches the program itself
    listener, page = open_page_port() if with_page else (None, {})
    inside = subprocess.Popen([*wrapper, sys.executable, *sys.argv],
                              env=os.environ | {INSIDE: "own"} | page,
                              pass_fds=[listener.fileno()] if listener else [])
    signal.signal(signal.SIGTERM, lambda *_: inside.kill())  # unshare alone would ignore it
    return 143 if inside.wait() < 0 else inside.returncode


def choose_source(arguments, namespaces, root):
    """The engine's options, and the LAN that feeds it, if any."""
    gateway = ["--gateway-mac", arguments.gateway_mac] if arguments.gateway_mac else []
    for kind, file in (("--capture", arguments.capture), ("--scenario", arguments.scenario)):
        if file:
            root.install_file(file)
            return [kind, file, *(["--fast"] if kind == "--capture" else []), *gateway], None
    if arguments.interface:
        return ["--interface", arguments.interface, *gateway], None
    if namespaces == "none":
        print("This machine permits no network namespaces: playing a scenario instead.")
        root.install_file(SCENARIO)
        return ["--scenario", str(SCENARIO)], None
    from lan import Lan
    print("Building a LAN: bridge br0, three clients, a server beyond the router ...")
    return ["--interface", "br0"], Lan()


def volume(rows, side):
    return f"{sum(row[side] for row in rows.values()) / 1e6:.1f} MB"


def watch(router, arguments):
    """Follows the passes until every period has ended, or time is up; what had ended then."""
    # A period ends at one pass more without growth than the idle ones; one more for growth between
    # a pass and the look at the counters.
    quiet_looks = arguments.idle_passes + 3
    looks = []
    deadline = time.monotonic() + arguments.seconds
    while True:
        number = len(looks) + 1
        wait_until(lambda: router.passes() >= number, f"pass {number}", seconds=30)
        counters = router.counters()
        rows = rows_of(counters)
        looks.append(rows)
        print(f"pass {number:2}: {len(counters['users'])} devices, {len(rows)} rows of traffic, "
              f"{volume(rows, 0)} up, {volume(rows, 1)} down, "
              f"{router.records()} periods finished", flush=True)
        recent = looks[-quiet_looks:]
        ended = {key for key, value in rows.items()
                 if len(recent) == quiet_looks and all(look.get(key) == value for look in recent)}
        if rows and len(ended) == len(rows) or time.monotonic() > deadline:
            return counters, ended


def take_report(router):
    """Asks for a report, and gives all that were published."""
    print("Asking for the report with SIGUSR1: it comes with the next pass ...", flush=True)
    expected = len(router.published()) + 1
    router.request_report()
    wait_until(lambda: len(router.published()) >= expected, "the report", seconds=30)
    return router.published()


def show(router, arguments, lan):
    if lan:
        lan.use_the_network()
        print("The clients look names up, download, stream and upload.")
    print("The daemon makes a pass every 10 seconds; a period ends after "
          f"{arguments.idle_passes + 1} quiet ones.")
    counters, ended = watch(router, arguments)
    if lan:
        lan.wait_until_done()
    reports = take_report(router)
    print()
    names = names_of(counters, arguments.interface, arguments.look_up_names)
    print_table(reports, counters, ended, names, arguments.capture is not None)
    if arguments.capture:
        print("(The times are the capture's; those in the report are of when the daemon read it.)")
    print()
    print(f"{len(records_of(reports))} finished periods in {len(reports)} report(s), taken by the "
          "uploader from /tmp/aws_json_dir/aws_traffic_usage_details.json.")
    return compare(reports, counters, ended)


def show_staying(router, history, lan):
    page = forward_page(PAGE)
    print_commands(router.root, page, " ".join(history.command("show")))
    stay(lan, interrupt)
    return history.compare(router)


def no_more_interrupts():
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.SIG_IGN)


def interrupt(*_):
    no_more_interrupts()  # nor shall a second one end the tidying
    raise KeyboardInterrupt


def work(arguments):
    namespaces = enter_namespaces(arguments)
    root = PrivateRoot(BUILD)
    router = Router(root, arguments.idle_passes)
    history = History(root)
    try:
        if namespaces == "own":
            root.show_processes()
        engine_options, lan = choose_source(arguments, namespaces, root)
        router.start(engine_options)
        history.start(has_page=lan is not None)
        if arguments.stay and lan:
            return 0 if show_staying(router, history, lan) else 1
        agrees = show(router, arguments, lan)
        return 0 if history.compare(router) and agrees else 1
    finally:
        no_more_interrupts()
        try:
            history.stop()
            router.stop()
        finally:
            root.remove()


def main():
    arguments = parse()
    for number in (signal.SIGINT, signal.SIGTERM):  # process 1 of a namespace has no defaults
        signal.signal(number, interrupt)
    try:
        return work(arguments)
    except KeyboardInterrupt:
        print("\nInterrupted.")
        return 130
    except BrokenPipeError:  # nobody reads on
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    except subprocess.CalledProcessError as error:
        reason = f"'{' '.join(map(str, error.cmd))}' failed with status {error.returncode}"
    except RuntimeError as error:
        reason = str(error)
    except Exception as error:  # whatever it is, it is told and not shown
        reason = f"{type(error).__name__}: {error}"
    print(f"script/run: {reason}", file=sys.stderr)
    return 1


sys.exit(main())
