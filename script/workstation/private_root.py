"""A root directory for the router's programs, so that their absolute paths touch nothing else."""

import os
import re
import shutil
import subprocess
import tempfile
from pathlib import Path

SHELL_TOOLS = ["/bin/sh", "/bin/cat"]
FOLDERS = ["dev", "proc", "tmp/trend", "tmp/aws_json_dir", "var/run", "var/log", "var/lib/router-nvram"]

# Signals only what this root started: the process that left its id under the name.
KILLALL = """#!/bin/sh
# killall -SIGNAL NAME, for programs that keep their process id in /var/run/NAME.pid
signal=${1#-}
kill -s "${signal#SIG}" "$(cat "/var/run/$2.pid")"
"""


class PrivateRoot:
    """Programs of the build and the few tools that they run, copied with their libraries."""

    def __init__(self, build):
        self.path = Path(tempfile.mkdtemp(prefix="router-", dir=build))
        self.shows_processes = False
        try:
            self._fill(build)
        except BaseException:
            self.remove()
            raise

    def _fill(self, build):
        for folder in FOLDERS:
            (self.path / folder).mkdir(parents=True)
        (self.path / "dev/null").touch()
        for tool in SHELL_TOOLS:
            self.install(tool, tool)
        killall = self.path / "bin/killall"
        killall.write_text(KILLALL)
        killall.chmod(0o755)
        for program in ("trafficUsageDetailsD", "idpfwd", "nvram", "traffic-usage"):
            self.install(build / program, f"/bin/{program}")
        for library in ("libnvram.so", "libnat.so", "libidpfw-shim.so"):
            self.install(build / library, f"/lib/{library}")

    def show_processes(self):
        """The engine tells by /proc who was there before it. Only in a mount namespace of our own."""
        mounting = ["mount", "-t", "proc", "proc", str(self.path / "proc")]
        self.shows_processes = subprocess.run(mounting, capture_output=True).returncode == 0

    def install_file(self, path):
        """Copies a file to where the same words find it, for a program started in the same folder."""
        target = self.path / os.path.abspath(path).lstrip("/")
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(path, target)
        (self.path / os.getcwd().lstrip("/")).mkdir(parents=True, exist_ok=True)

    def install(self, source, destination):
        """Copies a program or library and what it is linked to."""
        self._copy(source, destination)
        listing = subprocess.run(["ldd", str(source)], capture_output=True, text=True).stdout
        for library in re.findall(r"^(?:.* => |\s*)(/.+) \(0x", listing, re.MULTILINE):
            if not (self.path / library.lstrip("/")).exists():
                self._copy(library, library)

    def _copy(self, source, destination):
        target = self.path / str(destination).lstrip("/")
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(source, target)

    def start(self, command, folder="/", **options):
        """Starts a program inside the root, in this folder."""

        def enter():
            os.chroot(self.path)
            os.chdir(folder)

        environment = {"PATH": "/bin", "LD_LIBRARY_PATH": "/lib"} | options.pop("env", {})
        return subprocess.Popen(command, preexec_fn=enter, env=environment, **options)

    def run(self, command, **options):
        status = self.start(command, **options).wait()
        if status != 0:
            raise RuntimeError(f"{' '.join(command)} failed with status {status}")

    def read(self, path):
        try:
            return (self.path / path.lstrip("/")).read_text(errors="replace")
        except FileNotFoundError:
            return ""

    def remove(self):
        if self.shows_processes:
            subprocess.run(["umount", "--lazy", str(self.path / "proc")], check=True)
        shutil.rmtree(self.path, ignore_errors=True)
