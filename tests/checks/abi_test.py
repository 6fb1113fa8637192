#!/usr/bin/env python3
"""Checks that abi.py refuses only changes that break an application. usage: abi_test.py C_COMPILER"""
import pathlib
import subprocess
import sys
import tempfile

CHECK = pathlib.Path(__file__).with_name("abi.py")

HEADER = """struct reading { int value; int unit; };
int device_read(unsigned address, struct reading *reading);
int device_reset(void);
"""
SOURCE = """#include "device.h"
int device_read(unsigned address, struct reading *reading) { reading->value = (int)address; return 0; }
int device_reset(void) { return 0; }
static int counted;
int hidden_count(void);
__attribute__((visibility("hidden"))) int hidden_count(void) { return ++counted; }
"""

# Change of header and source, soname, and whether the check passes.
CASES = [
    ("nothing", [], "libdevice.so.1", True),
    ("another body", [("return ++counted", "return --counted")], "libdevice.so.1", True),
    ("a hidden function gone", [("int hidden_count(void) { return ++counted; }", "int other(void) { return ++counted; }")],
     "libdevice.so.1", True),
    ("an operation more", [("int device_reset(void);\n", "int device_reset(void);\nint device_stop(void);\n"),
                           ("static int counted;", "int device_stop(void) { return 0; }\nstatic int counted;")],
     "libdevice.so.1", True),
    ("an operation gone", [("int device_reset(void);\n", ""), ("int device_reset(void) { return 0; }", "")],
     "libdevice.so.1", False),
    ("a wider parameter", [("unsigned address", "unsigned long address")], "libdevice.so.1", False),
    ("a parameter more", [("int device_reset(void)", "int device_reset(int hard)"), ("return 0; }\nstatic", "return hard; }\nstatic")],
     "libdevice.so.1", False),
    ("another result", [("int device_reset(void)", "void device_reset(void)"), ("(void) { return 0; }", "(void) { }")],
     "libdevice.so.1", False),
    ("a member in front", [("{ int value; int unit; }", "{ int flags; int value; int unit; }")], "libdevice.so.1", False),
    ("a new soname without a record", [], "libdevice.so.2", False),
]


def build(compiler, place, edits, soname):
    place.mkdir()
    texts = {"device.h": HEADER, "device.c": SOURCE}
    for old, new in edits:
        if not any(old in text for text in texts.values()):
            sys.exit(f"nothing to edit: {old}")
        texts = {name: text.replace(old, new) for name, text in texts.items()}
    for name, text in texts.items():
        (place / name).write_text(text)
    library = place / "libdevice.so"
    subprocess.run([compiler, "-g", "-O1", "-shared", "-fPIC", f"-Wl,-soname,{soname}", place / "device.c", "-o", library],
                   check=True)
    return library


def main(compiler):
    failed = 0
    with tempfile.TemporaryDirectory() as root:
        root = pathlib.Path(root)
        command = [sys.executable, "-B", CHECK]
        first = build(compiler, root / "recorded", [], "libdevice.so.1")
        subprocess.run([*command, "record", first, root, root / "recorded"], check=True, stdout=subprocess.DEVNULL)
        for number, (what, edits, soname, passes) in enumerate(CASES):
            place = root / str(number)
            library = build(compiler, place, edits, soname)
            result = subprocess.run([*command, "compare", library, root, place], capture_output=True, text=True)
            right = (result.returncode == 0) == passes and not result.stderr
            failed += not right
            print(f"{what}: {'passes' if result.returncode == 0 else 'refused'}{'' if right else ', WRONG ' + result.stderr}")
    print(f"{len(CASES) - failed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
