#!/usr/bin/env python3
"""Checks that every public header compiles alone and twice, as strict C99 and as C++20, and opens with its group comment.

usage: public_headers.py C_COMPILER CXX_COMPILER INCLUDE_DIR...
"""
import pathlib
import re
import subprocess
import sys

STRICT = ["-pedantic-errors", "-Wall", "-Wextra", "-Wshadow", "-Wundef", "-Werror", "-fsyntax-only"]
STANDARD_HEADERS = {"stddef.h", "stdint.h", "stdio.h", "sys/types.h", "time.h"}


def compiles(command, source):
    # The declaration keeps the unit from being empty, which ISO C forbids.
    run = subprocess.run([*command, *STRICT, "-"], input=source + "extern int unit_of_the_check;\n", capture_output=True, text=True)
    return "" if run.returncode == 0 else f"{' '.join(command[:4])}:\n{run.stderr}"


def main(c_compiler, cxx_compiler, *include_dirs):
    include = [f"-I{directory}" for directory in include_dirs]
    languages = ([c_compiler, "-xc", "-std=c99", *include], [cxx_compiler, "-xc++", "-std=c++20", *include])
    headers = sorted(path for directory in include_dirs for path in pathlib.Path(directory).glob("ddal/*.h"))
    lines = [f"#include <ddal/{path.name}>\n" for path in headers]

    faults = []
    for path, line in zip(headers, lines):
        text = path.read_text()
        if not text.startswith("/*"):
            faults.append(f"{path}: does not open with a group comment")
        for name in re.findall(r"^#include <(.*)>", text, re.MULTILINE):
            if not name.startswith("ddal/") and name not in STANDARD_HEADERS:
                faults.append(f"{path}: includes <{name}>")
        faults += filter(None, (compiles(command, line * 2) for command in languages))
    faults += filter(None, (compiles(command, "".join(lines)) for command in languages))

    print("\n".join(faults) or f"{len(headers)} headers")
    return 1 if faults or not headers else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
