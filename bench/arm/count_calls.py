#!/usr/bin/env python3
"""Counts the instructions of the library's hot calls on the board's processor and compares them with their limits.

usage: count_calls.py NATIVE_BUILD ARM_BUILD EMULATOR [OPTION...]

Runs ARM_BUILD/bench/arm/hot_calls under the emulator on NATIVE_BUILD/bench/bare_board. The counts include the caller's
instructions for a section's marker and its test. Fails when a call exceeds its limit.
"""
import collections
import pathlib
import shutil
import subprocess
import sys
import tempfile

SYSTEM_CALLS = {180: "pread64", 322: "openat", 6: "close"}  # of 32-bit ARM
CHECK = 1  # the section whose instructions are known


def run(native, arm, emulator):
    """Returns (name and limit by section, counts by section, counts up to a system call by section and call)."""
    emulator[0] = shutil.which(emulator[0])
    with tempfile.NamedTemporaryFile() as out:
        plugin = f"{native}/bench/arm/libcount_instructions.so,out={out.name}"
        done = subprocess.run([f"{native}/bench/bare_board", *emulator, "-plugin", plugin, f"{arm}/bench/arm/hot_calls"],
                              check=True, capture_output=True, text=True)
        lines = [list(map(int, line.split())) for line in pathlib.Path(out.name).read_text().splitlines()]
    sections = {int(number): (int(limit), name) for number, limit, name in (line.split(" ", 2) for line in done.stdout.splitlines())}
    counts = collections.defaultdict(list)
    for line in lines:
        counts[tuple(line[:1] + line[2:])].append(line[1])
    return sections, counts


def main(native, arm, *emulator):
    sections, counts = run(native, arm, [*emulator])
    faults = []
    for number, (limit, name) in sections.items():
        taken = counts.get((number,))
        if not taken:
            sys.exit(f"{name}: was not counted")
        least = min(taken)  # the others met the end of a frame
        print(f"{least:5} instructions  {name}" + (f" (at most {limit})" if limit else ""))
        for (of, call), at in ((key, value) for key, value in counts.items() if len(key) == 2):
            if of == number:
                print(f"{min(at):5} up to {SYSTEM_CALLS.get(call, f'system call {call}')}")
        if (limit and least > limit) or (number == CHECK and least != limit):
            faults.append(f"{name} takes {least} instructions instead of {limit}")
    print("\n".join(faults) or "no call takes more than it may")
    return 1 if faults or not sections else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
