"""The parts that all modules share: the library itself, its failures, and the conversions between Python and C."""
from __future__ import annotations

import errno
import os
import sys
from collections.abc import Callable, Sequence
from enum import IntEnum as _IntEnum
from typing import Any, BinaryIO, Union

from ._ddal import ffi as _ffi

Buffer = Union[bytes, bytearray, memoryview]
Progress = Callable[[Any, int, int], None]  # phase (ext.RfcardPhase), bytes done, bytes in all

_SONAME = "libddal.so.1"
_FRAME_NODE = "/dev/fpga_frame"
_NULL: Any = _ffi.NULL
_new, _cast, _typeof, _buffer = _ffi.new, _ffi.cast, _ffi.typeof, _ffi.buffer
_OWN_CODES = {-1001: "FAILURE", -1002: "SYSTEM", -1003: "TIMEOUT", -1018: "TRBL_STORE", -1021: "NO_FRAME_INFO", -1022: "WIFI_SUPPORT",
              -1023: "UNKNOWN_PARAMETER", -1026: "PASSWORD_REFUSED", -1027: "USER_NOT_SUPPORTED"}


class NotABoard(RuntimeError):
    """This machine has no radio frame: loading the library would end the process."""


class _Library:
    """Loads the library at the first call, so that tests and tools can be imported anywhere."""

    def __getattr__(self, name: str) -> Any:
        global _loaded
        if _loaded is None:
            if not os.path.exists(_FRAME_NODE):
                raise NotABoard(f"this machine is not a board (it has no {_FRAME_NODE}); try: pytest --board mbo, or: "
                                f"vboard run -- {sys.executable} ...")
            _loaded = _ffi.dlopen(_SONAME)
        found = getattr(_loaded, name)
        setattr(self, name, found)
        return found


_loaded: Any = None
_lib: Any = _Library()


class Error(Exception):
    """A failed operation.

    code: result code of the operation, negative. The codes of the RF card's loader link are positive.
    name: name of the code: "EIO", "DDAL_ERR_FAILURE"; empty for a code without a name.
    operation: the function of the library that reported the failure.
    path: the file, device node or program that was accessed last; empty where unknown.
    message: the text of the code.
    details: the output of the program that failed, where the operation captures it.
    """

    def __init__(self, code: int, operation: str, path: str = "", message: str = "", details: str = "") -> None:
        self.code, self.operation, self.path, self.message, self.details = code, operation, path, message, details
        self.name = f"DDAL_ERR_{_OWN_CODES[code]}" if code in _OWN_CODES else errno.errorcode.get(-code, "")
        place = f" ({path})" if path else ""
        super().__init__(f"{operation}: {message or code}{place}" + (f": {details.strip()}" if details else ""))

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self), (self.code, self.operation, self.path, self.message, self.details)


def _failure(code: int, operation: str, details: str = "") -> Error:
    """Returns the error of an operation that has just failed on this thread."""
    last = _new("struct ddal_ext_failure *")
    _lib.ddal_ext_last_failure(last)
    _lib.ddal_ext_last_failure(_NULL)
    path = ""
    if last.code == code:  # otherwise it belongs to an earlier operation, and this one has reported nothing
        operation, path = _text(last.operation) or operation, _text(last.path)
    text = _new("char[]", 256)
    if code < 0:
        _lib.ddal_strerror(code, text, 256)
    return Error(code, operation, path, _text(text) if code < 0 else f"code {code:#x}", details)


class _Enumeration(_IntEnum):
    """An enumeration of the library. A value that it does not name stays a number."""

    @classmethod
    def _missing_(cls, value: object) -> Any:
        if not isinstance(value, int):
            return None
        made = int.__new__(cls, value)
        made._name_, made._value_ = f"UNKNOWN_{value}", value
        return made


class Handle:
    """What an operation has opened. It has no meaning after the operation that closes it."""

    def __init__(self, pointer: Any) -> None:
        self.pointer = pointer

    def fileno(self) -> int:
        """Returns the descriptor of the channel, for poll(2)."""
        if not self.pointer:
            raise ValueError("the channel is closed")
        return int(self.pointer.fd)


_Handle = Handle


class _Callback:
    """A Python function that the library calls during one call. An exception in it is raised when that call has returned."""

    def __init__(self, kind: str, function: Callable[..., None] | None, phase: Callable[[int], Any]) -> None:
        self.raised: BaseException | None = None
        self.pointer = _NULL
        if function is not None:
            self.pointer = _ffi.callback(kind, lambda _, at, done, total: function(phase(at), done, total), onerror=self._keep)

    def _keep(self, _kind: Any, exception: BaseException, _trace: Any) -> None:
        self.raised = self.raised or exception

    def end(self) -> None:
        if self.raised:
            raise self.raised


class _Packet:
    """A packet of the loader link: a record of a length and the address of its bytes."""

    def __init__(self, octets: Buffer) -> None:
        octets = bytes(octets)
        self._octets = _new("uint8_t[]", max(len(octets), 1))
        _buffer(self._octets)[0 : len(octets)] = octets
        self.pointer = _new("struct bsl_packet *", {"length": len(octets), "data": self._octets})

    def taken(self) -> bytes:
        return bytes(_buffer(self._octets))[: self.pointer.length]


class _arguments:
    """The argument vector of a program."""

    def __init__(self, words: Sequence[str]) -> None:
        self._words = [_new("char[]", os.fsencode(word)) for word in words]
        self.pointer = _new("char *[]", [*self._words, _NULL])


def _text(c: Any) -> str:
    return bytes(_ffi.string(c)).decode("utf-8", "replace")


def _text_argument(text: str | bytes | os.PathLike[str]) -> bytes:
    encoded = os.fsencode(text)
    if b"\0" in encoded:
        raise ValueError("the text contains a NUL")
    return encoded


def _octets(octets: Buffer, room: int = 0) -> bytes:
    if room and len(octets) != room:
        raise ValueError(f"{len(octets)} bytes, not {room}")
    return bytes(octets)


def _words(words: Sequence[int], room: int = 0) -> list[int]:
    if room and len(words) != room:
        raise ValueError(f"{len(words)} numbers, not {room}")
    return list(words)


def _mac(mac: str | Buffer) -> bytes:
    return _octets(bytes.fromhex(mac.replace(":", " ")) if isinstance(mac, str) else mac, 6)


def _same_length(first: Sequence[int], second: Sequence[int]) -> None:
    if len(first) != len(second):
        raise ValueError(f"{len(first)} bytes and {len(second)} bytes: the lengths must be the same")


def _timespec(seconds: float | None) -> Any:
    if seconds is None:
        return _NULL
    return _new("struct timespec *", divmod(round(seconds * 1_000_000_000), 1_000_000_000))


def _address(number: int) -> Any:
    return _cast("void *", number)


def _number(address: Any) -> int:
    return int(_cast("uintptr_t", address))


def _stream(octets: bytes = b"") -> BinaryIO:
    import tempfile

    stream = tempfile.TemporaryFile(buffering=0)
    stream.write(octets)
    stream.seek(0)
    return stream  # type: ignore[return-value]


def _written(stream: BinaryIO) -> bytes:
    stream.seek(0)
    return stream.read()


# What the generated modules use.
__all__ = ["Buffer", "Handle", "Progress", "_Callback", "_Enumeration", "_Handle", "_NULL", "_Packet", "_address", "_arguments", "_buffer",
           "_cast", "_failure", "_lib", "_mac", "_new", "_number", "_octets", "_same_length", "_stream", "_text",
           "_text_argument", "_timespec", "_typeof", "_words", "_written"]
