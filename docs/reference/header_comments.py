#!/usr/bin/env python3
"""Converts the comments of the public headers, which are written for an editor, into the form of the documentation tool.

usage: header_comments.py HEADER               the header in Doxygen's form (its input filter)
       header_comments.py --table HEADER...    a page that lists every operation with its two classes

A comment directly above a declaration belongs to all declarations down to the next empty line; one inside such a run adds
to the declaration below it. Every operation says in its comment

    @threads CLASS[: remark]    the calls that may run in parallel
    @blocks CLASS[: remark]     the longest time that a call may take
"""
import pathlib
import re
import sys

TAGS = ("threads", "blocks")
ALIASES = {"threads": "Thread safety", "blocks": "Blocking"}


class Operation:
    def __init__(self, name, declaration, comments):
        self.name = name
        self.declaration = declaration
        self.comments = comments  # of the run, then of the operation
        self.arguments = set(re.findall(r"\b(\w+)(?:\[\d*\])?\s*[,)]", declaration[declaration.index("(") :]))

    def tag(self, name):
        """Returns the text of the nearest @name, or None."""
        for comment in reversed(self.comments):
            found = re.search(rf"^@{name} +(.*?)(?=^@|^\s*$|\Z)", comment, re.MULTILINE | re.DOTALL)
            if found:
                return " ".join(found[1].split())
        return None


def comment_text(lines):
    """Returns the lines of a block comment without its frame."""
    text = "\n".join(lines).strip()[2:-2]
    return "\n".join(re.sub(r"^\s*\* ?", "", line) for line in text.split("\n")).strip("\n").strip()


class Piece:
    """A part of a header. kind is comment, operation, blank or code; lines holds its unchanged lines."""

    def __init__(self, kind, lines, attached=False):
        self.kind, self.lines, self.attached = kind, lines, attached
        self.operation = None
        self.trailing = ""


def pieces_of(text):
    lines = text.split("\n")
    pieces = []
    at = 0
    run, own = None, None
    while at < len(lines):
        start, line = at, lines[at]
        if re.match(r"\s*/\*", line) and "*/" not in line:
            while "*/" not in lines[at]:
                at += 1
            kind = "comment"
        elif re.match(r"\s*/\*.*\*/\s*$", line):
            kind = "comment"
        elif line.startswith("DDAL_API "):
            while ";" not in lines[at]:
                at += 1
            kind = "operation"
        else:
            kind = "code" if line.strip() else "blank"
        at += 1
        piece = Piece(kind, lines[start:at], kind == "comment" and at < len(lines) and lines[at].strip() not in ("", "#endif"))
        if kind == "comment":
            text_of_it = comment_text(piece.lines)
            previous = pieces[-1].kind if pieces else "blank"
            if previous == "operation":
                own = text_of_it
            else:
                run, own = text_of_it, None
            # A comment above a comment: the first one is a remark on the section.
            if previous == "comment" and pieces[-1].attached:
                pieces[-1].attached = False
        elif kind == "blank":
            run, own = None, None
        elif kind == "operation":
            declaration = " ".join(piece.lines)
            trailing = re.search(r";\s*/\*(.*?)\*/", declaration)
            if trailing:
                piece.trailing = trailing[1].strip()
                declaration = declaration[: trailing.start() + 1]
            name = re.search(r"(\w+)\(", declaration)
            piece.operation = Operation(name[1], declaration, [c for c in (run, own, piece.trailing) if c])
            own = None
        pieces.append(piece)
    return pieces


def operations_of(text):
    return [piece.operation for piece in pieces_of(text) if piece.operation]


# ---- Doxygen's form ----


def escaped(text):
    text = text.replace("\\", "\\\\")
    text = re.sub(r"@(?!threads|blocks|brief|par|param|return|file)", r"\\@", text)
    return re.sub(r"([<>#%&])", r"\\\1", text).replace("*", "&lowast;").replace("::", "\\::")


