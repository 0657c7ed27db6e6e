#!/usr/bin/python3
"""The service as it ships: killed at seeded moments, asked by its commands, scraped, and under bad callers."""

import base64
import concurrent.futures
import http.client
import json
import os
import random
import re
import shutil
import signal
import socket
import subprocess
import time

from service_rig import PASSWORD, ServiceTest, free_port, household, main, password_settings, wait_for


class KillTest(ServiceTest):
    # KILLS says how often (200 takes some four minutes), SEED when.
    def test_not_a_byte_is_lost_or_counted_twice_whenever_it_is_killed(self):
        kills, moments = int(os.environ.get("KILLS", 8)), random.Random(os.environ.get("SEED", "1"))
        grows = {"users": 5, "apps": 3, "category": 1, "first_app": 1, "down": 1000003, "up": 1009}
        killed = self.service({
            "categories": {"1": "Things"},
            "applications": {name: {"category": 1, "id": at + 1} for at, name in enumerate(("One", "Two", "Three"))},
            "steps": [{"repeat": {"times": 20 * kills, "every": 0.05}, "generate": grows}]})
        for at in range(kills):
            time.sleep(moments.uniform(0, 1.5))
            if moments.random() < 1 / 3:
                killed.run("name", "02:00:00:00:00:01", f"round {at}")  # commits
            killed.end(killed.process, signal.SIGKILL)
            killed.start()
        wait_for(lambda: "finished" in killed.log(), "the scenario's end", 60)
        wait_for(lambda: killed.run("live", "--count", "1").returncode == 0, "a sample")
        self.assertEqual([killed.end(killed.process), killed.end(killed.engine)], [0, 0])
        with open(f"{killed.folder}/dump", encoding="utf-8") as dump:
            counted = {(user["mac"], row["application"]): (row["down_bytes"], row["up_bytes"])
                       for user in json.load(dump)["users"] for row in user["rows"]}
        usage = killed.show("--since", "1d", "--by", "device,application")
        self.assertEqual(len(counted), 15)
        self.assertEqual({(row["device"]["mac"], row["application"]): (row["down"], row["up"])
                          for row in usage["rows"]}, counted)
        self.assertEqual(usage["state"]["store"], "ok")


class CommandTest(ServiceTest):
    def test_commands_say_what_they_cannot_do(self):
        everything = {"users": 63, "apps": 512, "category": 1, "first_app": 1, "down": 1000, "up": 100}
        asked = self.service({"steps": [{"generate": everything}]}, every=60)  # once: it has all to answer for
        second = asked.run("serve", "--listen", "none")
        self.assertIn("in use by another service", second.stderr)
        copy = f"{asked.folder}/copy/history.db"
        for status, words in ((1, ["serve", "--listen", "none"]), (2, ["name", "02:00:00:00:00", "x"]),
                              (2, ["show", "--since", "1d", "--from", "2d"]), (2, ["forget"]), (2, ["frobnicate"]),
                              (1, ["forget", "02:ff:ff:ff:ff:ff"]), (1, ["backup", copy])):
            self.assertEqual(asked.run(*words).returncode, status, words)
        for misspelt in (["shwo"], ["quota", "sett"]):
            self.assertIn(misspelt[-1], asked.run(*misspelt).stderr)

        # Everything that an engine can know, in one answer and in one file.
        usage = asked.show("--by", "device,application")
        self.assertEqual((len(usage["rows"]), usage["total"]["down"]), (63 * 512, 63 * 512 * 1000))
        series = re.findall(rb"^traffic_usage_bytes_total{.*} (\d+)$", asked.get("/metrics")[1], re.MULTILINE)
        self.assertEqual(sum(map(int, series)), usage["total"]["down"] + usage["total"]["up"])
        os.mkdir(os.path.dirname(copy))
        self.assertEqual(asked.run("backup", copy).returncode, 0)
        self.assertEqual(asked.run("export").stdout.count("\n"), 63 * 512)
        self.assertEqual(asked.end(asked.process), 0)
        self.assertEqual(asked.run("name", "02:00:00:00:00:01", "x").returncode, 1)  # nobody is there to change it
        shutil.rmtree(f"{asked.folder}/state")
        self.assertEqual(asked.run("show").returncode, 1)  # nor anything to show


