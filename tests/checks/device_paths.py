#!/usr/bin/env python3
"""Checks that only one folder of the library writes out each path of a device, attribute or property.

usage: device_paths.py SOURCE_DIR

Other code that needs the path takes the owner's constant. The virtual board and the tests are excepted, because they
represent the other side.
"""
import collections
import pathlib
import re
import subprocess
import sys

from architecture import Architecture

TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|"((?:\\.|[^"\\\n])*)"|\'(?:\\.|[^\'\\\n])+\'', re.DOTALL)
CHECKED = ("src", "tools", "examples", "include")


def path_literals(text):
    for token in TOKEN.finditer(text):
        literal = token.group(1)
        if literal and re.match(r"/(dev|sys|proc)(/|$)", literal):
            yield literal


def main(root):
    architecture = Architecture(root)
    tracked = subprocess.run(["git", "ls-files", *CHECKED], cwd=root, check=True, capture_output=True, text=True)
    places = collections.defaultdict(lambda: collections.defaultdict(set))  # literal -> folder -> files
    for source in tracked.stdout.split():
        if source.endswith((".c", ".cpp", ".h")):
            for literal in path_literals((root / source).read_text()):
                places[literal][architecture.folder_of(source)].add(source)

    faults = []
    for literal, folders in sorted(places.items()):
        files = ", ".join(sorted(file for group in folders.values() for file in group))
        if len(folders) > 1:
            faults.append(f'"{literal}" is written in several folders: {files}')
        elif not all(folder and folder.startswith("src/") for folder in folders):
            faults.append(f'"{literal}" is written outside the library: {files}')
    print("\n".join(faults) or f"{len(places)} paths")
    return 1 if faults or not places else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve()))
