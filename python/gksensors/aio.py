"""A running host for programs with an event loop: what `gksensors.connect` gives, as coroutines.

>>> async with gksensors.aio.connect("127.0.0.1:8090") as host:
...     await host.call("GKBattery.getBatteryCharge")
...     async for event in host.events("robotPose*"):
...         print(event)

A task that is cancelled while it waits for an answer leaves the host usable.
"""

import asyncio
import warnings
from types import TracebackType
from typing import (
    Any,
    AsyncIterator,
    Dict,
    Generator,
    Generic,
    Iterable,
    List,
    Mapping,
    Optional,
    Tuple,
    Type,
    TypeVar,
    Union,
    cast,
    overload,
)

from . import _wire
from ._closing import AsyncClosing
from ._errors import Error
from ._values import Event, loads
from ._wire import Address, Change, Module, Request, Response

__all__ = ["Host", "Listening", "connect"]

_PATIENCE = 10.0
_T = TypeVar("_T")


class connect:
    """Connects to a host that runs; see `gksensors.connect`.

    Either ``host = await connect(...)`` or ``async with connect(...) as host``.
    """

    def __init__(self, address: str = "127.0.0.1:8090", token: Optional[str] = None) -> None:
        self._host = Host(Address.parse(address), _wire.check_token(token))

    async def _connect(self) -> "Host":
        try:
            await self._host._request(Request("GET", "/api/v1/host"))
        except BaseException:
            await self._host.close()
            raise
        return self._host

    def __await__(self) -> Generator[Any, None, "Host"]:
        return self._connect().__await__()

    async def __aenter__(self) -> "Host":
        return await self._connect()

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        await self._host.close()


class _within:
    """Raises TimeoutError when what is done in its block takes longer, for ever with None.

    `asyncio.wait_for` of Pythons before 3.12 loses a cancellation that comes just when what it
    waits for is done, and `asyncio.timeout` is not there before 3.11.
    """

    def __init__(self, seconds: Optional[float]) -> None:
        self._seconds = seconds
        self._has_expired = False
        self._timer: Optional[asyncio.TimerHandle] = None

    async def __aenter__(self) -> None:
        if self._seconds is not None:
            task = asyncio.current_task()
            assert task is not None
            self._timer = asyncio.get_running_loop().call_later(self._seconds, self._expire, task)

    def _expire(self, task: "asyncio.Task[Any]") -> None:
        self._has_expired = True
        task.cancel()

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        if self._timer is not None:
            self._timer.cancel()
        if self._has_expired and kind is asyncio.CancelledError:
            task = asyncio.current_task()
            uncancel = getattr(task, "uncancel", None)  # since 3.11
            if uncancel is None or uncancel() == 0:
                raise TimeoutError("nothing came within the time-out") from None


