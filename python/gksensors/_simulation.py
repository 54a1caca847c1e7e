"""The simulated robot, whose time moves on request."""

import json
import math
import os
import threading
from collections import deque
from typing import (
    Any,
    Deque,
    Dict,
    Iterable,
    List,
    Mapping,
    NoReturn,
    Optional,
    Union,
    overload,
)

from ._closing import Closing
from ._errors import CallError, Error, ProgramError
from ._program import Child, Finished, Paths, fail, foreign, paths, said
from ._values import Event, dumps, event_of, loads, plain

_TICK = 0.02
_MOST_EVENTS = 1_000_000
_END_PATIENCE = 1.0


def call_error(error: Mapping[str, Any]) -> CallError:
    """The error of an answer of JSON-RPC."""
    data = error.get("data") or {}
    return CallError(
        error["message"],
        error["code"],
        data.get("module", ""),
        data.get("method", ""),
        data.get("description", ""),
        data.get("nearest", ()),
    )


class Simulation(Closing):
    """The simulated robot in lockstep: its time moves when you say so, and only then.

    The same calls give the same results, every time, on the same machine. Each simulation is a
    process of its own: any number of them run side by side, and one that several threads use does
    what they ask one after the other. It ends with `close`, with the ``with`` block, with Ctrl-C,
    or when nobody holds it any more.

    Parameters
    ----------
    seed : int
        Where the noise of the sensors begins.
    noise : bool
        False gives exact sensors.
    library : path or iterable of paths, optional
        Module libraries to load instead of ours.
    files : path or iterable of paths
        Scenarios and recordings that are played as time moves.

    Raises
    ------
    InputError, ProgramError, FileNotFoundError
        As `replay` does.

    Examples
    --------
    >>> with gksensors.Simulation() as sim:
    ...     sim.posture("Sit")
    ...     sim.step(5)
    ...     print(sim["robotPose"], sim.events())
    """

    def __init__(
        self,
        seed: int = 1,
        noise: bool = True,
        library: Optional[Paths] = None,
        files: Paths = (),
    ) -> None:
        self.seed = int(seed)
        self.noise = bool(noise)
        arguments = ["run", "--lockstep", "--quiet", "--robot=sim", f"--seed={self.seed}"]
        if not noise:
            arguments.append("--no-noise")
        arguments += [f"--library={path}" for path in paths(library)]
        played = paths(files)
        self._lock = threading.RLock()
        self._time = 0.0
        self._number = 0
        self._events: Deque[Event] = deque(maxlen=_MOST_EVENTS)
        self._rest = b""
        self._end: Optional[Exception] = None
        self._child = Child([*arguments, "--", *played], takes_input=True)
        stdin, stdout = self._child.process.stdin, self._child.process.stdout
        assert stdin is not None and stdout is not None
        self._in = stdin.fileno()
        self._out = stdout.fileno()
        try:
            self._advance(0.0)
        except ProgramError:
            ended = Finished(self._child.process.wait(), b"", self._child.errors())
            self.close()
            if ended.code == 0:
                raise
            fail(ended, played)
        except BaseException:
            self.close()
            raise

    # Time

    @property
    def time(self) -> float:
        """Seconds of the simulation that have passed."""
        return self._time

    def step(self, seconds: float = _TICK) -> float:
        """Lets so much time pass, to the microsecond: physics, modules, files.

        Parameters
        ----------
        seconds : float
            From 0 on. A tick of the modules is 0.02 s.

        Returns
        -------
        float
            The time after it, in seconds.
        """
        seconds = float(seconds)
        if not (math.isfinite(seconds) and seconds >= 0.0):
            raise ValueError(f"seconds is a number from 0 on, not {seconds}")
        return self._advance(seconds)

    def events(self) -> List[Event]:
        """What was raised since the last look, in order. The newest million is kept."""
        with self._lock:
            events = list(self._events)
            self._events.clear()
        return events

    # Memory

    def __getitem__(self, key: str) -> Any:
        """The present value of a key. Raises KeyError."""
        found = self._ask("Memory.get", [[key]])
        if key not in found:
            raise KeyError(f"there is no key {key}")
        return found[key]

    def __setitem__(self, key: str, value: Any) -> None:
        """Writes a key; keys of devices keep their type. Raises CallError for what does not fit."""
        self.set(key, value)

    def __contains__(self, key: object) -> bool:
        return isinstance(key, str) and key in self.get([key])

    def __iter__(self) -> Any:
        raise TypeError("a simulation has too many keys to go through; get() takes a list of keys")

    @overload
    def get(self, keys: str) -> Any:
        ...

    @overload
    def get(self, keys: Iterable[str]) -> Dict[str, Any]:
        ...

    def get(self, keys: Union[str, Iterable[str]]) -> Any:
        """The value of one key, or a dict of those of many, without keys that are not there.

        Many keys in one call take hardly more time than one.
        """
        if isinstance(keys, str):
            return self[keys]
        return self._ask("Memory.get", [list(keys)])

    @overload
    def set(self, key: str, value: Any) -> None:
        ...

    @overload
    def set(self, key: Mapping[str, Any]) -> None:
        ...

    def set(self, key: Union[str, Mapping[str, Any]], value: Any = None) -> None:
        """Writes one key, or those of a mapping at once."""
        values = {key: value} if isinstance(key, str) else key
        self._ask("Memory.set", [{name: plain(one) for name, one in values.items()}])

    # The world

    def posture(self, name: str) -> None:
        """Sends the robot into a posture ("Stand", "Sit", "Crouch", ...) and returns at once.

        It takes some seconds to get there. Raises CallError, which lists the postures.
        """
        self.set("Simulation/Posture", name)

    def touch(self, place: str, seconds: float = 0.2) -> None:
        """Touches a sensor ("Head/Touch/Front", "ChestBoard/Button") for so long; time passes."""
        key = "Simulation/Touch/" + place
        with self._lock:
            if key not in self:
                raise KeyError(f"there is no touch sensor {place}")
            self.set(key, True)
            self.step(seconds)
            self.set(key, False)

    def push(self, x: float, y: float, seconds: float = 0.2) -> None:
        """Pushes the robot with so many N, ahead (x) and to its left (y), for so long.

        Time passes.
        """
        with self._lock:
            self.set({"Simulation/Push/X": float(x), "Simulation/Push/Y": float(y)})
            self.step(seconds)
            self.set({"Simulation/Push/X": 0.0, "Simulation/Push/Y": 0.0})

    def call(self, method: str, *args: Any, timeout: float = 60.0) -> Any:
        """Calls "Module.method".

        Parameters
        ----------
        method : str
        *args
            Its parameters.
        timeout : float
            A call that takes time (switching the sonar on takes a second) makes the simulation's
            time pass, tick by tick, until it returns; after so many seconds of that it raises
            TimeoutError.

        Raises
        ------
        CallError
            The method has raised an error, or there is none of this name.
        """
        with self._lock:
            number = self._send(method, "[" + ",".join(dumps(one) for one in args) + "]")
            waited = 0.0
            # An answer that needs no time comes before that to a step of none.
            step = 0.0
            while True:
                answer = self._step_for(step, number)
                if answer is not None:
                    return self._result(answer)
                waited += step
                if waited >= timeout:
                    raise TimeoutError(f"{method} has not returned within {timeout} s")
                step = _TICK

    # The end

    def close(self) -> None:
        """Ends the simulation. Does nothing the second time."""
        if self._child.is_foreign:
            return
        with self._lock:
            if self._end is None:
                self._end = Error("the simulation is closed")
            self._child.stop(_END_PATIENCE)
            self._child.close()

    def __reduce__(self) -> Any:
        raise TypeError("a simulation is a running process and cannot be pickled")

    def __repr__(self) -> str:
        state = f"{self._time:.3f} s" if self._end is None else f"ended at {self._time:.3f} s"
        return f"<Simulation seed={self.seed}{'' if self.noise else ', exact'}: {state}>"

    # Requests and answers, a line each

    def _advance(self, seconds: float) -> float:
        # Written out: this is what loops do thousands of times a second.
        with self._lock:
            self._number = number = self._number + 1
            self._write(
                b'{"jsonrpc":"2.0","id":%d,"method":"Clock.advance","params":[%a]}\n'
                % (number, seconds)
            )
            while True:
                line = self._read()
                answer = loads(line)
                if answer.get("id") == number:
                    return self._take_step(self._result(answer))

    def _step_for(self, seconds: float, awaited: int) -> Optional[Dict[str, Any]]:
        """A step, and the answer to an earlier request if it comes meanwhile."""
        number = self._send("Clock.advance", f"[{seconds!r}]")
        found: Optional[Dict[str, Any]] = None
        while True:
            answer = loads(self._read())
            if answer.get("id") == number:
                self._take_step(self._result(answer))
                return found
            if answer.get("id") == awaited:
                found = answer

    def _take_step(self, result: Dict[str, Any]) -> float:
        if result["events"]:
            self._events.extend(map(event_of, result["events"]))
        self._time = time = float(result["time"])
        return time

    def _ask(self, method: str, params: List[Any]) -> Any:
        with self._lock:
            number = self._send(method, json.dumps(params))
            while True:
                answer = loads(self._read())
                if answer.get("id") == number:
                    return self._result(answer)

    def _send(self, method: str, params: str) -> int:
        self._number += 1
        text = (
            f'{{"jsonrpc":"2.0","id":{self._number},"method":{dumps(method)},"params":{params}}}\n'
        )
        self._write(text.encode())
        return self._number

    @staticmethod
    def _result(answer: Dict[str, Any]) -> Any:
        if "error" in answer:
            raise call_error(answer["error"])
        return answer.get("result")

    def _write(self, line: bytes) -> None:
        if self._end is not None:
            raise self._end
        if self._child.is_foreign:
            raise foreign()
        try:
            while line:
                line = line[os.write(self._in, line) :]
        except OSError:
            self._fail()
        except BaseException:
            self._abandon()
            raise

    def _read(self) -> bytes:
        rest = self._rest
        try:
            while b"\n" not in rest:
                piece = os.read(self._out, 1 << 16)
                if not piece:
                    self._fail()
                rest += piece
        except ProgramError:
            raise
        except BaseException:
            self._abandon()
            raise
        line, _, self._rest = rest.partition(b"\n")
        return line

    def _abandon(self) -> None:
        """Interrupted half-way: nobody knows any more which answer is whose."""
        self._end = Error("the simulation was interrupted and has ended")
        self._child.stop()

    def _fail(self) -> NoReturn:
        self._child.stop(_END_PATIENCE)
        code = self._child.process.returncode
        how = f"exit code {code}" if code >= 0 else f"signal {-code}"
        told = self._child.errors().strip()
        text = f"the simulation has ended ({how})" + (f": {said(told)}" if told else "")
        self._end = ProgramError(text, code)
        raise self._end
