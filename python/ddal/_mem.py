"""Physical memory as a buffer, for ddal.mem."""
from __future__ import annotations

from collections.abc import Iterator
from contextlib import contextmanager

from . import mem as _operations
from ._ddal import ffi as _ffi

__all__ = ["mapped"]


@contextmanager
def mapped(physical: int, size: int) -> Iterator[memoryview]:
    """Maps physical memory within a with statement, and gives it as a buffer. No slice of it may be kept."""
    address = _operations.map_addr(physical, size)
    view = memoryview(_ffi.buffer(_ffi.cast("uint8_t *", address), size))
    try:
        yield view
    finally:
        view.release()
        _operations.unmap_addr(address, size)
