"""A module in a cage, as ddal.sfp shows it."""
from __future__ import annotations

from . import sfp as _operations
from ._binding import Buffer
from ._waiting import Events

__all__ = ["Cage"]


def _diagnostic(quantity: int, unit: str) -> property:
    def get(cage: Cage) -> float:
        return _operations.diagnostic_get(cage.id, quantity)

    return property(get, doc=f"Measures this quantity, in {unit}.")


class Cage:
    """A backhaul cage, by its number: 1 or 2. Every attribute reads the module anew."""

    def __init__(self, number: int) -> None:
        cages = {1: _operations.SFP_1, 2: _operations.SFP_2}
        if number not in cages:
            raise ValueError(f"cage {number}: the board has the cages 1 and 2")
        self.number, self.id = number, cages[number]

    def __repr__(self) -> str:
        return f"Cage({self.number})"

    @property
    def present(self) -> bool:
        """Tells whether the cage has a module."""
        return _operations.status_get(self.id, _operations.STATUS_PRESENCE) == 1

    @property
    def rx_los(self) -> bool:
        """Tells whether the module misses light."""
        return _operations.status_get(self.id, _operations.STATUS_RX_LOS) == 1

    @property
    def tx_fault(self) -> bool:
        """Tells whether the module reports a fault of its transmitter."""
        return _operations.status_get(self.id, _operations.STATUS_TX_FAULT) == 1

    @property
    def tx_disable(self) -> bool:
        """Reads or sets the line that switches the transmitter off."""
        return _operations.ctrl_get(self.id, _operations.CTRL_TX_DISABLE) == 1

    @tx_disable.setter
    def tx_disable(self, off: bool) -> None:
        _operations.ctrl_set(self.id, _operations.CTRL_TX_DISABLE, int(off))

    temperature = _diagnostic(_operations.DIAG_TEMPERATURE, "degrees Celsius")
    voltage = _diagnostic(_operations.DIAG_VOLTAGE, "volts")
    tx_bias = _diagnostic(_operations.DIAG_TX_BIAS, "milliamperes")
    tx_power = _diagnostic(_operations.DIAG_TX_POWER, "milliwatts")
    rx_power = _diagnostic(_operations.DIAG_RX_POWER, "milliwatts")

    @property
    def vendor_name(self) -> str:
        """Reads the name of the vendor, without its padding."""
        return _operations.vendor_name_get(self.id).rstrip()

    @property
    def part_number(self) -> str:
        """Reads the part number, without its padding."""
        return _operations.part_number_get(self.id).rstrip()

    @property
    def revision(self) -> str:
        """Reads the revision, without its padding."""
        return _operations.revision_get(self.id).rstrip()

    @property
    def serial_number(self) -> str:
        """Reads the serial number, without its padding."""
        return _operations.serial_number_get(self.id).rstrip()

    @property
    def date_code(self) -> str:
        """Reads the date of manufacture: YYMMDD and two characters of the vendor."""
        return _operations.date_code_get(self.id).rstrip()

    @property
    def wavelength(self) -> int:
        """Reads the wavelength of the laser, in nanometres."""
        return _operations.wavelength_get(self.id)

    @property
    def bitrate(self) -> int:
        """Reads the nominal rate, in MBd."""
        return 100 * _operations.bitrate_get(self.id)

    @property
    def flags(self) -> tuple[int, int]:
        """Reads the alarm flags and the warning flags; ddal.sfp.get_alarm_warning_flags lists the bits."""
        return _operations.get_alarm_warning_flags(self.id)

    def read(self, memory: int, offset: int, length: int) -> bytes:
        """Reads a piece of a module memory: MEMORY_ID or MEMORY_DIAGNOSTICS."""
        return _operations.memory_read(self.id, memory, offset, length)

    def write(self, offset: int, octets: Buffer) -> None:
        """Writes a piece of the diagnostics memory."""
        _operations.memory_write(self.id, _operations.MEMORY_DIAGNOSTICS, offset, octets)

    def events(self, status: int = _operations.STATUS_PRESENCE) -> Events[bool]:
        """Opens a status line: True is 1. An event is a change; the present state is read already."""
        fd = _operations.status_event_open(self.id, status)
        _operations.status_event_get(fd)
        return Events(fd, lambda fd: bool(_operations.status_event_get(fd)), _operations.status_event_close, priority=True)
