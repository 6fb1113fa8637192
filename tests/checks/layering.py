#!/usr/bin/env python3
"""Checks that folders use only the folders that ARCHITECTURE.md allows.

usage: layering.py SOURCE_DIR BUILD_DIR

Two views: the #include lines of every tracked source file, and the symbols that the objects of one folder under src/
need from another (a call through a public header also counts).
"""
import collections
import pathlib
import re
import subprocess
import sys

from architecture import Architecture

INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]+)[">]', re.MULTILINE)
INCLUDE_ROOTS = ("include", "src", "vboard", "tools", "tests", ".")


def tracked_sources(root):
    out = subprocess.run(["git", "ls-files", "*.c", "*.cpp", "*.h"], cwd=root, check=True, capture_output=True, text=True)
    return out.stdout.split()


def resolve(root, build, folders, source, name):
    """Returns the path of an included file below the root, or None for a file of the system."""
    for directory in (pathlib.Path(source).parent, *map(pathlib.Path, INCLUDE_ROOTS)):
        if (root / directory / name).is_file():
            return (root / directory / name).resolve().relative_to(root).as_posix()
    # Generated headers lie next to the objects of their folder.
    for folder in folders:
        if (build / folder / name).is_file():
            return f"{folder}/{name}"
    return None


def include_faults(root, build, architecture):
    for source in tracked_sources(root):
        folder = architecture.folder_of(source)
        if folder is None:
            yield f"{source}: its folder is not in ARCHITECTURE.md"
            continue
        for bracket, name in INCLUDE.findall((root / source).read_text()):
            target = "include/ddal" if name.startswith("ddal/") else resolve(root, build, architecture.may_use, source, name)
            if target is None:
                if bracket == '"':
                    yield f'{source}: "{name}" is not a file of the project'
                continue
            used = architecture.folder_of(target)
            if used != folder and used not in architecture.may_use[folder]:
                yield f"{source}: includes {name}, but {folder} may not use {used or target}"


def symbols_of(objects):
    """Returns the (defined, undefined) global names of object files."""
    out = subprocess.run(["nm", "-g", *objects], check=True, capture_output=True, text=True).stdout
    names = collections.defaultdict(set)
    for line in out.splitlines():
        fields = line.split()
        if len(fields) >= 2 and not line.endswith(":"):
            names[fields[-2] in "Uw"].add(fields[-1])
    return names[False], names[True]


def symbol_faults(build, architecture):
    symbols = {}
    for folder in architecture.may_use:
        objects = sorted(map(str, (build / folder).rglob("*.o"))) if folder.startswith("src/") else []
        if objects:
            symbols[folder] = symbols_of(objects)
    if not symbols:
        yield f"no objects found under {build}/src"
    for folder, (_, undefined) in symbols.items():
        for used, (defined, _) in symbols.items():
            if used != folder and used not in architecture.may_use[folder]:
                # Inline functions and type data are present in every folder that uses them.
                for name in sorted((undefined & defined) - symbols[folder][0]):
                    yield f"{folder} calls {name} of {used}, which it may not use"


def family_faults(root, architecture):
    """The table of families against the headers, pages, models and commands that exist."""
    rows = architecture.families
    pages = {page.stem: page.read_text() for page in (root / "docs/families").glob("*.md") if page.name != "README.md"}
    models = re.findall(r'^    (?:\{|row<.*>\()"([\w-]+)",', (root / "vboard/daemon/models.cpp").read_text(), re.MULTILINE)
    commands = re.findall(r"^Family (\w+)_family\(\);", (root / "tools/ddalctl/families.h").read_text(), re.MULTILINE)
    headers = {header.name for header in (root / "include/ddal").glob("*.h")} - {"export.h"}
    there = (headers, set(architecture.may_use), set(models), {name.replace("_", "-") for name in commands})
    for kind, column, existing in zip(("header", "folder", "model", "command"), range(4), there):
        named = {name for row in rows.values() for name in row[column]}
        yield from (f"ARCHITECTURE.md: a family names the {kind} {name}, which does not exist" for name in named - existing)
        if kind != "folder":
            yield from (f"ARCHITECTURE.md: no family names the {kind} {name}" for name in existing - named)
    yield from (f"ARCHITECTURE.md: family without a page, or page without a family: {name}" for name in rows.keys() ^ pages)
    for name in rows.keys() & pages.keys():
        if f"Headers: {', '.join(rows[name][0])}\n" not in pages[name]:
            yield f"ARCHITECTURE.md: the headers of {name} differ from those on its page"


def main(root, build):
    architecture = Architecture(root)
    if not architecture.may_use:
        sys.exit("no table of folders found in ARCHITECTURE.md")
    faults = [*include_faults(root, build, architecture), *symbol_faults(build, architecture),
              *family_faults(root, architecture)]
    print("\n".join(faults) or f"{len(architecture.may_use)} folders, {len(architecture.families)} families")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()))
