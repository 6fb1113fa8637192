#!/usr/bin/env python3
"""Every operation's text begins with a verb, names result codes by their constants, and states who may call the operation at
the same time and how long it may take in the words of docs/reference/conventions.md. Every exported name is declared.

usage: operation_docs.py SOURCE_DIR
"""
import pathlib
import re
import sys

CLASSES = {
    "threads": re.compile(r"(safe|safe on different units: [^:]+|one caller at a time: [^:]+)([:;] .+)?"),
    "blocks": re.compile(
        r"(none|(one|two|three|some) access(es)?|exchanges|a program|programs|up to [\d.]+ s|until [^;:]+)([ :;,] ?.+)?"
    ),
}

VERBS = set(
    """Accesses Allocates Asks Brings Changes Chooses Clears Closes Compares Computes Converts Copies Creates Deletes Destroys Does
    Drives Enables Enters Erases Fills Formats Frees Gets Gives Installs Issues Keeps Lets Lists Looks Makes Maps Measures Mounts
    Opens Parses Powers Reads Receives Redirects Refuses Releases Remounts Removes Replaces Reports Resets Restarts Restricts
    Returns Runs Selects Sends Serves Sets Starts Stores Switches Takes Tells Translates Unlocks Unmounts Updates Upgrades Waits
    Writes""".split()
)


def faults_of(operation):
    first = re.match(r"\w*", operation.comments[0] if operation.comments else "")[0]
    if first not in VERBS:
        yield f"{operation.name}: its text begins with '{first}', not with one of the verbs that this check knows"
    numbers = re.findall(r"(?<![\w-])-10[0-2]\d\b", "\n".join(operation.comments))
    if numbers:
        yield f"{operation.name}: names {numbers[0]} instead of its constant (error.h)"
    for tag, classes in CLASSES.items():
        said = operation.tag(tag)
        if said is None:
            yield f"{operation.name}: no @{tag}"
        elif not classes.fullmatch(said):
            yield f"{operation.name}: not a class of @{tag}: {said}"


def exported(source):
    for name in ("exports.txt", "extensions.txt"):
        for line in (source / "abi" / name).read_text().split("\n"):
            if line and not line.startswith("#"):
                yield line.strip()


def main(source_dir):
    source = pathlib.Path(source_dir)
    sys.path.insert(0, str(source / "docs" / "reference"))
    import header_comments

    operations = []
    for header in sorted((source / "include" / "ddal").glob("*.h")):
        text = header.read_text()
        found = header_comments.operations_of(text)
        operations += found
        declarations = len(re.findall(r"^DDAL_API ", text, re.MULTILINE))
        if len(found) != declarations:
            print(f"{header.name}: {declarations} declarations, of which {len(found)} are understood")
            return 1
    faults = [fault for operation in operations for fault in faults_of(operation)]
    declared = {operation.name for operation in operations}
    faults += [f"{name}: exported, but declared in no header" for name in exported(source) if name not in declared]
    print("\n".join(faults) or f"{len(operations)} operations")
    return 1 if faults or not operations else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
