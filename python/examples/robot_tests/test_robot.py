"""A suite of tests for a robot, as pytest runs it: `pytest robot_tests`.

`shaken.jsonl` beside it is a test as well, since it says what it expects.
"""

import math

import pytest

import gksensors
from gksensors.pytest_plugin import GkReplay

ANGLE = "Device/SubDeviceList/InertialSensor/AngleY/Sensor/Value"
HEAD = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value"


def test_a_fall_is_told_within_a_second(gk_replay: GkReplay) -> None:
    run = gk_replay([{"t": 1.0, "set": {ANGLE: 1.5}}, {"t": 3.0, "end": True}])
    run.expect(event="robotPoseChanged", value="Belly", t=1.0, within=1.0)
    run.expect(event="robotPoseChanged", value="Belly", count=1)


@pytest.mark.parametrize("degrees", [0, 20, 40])
def test_leaning_is_no_fall(gk_replay: GkReplay, degrees: float) -> None:
    run = gk_replay([{"t": 1.0, "set": {ANGLE: math.radians(degrees)}}, {"t": 3.0, "end": True}])
    run.never(event="robotPoseChanged", value="Belly")


def test_a_touch_is_told_once(gk_replay: GkReplay) -> None:
    lines = [
        {"t": 1.0, "set": {HEAD: 1.0}},
        {"t": 2.0, "set": {HEAD: 0.0}},
        {"t": 3.0, "end": True},
    ]
    gk_replay(lines).expect(event="FrontTactilTouched", value=1.0, count=1)


def test_the_simulated_robot_gets_up_again() -> None:
    with gksensors.Simulation() as sim:
        sim.step(1.0)
        sim.posture("Sit")
        sim.step(5.0)
        sim.posture("Stand")
        sim.step(6.0)
        poses = [event.value for event in sim.events() if event.name == "robotPoseChanged"]
        assert poses[-1] == "Stand" and "Sit" in poses