class _Link:
    def __init__(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        self._reader = reader
        self._writer = writer

    @classmethod
    async def open(cls, address: Address) -> "_Link":
        try:
            async with _within(_PATIENCE):
                return cls(*await asyncio.open_connection(address.name, address.port))
        except OSError as error:
            raise ConnectionError(f"no host answers at {address}: {error}") from error

    async def send(self, data: bytes) -> None:
        try:
            self._writer.write(data)
            await self._writer.drain()
        except OSError as error:
            raise ConnectionError(f"the host has gone: {error}") from error

    async def read(self) -> bytes:
        try:
            data = await self._reader.read(1 << 16)
        except OSError as error:
            raise ConnectionError(f"the host has gone: {error}") from error
        if not data:
            raise ConnectionError("the host has gone")
        return data

    async def response(self) -> Tuple[Response, bytes]:
        """An answer: its head and its body."""
        try:
            head = await self._reader.readuntil(b"\r\n\r\n")
            response = Response.parse(head[:-4])
            body = (
                b"" if response.status == 101 else await self._reader.readexactly(response.length)
            )
        except (OSError, asyncio.IncompleteReadError, asyncio.LimitOverrunError) as error:
            raise ConnectionError(f"the host has gone: {error}") from error
        return response, body

    def has_ended(self) -> bool:
        return self._reader.at_eof() or self._writer.is_closing()

    def drop(self) -> None:
        self._writer.close()

    async def close(self) -> None:
        self._writer.close()
        try:
            await self._writer.wait_closed()
        except OSError:
            pass


class Listening(AsyncClosing, Generic[_T]):
    """What a host tells as it happens, for ``async for``.

    It subscribes with its first item, or at the beginning of an ``async with`` block: nothing that
    happens later is missed. Raises ConnectionError when the host goes, TimeoutError when nothing
    comes within the time-out.
    """

    def __init__(
        self, host: "Host", patterns: Iterable[str], keys: Iterable[str], timeout: Optional[float]
    ) -> None:
        self._host = host
        self._patterns = tuple(patterns)
        self._keys = tuple(keys)
        self._timeout = timeout
        self._frames = _wire.Frames()
        self._stream = _wire.Stream(self._patterns)
        self._link: Optional[_Link] = None
        self._is_closed = False

    async def _open(self) -> _Link:
        if self._host._is_closed:
            raise ConnectionError("the connection is closed")
        if self._keys:
            names = await self._host._names(self._keys)
            self._stream = _wire.Stream(keys=names)
        self._link = link = await _Link.open(self._host.address)
        self._host._listening.add(self)
        try:
            async with _within(_PATIENCE):
                await self._subscribe(link)
        except BaseException:
            self._link = None
            self._host._listening.discard(self)
            link.drop()
            raise
        return link

    async def _subscribe(self, link: _Link) -> None:
        await link.send(self._frames.upgrade(self._host.address, self._host._token))
        response, body = await link.response()
        if response.status >= 400:
            raise _wire.refusal(response.status, body)
        self._frames.accept(response)
        for text in self._stream.begin():
            self._frames.send(text.encode())
        while not self._stream.is_ready:
            await self._pump(link)

    async def _pump(self, link: _Link) -> None:
        await self._flush(link)
        for message in self._frames.feed(await link.read()):
            for text in self._stream.take(message):
                self._frames.send(text.encode())
        while self._stream.warnings:
            warnings.warn(self._stream.warnings.pop(0), RuntimeWarning, stacklevel=3)
        await self._flush(link)

    async def _flush(self, link: _Link) -> None:
        if self._frames.out:
            data = bytes(self._frames.out)
            self._frames.out.clear()
            await link.send(data)

    def __aiter__(self) -> AsyncIterator[_T]:
        return self

    async def __anext__(self) -> _T:
        if self._is_closed:
            raise StopAsyncIteration
        link = self._link if self._link is not None else await self._open()
        try:
            async with _within(self._timeout):
                # Much of what a host says is not what is waited for.
                while not self._stream.found:
                    await self._pump(link)
        except ConnectionError:
            if self._is_closed:
                raise StopAsyncIteration from None
            raise
        return cast(_T, self._stream.found.pop(0))

    async def close(self) -> None:
        """Ends it."""
        self._is_closed = True
        self._host._listening.discard(self)
        if self._link is not None:
            await self._link.close()

    async def __aenter__(self) -> "Listening[_T]":
        await self._open()
        return self

    def __repr__(self) -> str:
        return f"<Listening to {self._host.address}{', closed' if self._is_closed else ''}>"


class Host(AsyncClosing):
    """A running host; see `gksensors.Host`. Belongs to one event loop; any number of its tasks may
    use it, which are answered one after the other."""

    def __init__(self, address: Address, token: Optional[str]) -> None:
        self.address = address
        self._token = token
        self._lock: Optional[asyncio.Lock] = None
        self._link: Optional[_Link] = None
        self._is_closed = False
        self._listening: "set[Any]" = set()

    async def call(self, method: str, *args: Any) -> Any:
        """Calls "Module.method" and waits for its result. Raises CallError with its text."""
        return _wire.call_result(await self._request(_wire.call_request(method, args)))

    @overload
    async def get(self, keys: str) -> Any:
        ...

    @overload
    async def get(self, keys: Iterable[str]) -> Dict[str, Any]:
        ...

    async def get(self, keys: Union[str, Iterable[str]]) -> Any:
        """The value of one key (else KeyError), or a dict of those of many that are there."""
        if isinstance(keys, str):
            return loads(await self._request(Request("GET", _wire.key_path(keys)))).get("value")
        values = {}
        for key in keys:
            try:
                values[key] = await self.get(key)
            except KeyError:
                pass
        return values

    @overload
    async def set(self, key: str, value: Any) -> None:
        ...

    @overload
    async def set(self, key: Mapping[str, Any]) -> None:
        ...

    async def set(self, key: Union[str, Mapping[str, Any]], value: Any = None) -> None:
        """Writes one key, or those of a mapping. Raises CallError for what a key does not take."""
        for name, one in ({key: value} if isinstance(key, str) else key).items():
            request = _wire.set_request(name, one)
            try:
                await self._request(request)
            except Error as error:
                raise _wire.set_error(name, error) from None

    async def modules(self) -> List[Module]:
        """The modules, in the order in which they were made."""
        return _wire.modules_of(await self._request(Request("GET", "/api/v1/modules")))

    async def keys(self, *patterns: str) -> List[str]:
        """The names of the memory keys, sorted: all, or those that are meant."""
        names: List[str] = []
        after: Optional[str] = None
        while True:
            page = loads(await self._request(Request("GET", _wire.keys_path(after))))
            names += [one["key"] for one in page["keys"]]
            after = page.get("next")
            if after is None:
                return [name for name in names if _wire.is_meant(name, patterns)]

    def events(self, *patterns: str, timeout: Optional[float] = None) -> "Listening[Event]":
        """Events as they are raised, for ``async for``; see `gksensors.Host.events`."""
        return Listening(self, patterns, (), timeout)

    def watch(self, *keys: str, timeout: Optional[float] = None) -> "Listening[Change]":
        """Keys as they change, for ``async for``; see `gksensors.Host.watch`."""
        if not keys:
            raise ValueError("watch() needs a key")
        return Listening(self, (), keys, timeout)

    async def _names(self, keys: Iterable[str]) -> List[str]:
        names: Dict[str, None] = {}
        for key in keys:
            found = await self.keys(key) if _wire.is_pattern(key) else [key]
            names.update(dict.fromkeys(found))
        return list(names)

    async def _request(self, request: Request) -> bytes:
        if self._lock is None:  # made here, since it belongs to the loop that runs
            self._lock = asyncio.Lock()
        async with self._lock:
            if self._is_closed:
                raise ConnectionError("the connection is closed")
            if self._link is not None and self._link.has_ended():
                self._drop()
            if self._link is None:
                self._link = await _Link.open(self.address)
            link = self._link
            try:
                await link.send(request.bytes(self.address, self._token))
                response, body = await link.response()
            except BaseException:
                # Cancelled half-way: the answer must not be taken for another one's.
                self._drop()
                raise
            if response.is_last:
                self._drop()
        if response.status >= 400:
            raise _wire.refusal(response.status, body)
        return body

    def _drop(self) -> None:
        if self._link is not None:
            self._link.drop()
            self._link = None

    async def close(self) -> None:
        """Ends the connection and what listens through it."""
        self._is_closed = True
        for listening in list(self._listening):
            await listening.close()
        link, self._link = self._link, None
        if link is not None:
            await link.close()

    def __repr__(self) -> str:
        return f"<Host {self.address}{', closed' if self._is_closed else ''}>"
