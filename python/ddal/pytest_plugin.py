"""Runs each test on a new virtual board: pytest --board mbo.

Every test runs in a process on a board that is created for it and removed afterwards. Fixtures of a wider scope are therefore
made anew for each test. A failing test shows the log and the trace of its board.
"""
from __future__ import annotations

import contextlib
import json
import pathlib
import subprocess
import sys
import tempfile
from collections.abc import Generator, Iterator
from typing import Any

import pytest

from .board import Board, ControlError, program

SHOWN = 40  # lines of log and trace that a failing test shows


def pytest_addoption(parser: pytest.Parser) -> None:
    group = parser.getgroup("ddal", "virtual radio board")
    group.addoption("--board", metavar="TYPE", help='run each test on a new virtual board of this type: "vboard types" lists them')
    group.addoption("--board-reports", metavar="FILE", help="used by the plugin for the process on the board")


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "board(type, speed=1): run the test on a virtual board of this type, with the time at this speed")
    if config.getoption("--board-reports"):
        config.pluginmanager.register(OnBoard(config), "ddal-on-board")
    elif config.getoption("--board"):
        try:
            program()
        except ControlError as fault:
            raise pytest.UsageError(str(fault)) from None
        config.pluginmanager.register(BoardPerTest(config), "ddal-board-per-test")


@pytest.fixture
def board() -> Board:
    """The virtual board of this test."""
    try:
        return Board()
    except ControlError as fault:
        pytest.fail(str(fault), pytrace=False)


class BoardPerTest:
    """The process that the user started: collects the tests, starts a board for each, and takes over its reports."""

    def __init__(self, config: pytest.Config) -> None:
        self._config, self._program = config, program()

    @pytest.hookimpl(tryfirst=True)  # type: ignore[misc]
    def pytest_runtest_protocol(self, item: pytest.Item) -> bool:
        item.ihook.pytest_runtest_logstart(nodeid=item.nodeid, location=item.location)
        for report in self._reports(item):
            item.ihook.pytest_runtest_logreport(report=report)
        item.ihook.pytest_runtest_logfinish(nodeid=item.nodeid, location=item.location)
        return True

    def _reports(self, item: pytest.Item) -> Iterator[pytest.TestReport]:
        with tempfile.TemporaryDirectory(prefix="ddal-board-", ignore_cleanup_errors=True) as folder:
            written = pathlib.Path(folder, "reports.jsonl")
            seen = None if self._config.getoption("capture") == "no" else subprocess.PIPE
            run = subprocess.run(self._command(item, folder, written), stdin=subprocess.DEVNULL, stdout=seen, stderr=seen, text=True,
                                 errors="replace", cwd=self._config.invocation_params.dir)
            when = ""
            for line in written.read_text().splitlines() if written.exists() else []:
                report = self._config.hook.pytest_report_from_serializable(config=self._config, data=json.loads(line))
                when = report.when
                yield report
            if when != "teardown":  # the process has ended within the test, or before it
                said = f"the process on the board ended with status {run.returncode}\n{run.stdout or ''}{run.stderr or ''}"
                yield pytest.TestReport(item.nodeid, item.location, {}, "failed", said, "call", sections_of(pathlib.Path(folder, "board")))

    def _command(self, item: pytest.Item, folder: str, written: pathlib.Path) -> list[str]:
        config, marker = self._config, item.get_closest_marker("board")
        kind = marker.args[0] if marker and marker.args else config.getoption("--board")
        options = dict(marker.kwargs) if marker else {}
        speed = options.pop("speed", 1)
        if options:
            raise pytest.UsageError(f"{item.nodeid}: pytest.mark.board takes a type and speed=N, not {', '.join(options)}")
        command = [self._program, "run", "--type", kind, "--speed", str(speed), "--board", f"{folder}/board", "--", sys.executable, "-m", "pytest",
                   "--board-reports", str(written), "-q", "-p", "no:cacheprovider", "--rootdir", str(config.rootpath), "--tb",
                   config.getoption("tbstyle"), "--capture", config.getoption("capture")]
        command += ["-c", str(config.inipath)] if config.inipath else []
        command += ["-n0"] if config.pluginmanager.hasplugin("xdist") else []
        command += ["--showlocals"] if config.getoption("showlocals") else []
        for option, values in (("-p", config.getoption("plugins")), ("-o", config.getoption("override_ini")), ("-W", config.getoption("pythonwarnings"))):
            command += [word for value in values or () for word in (option, value)]
        return [*command, str(config.rootpath / item.nodeid)]


class OnBoard:
    """The process on the board: runs one test and writes its reports for the process that started it."""

    def __init__(self, config: pytest.Config) -> None:
        self._config, self._path = config, pathlib.Path(config.getoption("--board-reports"))

    def pytest_runtest_logreport(self, report: pytest.TestReport) -> None:
        data = self._config.hook.pytest_report_to_serializable(config=self._config, report=report)
        with self._path.open("a") as out:
            out.write(json.dumps(data, default=str) + "\n")

    @pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
    def pytest_runtest_makereport(self) -> Generator[None, Any, None]:
        outcome = yield
        report = outcome.get_result()
        if report.failed:
            report.sections += sections_of(Board().directory)


def sections_of(directory: pathlib.Path) -> list[tuple[str, str]]:
    """Returns the ends of the log and the trace of a board, as sections of a report."""
    sections = []
    for title, name in (("log", "syslog"), ("trace", "trace.jsonl")):
        with contextlib.suppress(OSError):
            lines = (directory / ".vboard" / name).read_text(errors="replace").splitlines()[-SHOWN:]
            sections.append((f"{title} of the board", "\n".join(map(traced, lines) if title == "trace" else lines)))
    return sections


def traced(line: str) -> str:
    """Returns a line of the trace as a person reads it."""
    try:
        call = json.loads(line)
    except ValueError:
        return line
    place = f" at {call['offset']:#x}" if "offset" in call else ""
    failed = f", errno {call['errno']}" if "errno" in call else ""
    data = f" {call['data']}" if "data" in call and call["call"] != "exec" else ""
    return f"{call.get('pid', '')} {call['call']} {call.get('path', '')}{place}{data} = {call.get('result', '')}{failed}"
