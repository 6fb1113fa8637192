#!/usr/bin/env python3
"""Checks that a release library is compiled and linked with the protections against overflows.

usage: hardening.py LIBRARY...
"""
import re
import subprocess
import sys


def readelf(option, library):
    return subprocess.run(["readelf", "-W", option, library], check=True, capture_output=True, text=True).stdout


def faults_of(library):
    segments = readelf("--program-headers", library)
    dynamic = readelf("--dynamic", library)
    symbols = readelf("--dyn-syms", library)
    stack = re.search(r"GNU_STACK.*", segments)
    rules = {
        "has no read-only relocations": "GNU_RELRO" in segments,
        "does not bind at once": re.search(r"BIND_NOW|FLAGS_1.*NOW", dynamic),
        "has an executable stack": stack and "E" not in stack.group(0).split()[-2],
        "has relocations in its text": "TEXTREL" not in dynamic,
        "carries a search path": not re.search(r"\((RPATH|RUNPATH)\)", dynamic),
        "has no stack protector": "__stack_chk_fail" in symbols,
        # Two are always present, in the stand-ins.
        "calls no length-checked libc function": re.search(r"UND __(?!vfprintf|vsyslog)\w+_chk\b", symbols),
    }
    return [f"{library} {fault}" for fault, held in rules.items() if not held]


def main(*libraries):
    faults = [fault for library in libraries for fault in faults_of(library)]
    print("\n".join(faults) or f"{len(libraries)} libraries")
    return 1 if faults or not libraries else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
