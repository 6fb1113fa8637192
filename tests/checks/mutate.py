#!/usr/bin/env python3
"""Changes one thing at a time in the library and prints each change that no test notices.

usage: mutate.py [--again] [--every N] [--quick] [--seconds S] [BASE | FILE[:LINE]...]

Changes the lines under src/ that differ from the commit BASE (default: main), or the named line or all lines of the named
files and folders.
A change negates a condition, swaps an operator, moves a constant by one, drops a statement, or drops a flag. The change is
made and built in a copy of the tree under build/mutate, where the tests of the file's folder run until one fails: those named
like the file first, cases of more than 1 s last. A test that takes much longer than without the change has failed too.

--every N    tries only every Nth change
--quick      leaves out the cases of more than 1 s
--seconds S  stops after S seconds; the same command then continues there
--again      repeats every try. Without it, only changes that survived are tried again, once tests differ.
"""
import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import time
import xml.etree.ElementTree as xml

JOBS = os.cpu_count()
SWAPS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&", "+": "-", "-": "+",
         "+=": "-=", "-=": "+=", "true": "false", "false": "true"}
# Leaves out numbers beside a comparison, plus or minus, whose operator is swapped already.
NUMBER = re.compile(r"(?<![\w.'])(?<![<>+-] )(?<![=!<>]= )(0[xX][\dA-Fa-f']+|\d[\d']*)(?=[uUlLzZ]*\b)(?![\w']*\.)")
KEYWORDS = {"if", "while", "for", "switch", "return", "sizeof", "static_assert", "catch"}
# Blanks comments, literals, preprocessor lines and static assertions, so that nothing in them is changed.
LEFT_ALONE = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])\'|^[ \t]*#(?:\\\n|[^\n])*'
                        r"|^[ \t]*static_assert\(.*?\);|^template <[^\n]*", re.S | re.M)


def closing(code, position):
    """Returns the position of the parenthesis that closes the one at `position`."""
    depth = 0
    for i in range(position, len(code)):
        depth += (code[i] == "(") - (code[i] == ")")
        if depth == 0:
            return i
    return len(code)


def starts_statement(code, position):
    before = code[:position].rstrip()
    return before.endswith((";", "{", "}", ")", ":", " else", " do"))


def changes(text):
    """Yields (start, end, replacement) for each change of the text."""
    code = LEFT_ALONE.sub(lambda m: re.sub(r"[^\n]", " ", m[0]), text)
    for match in re.finditer(r"\b(?:if|while) \(", code):
        end = closing(code, match.end() - 1)
        start = match.end() + code[match.end():end].rfind(";") + 1
        condition = code[start:end]
        declares = re.match(r"\s*(?:const )?[\w:]+ [&*]?\w+ = ", condition)
        is_comparison = re.search(r" [!=]= ", condition) and not re.search(r"&&|\|\|", condition)
        if not declares and not is_comparison: # its operator is swapped below
            yield start, end, f"!({text[start:end].strip()})"
    for match in re.finditer(r"(?:(?<=[^=!<>]= )|(?<=, )|(?<=\()|(?<=return ))[\w.>-]+(?:\([^()]*\))?(?= \? )", code):
        if not match[0].isdigit():
            yield match.start(), match.end(), "!" + match[0]
    for match in re.finditer(r"(?<= )(?:[<>=!+-]=|&&|\|\||[<>+-])(?=[ \n])|\b(?:true|false)\b", code):
        yield match.start(), match.end(), SWAPS[match[0]]
    for match in NUMBER.finditer(code):
        line = code[code.rfind("\n", 0, match.start()) + 1:match.start()]
        if re.match(r"(?!.*=)\w.*\(", line): # the size in an array parameter
            continue
        digits = match[1].replace("'", "")
        more = int(digits, 0 if digits[:2].lower() == "0x" else 8 if digits[0] == "0" and len(digits) > 1 else 10) + 1
        octal = digits[0] == "0" and len(digits) > 1
        yield match.start(), match.end(), hex(more) if digits[:2].lower() == "0x" else f"0{more:o}" if octal else str(more)
    for match in re.finditer(r"\b[A-Za-z_][\w:]* \|[ \n]\s*|\s\| [A-Za-z_][\w:]*(?=[,;)}])", code):
        if "O_RDONLY" not in match[0]: # O_RDONLY is 0
            yield match.start(), match.end(), ""
    for match in re.finditer(r"^[ \t]+([A-Za-z_][\w:]*(?:(?:\.|->)\w+)*)\(", code, re.M):
        end = closing(code, match.end() - 1) + 1
        if match[1] not in KEYWORDS and code[end:end + 1] == ";" and starts_statement(code, match.start()):
            yield match.start(1), end + 1, "{}"
    for match in re.finditer(r"^[ \t]+(\*?[A-Za-z_][\w.>\[\]-]* [|&]?= [^;{}]*;)", code, re.M):
        if starts_statement(code, match.start()):
            yield match.start(1), match.end(1), "{}"


