"""Buffer, store and ingesters of a run, on loopback, from the configuration that operators get."""

import http.client
import os
import shutil
import socket
import subprocess
import urllib.error
import urllib.parse
import urllib.request

import uplinks
from process import Process, wait_until

CONFIG = "fleet/config"
PROGRAMS = "build/release"
SANITIZED = "build/dev"
JARS = "/usr/share/java"
PASSWORD = "only-on-loopback"
DEVICE_KEY = "a key that only this run has"
NODES = 3
REPLICAS = 2
INGESTERS = 2


def quoted(text):
    return f'"{text}"'


class Stage:
    """Everything but the routers. Ports are first + 0 .. + 99."""

    def __init__(self, folder, first_port, seed, routers, memory):
        self.folder = os.path.abspath(folder)
        self.port = first_port
        self.memory = memory
        self.nodes, self.replicas, self.ingesters = [], [], []
        self.zookeeper = None
        os.makedirs(self.folder)
        self.make_certificates()
        self.write_users(seed, routers)

    def path(self, *parts):
        return os.path.join(self.folder, *parts)

    def everything(self):
        return [p for p in [*self.nodes, self.zookeeper, *self.replicas, *self.ingesters] if p]

    # -- what is written before anything starts

    def openssl(self, *arguments):
        subprocess.run(["openssl", *arguments], check=True, capture_output=True, cwd=self.folder)

    def make_certificates(self):
        key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"]
        self.openssl("req", "-x509", *key, "-days", "2", "-subj", "/CN=authority of a run",
                     "-keyout", "ca.key", "-out", "ca.crt")
        self.openssl("req", *key, "-subj", "/CN=localhost", "-keyout", "node.key",
                     "-out", "node.request")
        with open(self.path("names"), "w") as file:
            file.write("subjectAltName=DNS:localhost,IP:127.0.0.1\n")
        self.openssl("x509", "-req", "-in", "node.request", "-CA", "ca.crt", "-CAkey", "ca.key",
                     "-CAcreateserial", "-days", "2", "-extfile", "names", "-out", "node.crt")

    def write_users(self, seed, routers):
        shutil.copy(f"{CONFIG}/nats/nats-server.conf", self.folder)
        users = subprocess.run([f"{PROGRAMS}/fleet-simulate", "users", "--routers", str(routers),
                                "--seed", str(seed), "--password", PASSWORD],
                               check=True, capture_output=True, text=True).stdout
        with open(self.path("routers.conf"), "w") as file:
            file.write(users.removesuffix("] }\n") + uplinks.user_lines(PASSWORD) + "] }\n")
        with open(self.path("device.key"), "w") as file:
            file.write(DEVICE_KEY)

    # -- addresses

    def address(self, kind, number):
        offsets = {"nats": 0, "cluster": 10, "mqtt": 20, "monitor": 30, "zookeeper": 40,
                   "http": 50, "tcp": 60, "replica": 70, "health": 80}
        return f"127.0.0.1:{self.port + offsets[kind] + number}"

    def mqtt_addresses(self):
        return ",".join(self.address("mqtt", i) for i in range(NODES))

    def store_addresses(self):
        return ",".join(f"http://{self.address('http', i)}" for i in range(REPLICAS))

    def buffer_addresses(self):
        return ",".join(f"tls://{self.address('nats', i)}" for i in range(NODES))

    def ingest_environment(self):
        return {"FLEET_BUFFER": self.buffer_addresses(), "FLEET_BUFFER_USER": "ingest",
                "FLEET_BUFFER_PASSWORD": PASSWORD, "FLEET_BUFFER_CA": self.path("ca.crt"),
                "FLEET_STORE": self.store_addresses()}

    # -- processes

    def make_node(self, number):
        environment = {
            "NATS_NAME": f"buffer-{number + 1}",
            "NATS_LISTEN": quoted(self.address("nats", number)),
            "NATS_MONITOR": quoted(self.address("monitor", number)),
            "NATS_STORE": quoted(self.path(f"node{number}")),
            "NATS_DISK": "6GB",
            "NATS_CLUSTER_LISTEN": quoted(self.address("cluster", number)),
            "NATS_MQTT_LISTEN": quoted(self.address("mqtt", number)),
            "NATS_CERTIFICATE": quoted(self.path("node.crt")),
            "NATS_KEY": quoted(self.path("node.key")),
            "GOMEMLIMIT": f"{self.memory['node']}MiB",
        }
        for route in range(NODES):
            environment[f"NATS_ROUTE_{route + 1}"] = quoted(f"nats://{self.address('cluster', route)}")
        return Process(f"node {number + 1}",
                       ["nats-server", "--config", self.path("nats-server.conf")],
                       self.path(f"node{number}.log"), environment, descriptors=65536)

    def make_zookeeper(self):
        with open(f"{CONFIG}/zookeeper/zoo.cfg") as file:
            lines = [line for line in file if not line.startswith("server.")]
        port = self.address("zookeeper", 0).rsplit(":", 1)[1]
        text = "".join(lines).replace("/var/lib/zookeeper", self.path("zookeeper"))
        text = text.replace("=2181", f"={port}").replace("10.20.0.11", "127.0.0.1")
        os.makedirs(self.path("zookeeper"))
        with open(self.path("zoo.cfg"), "w") as file:
            file.write(text)
        return Process("zookeeper",
                       ["java", f"-Xmx{self.memory['zookeeper']}m", "-cp",
                        f"{JARS}/zookeeper.jar:{JARS}/slf4j-simple.jar",
                        "-Dorg.slf4j.simpleLogger.defaultLogLevel=warn",
                        "org.apache.zookeeper.server.quorum.QuorumPeerMain", self.path("zoo.cfg")],
                       self.path("zookeeper.log"))

    def make_replica(self, number, name=None):
        folder = self.path(f"replica{number}")
        os.makedirs(f"{folder}/tmp")
        port = {kind: self.address(kind, number).rsplit(":", 1)[1]
                for kind in ("http", "tcp", "replica")}
        memory = self.memory["replica"] * 1_000_000
        environment = {
            "CLICKHOUSE_REPLICA": name or f"store-{number + 1}",
            "CLICKHOUSE_ADDRESS": "127.0.0.1",
            "CLICKHOUSE_HTTP_PORT": port["http"],
            "CLICKHOUSE_TCP_PORT": port["tcp"],
            "CLICKHOUSE_REPLICA_PORT": port["replica"],
            "CLICKHOUSE_PATH": f"{folder}/",
            "CLICKHOUSE_TMP": f"{folder}/tmp/",
            "CLICKHOUSE_LOG": self.path(f"replica{number}.log"),
            "CLICKHOUSE_ERROR_LOG": self.path(f"replica{number}.errors"),
            "CLICKHOUSE_MARK_CACHE": "134217728",
            "CLICKHOUSE_MEMORY": str(memory),
            "CLICKHOUSE_SPILL": str(memory // 2),
            "CLICKHOUSE_THREADS": "2",
            "ZOOKEEPER_HOST_1": "127.0.0.1",
            "ZOOKEEPER_PORT_1": self.address("zookeeper", 0).rsplit(":", 1)[1],
        }
        return Process(f"replica {number + 1}",
                       ["clickhouse-server", f"--config-file={os.path.abspath(CONFIG)}/clickhouse/config.xml"],
                       self.path(f"replica{number}.out"), environment, descriptors=65536)

    def make_ingester(self, number, sanitized):
        folder = SANITIZED if sanitized else PROGRAMS
        return Process(f"ingester {number + 1}",
                       [f"{folder}/fleet-ingest", "ingest", "--device-key-file",
                        self.path("device.key"), "--listen", self.address("health", number)],
                       self.path(f"ingester{number}.log"), self.ingest_environment(),
                       memory=None if sanitized else self.memory["ingester"] << 20)

    def start_servers(self):
        self.zookeeper = self.make_zookeeper()
        self.nodes = [self.make_node(i) for i in range(NODES)]
        self.replicas = [self.make_replica(i) for i in range(REPLICAS)]
        for process in self.everything():
            process.start()
        wait_until(self.zookeeper_listens, 60, "ZooKeeper coming up")
        for number in range(NODES):
            wait_until(lambda n=number: self.node_is_well(n), 60, f"node {number + 1} coming up")
        for number in range(REPLICAS):
            wait_until(lambda n=number: self.replica_answers(n), 60, f"replica {number + 1} coming up")

    def start_ingesters(self, count, sanitized):
        self.ingesters = [self.make_ingester(i, sanitized) for i in range(count)]
        for process in self.ingesters:
            process.start()

    def stop(self):
        for process in reversed(self.everything()):
            process.stop(10)

    # -- questions to them

    def fetch(self, address, path, patience=5):
        host, port = address.split(":")
        connection = http.client.HTTPConnection(host, int(port), timeout=patience)
        try:
            connection.request("GET", path)
            answer = connection.getresponse()
            return answer.status, answer.read().decode()
        except (OSError, http.client.HTTPException):
            return 0, ""
        finally:
            connection.close()

    def node_is_well(self, number):
        return self.fetch(self.address("monitor", number), "/healthz")[0] == 200

    def zookeeper_listens(self):
        host, port = self.address("zookeeper", 0).split(":")
        with socket.socket() as connection:
            return connection.connect_ex((host, int(port))) == 0

    def replica_answers(self, number):
        return self.fetch(self.address("http", number), "/?query=SELECT%201")[0] == 200

    def ask(self, question, replica=0, patience=300):
        """A question to the store; RuntimeError with its words when it can't answer."""
        url = f"http://{self.address('http', replica)}/"
        try:
            with urllib.request.urlopen(url, question.encode(), timeout=patience) as answer:
                return answer.read().decode(errors="backslashreplace")
        except urllib.error.HTTPError as error:
            raise RuntimeError(f"{question}: {error.read().decode()}") from error

    def metrics(self, number):
        """What an ingester says of itself; empty when it doesn't answer."""
        text = self.fetch(self.address("health", number), "/metrics")[1]
        pairs = (line.rsplit(" ", 1) for line in text.splitlines() if not line.startswith("#"))
        return {name: int(value) for name, value in pairs}

    def ingest(self, *arguments, check=True):
        """Runs fleet-ingest to its end; what it printed."""
        result = subprocess.run([f"{PROGRAMS}/fleet-ingest", *arguments], text=True,
                                env={**os.environ, **self.ingest_environment()},
                                capture_output=True)
        if check and result.returncode != 0:
            raise RuntimeError(f"fleet-ingest {' '.join(arguments)}: {result.stderr}")
        return result.stdout
