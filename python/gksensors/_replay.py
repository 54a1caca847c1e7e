"""Recordings through the module library, as fast as the machine allows."""

import html
import json
import os
import re
import tempfile
import warnings
from typing import (
    TYPE_CHECKING,
    Any,
    Dict,
    Iterable,
    List,
    Mapping,
    NamedTuple,
    Optional,
    Sequence,
    Tuple,
    Union,
)

import numpy as np

from ._columns import TIME, Samples, load
from ._errors import ExpectationFailed, InputError
from ._html import count, table
from ._program import SUM, Finished, PathLike, Paths, fail, listed, paths, run, said
from ._values import Event, LogLine, dumps, event_of, loads, plain

if TYPE_CHECKING:
    import pandas

_UNHELD = 3
_FAILURE = re.compile(r"^.+:\d+: expected ")
_COUNTS = {"count", "atLeast", "atMost"}
# Members of expectations that Python writes in another way.
_MEMBERS = {"for_": "for", "at_least": "atLeast", "at_most": "atMost"}


class Statistics(NamedTuple):
    """What a run did: seconds of its own time, ticks, events of both kinds, seconds it took."""

    seconds: float
    ticks: int
    events: int
    wall_seconds: float


class Report:
    """The page of a run: time line, plots, counts. One page that needs no network.

    Attributes
    ----------
    html : str
    """

    def __init__(self, text: str) -> None:
        self.html = text

    def save(self, path: PathLike) -> None:
        """Writes the page to a file."""
        with open(path, "w", encoding="utf-8") as file:
            file.write(self.html)

    def __repr__(self) -> str:
        return f"<Report: a page of {len(self.html) / 1e6:.2f} MB; save(path) keeps it>"

    def _repr_html_(self) -> str:
        # In a frame of its own, which can reach nothing of the notebook.
        return (
            '<iframe sandbox="allow-scripts" style="width:100%;height:40em;border:0"'
            f' srcdoc="{html.escape(self.html)}"></iframe>'
        )


def _command(
    subscribe: Union[str, Iterable[str]],
    sample: Union[str, Iterable[str]],
    without: Union[str, Iterable[str]],
    until: Optional[float],
    library: Optional[Paths],
    settings: Mapping[str, Any],
) -> List[str]:
    options = [f"--subscribe={module}" for module in listed(subscribe)]
    options += [f"--sample={key}" for key in listed(sample)]
    options += [f"--without={service}" for service in listed(without)]
    options += [f"--library={path}" for path in paths(library)]
    options += [f"--setting={name}={dumps(value)}" for name, value in settings.items()]
    if until is not None:
        options.append(f"--until={float(until)!r}")
    return options


def replay(
    files: Paths,
    subscribe: Union[str, Iterable[str]] = (),
    sample: Union[str, Iterable[str]] = (),
    without: Union[str, Iterable[str]] = (),
    until: Optional[float] = None,
    library: Optional[Paths] = None,
    settings: Mapping[str, Any] = {},
) -> "Run":
    """Runs recordings and scenarios through the module library in virtual time.

    The same input gives the same result every time. Any number of replays may go on at once, in
    threads: each is a process of its own.

    Parameters
    ----------
    files : path or iterable of paths
        Recordings (``.mcap``, ``.csv``) and scenarios (``.jsonl``), merged by time.
    subscribe : str or iterable of str
        Extractors to subscribe to at the start, such as "GKSonar".
    sample : str or iterable of str
        Keys whose values are kept after every tick, see `Run.samples`.
    without : str or iterable of str
        Services to leave out: "GKMemory", "DCM", "GKResourceManager".
    until : float, optional
        Ends the run at this time, in seconds from the start.
    library : path or iterable of paths, optional
        Module libraries to load instead of ours.
    settings : mapping
        Memory keys ``Settings/NAME`` that are there before a library is loaded, by NAME.

    Returns
    -------
    Run

    Raises
    ------
    FileNotFoundError
        There is no such file, or no program ``gk``.
    InputError
        A file is malformed (`file` and `line` tell where), or a module is unknown.
    ProgramError
        A library cannot be loaded or does not start; a sampled key holds no number.

    Examples
    --------
    >>> run = gksensors.replay("fall.csv", sample="Motion/IsStand")
    >>> [event for event in run.events if event.name == "robotPoseChanged"]
    """
    options = _command(subscribe, sample, without, until, library, settings)
    return Run(paths(files), options, has_samples=bool(listed(sample)))