class Tree:
    """The copy that the changes are made in, its tests, and the results of the changes so far."""

    def __init__(self, top):
        self.top, self.copy = top, top / "build/mutate"
        self.build = self.copy / "build/debug"
        self.sync()
        self.outcomes_file = self.copy / "build/outcomes.json"
        self.outcomes = json.loads(self.outcomes_file.read_text()) if self.outcomes_file.exists() else {}
        options = ["-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DDDAL_BUILD_BENCH=OFF"]
        self.must("cmake", "--preset", "debug", *options)
        self.must("ninja", "-C", "build/debug", "ddal", "vboard", "vboard_boards")

    def sync(self):
        listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=self.top, check=True,
                                capture_output=True, text=True).stdout.split("\0")
        wanted = {name for name in listed if name and (self.top / name).is_file()}
        for name in wanted:
            source, target = self.top / name, self.copy / name
            if not target.exists() or target.read_bytes() != source.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(source.read_bytes())
                target.chmod(source.stat().st_mode)
        for path in self.copy.rglob("*"):
            name = path.relative_to(self.copy)
            if name.parts[0] != "build" and path.is_file() and str(name) not in wanted:
                path.unlink()
        packages = self.copy / "build/packages" # some tests take programs from there
        packages.parent.mkdir(parents=True, exist_ok=True)
        if not packages.is_symlink():
            packages.symlink_to(self.top / "build/packages")

    def must(self, *command):
        done = subprocess.run(command, cwd=self.copy, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"{done.stdout[-3000:]}\nmutate: {' '.join(command)} failed without any change")

    def entries_of(self, folder, quick):
        """Returns the folder's entries of ctest, quick and slow cases apart, each with its target and its time in seconds."""
        def listed():
            shown = subprocess.run(["ctest", "--test-dir", self.build, "--show-only=json-v1", "-R", rf"^{folder}\."],
                                   check=True, capture_output=True, text=True).stdout
            return json.loads(shown)["tests"]
        targets = ["test_" + entry["name"].replace(".", "_") for entry in listed()]
        self.must("ninja", "-C", "build/debug", *targets)
        entries = []
        for entry, target in zip(listed(), targets):
            properties = {p["name"]: p["value"] for p in entry["properties"]}
            settings = dict(pair.split("=", 1) for pair in properties.get("ENVIRONMENT", []))
            whole = {"name": entry["name"], "target": target, "command": entry["command"], "limit": properties["TIMEOUT"],
                     "environment": {**os.environ, **settings, "GTEST_FAIL_FAST": "1"}}
            shard = dict(pair.split("=set:") for pair in properties.get("ENVIRONMENT_MODIFICATION", []))
            report = self.build / f"test-results/{entry['name']}.xml"
            program = next(word for word in entry["command"] if word.endswith(target))
            if not report.exists() or report.stat().st_mtime < pathlib.Path(program).stat().st_mtime:
                report.unlink(missing_ok=True)
                if not self.passes({**whole, "environment": {**whole["environment"], **shard}}):
                    sys.exit(f"mutate: {entry['name']} fails without any change")
            times = {f"{case.get('classname')}.{case.get('name')}": float(case.get("time"))
                     for case in xml.parse(report).iter("testcase") if case.get("result") == "completed"}
            for is_slow in (False,) if quick else (False, True):
                cases = [case for case, seconds in times.items() if (seconds > 1) == is_slow]
                seconds = sum(times[case] for case in cases)
                # Keeps the program from writing its report, which a change would spoil.
                command = [word for word in entry["command"] if not word.startswith("--gtest_output")]
                if cases:
                    entries.append({**whole, "command": [*command, "--gtest_filter=" + ":".join(cases)], "slow": is_slow,
                                    "time": seconds, "limit": min(whole["limit"], 10 + 5 * seconds)})
        return entries

    def passes(self, entry):
        with subprocess.Popen(entry["command"], cwd=self.build, env=entry["environment"], stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True) as running:
            try:
                return running.wait(entry["limit"]) == 0
            except subprocess.TimeoutExpired:
                os.killpg(running.pid, signal.SIGKILL)
                return False

    def try_change(self, path, changed, stages):
        """Returns the test that notices the changed text of a file, or "compiler", or "" if nothing does."""
        original = (self.copy / path).read_text()
        (self.copy / path).write_text(changed)
        try:
            for stage in stages:
                targets = ["ddal", *(entry["target"] for entry in stage)]
                if subprocess.run(["ninja", "-C", "build/debug", *targets], cwd=self.copy, capture_output=True,
                                  check=False).returncode != 0:
                    return "compiler"
                with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
                    for entry, passed in zip(stage, pool.map(self.passes, stage)):
                        if not passed:
                            return entry["name"]
            return ""
        finally:
            (self.copy / path).write_text(original)


