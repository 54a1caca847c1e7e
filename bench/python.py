#!/usr/bin/python3
"""How much time Python adds to what gk takes.

Usage: GK_PROGRAM=build/release/bin/gk PYTHONPATH=build/release/python bench/python.py
"""

import os
import subprocess
import sys
import tempfile
import time

import numpy as np

import gksensors

HOUR = 3600.0  # s
TICK = 0.02  # s
COLUMNS = 25
REPEATS = 5
STEPS = 5
ROUNDS = 2500


def least(*works, repeats=REPEATS):
    """The shortest of some times of each, in seconds, taken in turns: what the machine does besides
    only adds to it."""
    times = [[] for _ in works]
    for _ in range(repeats):
        for work, found in zip(works, times):
            begin = time.perf_counter()
            work()
            found.append(time.perf_counter() - begin)
    return [min(found) for found in times]


def tell(what, found, limit, unit):
    print(
        f"{what:<58} {found:8.2f} {unit}, limit {limit:g} {'' if found <= limit else '  TOO MUCH'}"
    )
    return found <= limit


def columns(folder):
    """An hour of 25 columns, from a table to arrays, beside `gk replay --columns` alone."""
    path = os.path.join(folder, "hour.csv")
    keys = [f"Column/{number}" for number in range(COLUMNS)]
    rows = np.arange(round(HOUR / TICK))
    table = np.column_stack([rows * TICK, *((rows * (c + 7)) % 1000 / 997 for c in range(COLUMNS))])
    names = ",".join(["time", *keys])
    np.savetxt(path, table, fmt="%.2f" + ",%.4f" * COLUMNS, header=names, comments="", delimiter="")

    def program():
        command = [os.environ["GK_PROGRAM"], "replay", "--quiet", path, "--sample", ",".join(keys)]
        out = os.path.join(folder, "hour.npy")
        subprocess.run([*command, "--columns", out], check=True, stderr=subprocess.DEVNULL)

    def package():
        samples = gksensors.replay(path, sample=keys).samples
        assert len(samples) == COLUMNS and samples[keys[-1]][-1] >= 0.0

    alone, whole = least(program, package)
    print(f"  gk {alone:.2f} s, Python {whole:.2f} s")
    return tell("an hour of 25 columns: Python's time over gk's", whole / alone, 1.3, "x")


def mapping(folder):
    """A million samples in memory."""
    path = os.path.join(folder, "million.npy")
    np.save(
        path, np.zeros(1_000_000, [("time", "<f8"), *((f"k{c}", "<f4") for c in range(COLUMNS))])
    )
    return tell(
        "a million samples mapped", least(lambda: gksensors.load(path))[0] * 1e3, 10.0, "ms"
    )


def steps():
    """A step through Python beside one long step of the same time."""
    with gksensors.Simulation() as sim:
        sim.step(1.0)

        def many():
            for _ in range(STEPS):
                sim.step(TICK)

        steps, one = (
            found / STEPS for found in least(many, lambda: sim.step(TICK * STEPS), repeats=ROUNDS)
        )
    print(f"  a step {steps * 1e6:.0f} us, of it physics and modules {one * 1e6:.0f} us")
    return tell("Simulation.step(0.02) over the physics", (steps - one) * 1e6, 60.0, "us")


def cases(folder):
    """A case of pytest that runs a file and expects something."""
    path = os.path.join(folder, "test_many.py")
    with open(path, "w") as file:
        file.write(
            "import pytest\n"
            "@pytest.mark.parametrize('n', range(40))\n"
            "def test(gk_replay, n):\n"
            "    gk_replay([{'t': 1, 'end': True}]).expect(event='robotPoseChanged')\n"
        )

    def run(*chosen):
        command = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", path, *chosen]
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)

    one, forty = least(lambda: run("-k", "test[0]"), run)
    return tell("a case of pytest with an expectation", (forty - one) / 39 * 1e3, 50.0, "ms")


def main():
    with tempfile.TemporaryDirectory() as folder:
        held = [mapping(folder), steps(), cases(folder), columns(folder)]
    return 0 if all(held) else 1


if __name__ == "__main__":
    sys.exit(main())
