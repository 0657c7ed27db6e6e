"""What script/run judges and shows, without building or starting anything."""

import contextlib
import io
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

WORKSTATION = Path(__file__).resolve().parents[3] / "script/workstation"
sys.path.insert(0, str(WORKSTATION))

from devices import names_of
from report import compare, print_table

LAPTOP, PHONE = "02:00:00:00:00:01", "02:00:00:00:00:02"


def row(application, up, down, last=1000):
    return {"cat_id": 1, "app_id": 1, "category": "Web", "application": application,
            "up_bytes": up, "down_bytes": down, "last": last}


def user(mac, rows, host_name="", ipv4=""):
    return {"mac": mac, "host_name": host_name, "ipv4": ipv4, "ipv6": "fe80::1", "rows": rows}


def record(mac, application, up, down):
    return {"macAddress": mac, "devType": "PC", "appType": "Web", "appName": application,
            "trafficStartTime": 5, "duration": 30, "uploadBandwidth": up,
            "downloadBandwidth": down}


def printed(function, *arguments):
    with contextlib.redirect_stdout(io.StringIO()) as output:
        result = function(*arguments)
    return result, output.getvalue()


class Arguments(unittest.TestCase):
    def test_are_judged_in_the_users_own_words_and_from_the_users_own_folder(self):
        with tempfile.TemporaryDirectory(prefix="a b") as folder:
            Path(folder, "my file").write_text("{}")
            cases = [(["--scenario", "my file"], 0, ""), (["--scenario", "mi file"], 2, "mi file"),
                     (["--capture", "."], 2, "--capture ."), (["--captur", "x"], 2, "--captur"),
                     (["--interface", "no0"], 2, "no0"), (["--seconds", "0"], 2, "--seconds 0"),
                     (["--gateway-mac", "02:00:00:00:00:01"], 2, "--gateway-mac"),
                     (["--stay", "--scenario", "my file"], 2, "--stay")]
            for words, status, said in cases:
                ended = subprocess.run([sys.executable, WORKSTATION / "arguments.py", *words],
                                       cwd=folder, capture_output=True, text=True)
                self.assertEqual(ended.returncode, status, words)
                self.assertIn(said, ended.stderr)
                self.assertNotIn("Traceback", ended.stderr)


class Report(unittest.TestCase):
    counters = {"capture_drops": None,
                "users": [user(LAPTOP, [row("Chess", 3, 4), row("Go", 90, 5)], "laptop"),
                          user(PHONE, [row("Chess", 0, 7)], "", "10.0.0.2")]}
    ended = {(LAPTOP, "Web", "Chess"), (PHONE, "Web", "Chess")}
    reports = [{"trafficInfo": [record(LAPTOP, "Chess", 1, 4), record(PHONE, "Chess", 0, 7)]},
               {"trafficInfo": [record(LAPTOP, "Chess", 2, 0)]}]

    def test_shows_what_is_still_busy_with_what_the_engine_has_counted(self):
        names = names_of(self.counters)
        self.assertEqual(names, {LAPTOP: "laptop", PHONE: "10.0.0.2"})
        table = printed(print_table, self.reports, self.counters, self.ended, names)[1]
        self.assertRegex(table, "laptop .* Go +still busy +90 +5\n")
        self.assertNotIn("still busy", table.split("Go")[0])
        capture = printed(print_table, self.reports, self.counters, self.ended, names, True)[1]
        self.assertNotIn("30 s", capture)

    def test_agrees_with_the_counters_to_the_byte_or_says_where_not(self):
        agrees, said = printed(compare, self.reports, self.counters, self.ended)
        self.assertTrue(agrees)
        self.assertIn("2 of 2", said)
        agrees, said = printed(compare, self.reports[:1], self.counters, self.ended)
        self.assertFalse(agrees)
        self.assertIn(f"DISAGREES: {LAPTOP} / Web / Chess", said)


unittest.main()
