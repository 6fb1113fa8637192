#!/usr/bin/env python3
"""Checks that optimised libraries and programs are compiled and linked with the protections against overflows.

usage: hardening.py FILE...
"""
import re
import subprocess
import sys

# The preload library stands in front of checked libc calls. The client library of the switch makes none that has a length.
EXEMPT = {
    "libvboard.so": {"lacks a stack protector", "lacks length-checked libc calls"},
    "libvboard-switch.so": {"lacks length-checked libc calls"},
}
LEAST_MARKED = 0.9  # of the exported functions; the rest are libc's start files
LEAST_MARKS = 20  # in a program, which exports nothing


def readelf(option, path):
    return subprocess.run(["readelf", "-W", option, path], check=True, capture_output=True, text=True).stdout


def marks_targets(path, symbols):
    """Reports whether the exported functions begin with a target mark; in a program, whether it has such marks."""
    code = subprocess.run(["objdump", "-d", "--no-show-raw-insn", path], check=True, capture_output=True, text=True).stdout
    marks = set(re.findall(r"^ *([0-9a-f]+):\s+endbr64", code, re.M))
    functions = set(re.findall(r": 0*([0-9a-f]+) +\d+ FUNC +GLOBAL +DEFAULT +\d+", symbols))
    return len(functions & marks) >= LEAST_MARKED * len(functions) if functions else len(marks) > LEAST_MARKS


def faults_of(path):
    header = readelf("--file-header", path)
    segments = readelf("--program-headers", path)
    dynamic = readelf("--dynamic", path)
    symbols = readelf("--dyn-syms", path)
    stack = re.search(r"GNU_STACK.*", segments)
    rules = {
        "lacks read-only relocations": "GNU_RELRO" in segments,
        "does not bind at once": re.search(r"BIND_NOW|FLAGS_1.*NOW", dynamic),
        "lies at a fixed address": re.search(r"Type: *DYN", header),
        "has an executable stack": stack and "E" not in stack.group(0).split()[-2],
        "has relocations in its text": "TEXTREL" not in dynamic,
        "carries a search path": not re.search(r"\((RPATH|RUNPATH)\)", dynamic),
        "lacks a stack protector": "__stack_chk_fail" in symbols,
        # Two are always present, in the stand-ins.
        "lacks length-checked libc calls": re.search(r"UND __(?!vfprintf|vsyslog)\w+_chk\b", symbols),
    }
    if "X86-64" in header:
        rules["does not keep a shadow stack"] = re.search(r"x86 feature:.*SHSTK", readelf("--notes", path))
        rules["does not mark the targets of jumps"] = marks_targets(path, symbols)
    name = path.rsplit("/", 1)[-1]
    return [fault for fault, held in rules.items() if not held and fault not in EXEMPT.get(name, ())]


def main(*paths):
    faults = [f"{path} {fault}" for path in paths for fault in faults_of(path)]
    print("\n".join(faults) or f"{len(paths)} files")
    return 1 if faults or not paths else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
