#!/usr/bin/env python3
"""Checks the built reference: it has every exported operation with its two classes, every public header belongs to one
family page, which shows its example, and every link between the documents has a target.

usage: reference.py SOURCE_DIR DOCS_DIR
"""
import pathlib
import re
import sys
import xml.etree.ElementTree as xml

HEADINGS = ("Thread safety", "Blocking")


def exported(source):
    for name in ("exports.txt", "extensions.txt"):
        for line in (source / "abi" / name).read_text().split("\n"):
            if line and not line.startswith("#"):
                yield line.strip()


def functions(docs):
    """Yields name and page of each function in the reference."""
    for compound in xml.parse(docs / "libddal.tag").getroot().iter("compound"):
        if compound.get("kind") == "file":
            for member in compound.iter("member"):
                if member.get("kind") == "function":
                    yield member.findtext("name"), member.findtext("anchorfile"), member.findtext("anchor")


def reference_faults(source, docs):
    wanted = set(exported(source))
    pages = {}
    for name, page, anchor in functions(docs):
        wanted.discard(name)
        text = pages.setdefault(page, (docs / "html" / page).read_text())
        entry = text.partition(f'id="{anchor}"')[2].split('class="memtitle"', 2)[1]
        yield from (f"{page}: {name}: no entry '{heading}'" for heading in HEADINGS if heading not in entry)
    yield from (f"{name}: not in the reference" for name in sorted(wanted))


def family_faults(source):
    owners = {header.name: [] for header in (source / "include" / "ddal").glob("*.h") if header.name != "export.h"}
    for page in sorted((source / "docs" / "families").glob("*.md")):
        if page.name == "README.md":
            continue
        text = page.read_text()
        for header in re.search(r"^Headers: (.*)$", text, re.MULTILINE)[1].split(", "):
            owners.setdefault(header, ["no such header"]).append(page.name)
        if f"@include families/{page.stem}.c" not in text:
            yield f"{page}: does not show examples/families/{page.stem}.c"
    yield from (f"{header}: on the pages {pages}" for header, pages in owners.items() if len(pages) != 1)


def documents(source):
    yield from source.glob("*.md")
    yield source / "tests" / "GUIDE.md"
    yield from (source / "docs").rglob("*.md")


def link_faults(source):
    for document in documents(source):
        for target in re.findall(r"\]\(([^)\s]+)\)", document.read_text()):
            path = target.partition("#")[0]
            if path and not re.match(r"[a-z]+:", path) and not (document.parent / path).exists():
                yield f"{document}: leads nowhere: {target}"


def main(source_dir, docs_dir):
    source, docs = pathlib.Path(source_dir), pathlib.Path(docs_dir)
    faults = [*reference_faults(source, docs), *family_faults(source), *link_faults(source)]
    print("\n".join(faults) or "the reference has every exported operation; every link leads somewhere")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
