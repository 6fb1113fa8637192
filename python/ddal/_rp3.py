"""The alarm channels of ddal.rp3."""
from __future__ import annotations

import os

from . import rp3 as _operations
from ._waiting import Events

__all__ = ["alarm_events", "reference_alarm_events"]


def _alarm(fd: int) -> str:
    return os.pread(fd, 64, 0).decode("ascii", "replace").strip()


def alarm_events() -> Events[str]:
    """Opens the RP3 link alarm and enables it: an event is the new text of the alarm attribute."""
    fd = _operations.alarm_event_open()
    _alarm(fd)
    return Events(fd, _alarm, _operations.alarm_event_close, priority=True)


def reference_alarm_events() -> Events[str]:
    """Opens the reference alarm: an event is the new text of the alarm attribute."""
    fd = _operations.refab_alarm_event_open()
    _alarm(fd)
    return Events(fd, _alarm, _operations.refab_alarm_event_close, priority=True)
