"""The Python package on a virtual board: pytest --board mbo tests/python/test_binding.py"""
import ast
import asyncio
import contextlib
import ctypes
import gc
import inspect
import os
import pathlib
import subprocess
import sys
import threading
import time
import timeit

import ddal
import pytest
from ddal import _binding, _operations

ROOT = pathlib.Path(__file__).resolve().parents[2]
# Plausible arguments by name, then by type. The descriptors are not open and the handles are empty.
NAMED = {"sw": 2, "port": 18, "port1": 18, "port2": 20, "dst_port": 20, "phy_dev": 3, "sfp_id": ddal.sfp.SFP_1, "led_id": ddal.led.STATUS,
         "id": 53, "mac": "02:00:00:00:00:02", "address": 0x100, "fd": -1, "count": 1, "length": 4, "len": 4, "rx_len": 2, "path": "/etc/version",
         "quanta": range(8), "codes": bytes(8), "argv": ["sh", "-c", "exit 3"], "cmdline": "exit 3", "physical": 0x1000010, "size": 8,
         "period_ms": 100, "speed": 1000, "block": 0, "addr": 0, "sfn": 0, "timeout": 0.01, "event": 14, "value": 1, "clear": bytes(4), "set": bytes(4),
         "mask": 1, "desc": 0}
TYPED = {"int": 1, "str": "text", "Buffer": bytes(4), "str | bytes | os.PathLike[str]": "text", "Sequence[int]": [1, 2], "bytes": b"line\n",
         "Setting | None": None, "version": bytes(8)}


def stubs():
    """Yields each operation with its function and the annotated arguments of its stub."""
    for name, (module, function) in _operations.OPERATIONS.items():
        found = getattr(getattr(ddal, module), function)
        stub = ast.parse(pathlib.Path(_binding.__file__).with_name(f"{module}.pyi").read_text())
        for definition in stub.body:
            if isinstance(definition, ast.FunctionDef) and definition.name == function:
                yield name, found, {argument.arg: ast.unparse(argument.annotation) for argument in definition.args.args}


def argument(operation, name, kind):
    if kind == "Handle":
        return _binding.Handle(_binding._NULL)
    usual = TYPED.get(kind, 1)
    given = NAMED.get(name, usual)
    return bytes(8) if name == "version" else given if isinstance(given, type(usual)) or name in ("mac", "argv", "quanta") else usual


def call_all(left_out=()):
    """Calls every operation and returns the number of calls. A failure of the board is fine, any other exception is a fault."""
    number = 0
    for name, function, kinds in stubs():
        if name in left_out:
            continue
        with contextlib.suppress(ddal.Error):
            function(*(argument(name, argument_name, kind) for argument_name, kind in kinds.items()))
        number += 1
    return number


@pytest.mark.board("mbo", speed=100)
def test_every_exported_operation_is_called():
    lists = {name: {line for line in (ROOT / f"abi/{name}.txt").read_text().splitlines() if line and line[0] != "#"}
             for name in ("exports", "extensions", "unsupported")}
    exported = lists["exports"] | lists["extensions"]
    callable_here = set(_operations.OPERATIONS)
    assert exported - lists["unsupported"] - callable_here == set(_operations.LEFT_OUT), "a function or a reason is missing"
    for name, function, kinds in stubs():
        assert list(inspect.signature(function).parameters)[: len(kinds)] == list(kinds), f"{name}: the stub differs"
        assert f"C: {name}" in function.__doc__ and "Thread safety: " in function.__doc__ and "Blocking: " in function.__doc__
    number = call_all()
    assert number == len(callable_here) - 2  # those of hand-written modules have tests below
    print(f"{len(callable_here)} of {len(exported)} exported operations are functions; {len(_operations.LEFT_OUT)} are left out: {_operations.LEFT_OUT}")