def paragraphs(text, arguments=()):
    """Converts the form of the headers to commands: "name: text" for an argument, "Returns ..." and "-EINVAL: ..." as headings."""
    out = []
    for paragraph in re.split(r"\n\s*\n", text):
        entries, in_entry = [], False
        for line in paragraph.split("\n"):
            entry = re.match(r"(\w+(?:, \w+)*):\s+(.*)", line)
            names = [name for name in entry[1].split(", ") if name in arguments] if entry else []
            if names:
                entries.append(f"@param {','.join(names)} {escaped(entry[2])}")
                in_entry = True
            elif in_entry or not line.startswith("    "):
                entries.append(("  " if in_entry else "") + escaped(line.strip() if in_entry else line))
            else:
                entries.append(escaped(line))
        body = "\n".join(entries)
        if re.match(r"Returns? ", paragraph):
            body = re.sub(r"^Returns? ", "@return ", body)
        elif re.match(r"(-[E1]\w+|DDAL_ERR_\w+).*?:", paragraph):
            body = "@par Errors\n" + body
        if all(line.startswith("    ") for line in paragraph.split("\n")):
            body = "@verbatim\n" + paragraph + "\n@endverbatim"
        out.append(body)
    return "\n\n".join(out)


def block(text):
    return "/**\n" + "\n".join(" * " + line if line else " *" for line in text.split("\n")) + "\n */"


def documented(line):
    """Converts a member or a constant with a trailing comment."""
    return re.sub(r"/\*+ ?(.*?) ?\*/\s*$", lambda found: f"/**< {escaped(found[1])} */", line)


def doxygen_form(path):
    text = pathlib.Path(path).read_text()
    name = f"ddal/{pathlib.Path(path).name}"
    out = []
    opened = False
    run, pending = "", False  # a comment for all constants below it, and whether the first is still to come
    for piece in pieces_of(text):
        if piece.kind == "comment" and not opened:
            opened = True
            heading, _, rest = comment_text(piece.lines).partition("\n\n")
            out.append(block(f"@file {name}\n@brief {escaped(heading)}\n\n{paragraphs(rest)}"))
        elif piece.kind == "comment":
            said = comment_text(piece.lines)
            following = next((p for p in pieces_of_after(text, piece) if p.kind != "comment"), None)
            if following is not None and following.kind == "operation" and piece.attached:
                continue  # goes in front of each declaration
            if piece.attached:
                run, pending = paragraphs(said), True
                out.append(block(run))
            elif not said.startswith("----") or "\n" in said:
                out.append(block(f"@file {name}\n" + paragraphs(re.sub(r"^---- .*? ----\n+", "", said))))
        elif piece.kind == "operation":
            comments = piece.operation.comments
            body = "\n\n".join(paragraphs(without_tags(c), piece.operation.arguments) for c in comments)
            for tag in TAGS:
                if piece.operation.tag(tag):
                    body += f"\n\n@{tag} {escaped(piece.operation.tag(tag))}"
            out.append(block(body) if body else "")
            out.append(piece.operation.declaration)
        else:
            for line in piece.lines:
                if run and re.match(r"#define \w+", line) and "/*" not in line and not pending:
                    out.append(block(run))
                pending = False
                out.append(documented(line))
            if piece.kind == "blank":
                run = ""
    return "\n".join(out)


def pieces_of_after(text, piece):
    found = False
    for other in pieces_of(text):
        if found:
            yield other
        found = found or other.lines == piece.lines


def without_tags(comment):
    return re.sub(r"^@(?:threads|blocks) +(.*?)(?=^@|^\s*$|\Z)", "", comment, flags=re.MULTILINE | re.DOTALL).strip()


def table(paths):
    yield "# All operations: parallel calls and duration {#operations}\n"
    yield "The classes are explained under @ref conventions.\n"
    for path in paths:
        operations = operations_of(path.read_text())
        if not operations:
            continue
        yield f"\n## {path.name} {{#operations_{path.stem}}}\n"
        yield "| Operation | Thread safety | Blocking |"
        yield "|---|---|---|"
        for operation in operations:
            yield f"| {operation.name}() | {escaped(operation.tag('threads') or '')} | {escaped(operation.tag('blocks') or '')} |"


if __name__ == "__main__":
    if sys.argv[1] == "--table":
        print("\n".join(table([pathlib.Path(path) for path in sys.argv[2:]])))
    else:
        print(doxygen_form(sys.argv[1]))
