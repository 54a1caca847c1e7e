"""The program ``gk``: where it is, and processes of it that never outlive this one."""

import atexit
import errno
import os
import re
import shutil
import signal
import subprocess
import tempfile
import threading
import weakref
from pathlib import Path
from types import FrameType
from typing import IO, Any, Generator, Iterable, List, NoReturn, Optional, Sequence, Tuple, Union

from ._errors import Error, InputError, ProgramError

PathLike = Union[str, "os.PathLike[str]"]
Paths = Union[PathLike, Iterable[PathLike]]


def find_program() -> str:
    """The path of ``gk``: GK_PROGRAM names it, else it lies beside this package, else on the PATH.

    Raises FileNotFoundError that says where it was looked for.
    """
    named = os.environ.get("GK_PROGRAM")
    if named:
        found = shutil.which(named)
        if found is None:
            raise FileNotFoundError(
                errno.ENOENT, "GK_PROGRAM names no program that can be run", named
            )
        return found
    package = Path(__file__).parent
    # In a build folder: python/gksensors and bin/gk. In the sources: the build of the preset.
    for beside in (
        package / "gk",
        package.parent.parent / "bin" / "gk",
        package.resolve().parent.parent / "build" / "release" / "bin" / "gk",
    ):
        if os.access(beside, os.X_OK) and beside.is_file():
            return str(beside)
    found = shutil.which("gk")
    if found is None:
        raise FileNotFoundError(
            errno.ENOENT,
            "there is no gk beside this package or on the PATH; GK_PROGRAM may name it",
            "gk",
        )
    return found


def listed(names: Union[str, Iterable[str], None]) -> List[str]:
    """Names as a list; a single text is one name."""
    if names is None:
        return []
    return [names] if isinstance(names, str) else list(names)


def paths(files: Optional[Paths]) -> List[str]:
    """Paths as texts; one path is as good as a list of them."""
    if files is None:
        return []
    if isinstance(files, (str, os.PathLike)):
        return [os.fspath(files)]
    return [os.fspath(file) for file in files]


class _Uninterrupted:
    """Holds Ctrl-C back while a process begins: one that is interrupted in that is nobody's."""

    def __init__(self) -> None:
        self._handler: Any = None
        self._noted: Optional[Tuple[int, Optional[FrameType]]] = None

    def _note(self, number: int, frame: Optional[FrameType]) -> None:
        self._noted = (number, frame)

    def __enter__(self) -> None:
        # Signals are the main thread's.
        if threading.current_thread() is threading.main_thread():
            handler = signal.getsignal(signal.SIGINT)
            if callable(handler):
                self._handler = handler
                signal.signal(signal.SIGINT, self._note)

    def __exit__(self, *error: object) -> None:
        if self._handler is not None:
            signal.signal(signal.SIGINT, self._handler)
            if self._noted is not None:
                self._handler(*self._noted)


