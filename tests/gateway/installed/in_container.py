"""What a booted Debian with the packages installed is put through. Run inside by packaging/check-boot.

Usage: in_container.py first|second    the machine's first boot, and the one after a restart
"""

import json
import os
import re
import subprocess
import sys
import time
from pathlib import Path

from lan import Lan, ip
from report import compare, rows_of

SCRIPT = "/etc/init.d/trafficUsageDetailsD"
UPLINK = "/usr/local/libexec/aws_json"
INSTANCES = ("br0", "br1")
HISTORY = Path("/usr/bin/traffic-usage")  # where the build had what it needs
UNITS = ["idpfwd", "trafficUsageDetailsD", "traffic-usage-uplink",
         *(["traffic-usage-history"] if HISTORY.exists() else [])]
QUIET_LOOKS = 4  # passes without growth, after which every period has ended


def run(*words, status=0):
    done = subprocess.run(words, capture_output=True, text=True, timeout=120)
    text = done.stdout + done.stderr
    assert done.returncode == status, f"{' '.join(words)}: status {done.returncode}, {text}"
    return text.strip()


def wait_until(condition, what, seconds=30):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, f"waited {seconds} seconds in vain for {what}"
        time.sleep(0.1)


def main_pid(unit):
    return int(run("systemctl", "show", "--property=MainPID", "--value", unit))


def is_active(unit):
    return subprocess.run(["systemctl", "--quiet", "is-active", unit]).returncode == 0


def counters(instance="br0"):
    file = Path(f"/run/idpfwd/{instance}/counters.json")
    file.unlink(missing_ok=True)
    run("systemctl", "kill", "--signal=USR1", f"idpfwd@{instance}")
    wait_until(file.exists, "the engine's counters")
    return json.loads(file.read_text())


def ask_for_report(instance="br0"):
    return json.loads(Path(run(SCRIPT, "report", instance)).read_text())


def use_the_planted_uplink():
    Path("/etc/traffic-usage/uplink.conf").touch()
    folder = Path("/etc/systemd/system/traffic-usage-uplink@.service.d")
    folder.mkdir(parents=True)
    (folder / "planted.conf").write_text(f"[Service]\nExecStart=\nExecStart={UPLINK}\n")


def what_others_planted_is_refused_and_harms_no_instance():
    victim = Path("/etc/victim")
    victim.mkdir()
    reports, names = Path("/tmp/aws_json_dir"), Path("/tmp/trend")
    reports.symlink_to(victim)
    assert "refused: /tmp/aws_json_dir is a link" in run(SCRIPT, "start", status=1)
    reports.unlink()
    os.mkfifo(reports)
    assert "refused: /tmp/aws_json_dir is no folder" in run(SCRIPT, "start", status=1)
    names.rmdir()
    names.mkdir()
    os.chown(names, 65534, 65534)
    assert "belongs to user 65534" in run(SCRIPT, "start", status=1)
    return victim


def one_command_starts_all_of_it():
    Path("/etc/traffic-usage/gateway.conf").write_text("IDLE_PASSES=1\nREPORT_EVERY=0\n")
    Path("/etc/traffic-usage/gateway-br1.conf").write_text(
        'REPORT_EVERY=12\nHISTORY_OPTIONS="--listen 127.0.0.1:8081"\n')
    run("systemctl", "enable", "--now", "traffic-usage@br0.target")
    run("systemctl", "start", "traffic-usage@br1.target")
    for instance in INSTANCES:
        for unit in UNITS:
            assert is_active(f"{unit}@{instance}"), f"{unit}@{instance} is not active"
        wait_until(Path(f"/var/lib/traffic-usage-uplink/{instance}/ready").exists, "the uplink")


def the_report_agrees_with_the_engine(lan):
    """The daemon makes a pass every 10 seconds."""
    lan.use_the_network()
    lan.wait_until_done()
    looks = [rows_of(counters())]
    while len(looks) < QUIET_LOOKS or looks[-1] != looks[-QUIET_LOOKS]:
        assert len(looks) < 20, "the LAN does not fall quiet"
        time.sleep(10)
        looks.append(rows_of(counters()))
    report = ask_for_report()
    assert compare([report], counters(), set(looks[-1]))


def the_history_agrees_with_the_engine():
    def agrees():
        shown = json.loads(run(str(HISTORY), "show", "--instance", "br0", "--format", "json"))
        rows = rows_of(counters()).values()
        return shown["total"] == {"down": sum(row[1] for row in rows),
                                  "up": sum(row[0] for row in rows)}
    if HISTORY.exists():
        wait_until(agrees, "a history of what the engine has counted")


