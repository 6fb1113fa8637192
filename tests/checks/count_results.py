#!/usr/bin/env python3
"""Counts the cases of a test run and prints "N passed, N failed" as the last line.

usage: count_results.py BUILD_DIR

BUILD_DIR/test-results.ctest is ctest's report of its entries; BUILD_DIR/test-results/<entry>.xml is what the test program
of an entry wrote about its cases. An entry named check.* or campaign.* is one case, one named setup.* only if it fails. Any
other entry counts by its cases. An entry that fails without a failed case (crash, time-out), or without a report, adds one
failed case. Skipped and disabled cases count as failed, because they show nothing.
"""
import pathlib
import sys
import xml.etree.ElementTree as xml


def cases_of(report):
    """Yields (name, passed) for each case of a test program's report."""
    for case in xml.parse(report).iter("testcase"):
        ran = case.get("status") == "run" and case.get("result") == "completed"
        yield f"{case.get('classname')}.{case.get('name')}", ran and case.find("failure") is None


def collect(build):
    """Returns all cases of a run as a list of (entry, case, passed), and a list of the failures."""
    cases = []
    failed = []
    for entry in xml.parse(build / "test-results.ctest").iter("testcase"):
        name = entry.get("name")
        entry_passed = entry.get("status") == "run"
        if name.startswith(("check.", "campaign.", "setup.")):
            if not entry_passed:
                failed.append(name)
            if not name.startswith("setup."):
                cases.append((name, name, entry_passed))
            continue
        report = build / "test-results" / f"{name}.xml"
        try:
            results = list(cases_of(report))
        except (OSError, xml.ParseError) as error:
            failed.append(f"{name}: no results ({error})")
            continue
        cases += [(name, case, case_passed) for case, case_passed in results]
        bad = [case for case, case_passed in results if not case_passed]
        failed += [f"{name}: {case}" for case in bad]
        if not results:
            failed.append(f"{name}: no case ran")
        elif not entry_passed and not bad:
            failed.append(f"{name}: ended badly outside its cases")
    return cases, failed


def main(build):
    cases, failed = collect(build)
    passed = sum(case_passed for _, _, case_passed in cases)
    for line in failed:
        print(f"failed: {line}")
    print(f"{passed} passed, {len(failed)} failed")
    return 0 if passed and not failed else 1


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))
