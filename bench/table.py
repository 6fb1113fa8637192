#!/usr/bin/env python3
"""Prints the rows of the benchmarks' outputs as one table. Marks each ratio that exceeds its limit.

usage: table.py OUTPUT...
"""
import os
import pathlib
import re
import sys

ROW = re.compile(r"= (.+) \| (.+) \| ([\d.]+) \| (?:at most ([\d.]+))?")
HEADING = ("what", "beside what", "ratio", "limit")


def rows_of(outputs):
    for output in outputs:
        rows = list(filter(None, map(ROW.fullmatch, pathlib.Path(output).read_text().splitlines())))
        if not rows:
            sys.exit(f"{output}: the benchmark printed no row")
        yield from (row.groups() for row in rows)


def main(*outputs):
    rows = list(rows_of(outputs))
    coloured = sys.stdout.isatty() and not os.environ.get("NO_COLOR")
    widths = [max(map(len, column)) for column in zip(HEADING[:2], *(row[:2] for row in rows))]

    def line(what, beside, ratio, limit):
        return f"{what:{widths[0]}}  {beside:{widths[1]}}  {ratio:>6}  {limit:>5}"

    print(line(*HEADING))
    over = 0
    for what, beside, ratio, limit in rows:
        exceeds = limit is not None and float(ratio) > float(limit)
        over += exceeds
        text = line(what, beside, ratio, limit or "-") + ("  OVER" if exceeds else "")
        print(f"\033[31m{text}\033[0m" if exceeds and coloured else text)
    print(f"{len(rows)} ratios, {over} over the limit")


if __name__ == "__main__":
    main(*sys.argv[1:])
