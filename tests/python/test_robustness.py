"""Whatever happens to the interpreter or to gk: one clear error, nothing left behind.

What is left of processes and files is looked at after each test (conftest.py).
"""

import concurrent.futures
import gc
import os
import signal
import stat
import subprocess
import sys
import threading
import time
import weakref

import pytest

import gksensors
from conftest import programs, wait_until


@pytest.fixture
def endless(tmp_path, monkeypatch):
    """A program in gk's place: tells its process id, and then nothing for ever."""
    path = tmp_path / "gk"
    path.write_text(
        f"#!/bin/sh\necho $$ > {tmp_path}/pid.part\n"
        f"mv {tmp_path}/pid.part {tmp_path}/pid\nexec sleep 1000\n"
    )
    path.chmod(path.stat().st_mode | stat.S_IXUSR)
    monkeypatch.setenv("GK_PROGRAM", str(path))
    return tmp_path / "pid"


def is_alive(pid):
    try:
        os.kill(pid, 0)
    except ProcessLookupError:
        return False
    # One that has ended and that nobody has waited for is none of ours to count.
    with open(f"/proc/{pid}/stat") as file:
        return file.read().rpartition(")")[2].split()[0] != "Z"


def test_a_killed_simulation_says_so_and_goes_on_saying_so():
    sim = gksensors.Simulation()
    os.kill(sim._child.process.pid, signal.SIGKILL)
    for _ in range(2):
        with pytest.raises(gksensors.ProgramError, match="has ended .signal 9") as failed:
            sim.step()
        assert failed.value.returncode == -signal.SIGKILL
    assert "ended" in repr(sim)
    sim.close()


def test_a_simulation_that_was_ended_in_order_says_so():
    sim = gksensors.Simulation()
    os.kill(sim._child.process.pid, signal.SIGTERM)
    wait_until(lambda: sim._child.process.poll() is not None)
    with pytest.raises(gksensors.ProgramError, match="the simulation has ended"):
        sim["robotPose"]


def test_garbage_in_a_cycle_ends_its_process():
    sim = gksensors.Simulation()
    sim.itself = sim
    gone = weakref.ref(sim)
    del sim
    assert len(programs()) == 1
    gc.collect()
    assert gone() is None and programs() == []


def test_an_exception_in_the_block_ends_its_process():
    with pytest.raises(ZeroDivisionError):
        with gksensors.Simulation():
            1 / 0
    assert programs() == []


@pytest.mark.parametrize("what", ["gksensors.Simulation()", "gksensors.replay('/dev/null')"])
def test_ctrl_c_ends_the_process_behind(endless, what):
    text = (
        f"import gksensors\ntry:\n    {what}\nexcept KeyboardInterrupt:\n    print('interrupted')\n"
    )
    python = subprocess.Popen([sys.executable, "-c", text], stdout=subprocess.PIPE, text=True)
    wait_until(endless.exists)
    python.send_signal(signal.SIGINT)
    out, _ = python.communicate(timeout=20)
    assert out == "interrupted\n"
    assert not is_alive(int(endless.read_text()))


def test_a_simulation_that_was_interrupted_has_ended():
    sim = gksensors.Simulation()

    def interrupt(number, frame):
        raise KeyboardInterrupt

    before = signal.signal(signal.SIGALRM, interrupt)
    try:
        signal.setitimer(signal.ITIMER_REAL, 0.05)
        with pytest.raises(KeyboardInterrupt):
            sim.step(100_000)
    finally:
        signal.signal(signal.SIGALRM, before)
    assert programs() == []
    with pytest.raises(gksensors.Error, match="was interrupted and has ended"):
        sim.step()


def test_the_end_of_the_interpreter_ends_what_is_in_progress(endless):
    text = (
        "import gksensors, threading, os, time\n"
        "threading.Thread(target=gksensors.replay, args=('/dev/null',), daemon=True).start()\n"
        f"while not os.path.exists({str(endless)!r}): time.sleep(0.005)\n"
    )
    ended = subprocess.run([sys.executable, "-c", text], capture_output=True, text=True, timeout=20)
    assert ended.returncode == 0
    wait_until(lambda: not is_alive(int(endless.read_text())))


