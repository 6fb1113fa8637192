#!/usr/bin/env python3
"""Checks that the guide for a real board names every path in the library's sources.

usage: bring_up.py SOURCE_DIR
"""
import pathlib
import re
import sys

# Paths of the process itself, and pieces that follow an account's folder.
OTHERS = re.compile(r"/dev/null|/dev/stdin|/proc/self/.*|/passwd|/ssh/authorized_keys|/proc/self")
RELATIVE = ("src/identity/devicetree.cpp", "src/identity/mac_address.cpp", "src/identity/properties.h")


def literals(source):
    for path in sorted((source / "src").rglob("*")):
        if path.suffix not in (".cpp", ".h"):
            continue
        for literal in re.findall(r'"(/[a-z][^" ]*)"', path.read_text()):
            relative = str(path.relative_to(source)) in RELATIVE and not literal.startswith(("/proc", "/sys"))
            if not relative and not OTHERS.fullmatch(literal):
                yield path, literal.replace("%u", "N").replace("%s", "NAME")


def main(source_dir):
    source = pathlib.Path(source_dir)
    named = set(re.findall(r"`(/[^` ]*)`", (source / "docs" / "guides" / "board-bring-up.md").read_text()))
    found = list(literals(source))
    faults = [f"{path}: {literal} is not in the guide" for path, literal in found if literal not in named]
    print("\n".join(faults) or f"{len(found)} paths")
    return 1 if faults or not found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
