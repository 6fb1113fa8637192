"""Reading whole files with ddal.common."""
from __future__ import annotations

import os

from ._binding import _buffer, _failure, _lib, _new, _text_argument

__all__ = ["read_file"]


def read_file(path: str | bytes | os.PathLike[str], n: int = 65536) -> bytes:
    """Reads at most n bytes of a file, and returns them.

    Thread safety: safe: a reader may meet a file that is just being rewritten.
    Blocking: one access.
    C: ddal_common_read_file
    """
    room = _new("uint8_t[]", n)
    length = _lib.ddal_common_read_file(room, n, _text_argument(path))
    if length < 0:
        raise _failure(length, "ddal_common_read_file")
    return bytes(_buffer(room))[: min(length, n)]
