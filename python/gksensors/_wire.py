"""Bytes between a host and its clients: HTTP, WebSocket, and the messages in it.

Nothing here reads or writes: threads and event loops share it.
"""

import base64
import fnmatch
import hashlib
import json
import os
import struct
from typing import Any, Dict, Iterable, List, NamedTuple, Optional, Tuple, Union
from urllib.parse import quote, urlsplit

from ._errors import CallError, Error, InputError
from ._simulation import call_error
from ._values import Event, dumps, loads

_PORT = 8090
_SUBPROTOCOL = "foxglove.sdk.v1"
_GUID = b"258EAFA5-E914-47DA-95CA-C5AB0DC85B11"
_MOST = 64 << 20
_TEXT, _BINARY, _CLOSE, _PING, _PONG = 1, 2, 8, 9, 10
_MESSAGE_DATA = 1
_MESSAGE_HEAD = 13
_EVENTS = "/events"
_BARRIER = "gksensors-ready"


class Address(NamedTuple):
    """Where a host is."""

    name: str
    port: int

    @classmethod
    def parse(cls, text: str) -> "Address":
        """Of "NAME:PORT", "NAME", "[::1]:PORT", with "http://" before it or without."""
        split = urlsplit(text if "//" in text else "//" + text)
        try:
            name, port = split.hostname, split.port
        except ValueError:
            name, port = None, None
        if not name or split.scheme not in ("", "http"):
            raise InputError(f"{text} is no host; 127.0.0.1:8090 would be one")
        return cls(name, _PORT if port is None else port)

    def __str__(self) -> str:
        name = f"[{self.name}]" if ":" in self.name else self.name
        return f"{name}:{self.port}"


class Change(NamedTuple):
    """A watched key has this value now."""

    key: str
    value: Any


class Module(NamedTuple):
    """A module of a host: `is_extractor` says whether it can be subscribed to."""

    name: str
    description: str
    methods: int
    is_extractor: bool


class Request(NamedTuple):
    """What is asked for."""

    method: str
    path: str
    body: Optional[str] = None

    def bytes(self, address: Address, token: Optional[str]) -> bytes:
        """As it goes over the wire."""
        head = [f"{self.method} {self.path} HTTP/1.1", f"Host: {address}"]
        if token is not None:
            head.append(f"Authorization: Bearer {token}")
        body = b""
        if self.body is not None:
            body = self.body.encode()
            head += ["Content-Type: application/json", f"Content-Length: {len(body)}"]
        return "\r\n".join([*head, "", ""]).encode() + body


class Response(NamedTuple):
    """The head of an answer: its status, the length of its body, and whether another may follow."""

    status: int
    length: int
    is_last: bool
    headers: Dict[str, str]

    @classmethod
    def parse(cls, head: bytes) -> "Response":
        """Raises ConnectionError for what is no answer of a host."""
        status, *rest = head.decode("latin-1").split("\r\n")
        words = status.split(" ", 2)
        headers: Dict[str, str] = {}
        for line in rest:
            name, _, value = line.partition(":")
            headers[name.strip().lower()] = value.strip()
        try:
            if not words[0].startswith("HTTP/1."):
                raise ValueError
            length = int(headers.get("content-length", "0"))
            code = int(words[1])
            if not 0 <= length <= _MOST:
                raise ValueError
        except (ValueError, IndexError):
            raise ConnectionError("what answers there is no host of gk") from None
        return cls(code, length, headers.get("connection", "").lower() == "close", headers)


def check_token(token: Optional[str]) -> Optional[str]:
    """A token that can stand in a header."""
    if token is not None:
        token = token.strip()
        if not token.isascii() or not token.isprintable() or not token:
            raise InputError("the token has characters that no token has")
    return token


def refusal(status: int, body: bytes) -> Exception:
    """The error that a refused request raises."""
    try:
        text = str(loads(body)["error"]["message"])
    except (ValueError, KeyError, TypeError):
        text = body.decode(errors="replace").strip() or f"HTTP status {status}"
    if status in (401, 403):
        return PermissionError(text)
    if status == 404:
        return KeyError(text)
    return Error(text)


# Requests, and what their answers say


def call_request(method: str, args: Iterable[Any]) -> Request:
    params = ",".join(dumps(one) for one in args)
    body = f'{{"jsonrpc":"2.0","id":1,"method":{json.dumps(method)},"params":[{params}]}}'
    return Request("POST", "/rpc", body)


def call_result(body: bytes) -> Any:
    answer = loads(body)
    if "error" in answer:
        raise call_error(answer["error"])
    return answer.get("result")


def key_path(key: str) -> str:
    return "/api/v1/memory/" + quote(key, safe="/")


def set_request(key: str, value: Any) -> Request:
    return Request("PUT", key_path(key), dumps(value))


def set_error(key: str, error: Exception) -> Exception:
    """A value that a key does not take is told as it is in a simulation."""
    return CallError(f"{key}: {error}") if type(error) is Error else error


def modules_of(body: bytes) -> List[Module]:
    return [
        Module(one["name"], one["description"].strip(), one["methods"], one["isExtractor"])
        for one in loads(body)["modules"]
    ]


def keys_path(after: Optional[str]) -> str:
    return "/api/v1/memory?limit=10000" + (f"&after={quote(after, safe='')}" if after else "")


def is_pattern(name: str) -> bool:
    return any(letter in name for letter in "*?[")


def is_meant(name: str, patterns: Iterable[str]) -> bool:
    """Whether a word means a name: a pattern has to fit all of it, any other word is a part."""
    patterns = list(patterns)
    return not patterns or any(
        fnmatch.fnmatchcase(name, word) if is_pattern(word) else word in name for word in patterns
    )


