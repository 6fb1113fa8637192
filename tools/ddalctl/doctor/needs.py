#!/usr/bin/env python3
"""Reads needs.txt: what the library needs from a board.

usage: needs.py NEEDS_FILE SOURCE    writes the rows of "ddalctl doctor" as C++ source
"""
import dataclasses
import pathlib
import re
import sys

LINE = re.compile(r"(?P<kind>\w+) (?P<access>r|w|rw|x|-)(?P<options>(?: [a-z]+=[\w-]+)*) (?P<paths>[^:].*?) : (?P<effect>[^|]+?)(?: \| (?P<next>.+))?")


@dataclasses.dataclass
class Need:
    family: str
    kind: str
    access: str
    options: dict
    path: str
    effect: str
    next: str


def expand(text):
    """Returns the paths that a text with {a,b} stands for."""
    braces = re.fullmatch(r"(.*?)\{([^{}]*)\}(.*)", text)
    if not braces:
        return [text]
    before, words, after = braces.groups()
    return [path for word in words.split(",") for path in expand(before + word + after)]


def read(path):
    """Returns the needs of a file, one for each path."""
    needs = []
    family = None
    for number, line in enumerate(pathlib.Path(path).read_text().splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        if heading := re.fullmatch(r"family (\w+)", line):
            family = heading[1]
            continue
        row = LINE.fullmatch(line)
        if not row or not family:
            sys.exit(f"{path}:{number}: neither a family nor a need")
        options = dict(option.split("=") for option in row["options"].split())
        if wrong := options.keys() - {"holds", "when", "level"}:
            sys.exit(f"{path}:{number}: no such option: {', '.join(wrong)}")
        for text in row["paths"].split():
            needs += [Need(family, row["kind"], row["access"], options, each, row["effect"], row["next"] or "")
                      for each in expand(text)]
    return needs


def row_of(need):
    def name(option, otherwise):
        return need.options.get(option, otherwise).replace("-", "_")

    access = " | ".join(f"{letter.upper()}_OK" for letter in need.access if letter != "-") or "F_OK"
    texts = ", ".join(f'"{text}"' for text in (need.path, need.effect, need.next))
    return (f'    {{"{need.family}", NeedKind::{need.kind}, {access}, Content::{name("holds", "any")}, '
            f'&Circumstances::{name("when", "always")}, Level::{name("level", "error")}, {texts}}},\n')


def main(source, target):
    rows = "".join(map(row_of, read(source)))
    pathlib.Path(target).write_text('#include "ddalctl/doctor/needs.h"\n\n#include <unistd.h>\n\nnamespace ddalctl::doctor {\n\n'
                                    f"namespace {{\n\nconstexpr Need kNeeds[] = {{\n{rows}}};\n\n}} // namespace\n\n"
                                    "std::span<const Need> needs()\n{\n    return kNeeds;\n}\n\n} // namespace ddalctl::doctor\n")


if __name__ == "__main__":
    main(*sys.argv[1:])
