"""What the tests of the Python package share."""

import os
import re
import subprocess
import sys
import time
from pathlib import Path

import pytest

import gksensors

pytest_plugins = ["pytester"]

SOURCES = Path(__file__).resolve().parents[2]
DATA = SOURCES / "data"


@pytest.fixture
def data():
    """The folder of the recordings that come with the project."""
    return DATA


@pytest.fixture(autouse=True)
def nothing_is_left(tmp_path_factory, monkeypatch):
    """No process of ours and no file in the temporary folder outlives a test."""
    temporary = tmp_path_factory.mktemp("tmp")
    monkeypatch.setenv("TMPDIR", str(temporary))
    monkeypatch.setattr("tempfile.tempdir", None)
    yield
    assert programs() == []
    assert list(temporary.iterdir()) == []


def programs():
    """The processes of gk that this one has started and that still run, or were not waited for."""
    found = []
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                stat = Path("/proc", entry, "stat").read_text()
            except OSError:
                continue
            name, _, rest = stat.partition("(")[2].rpartition(")")
            if name == "gk" and int(rest.split()[1]) == os.getpid():
                found.append(int(entry))
    return [number for number in found if number not in _hosts]


_hosts = set()


class RunningHost:
    """A host of its own for a test."""

    def __init__(self, *options):
        command = [os.environ["GK_PROGRAM"], "run", "--quiet", "--listen", "127.0.0.1:0", *options]
        self.process = subprocess.Popen(
            command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True
        )
        _hosts.add(self.process.pid)
        self.said = ""
        for line in self.process.stderr:
            self.said += line
            found = re.search(r"http://(127\.0\.0\.1:\d+)/", line)
            if found:
                self.address = found[1]
                return
        raise RuntimeError(f"no host: {self.said}")

    def stop(self, how="terminate"):
        if self.process.returncode is None:
            getattr(self.process, how)()
            self.process.communicate()
        _hosts.discard(self.process.pid)


@pytest.fixture(scope="session")
def host_address():
    """A simulated robot that runs while all of these tests do."""
    host = RunningHost("--no-tour", "--no-noise")
    yield host.address
    host.stop()


@pytest.fixture
def host_to_end():
    """A host that a test may end."""
    host = RunningHost("--robot", "none")
    yield host
    host.stop()


@pytest.fixture
def run_python(tmp_path):
    """Runs a program in a Python of its own; returns the process when it has ended."""

    def run(text, **options):
        return subprocess.run(
            [sys.executable, "-c", text], capture_output=True, text=True, timeout=60, **options
        )

    return run


def wait_until(holds):
    """Waits for what another process does."""
    end = time.monotonic() + 20
    while not holds():
        assert time.monotonic() < end, "it never happened"
        time.sleep(0.005)


@pytest.fixture
def night(tmp_path):
    """A recording of a robot that is pushed over."""
    path = tmp_path / "night.mcap"
    command = [os.environ["GK_PROGRAM"], "run", "-q", "--robot", "sim", "--speed", "max"]
    pushed = SOURCES / "examples" / "pushed.jsonl"
    subprocess.run(
        [*command, "--until", "4", "--record", path, pushed], check=True, capture_output=True
    )
    return path


KEY = "Device/SubDeviceList/InertialSensor/AngleY/Sensor/Value"
BOARD = "Device/DeviceList/HeadBoard/Error"
__all__ = ["BOARD", "KEY", "gksensors"]
