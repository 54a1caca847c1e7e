"""Values of the robot as Python has them, and the JSON that they travel as."""

import json
import math
from typing import Any, Dict, List, NamedTuple, Union

import numpy as np

Value = Union[None, bool, int, float, str, List[Any]]
"""What a key holds, an event brings and a method returns.

Floats of the robot have 32 bits; here they are Python's floats with the fewest digits that mean
the same 32-bit float, so that ``0.1`` is ``0.1``. An array is a list, "invalid" is None.
"""


class Event(NamedTuple):
    """Something that was raised.

    Attributes
    ----------
    time : float
        Seconds since the start of the run.
    name : str
    value : bool, int, float, str, list or None
    kind : str
        "event" or "micro".
    """

    time: float
    name: str
    value: Any
    kind: str = "event"


class LogLine(NamedTuple):
    """A line of the log: `time` in seconds since the start, `level` from 1 (fatal) to 6 (debug)."""

    time: float
    level: int
    category: str
    function: str
    text: str


_SPECIAL = {"nan": math.nan, "inf": math.inf, "-inf": -math.inf}


def _special(members: Dict[str, Any]) -> Any:
    if len(members) == 1 and members.get("float") in _SPECIAL:
        return _SPECIAL[members["float"]]
    return members


def loads(text: Union[str, bytes]) -> Any:
    """JSON to values. What JSON has no number for is ``{"float": "nan"}``."""
    if (b'"float"' in text) if isinstance(text, bytes) else ('"float"' in text):
        return json.loads(text, object_hook=_special)
    return json.loads(text)


def plain(value: Any) -> Any:
    """A value as `json.dumps` takes it.

    Bools, ints, floats, texts, None, sequences and mappings of them, and what NumPy has of these.
    A float stays one: 1.0 is written with its point. Raises TypeError for all else.
    """
    if value is None or isinstance(value, (bool, str)):
        return value
    if isinstance(value, np.generic):
        return plain(value.item())
    if isinstance(value, int):
        if not -(2**31) <= value < 2**31:
            raise OverflowError(f"{value} does not fit into 32 bits")
        return value
    if isinstance(value, float):
        if math.isfinite(value):
            return value
        return {"float": "nan" if math.isnan(value) else "inf" if value > 0 else "-inf"}
    if isinstance(value, np.ndarray):
        return plain(value.tolist())
    if isinstance(value, (list, tuple)):
        return [plain(element) for element in value]
    raise TypeError(f"{type(value).__name__} is no value of the robot: {value!r}")


def dumps(value: Any) -> str:
    """A value as JSON on one line."""
    return json.dumps(plain(value), ensure_ascii=False, separators=(",", ":"))


def event_of(line: Dict[str, Any]) -> Event:
    """An event of a line that has the members "t", "name", "value" and "kind"."""
    return Event(float(line["t"]), line["name"], line.get("value"), line["kind"])
