#!/usr/bin/env python3
"""Checks that the library's sources, the guide for a real board and "ddalctl doctor" name the same paths.

usage: bring_up.py SOURCE_DIR

Then it changes each of the three by one path and checks that it notices.
"""
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools/ddalctl/doctor"))
import needs

# Paths of the process itself, and pieces that follow an account's folder.
OTHERS = re.compile(r"/dev/(null|stdin)|/proc/self(/.*)?|/passwd|/ssh/authorized_keys|/OSAL-.*")
# Here a path below the device tree is written behind a name for its beginning.
RELATIVE = ("src/identity/devicetree.cpp", "src/identity/mac_address.cpp", "src/identity/properties.h")


def literals(root):
    """Returns the paths in the library's sources, the ends of paths, and all other texts."""
    paths, ends, texts = set(), set(), set()
    for path in sorted([*(root / "src").rglob("*"), *(root / "include").rglob("*")]):
        if path.suffix not in (".cpp", ".h"):
            continue
        source = path.read_text()
        texts |= set(re.findall(r'"([^"\n]*)"', source))
        for literal in re.findall(r'"(/[a-z][^" ]*)"', source):
            relative = str(path.relative_to(root)) in RELATIVE and not literal.startswith(("/proc", "/sys"))
            if not OTHERS.fullmatch(literal):
                (ends if relative else paths).add(literal)
    return paths, ends, texts


def begins(literal, path):
    """Returns what follows a literal, which may have conversions, in a path; None if it does not begin the path."""
    pattern = re.sub(r"%(s|u|02x)", r"[^/]+?", re.escape(literal))
    found = re.match(pattern + r"(?=$|/|\d|\*)|" + pattern + "(?<=/)", path)
    return path[found.end():] if found else None


def from_sources(path, sources):
    """Whether a literal begins the path, and other texts of the sources make the rest of it; or it is a folder of one."""
    paths, ends, texts = sources
    if any(literal.startswith(path + "/") for literal in paths):
        return True
    words = {word for text in texts | ends for word in text.split("/")}
    for literal in paths:
        rest = begins(literal, path)
        if rest is not None and all(re.fullmatch(r"\d*|\*", word) or word in words for word in rest.split("/")):
            return True
    return False


def faults(sources, doctor, guide):
    paths, ends, _ = sources
    yield from (f"{path}: is in the sources, not in needs.txt" for path in sorted(paths)
                if not any(begins(path, need) is not None for need in doctor))
    yield from (f"{end}: is the end of a path in the sources, not in needs.txt" for end in sorted(ends)
                if not any(end in need for need in doctor))
    yield from (f"{need}: is in needs.txt, not in the sources" for need in sorted(doctor) if not from_sources(need, sources))
    yield from (f"{need}: is in needs.txt, not in the guide" for need in sorted(doctor - guide))
    folders = {need[:at.start()] for need in doctor for at in re.finditer("/", need)}
    yield from (f"{path}: is in the guide, not in needs.txt" for path in sorted(guide - doctor)
                if path.rstrip("/") not in folders)


def main(source_dir):
    root = pathlib.Path(source_dir)
    sources = literals(root)
    doctor = {need.path for need in needs.read(root / "tools/ddalctl/doctor/needs.txt") if need.path.startswith("/")}
    text = (root / "docs/guides/board-bring-up.md").read_text()
    guide = {path for words in re.findall(r"`(/[^` ]*)`", text) for path in needs.expand(words) if not OTHERS.fullmatch(path)}
    found = list(faults(sources, doctor, guide))
    if not found and doctor:
        paths, ends, texts = sources
        new, old = {"/dev/new"}, {"/dev/dfe"}
        changed = {"a path less in the sources": ((paths - old, ends, texts), doctor, guide),
                   "a path more in the sources": ((paths | new, ends, texts), doctor, guide),
                   "an end more in the sources": ((paths, ends | new, texts), doctor, guide),
                   "a path less in needs.txt": (sources, doctor - old, guide),
                   "a path more in needs.txt": (sources, doctor | new, guide | new),
                   "a path less in the guide": (sources, doctor, guide - old),
                   "a path more in the guide": (sources, doctor, guide | new)}
        found = [f"does not notice {what}" for what, inputs in changed.items() if not list(faults(*inputs))]
    print("\n".join(found) or f"{len(sources[0])} paths in the sources, {len(doctor)} needs")
    return 1 if found or not doctor else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
