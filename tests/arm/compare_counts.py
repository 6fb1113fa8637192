#!/usr/bin/env python3
"""Compares the cases that ran for the board's processor with those of this machine's build, and counts the results.

usage: compare_counts.py NATIVE_BUILD ARM_BUILD LEFT_OUT

NATIVE_BUILD's programs list their cases; ARM_BUILD holds the reports of a whole run. LEFT_OUT names the cases that may be
missing, one per line: entry, case ("*" for all of an entry), reason. These count as failed: a missing case without a
reason, a line of the list without a missing case, and a run that lacks more than 3 in 100 cases.
The last line is "N passed, N failed".
"""
import concurrent.futures
import fnmatch
import json
import os
import pathlib
import re
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "checks"))
from count_results import collect  # noqa: E402

# Campaigns start programs of this machine's build; the checks use its compiler, its users and its Python.
NOT_CASES = ("setup.", "campaign.", "check.installed", "check.host_as_user", "check.python_")
MOST_MISSING = 0.03


def listed_by(entry):
    """Returns the cases of a ctest entry without running them."""
    name = entry["name"]
    if name.startswith(("check.", "campaign.")):
        return [(name, name)]
    command = [word for word in entry["command"] if not word.startswith("--gtest_")] + ["--gtest_list_tests"]
    properties = {p["name"]: p["value"] for p in entry.get("properties", [])}
    settings = dict(line.split("=", 1) for line in properties.get("ENVIRONMENT", []) if "=" in line)
    changes = dict(line.split("=set:", 1) for line in properties.get("ENVIRONMENT_MODIFICATION", []) if "=set:" in line)
    environment = dict(os.environ, **settings)
    done = subprocess.run(command, capture_output=True, text=True, env=environment, stdin=subprocess.DEVNULL,
                          cwd=properties.get("WORKING_DIRECTORY"))
    if done.returncode != 0:
        sys.exit(f"{name} did not list its cases (exit status {done.returncode}): {done.stderr}")
    cases = []
    for line in done.stdout.splitlines():
        if re.fullmatch(r"\S+\.(  # .*)?", line):
            suite = line.split()[0]
        elif found := re.fullmatch(r"  (\S+)(  # .*)?", line):
            cases.append((name, suite + found.group(1)))
    if not cases:
        sys.exit(f"{name}: lists no case")
    # A program lists all of its cases, including those of its other entries.
    return cases[int(changes.get("GTEST_SHARD_INDEX", 0))::int(changes.get("GTEST_TOTAL_SHARDS", 1))]


def native_cases(build):
    out = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], check=True, capture_output=True, text=True).stdout
    entries = [entry for entry in json.loads(out)["tests"] if not entry["name"].startswith(NOT_CASES)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return [case for cases in pool.map(listed_by, entries) for case in cases]


def left_out(path):
    """Returns (entry, case, reason) of each line."""
    lines = [line.split(None, 2) for line in path.read_text().splitlines() if line and not line.startswith("#")]
    for line in lines:
        if len(line) != 3:
            sys.exit(f"{path}: not 'ENTRY CASE REASON': {' '.join(line)}")
    return lines


def main(native, arm, list_file):
    ran, failed = collect(arm)
    there = native_cases(native)
    here = {(entry, case) for entry, case, _ in ran}
    missing = [case for case in there if case not in here]
    passed = sum(good for _, _, good in ran)

    used = set()
    for entry, case in missing:
        rows = [row for row in left_out(list_file) if row[0] == entry and fnmatch.fnmatchcase(case, row[1])]
        if rows:
            used.add(tuple(rows[0]))
            print(f"left out: {entry}: {case}: {rows[0][2]}")
        else:
            failed.append(f"{entry}: {case} is missing here and not in {list_file}")
    failed += [f"{list_file}: {entry} {case} is not missing" for entry, case, reason in left_out(list_file)
               if (entry, case, reason) not in used]
    for entry, case in sorted(here - set(there)):
        print(f"only here: {entry}: {case}")
    share = len(missing) / len(there)
    if share > MOST_MISSING:
        failed.append(f"more than {MOST_MISSING:.0%} of the cases are missing")
    for line in failed:
        print(f"failed: {line}")
    print(f"cases of this machine's build: {len(there)}, for the board's processor: {len(here)}, left out: {len(missing)} ({share:.1%})")
    print(f"{passed} passed, {len(failed)} failed")
    return 0 if passed and not failed else 1


if __name__ == "__main__":
    sys.exit(main(*map(pathlib.Path, sys.argv[1:])))
