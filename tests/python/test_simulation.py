"""The simulated robot, whose time moves on request."""

import concurrent.futures
import json

import numpy as np
import pytest

import gksensors
from conftest import BOARD


@pytest.fixture
def sim():
    with gksensors.Simulation(noise=False) as simulation:
        yield simulation


def names(events):
    return [event.name for event in events]


def test_time_moves_by_steps_alone(sim):
    assert sim.time == 0.0
    assert sim.step(0.5) == 0.5
    assert sim.step() == 0.52
    assert sim.step(0) == 0.52
    assert sim.time == 0.52


@pytest.mark.parametrize("seconds", [-0.02, float("nan"), float("inf")])
def test_time_does_not_go_back_or_nowhere(sim, seconds):
    with pytest.raises(ValueError, match="a number from 0 on"):
        sim.step(seconds)
    assert sim.step() == 0.02


def test_events_are_those_since_the_last_look(sim):
    sim.step(1)
    first = sim.events()
    assert gksensors.Event(0.0, "robotPoseChanged", "Unknown", "event") in first
    assert sim.events() == []
    sim.touch("Head/Touch/Front")
    assert names(sim.events()) == ["FrontTactilTouched"]


def test_a_touch_lasts_as_long_as_it_is_told(sim):
    sim.step(1)
    sim.events()
    sim.touch("Head/Touch/Front", seconds=0.2)
    assert sim.time == 1.2
    sim.step(0.2)
    touched = [event for event in sim.events() if event.name == "FrontTactilTouched"]
    assert [event.value for event in touched] == [1.0, 0.0]
    assert touched[1].time - touched[0].time == pytest.approx(0.2, abs=0.021)
    with pytest.raises(KeyError, match="Nose"):
        sim.touch("Nose")


def test_a_push_that_is_strong_enough_makes_it_fall_to_that_side(sim):
    sim.step(1)
    sim.push(60.0, 0.0, seconds=0.3)
    assert sim.get(["Simulation/Push/X", "Simulation/Push/Y"]) == {
        "Simulation/Push/X": 0.0,
        "Simulation/Push/Y": 0.0,
    }
    sim.step(2)
    assert "Belly" in [event.value for event in sim.events() if event.name == "robotPoseChanged"]


def test_a_posture_is_taken_while_time_passes(sim):
    sim.step(1)
    sim.posture("Sit")
    assert sim.time == 1.0
    sim.step(5)
    assert sim.events()[-1].name and sim["Motion/IsStand"] == 0.0
    with pytest.raises(gksensors.CallError, match="only Stand, Crouch, Sit"):
        sim.posture("Nap")


def test_keys_are_read_and_written_as_items(sim):
    assert isinstance(sim[BOARD], int)
    sim["Simulation/Ambient/Temperature"] = np.float32(30.1)
    assert sim["Simulation/Ambient/Temperature"] == 30.1
    sim.set(
        {"Mine/Int": 3, "Mine/Text": "Grüße", "Mine/Array": [1, 2.5, "x", [True]], "Mine/Not": None}
    )
    assert sim["Mine/Text"] == "Grüße"
    assert sim["Mine/Array"] == [1, 2.5, "x", [True]]
    assert sim["Mine/Not"] is None
    assert sim.get(["Mine/Int", "Mine/Nothing"]) == {"Mine/Int": 3}
    assert "Mine/Int" in sim and "Mine/Nothing" not in sim and 3 not in sim
    with pytest.raises(KeyError, match="Mine/Nothing"):
        sim["Mine/Nothing"]
    with pytest.raises(gksensors.CallError, match="takes a float"):
        sim["Motion/IsStand"] = "yes"
    with pytest.raises(TypeError, match="takes a list of keys"):
        list(sim)


@pytest.mark.parametrize(
    "value", [float("inf"), float("-inf"), 0.1, 1e-30, -0.0, True, 7, np.int8(7)]
)
def test_values_come_back_as_they_went(sim, value):
    sim["Mine"] = value
    assert sim["Mine"] == value and isinstance(sim["Mine"], type(np.array(value).item()))


