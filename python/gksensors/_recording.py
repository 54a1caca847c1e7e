"""Recordings, message by message."""

import os
import re
from typing import TYPE_CHECKING, Any, Dict, Iterator, List, NamedTuple, Optional

from ._html import count, table
from ._program import PathLike, fail, lines, run
from ._values import loads

if TYPE_CHECKING:
    import pandas

_TOPIC = re.compile(r"^    (\S.*?) +(\d+)  (\S*) *(.*?)\s*$")
_NANOSECONDS = 1e9


class Topic(NamedTuple):
    """A topic of a recording: how many messages it has, and what they are."""

    name: str
    messages: int
    encoding: str
    schema: str


class Message(NamedTuple):
    """A message of a recording.

    Attributes
    ----------
    time : float
        Seconds since the beginning of the recording.
    topic : str
    value : dict
        What it tells, by names with units in them ("angle_x_rad").
    log_time : int
        Nanoseconds since 1970.
    """

    time: float
    topic: str
    value: Any
    log_time: int


class Recording:
    """A recording of a run (``.mcap``), as viewers see it.

    To look at what modules make of it, `replay` it.

    Parameters
    ----------
    path : path

    Attributes
    ----------
    path : str
    topics : dict of str to Topic

    Raises
    ------
    FileNotFoundError, InputError
        There is no such file, or it is no recording.

    Examples
    --------
    >>> recording = gksensors.Recording("night.mcap")
    >>> recording.to_pandas("/imu")["angle_y_rad"].plot()
    """

    def __init__(self, path: PathLike) -> None:
        self.path = os.fspath(path)
        ended = run(["recording", "info", "--", self.path])
        if ended.code != 0:
            fail(ended, [self.path])
        self.topics: Dict[str, Topic] = {}
        for line in ended.out.decode(errors="replace").splitlines():
            found = _TOPIC.match(line)
            if found is not None:
                name, number, encoding, schema = found.groups()
                self.topics[name] = Topic(name, int(number), encoding, schema)
        self._start: Optional[int] = None

    def messages(self, topic: Optional[str] = None) -> Iterator[Message]:
        """The messages of a topic, or of all, in order, one by one: memory does not grow with them.

        Parameters
        ----------
        topic : str, optional

        Yields
        ------
        Message

        Raises
        ------
        KeyError
            There is no such topic.
        """
        if topic is not None and topic not in self.topics:
            raise KeyError(f"{self.path} has no topic {topic}; it has {', '.join(self.topics)}")
        return self._messages(topic)

    def _messages(self, topic: Optional[str]) -> Iterator[Message]:
        if self._start is None:
            self._start = self._first_time()
        options = [] if topic is None else [f"--topic={topic}"]
        for line in lines(["recording", "cat", *options, "--", self.path]):
            read = loads(line)
            time = read["log_time"]
            yield Message((time - self._start) / _NANOSECONDS, read["topic"], read["message"], time)

    def _first_time(self) -> int:
        reading = lines(["recording", "cat", "--", self.path])
        try:
            for line in reading:
                return int(loads(line)["log_time"])
            return 0
        finally:
            reading.close()

    def to_pandas(self, topic: str) -> "pandas.DataFrame":
        """The messages of a topic as a table: a column for each member, the time as its index."""
        import pandas

        times: List[float] = []
        values: List[Any] = []
        for message in self.messages(topic):
            times.append(message.time)
            values.append(message.value)
        frame = pandas.json_normalize(values)
        frame.index = pandas.Index(times, name="time")
        return frame

    def __repr__(self) -> str:
        messages = sum(topic.messages for topic in self.topics.values())
        return (
            f"<Recording {os.path.basename(self.path)}:"
            f" {count(len(self.topics), 'topic')}, {count(messages, 'message')}>"
        )

    def _repr_html_(self) -> str:
        rows = [(one.name, str(one.messages), one.schema) for one in self.topics.values()]
        return table(("topic", "messages", "schema"), rows)
