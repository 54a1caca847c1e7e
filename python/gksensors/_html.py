"""Small tables for notebooks. No scripts; everything is escaped."""

import html
from typing import Any, Iterable, Sequence


def escaped(value: Any) -> str:
    """A value as text of a page."""
    return html.escape(value if isinstance(value, str) else repr(value))


def table(head: Sequence[str], rows: Iterable[Sequence[Any]]) -> str:
    """A table, its cells escaped."""
    names = "".join(f"<th>{escaped(name)}</th>" for name in head)
    body = "".join(
        "<tr>" + "".join(f"<td>{escaped(cell)}</td>" for cell in row) + "</tr>" for row in rows
    )
    return f"<table><thead><tr>{names}</tr></thead><tbody>{body}</tbody></table>"


def count(number: int, what: str) -> str:
    """ "1 event", "2 events"."""
    return f"{number:,} {what}{'' if number == 1 else 's'}"