def test_values_are_those_of_the_board(board):
    board.fpga[0x100] = 0x12345678
    assert ddal.fpga.read(0x100) == 0x12345678
    assert ddal.fpga.write(0x104, 7) is None and board.fpga[0x104] == 7
    assert ddal.rf_fpga.write(0x100, [1, 2, 3]) == 3 and ddal.rf_fpga.read(0x100, 3) == (1, 2, 3)
    ddal.dfe.masked_write(0x10, b"\xff\x0f", b"\x0f\xff")
    assert ddal.dfe.read(0x10, 2) == b"\x0f\x0f"
    assert ddal.unit.get_board() is ddal.unit.BoardType.MBO and ddal.unit.BoardType(77) == 77
    assert ddal.led.get(ddal.led.STATUS) is ddal.led.Colour.OFF
    board.sfp[1].measure(temperature=41.5)
    cage = ddal.sfp.Cage(1)
    assert cage.temperature == pytest.approx(41.5, abs=5) and cage.vendor_name == "VIRTUAL BOARD"
    cage.tx_disable = True
    assert cage.tx_disable and "tx_dis=1" in board.ctl("sfp show")
    assert ddal.phy.copper_get_status(3) == ddal.phy.CopperStatus(link=1, speed=2500, duplex=1)
    assert ddal.devicetree.get_mac_addr("eth0")[:2] == b"\x02\x00" and ddal.devicetree.sysinfo_get_fpga_type() == "A7"
    assert ddal.common.shell_command_read("/bin/sh", ["sh", "-c", "echo done; exit 3"]) == (3, "done\n")
    assert ddal.common.shell_command_read_write_fp(b"line\n", "/bin/sh", ["sh", "-c", "cat"]) == (0, b"line\n")
    pathlib.Path("/flash/config/cells").touch()
    ddal.common.write_u32val_array([1, 2], "/flash/config/cells")
    assert ddal.common.read_file("/flash/config/cells") == b"\0\0\0\1\0\0\0\2" == ddal.common.read_file("/flash/config/cells", 8)
    assert ddal.common.read_u32val_array(2, "/flash/config/cells") == (1, 2)
    assert not ddal.wifi.is_wifi_supported() and ddal.sfp.is_compliance_code_set(b"\0\0\0\0\0\0\0\1", 0)
    assert ddal.sfp.interpret_compliance_codes(b"\x80\0\0\0\0\0\0\1") == [0, 63] and ddal.bsl.crc_calc(b"123456789") == 0x29B1
    board.ctl("switch-shell", "answer", "0", "port up")
    assert b"port up" in ddal.bcmdiag.telnet_bcmdiag("ps")
    with ddal.mem.mapped(0x1000010, 4) as memory:
        assert len(memory) == 4
    before = ddal.clock.gettime(time.CLOCK_MONOTONIC)
    assert before <= ddal.clock.gettime(time.CLOCK_MONOTONIC) < before + 10**9


def test_lists_and_texts_have_the_length_that_they_need():
    for number in range(300):
        ddal.eth_switch.add_static_arl_entry(18, number.to_bytes(6, "big"), 100)
    entries = ddal.eth_switch.get_static_arl_entries(18)
    assert sorted(entry.mac for entry in entries) == [number.to_bytes(6, "big") for number in range(300)]
    pathlib.Path("/flash/config/long").write_text("x" * 1000)
    assert ddal.common.read_string_and_size("/flash/config/long") == "x" * 1000


def test_a_failure_says_what_happened(board):
    with board.fault("pread:/dev/fpga_usr", errno="EIO"), pytest.raises(ddal.Error) as caught:
        ddal.fpga.read(0x100)
    failure = caught.value
    assert (failure.code, failure.name, failure.operation, failure.path) == (-5, "EIO", "ddal_fpga_read", "/dev/fpga_usr")
    assert failure.message == "Input/output error" and "/dev/fpga_usr" in str(failure)
    with pytest.raises(ddal.Error) as caught:  # logs nothing, and has nothing to do with the failure before
        ddal.sfp.memory_read(7, 0, 0, 1)
    assert (caught.value.name, caught.value.path) == ("EINVAL", "")
    with pytest.raises(ddal.Error) as caught:
        ddal.auth.set_user_password("serviceuser", "")
    assert caught.value.name == "EINVAL"
    with pytest.raises(ddal.Error) as caught:
        ddal.bsl.tx_data_blk(-1, 0, 251)
    assert caught.value.code == ddal.bsl.ERR_RX_TOO_LONG


@pytest.mark.parametrize("call", [
    lambda: ddal.eth_switch.set_port_cosq_quanta(18, [1] * 7), lambda: ddal.dfe.masked_write(0, b"ab", b"a"),
    lambda: ddal.eth_switch.add_static_arl_entry(18, b"12345", 1), lambda: ddal.common.write_string("a\0b", "/etc/version"),
    lambda: ddal.sfp.compliance_code_get(-1), lambda: ddal.rfup.msg(0, bytes(256), 0)])
def test_arguments_that_c_cannot_take_do_not_reach_it(call):
    with pytest.raises((ValueError, OverflowError)):
        call()


def test_a_closed_handle_is_not_used_again(board):
    report = ddal.rf_fpga.slow_meas_report_open(100)
    ddal.rf_fpga.slow_meas_report_close(report)
    channel = ddal.rf_fpga.laa_prescan_open(0)
    ddal.rf_fpga.laa_prescan_close(channel)
    for call in (lambda: ddal.rf_fpga.slow_meas_report_wait(report), lambda: ddal.rf_fpga.laa_prescan_wait(channel)):
        with pytest.raises(ddal.Error, match="Invalid argument"):
            call()


