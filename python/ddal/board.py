"""Controls the virtual board that this process runs on: pulls modules, changes registers, breaks calls, reads the trace.

A test gets it as the fixture "board"; the pytest plugin of this package runs each test on a new board.
"""
from __future__ import annotations

import contextlib
import json
import os
import pathlib
import shlex
import shutil
import subprocess
from collections.abc import Iterator
from typing import Any

__all__ = ["Board", "ControlError"]


class ControlError(Exception):
    """The board could not understand or execute a command."""


class Registers:
    """The registers of a model, as the hardware would see and change them: board.fpga[0x100] = 1."""

    def __init__(self, board: Board, model: str) -> None:
        self._board, self._model = board, model

    def __getitem__(self, address: int) -> int:
        return int(self._board.ctl(self._model, "get", hex(address)), 0)

    def __setitem__(self, address: int, value: int) -> None:
        self._board.ctl(self._model, "set", hex(address), hex(value))


class Link:
    """The cable of a PHY device: board.link[3].down()."""

    def __init__(self, board: Board, phy_dev: int) -> None:
        self._board, self._phy_dev = board, str(phy_dev)

    def up(self) -> None:
        """Plugs the cable."""
        self._board.ctl("link", self._phy_dev, "up")

    def down(self) -> None:
        """Pulls the cable."""
        self._board.ctl("link", self._phy_dev, "down")


class Module:
    """The module of a cage: board.sfp[1].pull()."""

    def __init__(self, board: Board, cage: int) -> None:
        self._board, self._cage = board, str(cage)

    def pull(self) -> None:
        """Takes the module out."""
        self._board.ctl("sfp", "pull", self._cage)

    def plug(self, **properties: object) -> None:
        """Plugs a module with these properties: plug(vendor="ACME", wavelength=1310)."""
        self._board.ctl("sfp", "plug", self._cage, "describe", *(f"{key.replace('_', '-')}={value}" for key, value in properties.items()))

    def measure(self, **quantities: float) -> None:
        """Lets the module measure this: temperature, voltage, bias, tx, rx; in degrees, V, mA and mW."""
        for quantity, amount in quantities.items():
            self._board.ctl("sfp", "set", self._cage, quantity, str(amount))

    def light(self, on: bool) -> None:
        """Changes whether light comes in."""
        self._board.ctl("sfp", "light", self._cage, "on" if on else "off")

    def fault(self, on: bool) -> None:
        """Changes whether the module reports a fault."""
        self._board.ctl("sfp", "fault", self._cage, "on" if on else "off")


class _Items(dict[int, Any]):
    """Makes an item at its first use."""

    def __init__(self, board: Board, kind: type) -> None:
        super().__init__()
        self._board, self._kind = board, kind

    def __missing__(self, key: int) -> Any:
        return self.setdefault(key, self._kind(self._board, key))


class Board:
    """A running virtual board. Commands of its models without an attribute here: board.ctl("laa", "record")."""

    def __init__(self) -> None:
        page = os.environ.get("VBOARD_PAGE")
        if not page:
            raise ControlError("this process does not run on a virtual board; try: pytest --board mbo")
        self.directory = pathlib.Path(page).parents[1]
        self._program = program()
        self.fpga, self.cpld, self.dfe, self.aif = (Registers(self, model) for model in ("fpga", "cpld", "dfe", "aif"))
        self.rf_fpga = [Registers(self, f"rf-fpga{number}") for number in range(4)]
        self.sfp: dict[int, Module] = _Items(self, Module)
        self.link: dict[int, Link] = _Items(self, Link)

    def ctl(self, *words: str) -> str:
        """Runs a command of "vboard ctl", given as words or as one line, and returns its output."""
        if len(words) == 1:
            words = tuple(shlex.split(words[0]))
        ran = subprocess.run([self._program, "ctl", *words], capture_output=True, text=True)
        if ran.returncode != 0:
            raise ControlError(ran.stderr.strip() or f"vboard ctl {shlex.join(words)}: exit status {ran.returncode}")
        return ran.stdout.rstrip("\n")

    @contextlib.contextmanager
    def fault(self, call: str, errno: str = "", *, nth: int = 1, count: int = 0, short: int | None = None, delay: str = "") -> Iterator[None]:
        """Breaks calls within a with statement: with board.fault("open:/sys/class/*", errno="EIO"):

        call: CALL:PATH; "*" is every call, and a path may end in "*".
        nth, count: the first call affected, and how many; 0: all.
        short, delay: moves at most so many bytes; waits first ("50ms").
        """
        words = [f"nth={nth}", f"count={count}"]
        words += [f"{key}={value}" for key, value in (("errno", errno), ("short", short), ("delay", delay)) if value not in ("", None)]
        rule = self.ctl("fault", "add", call, *words).split()[-1]
        try:
            yield
        finally:
            self.ctl("fault", "clear", rule)

    @property
    def trace(self) -> list[dict[str, Any]]:
        """The calls on devices so far, oldest first: "call", "path", "result" and the other keys of the trace."""
        text = (self.directory / ".vboard/trace.jsonl").read_text()
        calls = (json.loads(line) for line in text.splitlines(keepends=True) if line.endswith("\n"))  # the last may be half written
        return [call for call in calls if call["call"] != "exec" or call["path"] != self._program]  # this object's commands

    @property
    def log(self) -> list[str]:
        """The lines that programs have written to the system log so far: process, priority, text."""
        path = self.directory / ".vboard/syslog"
        return path.read_text(errors="replace").splitlines() if path.exists() else []


def program() -> str:
    """Returns the path of the program vboard."""
    found = shutil.which("vboard")
    if not found:
        raise ControlError("no program vboard: install the package ddal-vboard, or add its folder to PATH")
    return os.path.abspath(found)