def stages_of(entries, path):
    """Returns the entries in the order of their run, one for each processor at a time."""
    def order(entry):
        stem = path.stem.replace("_", "")
        name = entry["name"].split(".", 1)[1].replace("_", "")
        return entry["slow"], not (name.startswith(stem) or stem.startswith(name)), entry["time"]
    ordered = sorted(entries, key=order)
    return [ordered[i:i + JOBS] for i in range(0, len(ordered), JOBS)]


def lines_to_change(top, named):
    """Returns the files, each with the set of its lines to change."""
    places = [(top / name.partition(":")[0], name.partition(":")[2]) for name in named]
    if places and all(path.exists() for path, _ in places):
        files = {}
        for path, line in places:
            for file in [path] if path.is_file() else sorted(path.rglob("*")):
                lines = {int(line)} if line else set(range(1, file.read_text().count("\n") + 1))
                files.setdefault(file.relative_to(top), set()).update(lines)
        return {path: lines for path, lines in files.items() if path.suffix in (".cpp", ".h")}
    diff = subprocess.run(["git", "diff", "-U0", "--merge-base", *(named or ["main"]), "--", "src"], cwd=top, check=True,
                          capture_output=True, text=True).stdout
    files = {}
    for line in diff.splitlines():
        if line.startswith("+++ b/"):
            lines = files.setdefault(pathlib.Path(line[6:]), set())
        elif match := re.match(r"@@ -\S+ \+(\d+)(?:,(\d+))? @@", line):
            lines.update(range(int(match[1]), int(match[1]) + int(match[2] or 1)))
    return {path: lines for path, lines in files.items() if path.suffix in (".cpp", ".h")}


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1])
    parser.add_argument("--again", action="store_true")
    parser.add_argument("--every", type=int, default=1)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--seconds", type=float, default=float("inf"))
    parser.add_argument("named", nargs="*")
    arguments = parser.parse_args()
    top = pathlib.Path(__file__).resolve().parents[2]
    end = time.monotonic() + arguments.seconds
    files = lines_to_change(top, arguments.named)
    tree = Tree(top)
    survivors, noticed, refused, left = [], 0, 0, 0
    entries = {}
    for path, lines in files.items():
        text = (top / path).read_text()
        folder = path.parts[1]
        tests = b"".join(file.read_bytes() for file in sorted((tree.copy / "tests" / folder).rglob("*.*")))
        tests = hashlib.sha256(tests).hexdigest() + ("quick" if arguments.quick else "")
        found = sorted(set(changes(text)))
        found = [change for change in found if text.count("\n", 0, change[0]) + 1 in lines][::arguments.every]
        for start, stop, after in found:
            line_start = text.rfind("\n", 0, start) + 1
            line_end = text.find("\n", stop)
            before = " ".join(text[line_start:line_end].split())
            changed_line = " ".join((text[line_start:start] + after + text[stop:line_end]).split())
            name = f"{path}:{text.count(chr(10), 0, start) + 1}: {before} -> {changed_line}"
            key = f"{name}, {start - line_start}"
            known = tree.outcomes.get(key)
            if arguments.again or not known or (not known[0] and known[1] != tests):
                if time.monotonic() > end:
                    left += 1
                    continue
                if folder not in entries:
                    entries[folder] = tree.entries_of(folder, arguments.quick)
                known = [tree.try_change(path, text[:start] + after + text[stop:], stages_of(entries[folder], path)), tests]
                tree.outcomes[key] = known
                tree.outcomes_file.write_text(json.dumps(tree.outcomes, indent=0))
            refused += known[0] == "compiler"
            noticed += known[0] not in ("", "compiler")
            if not known[0]:
                survivors.append(name)
                print(name, flush=True)
    if left:
        print(f"{left} not tried yet")
    print(f"{noticed + len(survivors)} changed, {noticed} noticed, {len(survivors)} survived; {refused} did not compile")
    return 1 if left else 0


if __name__ == "__main__":
    sys.exit(main())