def test_events_reach_loops_and_asyncio(board):
    with ddal.phy.link_events(3) as events:
        assert events.next(5) is True
        board.link[3].down()
        assert list(events.wait(0.3)) == [False]
        with pytest.raises(TimeoutError):
            events.next(0.01)
    board.ctl("power-meter stop")
    board.ctl("laa stop") if "stop" in board.ctl("laa --help") else None
    sources = [
        (ddal.sfp.Cage(1).events, lambda: board.sfp[1].pull(), False), (ddal.fpga.power_records, lambda: board.ctl("power-meter record 1 2 3 4 5 6 7 8 9"), None),
        (ddal.rp3.alarm_events, lambda: board.ctl("alarms rp3 1"), "1"), (ddal.rp3.reference_alarm_events, lambda: board.ctl("alarms refab 1"), "1"),
        (lambda: ddal.rf_fpga.prescan_events(0), lambda: board.ctl("laa prescan 0 200"), 200),
        (lambda: ddal.rf_fpga.dfs_events(0), lambda: board.ctl("laa dfs 0 7"), 7), (ddal.rf_fpga.sas_events, lambda: board.ctl("laa sas any"), None),
        (ddal.rf_fpga.laa_records, lambda: board.ctl("laa record 71 2 3"), None)]

    async def first(events):
        async for event in events:
            return event

    async def wait(open_events, cause):
        with open_events() as events:
            waiting = asyncio.create_task(first(events))
            await asyncio.sleep(0.02)
            assert not waiting.done()
            cause()
            return await asyncio.wait_for(waiting, 5)

    for open_events, cause, expected in sources:
        event = asyncio.run(wait(open_events, cause))
        assert expected is None or event == expected, cause


def test_a_long_call_leaves_the_interpreter_to_other_threads(board):
    board.ctl("power-meter stop")
    fd = ddal.fpga.rf_pwr_open()
    waiting = threading.Thread(target=ddal.fpga.rf_pwr_wait, args=(fd,))
    waiting.start()
    time.sleep(0.05)
    assert waiting.is_alive()  # this line runs while the call waits
    board.ctl("power-meter record 1 2 3 4 5 6 7 8 9")
    waiting.join(5)
    assert not waiting.is_alive()
    ddal.fpga.rf_pwr_close(fd)


def test_callbacks_live_as_long_as_they_are_needed(board, tmp_path):
    image = tmp_path / "image.txt"
    image.write_text("@9000\n00 00 00 00 02 01 03 05\nq\n")
    phases = []
    assert ddal.ext.rfcard_upgrade(image, progress=lambda phase, done, total: phases.append(phase)) == ddal.bsl.STATUS_SUCCESSFUL
    assert phases[0] is ddal.ext.RfcardPhase.ENTER and phases[-1] is ddal.ext.RfcardPhase.RESTART

    def broken(phase, done, total):
        raise LookupError("in the callback")

    with pytest.raises(LookupError, match="in the callback"):
        ddal.ext.rfcard_verify(image, progress=broken)
    lines = []
    with ddal.diagnosis.set_log_handler(lambda priority, line: lines.append((priority, line))):
        with pytest.raises(ddal.Error):
            ddal.fpga.read(3)
    assert len(lines) == 1 and lines[0][0] == 3 and lines[0][1].startswith("ddal_fpga_read:")


def test_a_thousand_operations_keep_nothing():
    def run():
        for _ in range(100):
            ddal.fpga.read(0x100), ddal.sfp.Cage(1).vendor_name, ddal.phy.copper_get_status(3), ddal.devicetree.get_serial_number()
            ddal.sfn.get(), ddal.bsl.crc_calc(bytes(64)), ddal.eth_switch.get_port_stats(20), ddal.dfe.read(0, 64), ddal.eth_switch.get_svlans(18)
            with contextlib.suppress(ddal.Error):
                ddal.fpga.read(3)

    class Heap(ctypes.Structure):  # struct mallinfo2
        _fields_ = [(name, ctypes.c_size_t) for name in "arena ordblks smblks hblks hblkhd usmblks fsmblks uordblks fordblks keepcost".split()]

    libc = ctypes.CDLL(None)
    libc.mallinfo2.restype = Heap

    def held():
        gc.collect()
        heap = libc.mallinfo2()
        return len(os.listdir("/proc/self/fd")), len(gc.get_objects()), sys.getallocatedblocks(), heap.uordblks + heap.hblkhd

    run()
    before = held()
    run()
    after = held()
    assert after[0] == before[0] and after[1] - before[1] < 20 and after[2] - before[2] < 100
    assert after[3] - before[3] < 4000  # bytes; an operation that kept something would keep 100 times as much


def test_costs_at_most_400_ns_a_call_and_30_ms_to_import():
    call, place = _binding._lib.ddal_security_has_cryptoagent, _binding._new("uint8_t *")
    bare = min(timeit.repeat(lambda: call(place), number=10000, repeat=20)) / 10000
    whole = min(timeit.repeat(ddal.security.has_cryptoagent, number=10000, repeat=20)) / 10000
    starts = [[], []]
    for _ in range(8):
        for times, code in zip(starts, ("pass", "import ddal")):
            started = time.perf_counter()
            subprocess.run([sys.executable, "-c", code], check=True)
            times.append(time.perf_counter() - started)
    more = min(starts[1]) - min(starts[0])
    print(f"a call: {1e9 * (whole - bare):.0f} ns on top of {1e9 * bare:.0f} ns; import: {1e3 * more:.1f} ms")
    assert whole - bare < 400e-9 and more < 0.030
