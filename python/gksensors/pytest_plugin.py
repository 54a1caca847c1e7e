"""What pytest gets from this package.

The fixture `gk_replay` runs a file, or lines of a scenario, through the module library. Scenario
files (``.jsonl``, ``.jsonl.gz``) with an expectation in them are tests of their own, each run by
``gk test``. ``--gk-program FILE`` names the program.
"""

import gzip
import json
import os
from pathlib import Path
from typing import (
    Any,
    Callable,
    Iterable,
    Iterator,
    Mapping,
    Optional,
    Sequence,
    Tuple,
    Union,
    cast,
)

import pytest

from ._errors import ExpectationFailed, InputError
from ._program import PathLike, run, said
from ._replay import Run, replay
from ._values import plain

_SCENARIOS = (".jsonl", ".jsonl.gz")
_NO_SCENARIOS = (".expect.jsonl", ".expected.jsonl", ".expect.jsonl.gz", ".expected.jsonl.gz")
_PROGRAM = "GK_PROGRAM"
_FAILED = 1

Lines = Sequence[Mapping[str, Any]]
GkReplay = Callable[..., Run]


def pytest_addoption(parser: pytest.Parser) -> None:
    group = parser.getgroup("gksensors")
    group.addoption("--gk-program", metavar="FILE", help="the program gk that runs the tests")


def pytest_configure(config: pytest.Config) -> None:
    program = config.getoption("--gk-program")
    if program is not None:
        before = os.environ.get(_PROGRAM)

        def restore() -> None:
            if before is None:
                os.environ.pop(_PROGRAM, None)
            else:
                os.environ[_PROGRAM] = before

        config.add_cleanup(restore)
        # Tests of pytest itself, and workers, run in other folders.
        os.environ[_PROGRAM] = os.path.abspath(program) if os.path.exists(program) else program


def _line(line: Mapping[str, Any]) -> str:
    def settled(value: Any) -> Any:
        if isinstance(value, Mapping):
            return {name: settled(one) for name, one in value.items()}
        if isinstance(value, (list, tuple)):
            return [settled(one) for one in value]
        return plain(value)

    return json.dumps(settled(line)) + "\n"


@pytest.fixture
def gk_replay(request: pytest.FixtureRequest, tmp_path: Path) -> GkReplay:
    """Runs recordings or a scenario and returns the `Run`.

    ``gk_replay("fall.csv", sample=...)`` takes what `gksensors.replay` takes; a file that is not
    in the present folder is looked for beside the test. ``gk_replay([{"t": 1, "set": {...}}])``
    plays these lines.
    """

    def beside(file: PathLike) -> PathLike:
        other = request.path.parent / file
        return other if not os.path.exists(file) and other.exists() else file

    def run_it(files: Union[PathLike, Iterable[PathLike], Lines], **options: Any) -> Run:
        if isinstance(files, (str, os.PathLike)):
            return replay(beside(files), **options)
        listed = list(files)
        if listed and all(isinstance(line, Mapping) for line in listed):
            number = len(list(tmp_path.glob("scenario*.jsonl")))
            scenario = tmp_path / f"scenario{number or ''}.jsonl"
            lines = cast(Lines, listed)
            scenario.write_text("".join(map(_line, lines)), encoding="utf-8")
            return replay(scenario, **options)
        return replay([beside(cast(PathLike, file)) for file in listed], **options)

    return run_it


def _has_expectation(path: Path) -> bool:
    opened = gzip.open(path) if path.name.endswith(".gz") else open(path, "rb")
    try:
        with opened as file:
            for line in file:
                if b'"expect"' in line or b'"never"' in line:
                    try:
                        read = json.loads(line)
                    except ValueError:
                        continue
                    if isinstance(read, dict) and ("expect" in read or "never" in read):
                        return True
    except OSError:
        pass
    return False


def pytest_collect_file(file_path: Path, parent: pytest.Collector) -> Optional["ScenarioFile"]:
    name = file_path.name
    if not name.endswith(_SCENARIOS) or name.endswith(_NO_SCENARIOS):
        return None
    if not _has_expectation(file_path):
        return None
    return cast(ScenarioFile, ScenarioFile.from_parent(parent, path=file_path))


class ScenarioFile(pytest.File):
    """A scenario that says what it expects."""

    def collect(self) -> Iterator[pytest.Item]:
        yield cast(pytest.Item, ScenarioItem.from_parent(self, name="expectations"))


class ScenarioItem(pytest.Item):
    """All of its expectations, and its golden file where there is one."""

    def runtest(self) -> None:
        # As people would type it.
        path = os.path.relpath(self.path)
        ended = run(["test", "--", str(self.path) if path.startswith("..") else path])
        if ended.code == _FAILED:
            raise ExpectationFailed(ended.out.decode(errors="replace").rstrip())
        if ended.code != 0:
            told = ended.out.decode(errors="replace").rstrip()
            raise InputError(told or said(ended.err))

    def repr_failure(self, excinfo: Any, style: Any = None) -> Any:
        if isinstance(excinfo.value, (ExpectationFailed, InputError)):
            return str(excinfo.value)
        return super().repr_failure(excinfo, style)

    def reportinfo(self) -> Tuple[Path, Optional[int], str]:
        return self.path, 0, f"scenario: {self.path.name}"