def test_nan_comes_back_as_it_went(sim):
    sim["Mine"] = np.nan
    assert np.isnan(sim["Mine"])


@pytest.mark.parametrize(
    "value, error", [(2**31, OverflowError), ({}, TypeError), (1j, TypeError)]
)
def test_what_is_no_value_is_refused_before_it_is_sent(sim, value, error):
    with pytest.raises(error):
        sim["Mine"] = value
    assert sim.step() == 0.02


def test_calls_return_what_the_method_returns(sim):
    assert isinstance(sim.call("GKBattery.getBatteryCharge"), int)
    assert "Belly" in sim.call("GKRobotPose.getPoseNames")


def test_a_call_that_takes_time_moves_time_until_it_returns(sim):
    assert sim.call("GKSonar.subscribe", "me") is None
    assert sim.time == pytest.approx(1.0, abs=0.021)


def test_a_call_that_takes_longer_than_its_time_out_is_left(sim):
    with pytest.raises(TimeoutError, match="GKSonar.subscribe has not returned within 0.1 s"):
        sim.call("GKSonar.subscribe", "me", timeout=0.1)
    sim.step(2)
    assert isinstance(sim.call("GKBattery.getBatteryCharge"), int)


def test_errors_of_calls_have_the_members_of_the_platforms(sim):
    with pytest.raises(gksensors.CallError) as failed:
        sim.call("GKBatery.getBatteryCharge")
    assert failed.value.code == -32601 and "GKBattery" in failed.value.nearest
    with pytest.raises(gksensors.CallError) as failed:
        sim.call("GKMemory.getData", "Nothing")
    error = failed.value
    assert (error.code, error.module, error.method) == (-32000, "GKMemory", "getData")
    assert "Nothing" in error.description


def test_the_same_calls_give_the_same_run():
    def run(seed):
        with gksensors.Simulation(seed=seed) as sim:
            sim.step(0.5)
            sim.push(20.0, 5.0)
            keys = ["Device/SubDeviceList/InertialSensor/AccX/Sensor/Value", "robotPose"]
            found = [sim.get(keys) for _ in range(20) if sim.step(0.02)]
            return found, sim.events()

    assert run(7) == run(7)
    assert run(7) != run(8)


def test_files_are_played_as_time_moves(tmp_path):
    path = tmp_path / "scenario.jsonl"
    lines = [{"t": 0.1, "set": {"Simulation/Touch/Head/Touch/Rear": True}}]
    path.write_text("".join(json.dumps(line) + "\n" for line in lines))
    with gksensors.Simulation(files=path) as sim:
        sim.step(0.08)
        sim.events()
        sim.step(0.1)
        assert gksensors.Event(0.1, "RearTactilTouched", 1.0) in sim.events()


def test_a_bad_file_or_library_is_told_at_once(tmp_path):
    bad = tmp_path / "bad.jsonl"
    bad.write_text('{"t": 1, "sett": {}}\n')
    with pytest.raises(gksensors.InputError) as failed:
        gksensors.Simulation(files=[bad])
    assert (failed.value.file, failed.value.line) == (str(bad), 1)
    with pytest.raises(FileNotFoundError):
        gksensors.Simulation(files="nowhere.csv")
    with pytest.raises(gksensors.ProgramError, match="nowhere.so"):
        gksensors.Simulation(library="/nowhere.so")


def test_threads_are_served_one_after_the_other(sim):
    def work(number):
        for step in range(30):
            sim[f"Mine/{number}"] = step
            assert sim[f"Mine/{number}"] == step
            sim.step(0.001)

    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        list(pool.map(work, range(8)))
    assert sim.time == pytest.approx(8 * 30 * 0.001)


def test_its_state_is_seen_at_a_glance():
    sim = gksensors.Simulation(seed=3, noise=False)
    sim.step(1.5)
    assert repr(sim) == "<Simulation seed=3, exact: 1.500 s>"
    sim.close()
    sim.close()
    assert repr(sim) == "<Simulation seed=3, exact: ended at 1.500 s>"
    with pytest.raises(gksensors.Error, match="closed"):
        sim.step()
