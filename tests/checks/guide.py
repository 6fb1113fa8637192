#!/usr/bin/env python3
"""Builds the programs of a document and runs its commands unchanged, against an installation.

usage: guide.py INSTALLED DOCUMENT...

A block of C, CMake or Python below a line "`name`:" is that file. The lines of a block of sh are run in one folder for the whole
document; the lines of a block of text below it must be in the output, in their order.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"(?:^`([\w.]+)`:\n\n)?^```(c|cmake|python|sh|text)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def environment(installed):
    def folder_of(pattern):
        return str(next(pathlib.Path(installed).glob(pattern)).parent)

    return os.environ | {
        "PATH": f"{folder_of('bin/vboard')}:/usr/bin:{os.environ['PATH']}",
        "PKG_CONFIG_PATH": folder_of("**/ddal.pc"),
        "LD_LIBRARY_PATH": folder_of("**/libddal.so"),
        "CMAKE_PREFIX_PATH": str(installed),
        "PYTHONPATH": folder_of("**/ddal-*.dist-info"),
    }


def in_order(output, lines):
    """Returns the first missing line, or None."""
    at = 0
    for line in lines:
        found = output.find(line, at)
        if found < 0:
            return line
        at = found + len(line)
    return None


def run(document, environment):
    """Runs the commands of a document and returns their number. Raises an exception on a fault."""
    output, commands = "", 0
    with tempfile.TemporaryDirectory() as folder:
        for name, kind, text in BLOCK.findall(pathlib.Path(document).read_text()):
            if name:
                pathlib.Path(folder, name).write_text(text)
            elif kind == "sh":
                ran = subprocess.run(["sh", "-ec", text], cwd=folder, env=environment, timeout=120, stdin=subprocess.DEVNULL,
                                     stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
                output = ran.stdout
                commands += len(text.splitlines())
                if ran.returncode != 0:
                    raise AssertionError(f"{text}exit status {ran.returncode}: {output}")
            elif kind == "text":
                missing = in_order(output, text.splitlines())
                if missing is not None:
                    raise AssertionError(f"not printed: {missing}\n{output}")
    return commands


def main(installed, *documents):
    for document in documents:
        try:
            commands = run(document, environment(installed))
        except AssertionError as fault:
            print(f"{document}: {fault}")
            return 1
        if commands == 0:
            print(f"{document}: no commands")
            return 1
        print(f"{document}: {commands} commands")
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
