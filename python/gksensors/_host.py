"""A running host, asked and listened to."""

import os
import select
import socket
import threading
import time
import warnings
import weakref
from typing import (
    Any,
    Dict,
    Generic,
    Iterable,
    Iterator,
    List,
    Mapping,
    Optional,
    TypeVar,
    Union,
    cast,
    overload,
)

from . import _wire
from ._closing import Closing
from ._errors import Error
from ._values import Event, loads
from ._wire import Address, Change, Module, Request, Response

_PATIENCE = 10.0
_T = TypeVar("_T")


def connect(address: str = "127.0.0.1:8090", token: Optional[str] = None) -> "Host":
    """Connects to a host that runs: ``gk run``, on this machine or another one.

    Parameters
    ----------
    address : str
        "NAME:PORT"; the port is 8090 when left out.
    token : str, optional
        The host's token, where it wants one.

    Returns
    -------
    Host

    Raises
    ------
    ConnectionError
        Nobody answers there.
    PermissionError
        The host wants a token, or another one.
    """
    host = Host(Address.parse(address), _wire.check_token(token))
    try:
        host._request(Request("GET", "/api/v1/host"))
    except BaseException:
        host.close()
        raise
    return host


class _Link:
    """A connection and what was read of it."""

    def __init__(self, address: Address) -> None:
        try:
            self.socket = socket.create_connection((address.name, address.port), _PATIENCE)
        except OSError as error:
            raise ConnectionError(f"no host answers at {address}: {error}") from error
        self._process = os.getpid()
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.socket.settimeout(None)
        self.rest = b""

    def __del__(self) -> None:
        if hasattr(self, "socket"):
            self.close()

    def is_ours(self) -> bool:
        """False in a child of `os.fork`, whose parent goes on with this connection."""
        return self._process == os.getpid()

    def send(self, data: bytes) -> None:
        try:
            self.socket.sendall(data)
        except OSError as error:
            raise ConnectionError(f"the host has gone: {error}") from error

    def read(self) -> bytes:
        """Some bytes. Raises ConnectionError at the end."""
        if self.rest:
            data, self.rest = self.rest, b""
            return data
        try:
            data = self.socket.recv(1 << 16)
        except socket.timeout as error:
            raise TimeoutError(str(error)) from None
        except OSError as error:
            raise ConnectionError(f"the host has gone: {error}") from error
        if not data:
            raise ConnectionError("the host has gone")
        return data

    def response(self) -> Response:
        data = b""
        while b"\r\n\r\n" not in data:
            data += self.read()
        head, _, self.rest = data.partition(b"\r\n\r\n")
        return Response.parse(head)

    def body(self, length: int) -> bytes:
        data = b""
        pieces = []
        while length > 0:
            data = self.read()
            pieces.append(data[:length])
            if len(data) > length:
                self.rest = data[length:]
            length -= len(pieces[-1])
        return b"".join(pieces)

    def has_ended(self) -> bool:
        """Whether the other side has closed a connection on which nothing is awaited."""
        return bool(select.select([self.socket], [], [], 0)[0])

    def close(self) -> None:
        try:
            if self.is_ours():
                # Whoever reads in another thread wakes up.
                self.socket.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self.socket.close()


class Listening(Closing, Generic[_T]):
    """What a host tells as it happens: an iterator that waits for the next of it.

    It is subscribed when it is there: nothing that happens later is missed. It ends with `close`
    (from any thread), with its host's `close`, or with the ``with`` block.

    Raises
    ------
    ConnectionError
        The host has gone.
    TimeoutError
        Nothing came within the time-out.
    """

    def __init__(self, host: "Host", stream: _wire.Stream, timeout: Optional[float]) -> None:
        self._host = host
        self._stream = stream
        self._timeout = timeout
        self._frames = _wire.Frames()
        self._is_closed = False
        self._link = _Link(host.address)
        try:
            self._link.socket.settimeout(_PATIENCE)
            self._link.send(self._frames.upgrade(host.address, host._token))
            response = self._link.response()
            if response.status >= 400:
                raise _wire.refusal(response.status, self._link.body(response.length))
            self._frames.accept(response)
            for text in stream.begin():
                self._frames.send(text.encode())
            while not stream.is_ready:
                self._pump()
            self._link.socket.settimeout(None)
        except BaseException:
            self.close()
            raise

    def __iter__(self) -> Iterator[_T]:
        return self

    def __next__(self) -> _T:
        end = None if self._timeout is None else time.monotonic() + self._timeout
        while not self._stream.found:
            if self._is_closed:
                raise StopIteration
            try:
                if end is not None:
                    # Much of what a host says is not what is waited for.
                    left = end - time.monotonic()
                    if left <= 0.0:
                        raise TimeoutError
                    self._link.socket.settimeout(left)
                self._pump()
            except TimeoutError:
                raise TimeoutError("nothing came within the time-out") from None
            except OSError:
                if self._is_closed:
                    raise StopIteration from None
                raise
        return cast(_T, self._stream.found.pop(0))

    def _pump(self) -> None:
        if self._frames.out:
            self._link.send(bytes(self._frames.out))
            self._frames.out.clear()
        for message in self._frames.feed(self._link.read()):
            for text in self._stream.take(message):
                self._frames.send(text.encode())
        while self._stream.warnings:
            warnings.warn(self._stream.warnings.pop(0), RuntimeWarning, stacklevel=3)
        if self._frames.out:
            self._link.send(bytes(self._frames.out))
            self._frames.out.clear()

    def close(self) -> None:
        """Ends it. Any thread."""
        self._is_closed = True
        self._link.close()
        self._host._listening.discard(self)

    def __repr__(self) -> str:
        return f"<Listening to {self._host.address}{', closed' if self._is_closed else ''}>"


