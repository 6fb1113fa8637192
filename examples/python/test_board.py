"""Ten tests of a board, each on a new virtual board: pytest --board mbo examples/python"""
import asyncio
import pathlib

import pytest

import ddal
from ddal.board import Board


@pytest.mark.parametrize("kind, number", [
    pytest.param(kind, number, marks=pytest.mark.board(kind)) for kind, number in (("mbo", 9), ("type5", 5), ("type8", 8))])
def test_the_board_knows_its_type(kind: str, number: int) -> None:
    assert ddal.unit.get_board() == number


@pytest.mark.board("c5")
def test_a_board_has_an_identity() -> None:
    assert ddal.devicetree.get_serial_number() and ddal.devicetree.get_production_code()


def test_a_register_of_the_fpga_keeps_its_bits(board: Board) -> None:
    board.fpga[0x100] = 0xF0
    ddal.fpga.masked_write(0x100, 0x0F, 0x05)
    assert ddal.fpga.read(0x100) == board.fpga[0x100] == 0xF5


def test_a_module_is_pulled_and_plugged(board: Board) -> None:
    cage = ddal.sfp.Cage(1)
    with cage.events() as presence:
        board.sfp[1].pull()
        assert presence.next(5) is False
        with pytest.raises(ddal.Error):
            cage.serial_number
        board.sfp[1].plug(vendor="ACME", wavelength=1550)
        assert presence.next(5) is True
    assert (cage.vendor_name, cage.wavelength) == ("ACME", 1550)


def test_a_weak_receiver_is_found(board: Board) -> None:
    board.sfp[1].measure(rx=0.001)
    assert ddal.sfp.Cage(1).rx_power < 0.01


def test_a_link_flap_is_seen(board: Board) -> None:
    with ddal.phy.link_events(3) as events:
        assert events.next(5)
        board.link[3].down()
        assert not events.next(5)
        board.link[3].up()
        assert events.next(5)


def test_asyncio_follows_two_links_at_once(board: Board) -> None:
    async def first_down(phy_dev: int) -> int:
        with ddal.phy.link_events(phy_dev) as events:
            async for up in events:
                if not up:
                    break
        return phy_dev

    async def both() -> list[int]:
        waiting = [asyncio.create_task(first_down(phy_dev)) for phy_dev in (1, 3)]
        await asyncio.sleep(0.05)
        for phy_dev in (3, 1):
            board.link[phy_dev].down()
        return await asyncio.wait_for(asyncio.gather(*waiting), 5)

    assert asyncio.run(both()) == [1, 3]


def test_a_broken_driver_is_reported_with_its_path(board: Board) -> None:
    with board.fault("open:/sys/class/cpld-usr/*", errno="EACCES"), pytest.raises(ddal.Error) as caught:
        ddal.led.get(ddal.led.STATUS)
    assert caught.value.name == "EACCES" and caught.value.path.startswith("/sys/class/cpld-usr/")
    assert ddal.led.get(ddal.led.STATUS) == ddal.led.Colour.OFF


def test_a_tunnel_carries_frames_between_two_ports(board: Board) -> None:
    ddal.eth_switch.add_tunneling(14, 18)
    board.ctl("switch send 14 dst=02:00:00:00:00:02 src=02:00:00:00:00:01")
    copies = board.ctl("switch sent").splitlines()
    assert len(copies) == 1 and copies[0].startswith("18: ")


def test_the_rf_card_takes_an_image(board: Board, tmp_path: pathlib.Path) -> None:
    image = tmp_path / "image.txt"
    image.write_text("@9000\n00 00 00 00 02 01 03 05\nq\n")
    assert ddal.ext.rfcard_upgrade(image) == ddal.bsl.STATUS_SUCCESSFUL
    assert ddal.ext.rfcard_verify(image)
    assert any(call["path"] == "/dev/ttyFPGA3" for call in board.trace)
