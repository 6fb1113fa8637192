#!/usr/bin/env python3
"""Writes a C++ table of callers: one for every operation that a public header declares.

usage: make_callers.py OUTPUT EXPORTS UNSUPPORTED HEADER...

EXPORTS and UNSUPPORTED are the lists of abi/. An operation without a usable call ends the run with its name: it gets a row
in arguments.py. Prints the number of operations of each kind.
"""
import math
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "docs/reference"))
from header_comments import operations_of  # noqa: E402

import arguments  # noqa: E402

INTEGERS = {"int", "unsigned", "size_t", "unsigned long", "int32_t", "clockid_t", "uint8_t", "uint16_t", "uint32_t",
            "uint64_t", "int64_t"}
UNBOUND = 300  # s of the board for what waits for a program or an event
HEAD = """// Made by make_callers.py of the public headers; not to be edited.
#include "calls.h"

namespace campaign {

namespace {
"""


class Parameter:
    def __init__(self, text):
        array = re.fullmatch(r"(.*?)(\w+)\[(\d+)\]", text)
        plain = re.fullmatch(r"(.*?[\s*])(\w+)", text)
        self.room = int(array[3]) if array else 0
        found = array or plain
        self.type, self.name = found[1].strip(), found[2]
        self.constant = self.type.startswith("const ")
        self.pointee = self.type.removesuffix("*").strip() if self.type.endswith("*") else self.type if array else ""


def parameters_of(declaration):
    inside = declaration[declaration.index("(") + 1 : declaration.rindex(")")]
    inside = re.sub(r"\)\s*DDAL_PRINTF\(.*", "", inside).strip()
    if inside == "void":
        return []
    return [part.strip() for part in inside.split(",")]


def row_of(name):
    """Merges the rows of arguments.py for an operation. Statements follow each other."""
    row = {"prepare": [], "setup": [], "finish": [], "between": [], "always": []}
    for pattern, entry in arguments.OPERATIONS:
        if re.fullmatch(pattern, name):
            for key, value in entry.items():
                if key in row and isinstance(row[key], list):
                    row[key].append(value)
                else:
                    row[key] = value
    return row


def seconds_of(blocks):
    """Returns the limit of a call in seconds, from the class in its header (docs/reference/conventions.md)."""
    bound = re.match(r"up to ([\d.]+) s", blocks)
    if bound:
        return math.ceil(float(bound[1]) * (2 if "each of the two" in blocks else 1))
    at_once = re.match(r"(none|one access|two|three|some accesses|exchanges)", blocks) and "program" not in blocks
    return 0 if at_once and "until" not in blocks else UNBOUND


