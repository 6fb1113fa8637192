"""The record channel of the RF power meter of ddal.fpga."""
from __future__ import annotations

from . import fpga as _operations
from ._waiting import Events

__all__ = ["power_records"]


def power_records() -> Events[tuple[int, ...]]:
    """Opens the records of the RF power meter: 11 numbers each, as rf_pwr_wait describes them."""
    return Events(_operations.rf_pwr_open(), _operations.rf_pwr_wait, _operations.rf_pwr_close)
