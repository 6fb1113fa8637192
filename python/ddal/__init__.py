"""The device-driver abstraction library of a radio board: one module for each of its headers.

    import ddal
    ddal.fpga.read(0x140900)
    ddal.sfp.Cage(1).temperature

A module is imported at its first use, and the library is loaded at the first call. Every failure raises ddal.Error.
"""
import importlib

from ._binding import Error, NotABoard
from ._operations import MODULES, VERSION as __version__

__all__ = ["Error", "NotABoard", *MODULES]


def __getattr__(name):
    if name not in MODULES:
        raise AttributeError(f"module 'ddal' has no attribute {name!r}")
    return importlib.import_module(f"ddal.{name}")


def __dir__():
    return sorted({*globals(), *MODULES})
