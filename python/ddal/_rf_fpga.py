"""The channels of licensed-assisted access of ddal.rf_fpga."""
from __future__ import annotations

from . import rf_fpga as _operations
from ._binding import Handle
from ._waiting import Events

__all__ = ["dfs_events", "laa_records", "prescan_events", "sas_events"]


def laa_records() -> Events[_operations.LaaRecord]:
    """Opens the record stream."""
    return Events(_operations.laa_open(), _operations.laa_wait, _operations.laa_close)


def prescan_events(index: int) -> Events[int]:
    """Opens the pre-scan channel of an index: an event is its byte."""
    return Events(_operations.laa_prescan_open(index), _operations.laa_prescan_wait, _operations.laa_prescan_close)


def dfs_events(index: int) -> Events[int]:
    """Opens the radar channel of an index: an event is its number."""

    def get(channel: Handle) -> int:
        _operations.laa_dfs_wait(channel)
        return int(channel.pointer.event)

    return Events(_operations.laa_dfs_open(index), get, _operations.laa_dfs_close)


def sas_events(index: int | None = None) -> Events[None]:
    """Opens the spectrum-access channel of an index, or of any received total wideband power."""
    channel = _operations.laa_sas_open_any_rtwp() if index is None else _operations.laa_sas_open(index)
    return Events(channel, _operations.laa_sas_wait, _operations.laa_sas_close, priority=True)
