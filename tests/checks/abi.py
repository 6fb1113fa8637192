#!/usr/bin/env python3
"""Checks that an application linked to the recorded library works with this one.

usage: abi.py compare|record LIBRARY ABI_DIR HEADER_DIR...

The interface of LIBRARY, which must carry debug information, is ABI_DIR/<soname>.abi: the exported functions and the types
of the public headers. The names that share one body have no types of their own; ABI_DIR/unsupported.txt names them and
exported_names.py compares them. Additions pass. Removals and changes fail unless the soname is new too.
"""
import pathlib
import re
import subprocess
import sys
import tempfile


def soname_of(library):
    dynamic = subprocess.run(["readelf", "-d", library], check=True, capture_output=True, text=True).stdout
    return re.search(r"\(SONAME\).*\[(.*)\]", dynamic).group(1)


def description_of(library, headers, shared_body):
    """Returns abidw's output without the parts that depend on the place of the build."""
    command = ["abidw", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", "--exported-interfaces-only",
               "--drop-undefined-syms", "--type-id-style", "hash", *[word for d in headers for word in ("--headers-dir", d)]]
    text = subprocess.run([*command, library], check=True, capture_output=True, text=True).stdout
    text = re.sub(r"  <elf-needed>.*?</elf-needed>\n", "", text, flags=re.S)
    text = re.sub(r" path='(\.\./)*", " path='", text)
    lines = [line for line in text.splitlines(keepends=True) if not is_symbol_of(line, shared_body)]
    return "".join(lines)


def is_symbol_of(line, names):
    symbol = re.match(r" *<elf-symbol name='([^']*)'", line)
    return bool(symbol) and symbol.group(1) in names


def differences(recorded, current):
    """Returns abidiff's report of all differences except additions; empty if an application notices nothing."""
    with tempfile.TemporaryDirectory() as place:
        new = pathlib.Path(place, "new.abi")
        new.write_text(current)
        result = subprocess.run(["abidiff", "--no-added-syms", recorded, new], capture_output=True, text=True)
    return result.stdout + result.stderr if result.returncode else ""


def main(action, library, directory, *headers):
    recorded = pathlib.Path(directory, soname_of(library) + ".abi")
    unsupported = pathlib.Path(directory, "unsupported.txt")
    shared_body = set(unsupported.read_text().split()) if unsupported.exists() else set()
    current = description_of(library, headers, shared_body)
    if action == "record":
        recorded.write_text(current)
        print(f"{recorded}: {current.count('<function-decl')} functions")
        return 0
    if not recorded.exists():
        print(f"{recorded} is not there: record the interface of a new soname when it is released")
        return 1
    found = differences(recorded, current)
    print(found or f"{library}: as recorded, or with additions alone")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