class OthersTest(ServiceTest):
    def test_an_instance_whose_default_address_is_taken_counts_without_a_page(self):
        with socket.socket() as other:
            other.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            try:
                other.bind(("127.0.0.1", 8080))
                other.listen()
            except OSError:
                pass  # it is taken already
            counting = self.service(household(), listens=False).sampled()
            self.assertIn("there is no page: choose an address", counting.log())

    def test_messages_reach_a_broker_and_the_end_is_told(self):
        if shutil.which("mosquitto") is None or shutil.which("mosquitto_sub") is None:
            self.skipTest("mosquitto and mosquitto-clients are not installed")
        port = free_port()
        with open("/tmp/mosquitto.conf", "w", encoding="ascii") as file:
            file.write(f"listener {port} 127.0.0.1\nallow_anonymous true\nuser root\n")
        broker = subprocess.Popen(["mosquitto", "-c", file.name], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(broker.wait)
        self.addCleanup(broker.terminate)
        telling = self.service(household(), settings={"messages": {"host": "127.0.0.1", "port": port}})

        def heard(topic):
            return subprocess.run(["mosquitto_sub", "-p", str(port), "-t", topic, "-C", "1", "-W", "2"],
                                  capture_output=True, text=True, check=False).stdout.strip()
        wait_for(lambda: heard("traffic-usage/br0/status") == "online", "the status", 30)
        announced = json.loads(wait_for(lambda: heard("homeassistant/sensor/+/down/config"), "a sensor"))
        self.assertEqual(announced["availability_topic"], "traffic-usage/br0/status")
        self.assertIn("down", json.loads(heard(announced["state_topic"])))
        telling.process.kill()
        wait_for(lambda: heard("traffic-usage/br0/status") == "offline", "the will")

    def test_bad_callers_stop_neither_sampling_nor_others(self):
        asked = self.service(household(grows=True), settings=password_settings()).sampled()
        right = {"Authorization": "Basic " + base64.b64encode(b"me:" + PASSWORD.encode()).decode()}
        self.assertEqual(asked.get("/api/v1/now", **right)[0], 200)

        def status(headers):
            try:
                return asked.get("/api/v1/now", **headers)[0]
            except (OSError, http.client.HTTPException):
                return 0

        def storm():
            slow = [socket.create_connection(("127.0.0.1", asked.port)) for _ in range(40)]
            for at, connection in enumerate(slow):
                connection.sendall(b"GET / HT" if at % 2 else b"")
            wrong = [dict(right, Host="evil.example"), {"X": "y" * 60000}, {"Authorization": "Basic bWU6bm8="}]
            with concurrent.futures.ThreadPoolExecutor(50) as pool:
                replies = list(pool.map(status, 8 * wrong[:2] + wrong[2:] + (1000 - 17) * [right]))
            for connection in slow:
                connection.close()
            return replies

        def last_sample():
            return asked.show()["state"]["last_sample"]

        def resident():
            with open(f"/proc/{asked.process.pid}/status", encoding="ascii") as lines:
                return next(int(line.split()[1]) for line in lines if line.startswith("VmRSS"))
        before = last_sample()
        replies = storm()
        self.assertEqual([replies.count(expected) for expected in (200, 401, 403)], [983, 1, 8])
        wait_for(lambda: last_sample() > before, "a sample after the storm", 5)
        first = resident()
        for _ in range(3):
            storm()
        self.assertLess(resident() - first, 4096, "KiB more after three more storms")


if __name__ == "__main__":
    main()
