"""What is closed at the end of a `with`."""

from types import TracebackType
from typing import Optional, Type, TypeVar

_C = TypeVar("_C", bound="Closing")
_A = TypeVar("_A", bound="AsyncClosing")


class Closing:
    """Closed at the end of a `with`."""

    def close(self) -> None:
        raise NotImplementedError

    def __enter__(self: _C) -> _C:
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()


class AsyncClosing:
    """Closed at the end of an `async with`."""

    async def close(self) -> None:
        raise NotImplementedError

    async def __aenter__(self: _A) -> _A:
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        await self.close()