# WebSocket (RFC 6455)


class Frames:
    """The client's side of a WebSocket connection: feed it bytes, take messages and answers.

    Attributes
    ----------
    out : bytearray
        What has to be sent.
    """

    def __init__(self) -> None:
        self.out = bytearray()
        self._in = bytearray()
        self._key = base64.b64encode(os.urandom(16))
        self._message = bytearray()
        self._kind = 0

    def upgrade(self, address: Address, token: Optional[str]) -> bytes:
        """The request that begins it."""
        lines = [
            "GET /ws HTTP/1.1",
            f"Host: {address}",
            "Connection: Upgrade",
            "Upgrade: websocket",
            "Sec-WebSocket-Version: 13",
            f"Sec-WebSocket-Key: {self._key.decode()}",
            f"Sec-WebSocket-Protocol: {_SUBPROTOCOL}",
        ]
        if token is not None:
            lines.append(f"Authorization: Bearer {token}")
        return "\r\n".join([*lines, "", ""]).encode()

    def accept(self, response: Response) -> None:
        """Raises ConnectionError when that is no answer to the request."""
        accepted = base64.b64encode(hashlib.sha1(self._key + _GUID).digest()).decode()
        if response.status != 101 or response.headers.get("sec-websocket-accept") != accepted:
            raise ConnectionError("what answers there is no host of gk")

    def send(self, data: bytes, kind: int = _TEXT) -> None:
        """Adds a message to `out`."""
        size = len(data)
        mask = os.urandom(4)
        self.out.append(0x80 | kind)
        if size < 126:
            self.out.append(0x80 | size)
        elif size < 1 << 16:
            self.out += struct.pack(">BH", 0x80 | 126, size)
        else:
            self.out += struct.pack(">BQ", 0x80 | 127, size)
        self.out += mask
        whole = (mask * (size // 4 + 1))[:size]
        self.out += (int.from_bytes(data, "big") ^ int.from_bytes(whole, "big")).to_bytes(
            size, "big"
        )

    def feed(self, data: bytes) -> List[Union[str, bytes]]:
        """The messages that are complete with these bytes. Raises ConnectionError at the end."""
        self._in += data
        messages: List[Union[str, bytes]] = []
        while True:
            frame = self._frame()
            if frame is None:
                return messages
            is_last, kind, payload = frame
            if kind == _CLOSE:
                why = payload[2:].decode(errors="replace")
                raise ConnectionError(
                    "the host has ended the connection" + (f": {why}" if why else "")
                )
            if kind == _PING:
                self.send(payload, _PONG)
            elif kind != _PONG:
                if kind:
                    self._kind = kind
                    self._message.clear()
                self._message += payload
                if len(self._message) > _MOST:
                    raise ConnectionError("the host sends a message without end")
                if is_last:
                    whole = bytes(self._message)
                    messages.append(whole.decode() if self._kind == _TEXT else whole)

    def _frame(self) -> Optional[Tuple[bool, int, bytes]]:
        data = self._in
        if len(data) < 2:
            return None
        size, place = data[1] & 0x7F, 2
        if size >= 126:
            length = 2 if size == 126 else 8
            if len(data) < place + length:
                return None
            size = int.from_bytes(data[place : place + length], "big")
            place += length
        if size > _MOST or data[1] & 0x80:
            raise ConnectionError("the host sends what is no WebSocket message")
        if len(data) < place + size:
            return None
        first, payload = data[0], bytes(data[place : place + size])
        del data[: place + size]
        return bool(first & 0x80), first & 0x0F, payload


class Stream:
    """What a host tells those who have subscribed to events or keys: feed it messages."""

    def __init__(self, patterns: Iterable[str] = (), keys: Iterable[str] = ()) -> None:
        self._patterns = list(patterns)
        self._keys = list(keys)
        self._channel: Optional[int] = None
        self.is_ready = False
        self.found: List[Union[Event, Change]] = []
        self.warnings: List[str] = []

    def begin(self) -> List[str]:
        """What is to be sent first."""
        if not self._keys:
            return []
        wanted = {"op": "subscribeParameterUpdates", "parameterNames": self._keys}
        return [json.dumps(wanted), self._barrier()]

    @staticmethod
    def _barrier() -> str:
        # Its answer follows what was asked for before.
        return json.dumps({"op": "getParameters", "parameterNames": ["robotPose"], "id": _BARRIER})

    def take(self, message: Union[str, bytes]) -> List[str]:
        """Takes a message; returns what is to be sent."""
        if isinstance(message, bytes):
            self._take_data(message)
            return []
        told = loads(message)
        op = told.get("op")
        if op == "advertise" and not self._keys and self._channel is None:
            for channel in told["channels"]:
                if channel["topic"] == _EVENTS:
                    self._channel = channel["id"]
                    wanted = [{"id": self._channel, "channelId": self._channel}]
                    subscription = {"op": "subscribe", "subscriptions": wanted}
                    return [json.dumps(subscription), self._barrier()]
        elif op == "parameterValues":
            if told.get("id") == _BARRIER:
                self.is_ready = True
            elif self._keys:
                for one in told["parameters"]:
                    self.found.append(Change(one["name"], one.get("value")))
        elif op == "status" and told.get("level", 0) > 0:
            self.warnings.append(told["message"])
        return []

    def _take_data(self, message: bytes) -> None:
        if len(message) < _MESSAGE_HEAD or message[0] != _MESSAGE_DATA:
            return
        told = loads(message[_MESSAGE_HEAD:])
        if is_meant(told["name"], self._patterns):
            self.found.append(
                Event(float(told["t_s"]), told["name"], told.get("value"), told["kind"])
            )
