"""Real uplinks among the simulated routers: reports as the daemon writes them, and what became of each."""

import json
import os
import signal

from process import Process

PROGRAM = "build/release/uplink/aws_json"
REPORT = "aws_traffic_usage_details.json"
COUNT = 3
RECORDS = 3
EVERY = 2.0  # seconds between two reports of an uplink


def available():
    return os.access(PROGRAM, os.X_OK)


def user_lines(password):
    """What the nodes let uplinks do: one line for each."""
    return "".join(
        f'  {{ user: "uplink-{i}", password: "{password}", permissions: {{ publish: {{ allow: '
        f'["usage.eu.uplink-{i}.report"] }}, subscribe: {{ deny: [">"] }} }} }}\n'
        for i in range(COUNT))


class Uplink:
    """One uplink with its folders; the nth report has uploads of 10 n + item, so that each is known again."""

    def __init__(self, stage, number, password):
        self.number = number
        self.name = f"uplink-{number}"
        folder = stage.path(self.name)
        self.spool = f"{folder}/spool"
        for part in (self.spool, f"{folder}/state"):
            os.makedirs(part)
        with open(f"{folder}/password", "w") as file:
            file.write(password + "\n")
        host, port = stage.address("mqtt", number % 3).split(":")
        with open(f"{folder}/uplink.conf", "w") as file:
            file.write(f"broker = {host}\nport = {port}\nregion = eu\nrouter = {self.name}\n"
                       f"username = {self.name}\npassword_file = {folder}/password\n"
                       f"ca_file = {stage.path('ca.crt')}\nspread = 1\nretry_first = 1\n"
                       "retry_longest = 8\npatience = 15\n")
        self.process = Process(f"uplink {number + 1}",
                               [PROGRAM, "--config", f"{folder}/uplink.conf", "--spool", self.spool,
                                "--state", f"{folder}/state"], f"{folder}/log")
        self.written = 0
        self.next = 0.0

    def write(self, now):
        """As the daemon does, but never over a report that was not taken: that would be its loss."""
        path = os.path.join(self.spool, REPORT)
        if now < self.next or os.path.exists(path):
            return
        self.next = now + EVERY
        self.written += 1
        start = 1795296085
        records = [{"macAddress": f"02:00:5E:00:00:{item:02X}", "devType": "TV", "appType": "Web",
                    "appName": f"real {item}", "trafficStartTime": start, "trafficEndTime": start + 60,
                    "duration": 60, "uploadBandwidth": 10 * self.written + item,
                    "downloadBandwidth": 1} for item in range(RECORDS)]
        with open(path + ".new", "w") as file:
            json.dump({"numOfTrafficRecrod": RECORDS, "trafficInfo": records}, file)
        os.rename(path + ".new", path)
        if self.process.running():
            self.process.process.send_signal(signal.SIGUSR2)

    def watch(self):
        """As the unit does: a signal that came before the program had asked for it ends it, and it is
        started again."""
        if self.process.process.poll() == -signal.SIGUSR2:
            self.process.start()

    def expected(self):
        return sorted(10 * n + item for n in range(1, self.written + 1) for item in range(RECORDS))

    def found(self, stage):
        """The uploads in the store, and the sum of the day."""
        text = stage.ask("SELECT upload FROM usage.reports FINAL WHERE router = '"
                         f"{self.name}' ORDER BY upload")
        daily = stage.ask("SELECT sum(upload), sum(records) FROM usage.daily FINAL WHERE router = '"
                          f"{self.name}'").split()
        return [int(line) for line in text.split()], [int(number) for number in daily]

    def is_delivered(self, stage):
        return len(self.found(stage)[0]) >= len(self.expected())


def judge(uplinks, stage):
    """Prints a line like those of the ledger; true when every report is there once."""
    missing = double = unknown = sums = 0
    for uplink in uplinks:
        expected, (found, daily) = uplink.expected(), uplink.found(stage)
        missing += len(set(expected) - set(found))
        unknown += len(set(found) - set(expected))
        double += len(found) - len(set(found))
        sums += daily != [sum(expected), len(expected)]
    print(f"real uplinks   missing {missing}  double {double}  altered {unknown}  wrong daily sums {sums}"
          f"  ({sum(u.written for u in uplinks)} reports)")
    return not (missing or double or unknown or sums)