class Run:
    """A run that has ended: what was raised, logged and sampled in it. Made by `replay`.

    Attributes
    ----------
    files : tuple of str
        What was played.
    samples : Samples
        The values of the sampled keys after every tick.
    statistics : Statistics
        Seconds, ticks, events.
    failures : tuple of str
        What the files themselves expect of the run and what did not hold, a line each.
    """

    def __init__(self, files: Sequence[str], options: Sequence[str], has_samples: bool) -> None:
        if not files:
            raise InputError("there is no file to replay")
        self.files: Tuple[str, ...] = tuple(files)
        self._options = list(options)
        self._events: Optional[List[Event]] = None
        self._log: Optional[List[LogLine]] = None
        arguments = ["--out=-", "--only=event,micro,log"]
        if has_samples:
            with tempfile.TemporaryDirectory(prefix="gksensors-") as folder:
                columns = os.path.join(folder, "samples.npy")
                ended = self._replay([*arguments, f"--columns={columns}"])
                array = load(columns) if ended.code in (0, _UNHELD) else None
        else:
            ended = self._replay(arguments)
            array = np.empty(0, [(TIME, "<f8")])
        if ended.code not in (0, _UNHELD) or array is None:
            fail(ended, self.files)
        self.samples = Samples(array)
        self._lines = ended.out
        self.statistics, self.failures = self._judge(ended)

    def _replay(self, arguments: Sequence[str], further: Sequence[str] = ()) -> Finished:
        return run(["replay", *self._options, *arguments, "--", *self.files, *further])

    def _judge(self, ended: Finished) -> Tuple[Statistics, Tuple[str, ...]]:
        failures = []
        statistics = Statistics(0.0, 0, 0, 0.0)
        for line in ended.complaints:
            total = SUM.match(line)
            if total is not None:
                seconds, ticks, events, wall = total.groups()
                statistics = Statistics(float(seconds), int(ticks), int(events), float(wall))
            elif line.startswith("gk: "):
                warnings.warn(said(line), stacklevel=4)
            elif ended.code == _UNHELD and _FAILURE.match(line):
                failures.append(line)
        return statistics, tuple(failures)

    def _read(self) -> Tuple[List[Event], List[LogLine]]:
        if self._events is None or self._log is None:
            events: List[Event] = []
            log: List[LogLine] = []
            for text in self._lines.splitlines():
                line = loads(text)
                if line["kind"] == "log":
                    log.append(
                        LogLine(
                            float(line["t"]),
                            line["level"],
                            line["category"],
                            line["function"],
                            line["text"],
                        )
                    )
                else:
                    events.append(event_of(line))
            self._events, self._log = events, log
            self._lines = b""
        return self._events, self._log

    @property
    def events(self) -> List[Event]:
        """Everything that was raised, in order: a list of `Event`."""
        return self._read()[0]

    @property
    def log(self) -> List[LogLine]:
        """The log of all levels: a list of `LogLine`."""
        return self._read()[1]

    def to_pandas(self, table: Optional[str] = None) -> "pandas.DataFrame":
        """A table of the run, with the time in seconds as its index.

        Parameters
        ----------
        table : {"samples", "events", "log"}, optional
            Without it: the samples, if keys were sampled, else the events.
        """
        import pandas

        if table is None:
            table = "samples" if len(self.samples) else "events"
        if table == "samples":
            return self.samples.to_pandas()
        if table not in ("events", "log"):
            raise ValueError(f'table is "samples", "events" or "log", not {table!r}')
        fields = Event._fields if table == "events" else LogLine._fields
        rows = self.events if table == "events" else self.log
        return pandas.DataFrame(rows, columns=list(fields)).set_index(TIME)

    def report(self) -> Report:
        """The page of the run, which notebooks show. The run is repeated for it."""
        with tempfile.TemporaryDirectory(prefix="gksensors-") as folder:
            page = os.path.join(folder, "report.html")
            ended = self._replay(["--quiet", f"--report={page}"])
            if ended.code not in (0, _UNHELD):
                fail(ended, self.files)
            with open(page, encoding="utf-8") as file:
                return Report(file.read())

    def save(self, path: PathLike) -> str:
        """Writes what was reported as the lines of ``gk replay --out``, and returns the path.

        The run is repeated for it; a file that is there is replaced.
        """
        written = os.fspath(path)
        ended = self._replay([f"--out={written}"])
        if ended.code not in (0, _UNHELD):
            fail(ended, self.files)
        return written

    def expect(self, *, t: Optional[float] = None, **members: Any) -> None:
        """Checks that something happened; the members are those of a scenario's "expect".

        Each check repeats the run, which takes milliseconds, and changes nothing of it.

        Parameters
        ----------
        event, log, key, order, call
            What is meant: an event or a key by its name, a log line by a part of its text.
        value, above, below, absent, tolerance, level
            What it has to be.
        t : float, optional
            When, in seconds of the run. Without it an event is expected at some time, at least
            once; counts, orders and calls have none.
        within : float
            So many seconds later than `t` will do (0.1 when left out).
        for_ : float
            The "for" of a key that keeps its value for so many seconds from `t` on.
        count, at_least, at_most : int
            How often.

        Raises
        ------
        ExpectationFailed
            It did not hold. The text says what came nearest.
        InputError
            There is no such expectation.

        Examples
        --------
        >>> run.expect(event="robotPoseChanged", value="Belly", t=2.0, within=0.1)
        >>> run.expect(event="HandLeftBackTouched", count=0)
        """
        self._hold("expect", t, members)

    def never(self, *, t: Optional[float] = None, **members: Any) -> None:
        """Checks that something did not happen from `t` on, for `for_` seconds.

        Without `for_` it is the rest of the run, without `t` all of it.

        The members are those of a scenario's "never"; see `expect`.
        """
        self._hold("never", t, members)

    def _hold(self, kind: str, t: Optional[float], members: Dict[str, Any]) -> None:
        wanted = {_MEMBERS.get(name, name): plain(value) for name, value in members.items()}
        line: Dict[str, Any] = {} if t is None else {"t": float(t)}
        if kind == "expect" and t is None and "event" in wanted and not _COUNTS & wanted.keys():
            wanted["atLeast"] = 1
        line[kind] = wanted
        with tempfile.TemporaryDirectory(prefix="gksensors-") as folder:
            scenario = os.path.join(folder, "expectation.jsonl")
            with open(scenario, "w", encoding="utf-8") as file:
                json.dump(line, file)
            ended = self._replay(["--quiet"], [scenario])
        place = f"{scenario}:1: "
        own = [text[len(place) :] for text in ended.complaints if text.startswith(place)]
        if ended.code == _UNHELD and own:
            raise ExpectationFailed("\n".join(own))
        if ended.code == 2 and own:
            raise InputError(f"{kind}: {own[0]}")
        if ended.code not in (0, _UNHELD):
            fail(ended, self.files)

    def __repr__(self) -> str:
        names = ", ".join(os.path.basename(file) for file in self.files)
        total = self.statistics
        sampled = f", {count(len(self.samples), 'key')} sampled" if len(self.samples) else ""
        failed = f", {len(self.failures)} expectations failed" if self.failures else ""
        return (
            f"<Run of {names}: {total.seconds:.3f} s, {count(total.ticks, 'tick')},"
            f" {count(total.events, 'event')}{sampled}{failed}>"
        )

    def _repr_html_(self) -> str:
        most = 100
        rows = [
            (f"{event.time:.3f}", event.kind, event.name, event.value)
            for event in self.events[:most]
        ]
        more = len(self.events) - len(rows)
        rest = f"<p>and {count(more, 'event')} more</p>" if more > 0 else ""
        return (
            f"<p>{html.escape(repr(self))}</p>"
            + table(("time", "kind", "name", "value"), rows)
            + rest
        )
