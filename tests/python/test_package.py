"""The Python package where there is no board: its pytest plugin, its generator, and what it does off a board."""
import os
import pathlib
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
TESTS = """
import os
import ddal
import pytest
from ddal import fpga

def test_first(board):
    board.fpga[0x100] = 7
    assert fpga.read(0x100) == 7

def test_second_has_a_new_board(board):
    assert fpga.read(0x100) == 0

@pytest.mark.board("type5")
def test_has_another_type():
    assert ddal.unit.get_board() == 5

def test_that_fails(board):
    fpga.read(0x104)
    with pytest.raises(ddal.Error):
        fpga.read(3)
    assert board.ctl("models") == "nothing"

def test_that_ends_its_process():
    fpga.read(0x108)
    os._exit(7)
"""


def run(*command, **options):
    return subprocess.run([sys.executable, *map(str, command)], capture_output=True, text=True, **options)


def test_each_test_has_a_new_board_and_a_failing_one_shows_it(tmp_path):
    (tmp_path / "test_board.py").write_text(TESTS)
    for more in ((), ("-n2",)):
        done = run("-m", "pytest", "-p", "no:cacheprovider", "--board", "mbo", *more, cwd=tmp_path)
        assert done.returncode == 1 and "2 failed, 3 passed" in done.stdout, done.stdout + done.stderr
        for said in ("log of the board", "3 ddal_fpga_read:", "trace of the board", "pread /dev/fpga_usr at 0x104 00000000 = 4",
                     "ended with status 7", "at 0x108"):
            assert said in done.stdout, (said, done.stdout)


def test_off_a_board_everything_says_so(tmp_path):
    (tmp_path / "test_board.py").write_text(TESTS)
    assert "this machine is not a board" in run("-c", "import ddal; ddal.fpga.read(0)").stderr
    assert "try: pytest --board mbo" in run("-m", "pytest", "-p", "no:cacheprovider", cwd=tmp_path).stdout
    done = run("-m", "pytest", "-p", "no:cacheprovider", "--board", "mbo", cwd=tmp_path, env={**os.environ, "PATH": "/nowhere"})
    assert done.returncode == 4 and "no program vboard" in done.stderr


def test_a_header_that_the_generator_does_not_understand_ends_the_build(tmp_path):
    cases = [("DDAL_API int ddal_cpu_set_thing(struct unknown *thing);", "ddal_cpu_set_thing: no rule for struct unknown *thing"),
             ("DDAL_API double ddal_cpu_get_load(void);", "ddal_cpu_get_load: no rule for its result"),
             (None, "a row of exceptions.py fits no operation")]
    for declaration, said in cases:
        headers = tmp_path / "headers"
        shutil.copytree(ROOT / "include/ddal", headers, dirs_exist_ok=True)
        text = (headers / "cpu.h").read_text()
        if declaration:
            (headers / "cpu.h").write_text(text.replace("\nDDAL_END_DECLS", f"\n/*\n * Reads it.\n */\n{declaration}\n\nDDAL_END_DECLS"))
        else:
            (headers / "ffs.h").unlink()
        (tmp_path / "out").mkdir(exist_ok=True)
        done = run("-B", ROOT / "python/make_binding.py", tmp_path / "out", "1.0.0", *sorted(headers.glob("*.h")))
        assert done.returncode != 0 and said in done.stderr, done.stderr
