#!/usr/bin/env python3
"""Checks that the virtual board knows every name that libddal.so takes from other libraries.

usage: undefined_symbols.py LIBDDAL TABLE [LIBVBOARD]

TABLE has one row per line: a name or a pattern (*, ?), then "wrapped" (the preload library replaces it: checked against
LIBVBOARD) or "harmless" (touches nothing outside the process, or reaches the kernel only through wrapped calls). The row
of a full name comes before the patterns.
"""
import fnmatch
import subprocess
import sys


def dynamic_names(library, *options):
    out = subprocess.run(["nm", "-D", *options, library], check=True, capture_output=True, text=True).stdout
    return {line.split()[-1].split("@")[0] for line in out.splitlines()}


def read_table(path):
    table = {}
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            fields = line.split("#")[0].split()
            if not fields:
                continue
            if len(fields) != 2 or fields[1] not in ("wrapped", "harmless"):
                sys.exit(f"{path}: not 'NAME wrapped' or 'NAME harmless': {line.rstrip()}")
            if fields[0] in table:
                sys.exit(f"{path}: {fields[0]} stands there twice")
            table[fields[0]] = fields[1]
    return table


def class_of(table, name):
    if name in table:
        return table[name]
    patterns = [pattern for pattern in table if fnmatch.fnmatchcase(name, pattern)]
    return table[max(patterns, key=len)] if patterns else None


def main(library, table_path, vboard=None):
    table = read_table(table_path)
    needed = dynamic_names(library, "--undefined-only")
    faults = [f"{name}: not in {table_path}" for name in sorted(needed) if class_of(table, name) is None]
    if vboard:
        offered = dynamic_names(vboard, "--defined-only")
        wrapped = {name for name in needed if class_of(table, name) == "wrapped"}
        faults += [f"{name}: wrapped by the table, but not by {vboard}" for name in sorted(wrapped - offered)]
    print("\n".join(faults) or f"{len(needed)} names")
    return 1 if faults or not needed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
