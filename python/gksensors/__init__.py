"""Facts and events of a small humanoid robot, for people who live in Python.

>>> import gksensors
>>> run = gksensors.replay("fall.csv", sample="Motion/IsStand")    # recordings, in milliseconds
>>> run.expect(event="robotPoseChanged", value="Belly")
>>> with gksensors.Simulation() as sim:                            # a robot to play with
...     sim.push(30, 0)
...     sim.step(2)
>>> with gksensors.connect() as host:                              # one that runs
...     host.call("GKBattery.getBatteryCharge")

All of it drives the program ``gk`` as processes behind: nothing here can crash the interpreter, and
what is behind an object ends with it. GK_PROGRAM names the program, if it is not the one beside
this package or on the PATH.

Times are seconds, angles rad, distances m, forces N, weights kg, temperatures degC.
"""

from typing import Any

from ._columns import Samples, load
from ._diff import Diff, Difference, diff
from ._errors import CallError, Error, ExpectationFailed, InputError, ProgramError
from ._host import Host, Listening, connect
from ._recording import Message, Recording, Topic
from ._replay import Report, Run, Statistics, replay
from ._simulation import Simulation
from ._values import Event, LogLine
from ._wire import Change, Module

__all__ = [
    "CallError",
    "Change",
    "Diff",
    "Difference",
    "Error",
    "Event",
    "ExpectationFailed",
    "Host",
    "InputError",
    "Listening",
    "LogLine",
    "Message",
    "Module",
    "ProgramError",
    "Recording",
    "Report",
    "Run",
    "Samples",
    "Simulation",
    "Statistics",
    "Topic",
    "connect",
    "diff",
    "load",
    "replay",
]


def __getattr__(name: str) -> Any:
    if name == "__version__":
        from importlib.metadata import PackageNotFoundError, version

        try:
            return version("gksensors")
        except PackageNotFoundError:
            return "unknown"
    if name == "aio":
        import importlib

        return importlib.import_module("gksensors.aio")
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