class Caller:
    def __init__(self, operation):
        self.name = operation.name
        row = row_of(self.name)
        self.refuses, self.apart, self.in_child = (row.get(key, "") for key in ("refuses", "apart", "in_child"))
        self.seconds = seconds_of(operation.tag("blocks"))
        self.threads = " ".join(operation.tag("threads").split())
        self.before, self.after, self.words = [s for s in row["setup"] if s], [], []
        self.prepare = row["prepare"]
        self.finish = [s for s in row["finish"] if s]
        self.always = row["always"]
        self.before += [f"a.between([&] {{ {statement} }});" for statement in row["between"]]
        for text in parameters_of(operation.declaration):
            self.words.append(arguments.NAMES[arguments.VARIADIC] if text == "..." else self.word(Parameter(text), row))
        self.given_kind = row.get("kind")
        self.result = operation.declaration.split(self.name)[0].replace("DDAL_API", "").strip()

    def word(self, parameter, row):
        if parameter.name in row:
            return row[parameter.name]
        if parameter.pointee and not parameter.constant and parameter.name not in ("argv", "in"):
            made = self.output(parameter)
            if made:
                return made
        if parameter.name not in arguments.NAMES:
            sys.exit(f"make_callers.py: {self.name} has no usable call: no argument for \"{parameter.name}\"")
        return arguments.NAMES[parameter.name]

    def output(self, parameter):
        """Declares a variable for the output of an operation, which is shown after the call."""
        kind, name = parameter.pointee, parameter.name
        handle = name in ("fd", "desc") or kind.endswith("*")
        if any(re.search(rf"\b{name}\b( =|\[|;|{{)", line) for line in self.before):
            return None
        if parameter.room or kind == "char":
            self.before.append(f"{kind} {name}[{max(parameter.room, 2048 if kind == 'char' else 1)}]{{}};")
            self.after.append(f"a.output({name}, sizeof {name});")
            return name
        if name in ("list", "cvlans", "svlans", "buf", "buffer", "destination", "rx", "text", "vals") and not kind.endswith("*"):
            element = "uint8_t" if kind == "void" else kind
            self.before.append(f"{element} {name}[256]{{}};")
            self.after.append(f"a.output({name}, sizeof {name});")
            return name
        if kind in ("void", "FILE", "FILE "):
            return None
        start = "256" if name == "size" and kind == "size_t" else "16" if name == "size" else ""
        self.before.append(f"{kind} {name}{{{start}}};")
        if not handle:
            self.after.append(f"a.output(&{name}, sizeof {name});")
        return f"&{name}"

    def text(self):
        call = f"CALL({self.name})({', '.join(self.words)})"
        if self.result == "void":
            body = f"{call};\n        return 0;"
        elif self.result.endswith("*"):
            self.before.append("void *made = nullptr;")
            body = f"made = const_cast<void *>(static_cast<const void *>({call}));\n        return made != nullptr;"
        elif any("made" in line for line in self.finish):
            self.before.append("long made = -1;")
            body = f"return made = {call};"
        else:
            body = f"return static_cast<long>({call});"
        lines = [*self.before, f"a.call([&]() -> long {{\n        {body}\n    }});", *self.after]
        lines += self.always
        if self.finish:
            lines += ["if (a.succeeded()) {", *["    " + line for line in self.finish], "}"]
        prepare = [f"\nvoid prepare_{self.name}()\n{{\n", *[f"    {line}\n" for line in self.prepare], "}\n"]
        return "".join([*(prepare if self.prepare else []), f"\nvoid call_{self.name}(Attempt &a)\n{{\n",
                        *[f"    {line}\n" for line in lines], "}\n"])

    def kind(self):
        return self.given_kind or {"void": "kNothing", "uint32_t": "kCode" if self.name.startswith(("bsl_", "get_bsl")) else "kNumber"}.get(
            self.result, "kPointer" if self.result.endswith("*") else "kResult" if self.result == "int" else "kNumber")


def lines_of(path):
    return [line.strip() for line in pathlib.Path(path).read_text().split("\n") if line.strip() and not line.startswith("#")]


def main():
    output, exports, unsupported, *headers = sys.argv[1:]
    callers = {}
    for header in headers:
        for operation in operations_of(pathlib.Path(header).read_text()):
            callers[operation.name] = Caller(operation)
    rows = [f'    {{"{c.name}", {"prepare_" + c.name if c.prepare else "nullptr"}, call_{c.name}, Kind::{c.kind()}, "{c.refuses}", "{c.apart}", "{c.in_child}", {c.seconds}, "{c.threads}"}},\n' for c in callers.values()]
    includes = "".join(f"#include <ddal/{pathlib.Path(header).name}>\n" for header in headers)
    text = HEAD.replace('#include "calls.h"\n', includes + '\n#include "calls.h"\n')
    text += "".join(c.text() for c in callers.values())
    text += "\n} // namespace\n\nconst Caller kCallers[] = {\n" + "".join(rows) + "};\n"
    text += "const size_t kCallerCount = sizeof kCallers / sizeof *kCallers;\n"
    missing = lines_of(unsupported)
    text += "\nconst char *const kUnsupported[] = {\n" + "".join(f'    "{name}",\n' for name in missing) + "};\n"
    text += "const size_t kUnsupportedCount = sizeof kUnsupported / sizeof *kUnsupported;\n\n} // namespace campaign\n"
    pathlib.Path(output).write_text(text)
    undeclared = [name for name in lines_of(exports) if name not in callers and name not in missing]
    print(f"{len(callers)} operations are declared, {len(callers)} have a caller; {len(missing)} are not supported here; "
          f"exported without a declaration: {', '.join(undeclared) or 'none'}")


if __name__ == "__main__":
    main()
