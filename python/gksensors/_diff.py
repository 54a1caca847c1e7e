"""What two runs reported differently."""

import html
import os
import tempfile
from typing import TYPE_CHECKING, Any, Dict, Iterable, List, NamedTuple, Optional, Union

from ._html import count, table
from ._program import PathLike, Paths, fail, listed, paths, run
from ._replay import Run
from ._values import loads

if TYPE_CHECKING:
    import pandas

_DIFFERENT = 1
_KINDS = ("missing", "extra", "changed", "moved")


class Difference(NamedTuple):
    """One difference. What is missing has no time and value in b, what is extra none in a.

    Attributes
    ----------
    kind : {"missing", "extra", "changed", "moved"}
    name : str
        The event.
    a_time, b_time : float or None
        Seconds since the start of each run.
    a_value, b_value : bool, int, float, str, list or None
    """

    kind: str
    name: str
    a_time: Optional[float]
    a_value: Any
    b_time: Optional[float]
    b_value: Any


class Diff:
    """What two runs reported differently. Made by `diff`.

    Attributes
    ----------
    same : bool
    missing, extra, changed, moved : int
        How many there are of each kind.
    names : dict of str to dict
        The same four numbers for each name that was compared.
    differences : list of Difference
        All of them, in the order of time.
    """

    def __init__(self, told: Dict[str, Any]) -> None:
        self.same: bool = told["same"]
        self.missing: int = told["missing"]
        self.extra: int = told["extra"]
        self.changed: int = told["changed"]
        self.moved: int = told["moved"]
        self.names: Dict[str, Dict[str, int]] = told["names"]
        self._sides = [told.get(side, {}).get("file", side) for side in ("a", "b")]
        self.differences: List[Difference] = []
        for one in told["differences"]:
            a, b = one.get("a", {}), one.get("b", {})
            self.differences.append(
                Difference(
                    one["kind"], one["name"], a.get("t"), a.get("value"), b.get("t"), b.get("value")
                )
            )

    def to_pandas(self) -> "pandas.DataFrame":
        """A row for each difference, with the fields of `Difference`."""
        import pandas

        return pandas.DataFrame(self.differences, columns=list(Difference._fields))

    def __repr__(self) -> str:
        if self.same:
            return f"<Diff: the same, {count(len(self.names), 'name')} compared>"
        counts = ", ".join(f"{getattr(self, kind)} {kind}" for kind in _KINDS)
        return f"<Diff: {counts}>"

    def _repr_html_(self) -> str:
        most = 100
        head = (
            "kind",
            "name",
            f"time in {self._sides[0]}",
            "value",
            f"time in {self._sides[1]}",
            "value",
        )
        more = len(self.differences) - most
        rest = f"<p>and {count(more, 'difference')} more</p>" if more > 0 else ""
        return f"<p>{html.escape(repr(self))}</p>" + table(head, self.differences[:most]) + rest


def diff(
    a: Union[PathLike, Run],
    b: Union[PathLike, Run, None] = None,
    *,
    tolerance_time: float = 0.0,
    tolerance_value: float = 0.0,
    only: Union[str, Iterable[str]] = (),
    ignore: Union[str, Iterable[str]] = (),
    library: Optional[Paths] = None,
    subscribe: Union[str, Iterable[str]] = (),
    sample: Union[str, Iterable[str]] = (),
) -> Diff:
    """Compares what two runs reported, or a recording with what the library makes of it now.

    Parameters
    ----------
    a, b : path or Run
        Runs, recordings, output of ``gk replay --out``, and what is run first: scenarios and
        tables. With `a` alone, a recording: it is compared with what the present library makes
        of it.
    tolerance_time : float
        Times that are so many seconds apart, or nearer, are the same.
    tolerance_value : float
        Floats that are so far apart, or nearer, are the same.
    only : str or iterable of str
        Kinds of lines to compare instead of "event" and "micro".
    ignore : str or iterable of str
        Names, or patterns with ``*`` and ``?``, to leave out.
    library, subscribe, sample
        For what is run first, as in `replay`.

    Returns
    -------
    Diff

    Raises
    ------
    FileNotFoundError, InputError, ProgramError
        As `replay` does.
    """
    options = [f"--tolerance-time={float(tolerance_time)!r}"] if tolerance_time else []
    options += [f"--tolerance-value={float(tolerance_value)!r}"] if tolerance_value else []
    kinds = listed(only)
    options += [f"--only={','.join(kinds)}"] if kinds else []
    options += [f"--ignore={name}" for name in listed(ignore)]
    options += [f"--library={path}" for path in paths(library)]
    options += [f"--subscribe={module}" for module in listed(subscribe)]
    options += [f"--sample={key}" for key in listed(sample)]
    with tempfile.TemporaryDirectory(prefix="gksensors-") as folder:
        files = [
            side.save(os.path.join(folder, name)) if isinstance(side, Run) else os.fspath(side)
            for name, side in (("a.jsonl", a), ("b.jsonl", b))
            if side is not None
        ]
        ended = run(["diff", "--json", *options, "--", *files])
        if ended.code not in (0, _DIFFERENT) or not ended.out.strip():
            fail(ended, files)
    told = loads(ended.out)
    for name, side in (("a", a), ("b", b)):
        if isinstance(side, Run):
            told.setdefault(name, {})["file"] = ", ".join(side.files)
    return Diff(told)