def instances_keep_apart():
    """br0 was asked for a report; br1 writes its own, and only then tells its own uplink."""
    signalled = [Path(f"/var/lib/traffic-usage-uplink/{name}/signalled") for name in INSTANCES]
    wait_until(signalled[1].exists, "br1's report, every 12 seconds")
    signalled[1].unlink()
    run("systemctl", "stop", "traffic-usage-report@br1")
    signalled[0].unlink(missing_ok=True)
    time.sleep(11)  # a request that was under way
    signalled[1].unlink(missing_ok=True)
    ask_for_report()
    wait_until(signalled[0].exists, "the signal to br0's uplink")
    assert not signalled[1].exists(), "br0's daemon signalled br1's uplink"
    assert counters("br1")["users"] == [], "br1's engine has seen br0's devices"


def what_fails_comes_back():
    for unit, signal in (("trafficUsageDetailsD@br0", "KILL"), ("trafficUsageDetailsD@br0", "HUP"),
                         ("idpfwd@br0", "KILL")):
        before = main_pid(unit)
        run("systemctl", "kill", f"--signal={signal}", unit)
        wait_until(lambda: is_active(unit) and main_pid(unit) not in (0, before),
                   f"{unit} after SIG{signal}")
    ask_for_report()  # the daemon has found the new engine


def an_upgrade_starts_what_ran_anew():
    before = main_pid("idpfwd@br0"), main_pid("trafficUsageDetailsD@br0")
    run("sh", "-c", "dpkg --install /root/check/*.deb")
    wait_until(lambda: is_active("trafficUsageDetailsD@br0"), "the daemon after an upgrade")
    after = main_pid("idpfwd@br0"), main_pid("trafficUsageDetailsD@br0")
    assert not set(before) & set(after), f"{before} became {after}"


def reports_are_refused_with_a_reason():
    settings = {"NVRAM_DIR": "/var/lib/trafficUsageDetailsD/br0/settings"}
    nvram = ["env", *(f"{name}={value}" for name, value in settings.items()), "nvram", "set"]
    run(*nvram, "enable_trafficUsageDetails=0")
    assert "the feature is off" in run(SCRIPT, "report", "br0", status=1)
    run(*nvram, "enable_trafficUsageDetails=1")
    run("systemctl", "stop", "idpfwd@br0")
    assert "the engine does not run" in run(SCRIPT, "report", "br0", status=1)
    run("systemctl", "stop", "trafficUsageDetailsD@br0")
    assert "the daemon is not running" in run(SCRIPT, "report", "br0", status=1)
    run("systemctl", "restart", "traffic-usage@br0.target")
    ask_for_report()


def nothing_is_for_others_to_write():
    folders = ["/run/idpfwd", "/var/lib/trafficUsageDetailsD"]
    assert run("find", *folders, "!", "-type", "l", "-perm", "/022") == ""
    for name in INSTANCES:
        pid = main_pid(f"trafficUsageDetailsD@{name}")
        inside = f"/proc/{pid}/root/run/trafficUsageDetailsD.pid"
        assert os.stat(inside).st_mode & 0o022 == 0
        assert re.search(r"^CapEff:\s+0+$", Path(f"/proc/{pid}/status").read_text(), re.MULTILINE)


def first_boot():
    use_the_planted_uplink()
    victim = what_others_planted_is_refused_and_harms_no_instance()
    lan = Lan()
    ip("link", "add", "name", "br1", "type", "bridge")
    ip("link", "set", "br1", "up")
    one_command_starts_all_of_it()
    the_report_agrees_with_the_engine(lan)
    the_history_agrees_with_the_engine()
    instances_keep_apart()
    what_fails_comes_back()
    an_upgrade_starts_what_ran_anew()
    reports_are_refused_with_a_reason()
    nothing_is_for_others_to_write()
    assert list(victim.iterdir()) == []
    run("systemctl", "stop", "traffic-usage@br1.target")
    # The target itself is stopped before what belongs to it.
    wait_until(lambda: not is_active("idpfwd@br1") and not is_active("trafficUsageDetailsD@br1"),
               "the end of br1's services")


def second_boot():
    """The bridge comes later than the services, as with a network manager."""
    assert is_active("traffic-usage@br0.target") and is_active("trafficUsageDetailsD@br0")
    assert not is_active("idpfwd@br0") and not is_active("traffic-usage@br1.target")
    Lan()
    wait_until(lambda: is_active("idpfwd@br0"), "the engine, once there is a bridge")
    ask_for_report()


{"first": first_boot, "second": second_boot}[sys.argv[1]]()
print(f"the {sys.argv[1]} boot: good")
