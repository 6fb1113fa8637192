"""Link events of ddal.phy as Python sees them."""
from __future__ import annotations

from . import phy as _operations
from ._waiting import Events

__all__ = ["interface_events", "link_events", "switch_events"]


def _link_of(fd: int) -> bool:
    return bool(_operations.event_retrieve(fd))


def link_events(phy_dev: int) -> Events[bool]:
    """Opens the link of a PHY device: True is up. The first event is the present state."""
    return Events(_operations.copper_event_open(phy_dev), _link_of, _operations.copper_event_close)


def interface_events(ifname: str) -> Events[bool]:
    """Opens the link of a network interface: True is up. The first event is the present state."""
    return Events(_operations.event_register_linux_interface(ifname), _link_of, _operations.event_unregister)


def switch_events(port: int) -> Events[bool]:
    """Opens the link of a port of the Broadcom switch: True is up. The first event is the present state."""
    return Events(_operations.event_register_broadcom_switch(port), _link_of, _operations.event_unregister)