class Host(Closing):
    """A running host. Made by `connect`; any thread may use it.

    All methods raise ConnectionError when the host has gone, and PermissionError when it wants
    another token.
    """

    def __init__(self, address: Address, token: Optional[str]) -> None:
        self.address = address
        self._token = token
        self._lock = threading.Lock()
        self._link: Optional[_Link] = None
        self._is_closed = False
        self._listening: "weakref.WeakSet[Any]" = weakref.WeakSet()

    def call(self, method: str, *args: Any) -> Any:
        """Calls "Module.method" and waits for its result. Raises CallError with its text."""
        return _wire.call_result(self._request(_wire.call_request(method, args)))

    @overload
    def get(self, keys: str) -> Any:
        ...

    @overload
    def get(self, keys: Iterable[str]) -> Dict[str, Any]:
        ...

    def get(self, keys: Union[str, Iterable[str]]) -> Any:
        """The value of one key, or a dict of those of many, without keys that are not there.

        Raises KeyError for a single key that is not there.
        """
        if isinstance(keys, str):
            return loads(self._request(Request("GET", _wire.key_path(keys)))).get("value")
        values = {}
        for key in keys:
            try:
                values[key] = self.get(key)
            except KeyError:
                pass
        return values

    @overload
    def set(self, key: str, value: Any) -> None:
        ...

    @overload
    def set(self, key: Mapping[str, Any]) -> None:
        ...

    def set(self, key: Union[str, Mapping[str, Any]], value: Any = None) -> None:
        """Writes one key, or those of a mapping. Raises CallError for what a key does not take."""
        for name, one in ({key: value} if isinstance(key, str) else key).items():
            request = _wire.set_request(name, one)
            try:
                self._request(request)
            except Error as error:
                raise _wire.set_error(name, error) from None

    def modules(self) -> List[Module]:
        """The modules, in the order in which they were made."""
        return _wire.modules_of(self._request(Request("GET", "/api/v1/modules")))

    def keys(self, *patterns: str) -> List[str]:
        """The names of the memory keys, sorted: all, or those that are meant.

        A word means names that it is a part of, a pattern with ``*`` and ``?`` those that it fits.
        """
        names: List[str] = []
        after: Optional[str] = None
        while True:
            page = loads(self._request(Request("GET", _wire.keys_path(after))))
            names += [one["key"] for one in page["keys"]]
            after = page.get("next")
            if after is None:
                return [name for name in names if _wire.is_meant(name, patterns)]

    def events(self, *patterns: str, timeout: Optional[float] = None) -> "Listening[Event]":
        """Events as they are raised.

        Parameters
        ----------
        *patterns : str
            Parts of their names, or patterns with ``*`` and ``?``; all events without.
        timeout : float, optional
            Seconds after which waiting for the next one raises TimeoutError.

        Returns
        -------
        Listening
            An iterator of `Event`.

        Examples
        --------
        >>> for event in host.events("robotPose*"):
        ...     print(event.time, event.value)
        """
        return self._listen(_wire.Stream(patterns=patterns), timeout)

    def watch(self, *keys: str, timeout: Optional[float] = None) -> "Listening[Change]":
        """Keys as they change, first of all the values that they have now.

        Parameters
        ----------
        *keys : str
            Keys, or patterns with ``*`` and ``?`` for keys that are there already.
        timeout : float, optional
            As in `events`.

        Returns
        -------
        Listening
            An iterator of `Change` (`key`, `value`).
        """
        if not keys:
            raise ValueError("watch() needs a key")
        names: Dict[str, None] = {}
        for key in keys:
            names.update(dict.fromkeys(self.keys(key) if _wire.is_pattern(key) else [key]))
        return self._listen(_wire.Stream(keys=names), timeout)

    def _listen(self, stream: _wire.Stream, timeout: Optional[float]) -> "Listening[Any]":
        if self._is_closed:
            raise ConnectionError("the connection is closed")
        listening: "Listening[Any]" = Listening(self, stream, timeout)
        self._listening.add(listening)
        return listening

    def _request(self, request: Request) -> bytes:
        with self._lock:
            if self._is_closed:
                raise ConnectionError("the connection is closed")
            # A host closes connections on which nothing comes for a while.
            if self._link is not None and (not self._link.is_ours() or self._link.has_ended()):
                self._drop()
            if self._link is None:
                self._link = _Link(self.address)
            try:
                self._link.send(request.bytes(self.address, self._token))
                response = self._link.response()
                body = self._link.body(response.length)
            except BaseException:
                # An answer that nobody has read must not be taken for another one's.
                self._drop()
                raise
            if response.is_last:
                self._drop()
        if response.status >= 400:
            raise _wire.refusal(response.status, body)
        return body

    def _drop(self) -> None:
        if self._link is not None:
            self._link.close()
            self._link = None

    def close(self) -> None:
        """Ends the connection and what listens through it. Any thread, any number of times."""
        self._is_closed = True
        for listening in list(self._listening):
            listening.close()
        self._drop()

    def __repr__(self) -> str:
        return f"<Host {self.address}{', closed' if self._is_closed else ''}>"
