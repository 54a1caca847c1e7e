"""The examples, as people run them."""

import importlib.util
import subprocess
import sys

import pytest

from conftest import DATA, SOURCES

EXAMPLES = SOURCES / "python" / "examples"


def load(name):
    spec = importlib.util.spec_from_file_location(name, EXAMPLES / f"{name}.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def run(*arguments):
    return subprocess.run(
        [sys.executable, *map(str, arguments)], capture_output=True, text=True, timeout=120
    )


def test_all_falls_of_a_folder_are_found_and_drawn(tmp_path):
    pytest.importorskip("matplotlib")
    picture = tmp_path / "falls.png"
    ended = run(EXAMPLES / "falls.py", DATA, picture)
    assert (ended.returncode, ended.stderr) == (0, "")
    assert ended.stdout.splitlines()[0] == "3 falls in 10 recordings"
    assert "imu_fall_forward.csv: on its Belly at 8.16 s" in ended.stdout
    assert picture.read_bytes().startswith(b"\x89PNG")


def test_a_robot_learns_to_keep_its_weight_centred():
    balance = load("balance")
    straight = balance.cost(balance.np.zeros(2))
    best, least = balance.learn(rounds=1)
    assert least < 0.5 * straight
    assert balance.cost(best) == least


def test_a_running_host_is_plotted_live(host_address, monkeypatch):
    pytest.importorskip("matplotlib")
    monkeypatch.setenv("MPLBACKEND", "agg")
    shown = load("live_plot").main(host_address, 0.3)
    assert len(shown) == 2 and all(count > 0 for count in shown.values())


def test_a_suite_of_tests_for_a_robot_passes(tmp_path):
    quietly = ["-q", "-p", "no:cacheprovider", "--basetemp", tmp_path / "of_the_suite"]
    ended = run("-m", "pytest", *quietly, EXAMPLES / "robot_tests")
    assert ended.returncode == 0, ended.stdout
    assert "7 passed" in ended.stdout
