"""The handler of log lines of ddal.diagnosis."""
from __future__ import annotations

from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Any

from ._binding import _NULL, _lib
from ._ddal import ffi as _ffi

__all__ = ["set_log_handler"]

_handlers: list[Any] = []  # kept for ever: a thread may still be passing on a line


@contextmanager
def set_log_handler(handler: Callable[[int, str], None]) -> Iterator[None]:
    """Leads the log lines of the library to a function instead of standard error, within a with statement.

    handler: receives the priority, 3 (error) to 7 (debug), and the line. It runs on the thread that logs, and must not call the
    library.

    Thread safety: one caller at a time: the process has one handler.
    Blocking: none.
    C: ddal_ext_set_log_handler
    """

    @_ffi.callback("ddal_ext_log_handler")  # type: ignore[misc]
    def pass_on(_user: Any, priority: int, line: Any) -> None:
        handler(priority, _ffi.string(line).decode("utf-8", "replace"))

    _handlers.append(pass_on)
    _lib.ddal_ext_set_log_handler(pass_on, _NULL)
    try:
        yield
    finally:
        _lib.ddal_ext_set_log_handler(_NULL, _NULL)