def test_the_end_of_the_interpreter_ends_simulations_without_a_word():
    text = (
        "import gksensors\n"
        "sim = gksensors.Simulation(); sim.step()\n"
        "print(sim._child.process.pid)\n"
    )
    ended = subprocess.run([sys.executable, "-c", text], capture_output=True, text=True, timeout=20)
    assert (ended.returncode, ended.stderr) == (0, "")
    assert not is_alive(int(ended.stdout))


def test_a_killed_interpreter_ends_its_simulation():
    text = (
        "import gksensors, os, signal\n"
        "sim = gksensors.Simulation()\n"
        "print(sim._child.process.pid, flush=True)\n"
        "os.kill(os.getpid(), signal.SIGKILL)\n"
    )
    ended = subprocess.run([sys.executable, "-c", text], capture_output=True, text=True, timeout=20)
    wait_until(lambda: not is_alive(int(ended.stdout)))


def test_a_fork_has_no_part_in_the_simulations_of_its_parent():
    with gksensors.Simulation() as sim:
        child = os.fork()
        if child == 0:
            code = 1
            try:
                sim.step()
            except gksensors.Error as error:
                code = 0 if "another process" in str(error) else 2
            sim.close()
            del sim
            gc.collect()
            # Its own ones work.
            with gksensors.Simulation() as own:
                code = code if own.step() == 0.02 else 3
            os._exit(code)
        assert os.waitpid(child, 0)[1] == 0
        assert sim.step() == 0.02


def test_a_fork_that_lives_on_does_not_keep_a_simulation_alive():
    sim = gksensors.Simulation()
    reading, writing = os.pipe()
    child = os.fork()
    if child == 0:
        os.close(writing)
        os.read(reading, 1)
        os._exit(0)
    begin = time.monotonic()
    sim.close()
    # It ended with its input, and was not killed after a while.
    assert sim._child.process.returncode == 0 and time.monotonic() - begin < 1.0
    os.close(writing)
    os.close(reading)
    os.waitpid(child, 0)


def test_a_broken_pipe_of_the_interpreter_ends_what_it_reads(night):
    text = (
        "import gksensors, sys\n"
        f"for message in gksensors.Recording({str(night)!r}).messages():\n"
        "    print(message, flush=True)\n"
    )
    shell = f'"{sys.executable}" -c "$0" 2>/dev/null | head -1'
    ended = subprocess.run(["sh", "-c", shell, text], capture_output=True, text=True, timeout=20)
    assert ended.stdout.startswith("Message(time=0.0")


def test_who_stops_reading_messages_ends_the_process(night):
    messages = gksensors.Recording(night).messages()
    next(messages)
    messages.close()
    assert programs() == []


def test_a_simulation_that_is_killed_while_it_works_is_an_error():
    sim = gksensors.Simulation()
    threading.Timer(0.05, lambda: os.kill(sim._child.process.pid, signal.SIGKILL)).start()
    with pytest.raises(gksensors.ProgramError):
        sim.step(100_000)


def test_fifty_simulations_side_by_side():
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        sims = list(pool.map(lambda seed: gksensors.Simulation(seed=seed), range(50)))
        try:
            assert len(programs()) == 50
            assert list(pool.map(lambda sim: sim.step(0.1), sims)) == [0.1] * 50
        finally:
            list(pool.map(gksensors.Simulation.close, sims))


def test_a_program_that_is_none_is_told(monkeypatch, tmp_path):
    monkeypatch.setenv("GK_PROGRAM", "/nowhere/gk")
    with pytest.raises(FileNotFoundError, match="GK_PROGRAM names no program"):
        gksensors.replay("/dev/null")
    with pytest.raises(FileNotFoundError, match="GK_PROGRAM names no program"):
        gksensors.Simulation()


def test_a_program_that_talks_nonsense_is_an_error(monkeypatch):
    monkeypatch.setenv("GK_PROGRAM", "/bin/true")
    with pytest.raises(gksensors.ProgramError, match="has ended"):
        gksensors.Simulation()


def test_descriptors_do_not_grow(data):
    def descriptors():
        return len(os.listdir("/proc/self/fd"))

    gksensors.replay(data / "feet_stand.csv", sample="robotPose")
    before = descriptors()
    for _ in range(5):
        gksensors.replay(data / "feet_stand.csv", sample="robotPose")
        with gksensors.Simulation() as sim:
            sim.step()
    gc.collect()
    assert descriptors() == before