class Child:
    """A process of ``gk`` behind an object of this package. It ends with this process.

    What it writes to standard error is kept in a file without a name, so that it never waits for
    a reader. A child of `os.fork` has no part in it: it closes its ends of the pipes.
    """

    _living: "weakref.WeakSet[Child]" = weakref.WeakSet()
    _lock = threading.RLock()  # taken again by what garbage collection ends meanwhile

    def __init__(self, arguments: Sequence[str], *, takes_input: bool = False) -> None:
        self.is_foreign = False
        self._errors: IO[bytes] = tempfile.TemporaryFile(prefix="gksensors-")
        self.process: "subprocess.Popen[bytes]"
        try:
            command = [find_program(), *arguments]
            with _Uninterrupted():
                self.process = subprocess.Popen(
                    command,
                    stdin=subprocess.PIPE if takes_input else subprocess.DEVNULL,
                    stdout=subprocess.PIPE,
                    stderr=self._errors,
                    bufsize=0,
                )
                with Child._lock:
                    Child._living.add(self)
        except BaseException:
            self.close()
            raise

    def __del__(self) -> None:
        self.close()

    def stop(self, patience: float = 0.0) -> None:
        """Ends the process, if it does not end by itself within `patience` seconds. Any thread."""
        if self.is_foreign:
            return
        with Child._lock:
            Child._living.discard(self)
        if self.process.stdin is not None:
            try:
                self.process.stdin.close()
            except OSError:
                pass
        try:
            if patience > 0.0:
                self.process.wait(patience)
        except subprocess.TimeoutExpired:
            pass
        finally:
            if self.process.poll() is None:
                self.process.kill()
            self.process.wait()
            if self.process.stdout is not None:
                self.process.stdout.close()

    def close(self) -> None:
        """Ends the process at once and forgets what it said."""
        if hasattr(self, "process"):
            self.stop()
        if hasattr(self, "_errors") and not self.is_foreign:
            self._errors.close()

    def errors(self) -> str:
        """What the process has written to standard error."""
        if self._errors.closed:
            return ""
        size = os.fstat(self._errors.fileno()).st_size
        # Whoever reads here must not move the place at which the process writes.
        return os.pread(self._errors.fileno(), size, 0).decode(errors="replace")

    def _leave_to_parent(self) -> None:
        self.is_foreign = True
        for stream in (self.process.stdin, self.process.stdout, self._errors):
            if stream is not None:
                stream.close()
        self.process.returncode = 0

    @classmethod
    def stop_all(cls) -> None:
        """Ends all of them."""
        with cls._lock:
            living = list(cls._living)
        for child in living:
            if not child.is_foreign and child.process.poll() is None:
                child.process.kill()
        for child in living:
            child.close()

    @classmethod
    def _after_fork(cls) -> None:
        cls._lock = threading.RLock()
        for child in list(cls._living):
            child._leave_to_parent()
        cls._living = weakref.WeakSet()


atexit.register(Child.stop_all)
os.register_at_fork(after_in_child=Child._after_fork)


class Finished:
    """How a process has ended: `code` (negative for a signal), `out` and `err`."""

    def __init__(self, code: int, out: bytes, err: str) -> None:
        self.code = code
        self.out = out
        self.err = err

    @property
    def complaints(self) -> List[str]:
        """The lines of standard error."""
        return self.err.splitlines()


def run(arguments: Sequence[str]) -> Finished:
    """Runs ``gk`` to its end. Whatever interrupts this ends the process as well."""
    child = Child(arguments)
    try:
        assert child.process.stdout is not None
        out = child.process.stdout.read()
        code = child.process.wait()
        return Finished(code, out, child.errors())
    finally:
        child.close()


def lines(arguments: Sequence[str]) -> Generator[bytes, None, None]:
    """The lines that ``gk`` writes, as they come. Whoever stops reading ends the process."""
    child = Child(arguments)
    try:
        assert child.process.stdout is not None
        rest = b""
        while True:
            piece = os.read(child.process.stdout.fileno(), 1 << 18)
            if not piece:
                break
            *whole, rest = (rest + piece).split(b"\n")
            yield from whole
        code = child.process.wait()
        if code != 0:
            fail(Finished(code, b"", child.errors()))
    finally:
        child.close()


_PLACE = re.compile(r"^(.+?):(\d+): (.*)$")
_PREFIX = "gk: "
# What a run says at its end.
SUM = re.compile(r"^([\d.]+) s, (\d+) ticks, (\d+) events in ([\d.]+) s, .* times real time$")


def said(text: str) -> str:
    """The last line that complains, without the program's name before it."""
    told = [line for line in text.splitlines() if line.strip() and not SUM.match(line)]
    last = told[-1] if told else "it said nothing"
    return last[len(_PREFIX) :] if last.startswith(_PREFIX) else last


def fail(ended: Finished, files: Sequence[str] = ()) -> NoReturn:
    """Raises the error that a process has ended with."""
    last = said(ended.err)
    if ended.code < 0:
        raise ProgramError(
            f"gk was ended by {signal.Signals(-ended.code).name}: {last}", ended.code
        )
    if ended.code != 2:
        raise ProgramError(last, ended.code)
    for file in files:
        if not os.path.exists(file):
            raise FileNotFoundError(errno.ENOENT, os.strerror(errno.ENOENT), file)
    place = _PLACE.match(last)
    if place is not None:
        raise InputError(place[3], place[1], int(place[2]))
    for file in files:
        if last.startswith(file + ": "):
            raise InputError(last[len(file) + 2 :], file)
    raise InputError(last)


def foreign() -> Error:
    """The error of an object that was made before a fork."""
    return Error("this was made by another process, which has forked this one: make a new one here")
