#!/usr/bin/env python3
"""Writes the generated part of the Python package "ddal" from the public headers.

usage: make_binding.py OUTPUT_DIR VERSION HEADER...

For each header with operations the package gets a module of the same name and its stub. An output becomes a returned value, a
length follows its buffer, a record becomes a dataclass. A declaration that fits no rule below and no row of exceptions.py ends
the run with its name. Prints the number of operations.
"""
import pathlib
import re
import sys

from cffi import FFI

import exceptions
from declarations import Header, Parameter, camel, parameters_of, snake

HEAD = '# Made by make_binding.py of ddal/{}.h; not to be edited.\n'
BASE = """typedef int clockid_t;
struct timespec { long tv_sec; long tv_nsec; };
"""
WORDS = {"int", "unsigned", "unsigned long", "size_t", "clockid_t", *(f"{sign}int{bits}_t" for sign in ("", "u") for bits in (8, 16, 32, 64))}
BUFFERS = {"buf", "buffer", "vals", "list", "cvlans", "svlans", "destination", "bytes", "text", "error_msg", "tx", "rx", "value",
           "mask", "clear", "set", "codes"}
LENGTHS = {"len", "length", "n", "count", "size", "max", "buflen", "error_msg_len", "text_len", "tx_len", "rx_len", "max"}
TEXT_ROOM = 4096


class Unfit(Exception):
    pass


def row(table, *key):
    """Returns the rest of the first row whose patterns fit the key, or None."""
    for entry in table:
        if all(re.fullmatch(pattern, word) for pattern, word in zip(entry, key)):
            used.add(id(entry))
            return entry[len(key):]
    return None


used = set()


class Function:
    """One operation as a Python function: its arguments, the statements before the call, the words of the call, its values."""

    def __init__(self, operation, header, headers):
        self.name, self.operation, self.header, self.headers = operation.name, operation, header, headers
        self.python = header.python_name(operation.name)
        self.arguments, self.named, self.before, self.words, self.values = [], [], [], [], []
        self.after, self.grows, self.details, self.counted = [], "", "", False
        self.uses = set()
        self.result_type = operation.declaration.split(operation.name)[0].replace("DDAL_API", "").strip()
        found = row(exceptions.RESULTS, self.name)
        self.result = found[0] if found else "code" if self.result_type in ("int", "void") else None
        if self.result is None:
            raise Unfit(f"{self.name}: no rule for its result of type {self.result_type}")
        self.parameters = [Parameter(text) for text in parameters_of(operation.declaration)]
        self.lengths = self.pairs()
        for parameter in self.parameters:
            self.add(parameter)

    # ---- parameters ----

    def pairs(self):
        """Returns the buffers of each length, by the name of the length."""
        pairs, buffers = {}, [p for p in self.parameters if p.pointee and not p.room and p.name in BUFFERS and
                              (p.pointee in ("void", "char", "uint8_t", "uint16_t", "uint32_t") or p.name == "list")]
        for parameter in self.parameters:
            if parameter.name not in LENGTHS or parameter.pointee and parameter.name != "size":
                continue
            own = [b for b in buffers if b.name + "_len" == parameter.name] or [b for b in buffers if b.name + "_len" not in LENGTHS]
            if own:
                pairs[parameter.name] = own
        return pairs

    def length_of(self, parameter):
        return next((name for name, buffers in self.lengths.items() if parameter in buffers), "")

    def add(self, p):
        fixed = row(exceptions.FIXED, self.name, p.name)
        default = row(exceptions.DEFAULTS, self.name, p.name)
        if fixed:
            self.words.append("_NULL" if p.pointee else "0")
        elif p.name in self.lengths:
            self.add_length(p)
        elif p.type == "...":
            self.words.append('_new("char[]", _text_argument(message))')
            self.arguments.append(("message", "str"))
        elif p.name == "format":
            self.words.append('b"%s"' if p.constant else '_new("char[]", b"%s")')
        elif p.type in self.headers.callbacks:
            self.add_callback(p)
        elif p.name == "context":
            self.words.append("_NULL")
        elif p.type in WORDS and not p.room:
            (self.named if default else self.arguments).append((p.python, "int", *(default or ())))
            self.words.append(p.python)
        elif p.pointee == "FILE":
            self.add_stream(p)
        elif p.constant or p.name == "argv":
            self.add_input(p)
        elif p.pointee.endswith("*"):
            self.add_handle(p)
        elif p.pointee:
            self.add_output(p)
        else:
            raise Unfit(f"{self.name}: no rule for {p.text}")

    def add_length(self, p):
        buffers = self.lengths[p.name]
        given = [b for b in buffers if b.constant]
        if p.pointee:  # room in, length out
            self.words.append("_size")
        elif given:
            for other in given[1:]:
                self.before.append(f"_same_length({given[0].python}, {other.python})")
            self.words.append(f"len({given[0].python})")
        elif buffers[0].pointee == "char":
            self.words.append("size" if self.name.startswith(("_ddal_common_shell", "ddal_common_read_cmd")) else str(TEXT_ROOM))
        elif self.grows == "count":
            self.words.append("_room")
        elif p.name == "max":
            self.words.append("64")
        else:
            self.arguments.append((p.python, "int"))
            self.words.append(p.python)

    def add_callback(self, p):
        kind = self.headers.callbacks[p.type]
        self.named.append((p.python, f"{kind} | None", "None"))
        self.uses.add(kind)
        self.before.append(f'_called = _Callback("{p.type}", {p.python}, RfcardPhase)')
        self.words.append("_called.pointer")
        self.after.append("_called.end()")

    def add_stream(self, p):
        if p.name == "in":
            self.arguments.append(("input", "bytes"))
            self.before.append("_in = _stream(input)")
            self.words.append("_in")
        else:
            self.before.append("_out = _stream()")
            self.words.append("_out")
            self.values.append(("_written(_out)", "bytes"))

    def add_input(self, p):
        name, word, kind, check = p.python, p.python, "int", None
        record = self.headers.records.get(p.pointee.removeprefix("struct "))
        if p.name == "argv":
            self.before.append(f"_vector = _arguments({name})")
            kind, word = "Sequence[str]", "_vector.pointer"
        elif p.pointee == "char":
            kind, word = "str | bytes | os.PathLike[str]", f"_text_argument({name})"
        elif p.name == "mac":
            kind, check = "str | Buffer", f"_mac({name})"
        elif p.pointee in ("void", "uint8_t"):
            kind, check = "Buffer", f"_octets({name}, {p.room})" if p.room else f"_octets({name})"
        elif p.room or self.length_of(p):
            kind, check = "Sequence[int]", f"_words({name}, {p.room})" if p.room else f"_words({name})"
        elif p.pointee in WORDS:
            word = f'_new("{p.pointee} *", {name})'
        elif p.pointee == "struct timespec":
            kind, word = "float | None", f"_timespec({name})"
        elif p.pointee == "struct bsl_packet":
            kind, word = "Buffer", "_packet.pointer"
            self.before.append(f"_packet = _Packet({name})")
        elif record:
            kind, word = f"{self.reach(record)} | None", f'_NULL if {name} is None else {name}._c()'
        else:
            raise Unfit(f"{self.name}: no rule for {p.text}")
        if check:
            self.before.insert(0, f"{name} = {check}")
        self.arguments.append((name, kind))
        self.words.append(word)

    def reach(self, record):
        """Returns the name of a record or enumeration as this module sees it."""
        if record.header is self.header:
            return record.python
        self.uses.add(record.header.stem)
        return f"_{record.header.stem}.{record.python}"

    def add_handle(self, p):
        kind = p.pointee.removesuffix("*").strip()
        if self.name.endswith("_close"):
            self.arguments.append((p.python, "Handle"))
            self.before.append(f'_place = _new("{kind} **", {p.python}.pointer)')
            self.after.append(f"{p.python}.pointer = _NULL")
            self.words.append("_place")
        else:
            self.before.append(f'{p.python}_ = _new("{kind} **")')
            self.words.append(f"{p.python}_")
            self.values.append((f"_Handle({p.python}_[0])", "Handle"))

    def add_output(self, p):
        name = f"{p.python}_"
        length, kind = self.length_of(p), p.pointee
        record = self.headers.records.get(kind.removeprefix("struct "))
        room = row(exceptions.ROOMS, self.name, p.name)
        if kind == "void" and not length:
            self.arguments.append((p.python, "int"))
            self.words.append(f"_address({p.python})")
            return
        if kind.removeprefix("struct ") in self.headers.handles:
            self.arguments.append((p.python, "Handle"))
            self.words.append(f"{p.python}.pointer")
            if re.search(r"_(close|release)$", self.name):
                self.after.append(f"{p.python}.pointer = _NULL")
            return
        self.words.append(name)
        if kind == "struct bsl_packet":
            self.before.append(f"_room = _Packet(bytes({room[0]}))")
            self.words[-1] = "_room.pointer"
            self.values.append(("_room.taken()", "bytes"))
        elif p.room or room:
            self.add_array(p, name, p.room or room[0])
        elif length and kind == "char" and any(q.name == length and q.pointee for q in self.parameters):
            self.grows = "text"
            self.before += ['_size = _new("size_t *", _room)', f'{name} = _new("char[]", _room)']
            self.values.append((f"_text({name})", "str"))
        elif length and kind == "char":
            own_size = "size" in [w for w in self.words] or self.name.startswith(("_ddal_common_shell", "ddal_common_read_cmd"))
            if own_size:
                self.named.append(("size", "int", "65536"))
            self.before.append(f'{name} = _new("char[]", {"size" if own_size else TEXT_ROOM})')
            self.values.append((f"_text({name})", "str"))
            if row(exceptions.DETAILS, self.name, p.name):
                self.details = f"_text({name})"
        elif length and p.name in ("list", "cvlans", "svlans"):
            self.add_list(p, name, record)
        elif length:
            size = next(q.python for q in self.parameters if q.name == length)
            element = "uint8_t" if kind == "void" else kind
            self.before.append(f'{name} = _new("{element}[]", {size})')
            cut = "_result" if self.result == "count" else ""
            whole = element == "uint8_t"
            value = f"bytes(_buffer({name}))" if whole else f"tuple({name})"
            self.values.append((value + (f"[:{cut}]" if cut else ""), "bytes" if whole else "tuple[int, ...]"))
            if cut:
                self.result = "moved"
        elif record:
            self.before.append(f'{name} = _new("{kind} *")')
            self.values.append((f"{self.reach(record)}._of({name})", self.reach(record)))
        elif kind == "struct timespec":
            self.before.append(f'{name} = _new("struct timespec *")')
            self.values.append((f"{name}.tv_sec * 1_000_000_000 + {name}.tv_nsec", "int"))
        elif kind in WORDS:
            self.add_word(p, name)
        else:
            raise Unfit(f"{self.name}: no rule for {p.text}")

    def add_array(self, p, name, room):
        element = "uint8_t" if p.pointee == "void" else p.pointee
        self.before.append(f'{name} = _new("{element}[{room}]")')
        value, kind = {"char": (f"_text({name})", "str"), "uint8_t": (f"bytes(_buffer({name}))", "bytes")}.get(
            element, (f"tuple({name})", "tuple[int, ...]"))
        self.values.append((value, kind))

    def add_list(self, p, name, record):
        element = p.pointee
        in_and_out = any(q.name == "size" and q.pointee for q in self.parameters)
        counted = any(q.name == "count" and q.pointee for q in self.parameters)
        self.before.append(f'{name} = _new("{element}[]", {"64" if counted else "_room"})')
        item = f"{self.reach(record)}._of(c)" if record else "c"
        kind = f"list[{self.reach(record)}]" if record else "list[int]"
        if counted:
            self.values.append((f"list({name}[0:count_[0]])", kind))
            self.counted = True
            return
        if in_and_out:
            self.grows = "list"
            self.before.append('_size = _new("uint32_t *", _room)')
        else:
            self.grows = "count"
        limit = "_size[0]" if in_and_out else "_result"
        self.values.append((f"[{item} for c in {name}[0:{limit}]]", kind))
        if self.result == "count":
            self.result = "moved"

    def add_word(self, p, name):
        said = p.said(self.operation.comments)
        if "IEEE-754" in said:
            self.before.append(f'{name} = _new("float *")')
            self.words[-1] = f'_cast("{p.pointee} *", {name})'
            self.values.append((f"{name}[0]", "float"))
            return
        start = ""
        if row(exceptions.IN_AND_OUT, self.name, p.name):
            self.arguments.append((p.python, "int"))
            start = f", {p.python}"
        self.before.append(f'{name} = _new("{p.pointee} *"{start})')
        if p.name == "count" and self.counted:
            return
        one_of = re.search(r"enum (ddal_\w+)", said)
        enumeration = self.headers.enumerations.get(one_of[1]) if one_of else None
        if enumeration:
            self.values.append((f"{self.reach(enumeration)}({name}[0])", self.reach(enumeration)))
        elif p.name == "fd" or "receives 1 or 0" in said and p.name in ("enabled", "is_master", "identical"):
            self.values.append((f"{name}[0]", "int") if p.name == "fd" else (f"{name}[0] != 0", "bool"))
        else:
            self.values.append((f"{name}[0]", "int"))

    # ---- text ----

    def returns(self):
        """Returns the values of the function: the result of the operation, if it has a meaning, and the outputs."""
        enumeration = re.search(r"one of enum (ddal_\w+)", "\n".join(self.operation.comments))
        first = {
            "count": [("_result", "int")], "value": [("_result", "int")], "zero": [("_result == 0", "bool")],
            "flag": [("_result != 0", "bool")], "address": [("_number(_result)", "int")], "pointer": [("_number(_result)", "int")],
            "text": [("_text(_result)", "str")],
        }.get(self.result, [])
        if self.result == "count" and enumeration:
            kind = self.reach(self.headers.enumerations[enumeration[1]])
            first = [(f"{kind}(_result)", kind)]
        return first + self.values

    def check(self):
        failed = {"code": "_result < 0", "count": "_result < 0", "moved": "_result < 0", "flag": "_result < 0", "nonzero": "_result != 0",
                  "pointer": "not _result"}.get(self.result)
        if not failed or self.result_type == "void":
            return []
        details = f", {self.details}" if self.details else ""
        code = "-12" if self.result == "pointer" else "_result"
        return [f"if {failed}:", f'    raise _failure({code}, "{self.name}"{details})']

    def signature(self):
        plain = [name for name, _ in self.arguments]
        named = [f"{name}={default}" for name, _, default in self.named]
        return ", ".join(plain + (["*"] + named if named else []))

    def typed(self):
        plain = [f"{name}: {kind}" for name, kind in self.arguments]
        named = [f"{name}: {kind} = ..." for name, kind, _ in self.named]
        kinds = [kind for _, kind in self.returns()]
        kind = "None" if not kinds else kinds[0] if len(kinds) == 1 else f"tuple[{', '.join(kinds)}]"
        return f"def {self.python}({', '.join(plain + (['*'] + named if named else []))}) -> {kind}:"

    def body(self):
        result = "_result = " if self.result_type != "void" else ""
        call = [*self.before, f"{result}_lib.{self.name}({', '.join(self.words)})", *self.after]
        if self.grows:
            return self.growing(call)
        values = [value for value, _ in self.returns()]
        return call + self.check() + ([f"return {', '.join(values)}"] if values else [])

    def growing(self, call):
        """Repeats the call with more room until everything fits."""
        missing = "_size[0]"  # what did not fit, or the length of the whole text
        if self.name == "ddal_version_get_lfs_version":
            missing = "_size[0] + 1 - _room"
        more = {"text": f"{missing} if _result >= 0 else 0", "list": "_size[0] if _result == -12 else 0", "count": "_result - _room"}[self.grows]
        values = ", ".join(value for value, kind in self.returns() if not (self.grows == "text" and kind == "int"))
        body = ["_room = 256", "while True:"]
        body += ["    " + line for line in call]
        body += [f"    _more = {more}", "    if _more > 0:", "        _room += _more", "        continue"]
        return body + ["    " + line for line in self.check()] + [f"    return {values}"]

    def documentation(self):
        """Returns the comment of the header, without the two tags, and the classes below it."""
        said = "\n\n".join(filter(None, (self.headers.without_tags(comment) for comment in self.operation.comments)))
        return f"{said}\n\nThread safety: {self.operation.tag('threads')}.\nBlocking: {self.operation.tag('blocks')}.\nC: {self.name}"


def docstring(text, indent):
    text = text.replace("\\", "\\\\").replace('"""', "'''")
    return (f'{indent}"""' + text + '"""').replace("\n", f"\n{indent}").replace(f"\n{indent}\n", "\n\n")


class Module:
    def __init__(self, header, headers, by_hand):
        self.header, self.by_hand = header, by_hand
        self.functions = [Function(o, header, headers) for o in header.operations if o.name not in exceptions.LEFT_OUT | exceptions.BY_HAND]
        # A type of the header that an operation fills or takes, or that the hand-written part uses.
        self.records = [r for r in header.records if r.name not in headers.handles and not r.name.startswith("bsl_")]
        names = [f.python for f in self.functions] + [r.python for r in self.records]
        for name in names:
            if names.count(name) > 1 or not name.isidentifier():
                raise Unfit(f"{header.stem}.{name}: a name that two operations would have, or that is not a name")

    def used(self):
        return sorted({name for function in self.functions for name in function.uses if name not in ("Progress",)})

    def source(self):
        lines = [HEAD.format(self.header.stem), docstring(self.header.text, "")]
        if self.records:
            lines.append("from dataclasses import dataclass as _dataclass\n")
        lines.append("from ._binding import *  # noqa: F403")
        lines += [f"from . import {name} as _{name}" for name in self.used()]
        lines += [f"{name} = {value}" for name, value, _ in self.header.constants]
        for enumeration in self.header.enumerations:
            lines += ["", f"\nclass {enumeration.python}(_Enumeration):", docstring(enumeration.comment, "    ")]
            lines += [f"    {name} = {value}" for name, value, _ in enumeration.members]
        for record in self.records:
            lines += ["", "\n@_dataclass", f"class {record.python}:", docstring(record.comment, "    ")]
            lines += [f"    {field.python}: {field.annotation()}" for field in record.fields]
            lines += ["\n    @classmethod", "    def _of(cls, c):", f"        return cls({', '.join(field.value() for field in record.fields)})"]
            lines += ["\n    def _c(self):", f'        return _new("struct {record.name} *", {record.initializer()})']
        for function in self.functions:
            lines += ["", f"\ndef {function.python}({function.signature()}):", docstring(function.documentation(), "    ")]
            lines += ["    " + line for line in function.body()]
        if self.by_hand:
            lines.append(f"\n\nfrom ._{self.header.stem} import *  # noqa: E402,F403")
        lines.append("")
        return re.sub(r'_new\("([^"]+)"', lambda found: f'_new(_t_{kind_name(found[1])}', self.with_types("\n".join(lines)))

    def with_types(self, text):
        """Declares each C type once: the C compiler's names are then not parsed at every call."""
        kinds = sorted(set(re.findall(r'_new\("([^"]+)"', text)))
        head = "from ._binding import *  # noqa: F403"
        return text.replace(head, "\n".join([head, *(f'_t_{kind_name(kind)} = _typeof("{kind}")' for kind in kinds)]), 1)

    def stub(self):
        lines = [HEAD.format(self.header.stem), "import os", "from collections.abc import Sequence", "from dataclasses import dataclass",
                 "from enum import IntEnum", "from typing import Final\n", "from ._binding import Buffer, Handle, Progress"]
        lines += [f"from . import {name} as _{name}" for name in self.used()]
        for name, value, comment in self.header.constants:
            lines.append(f"{name}: Final = {value}" + (f"  # {comment}" if comment else ""))
        for enumeration in self.header.enumerations:
            lines += ["", f"class {enumeration.python}(IntEnum):", docstring(enumeration.comment, "    ")]
            lines += [f"    {name} = {value}" + (f"  # {comment}" if comment else "") for name, value, comment in enumeration.members]
        for record in self.records:
            lines += ["", "@dataclass", f"class {record.python}:", docstring(record.comment, "    ")]
            lines += [f"    {field.python}: {field.annotation()}" + (f"  # {field.comment}" if field.comment else "") for field in record.fields]
        for function in self.functions:
            lines += ["", function.typed(), docstring(function.documentation(), "    "), "    ..."]
        if self.by_hand:
            lines.append(f"\nfrom ._{self.header.stem} import *")
        return "\n".join(lines) + "\n"


def kind_name(kind):
    return re.sub(r"\W+", "_", kind.replace("*", "p")).strip("_")


class Headers:
    def __init__(self, paths):
        self.all = [Header(path, exceptions.PREFIXES) for path in paths]
        self.records = {r.name: r for header in self.all for r in header.records}
        self.enumerations = {e.name: e for header in self.all for e in header.enumerations}
        self.callbacks = {"ddal_ext_rfcard_progress": "Progress", "ddal_ext_log_handler": "LogHandler"}
        # Records that operations hand out by address stay where the library put them.
        self.handles = {found for header in self.all for found in re.findall(r"struct (\w+) \*\*", header.declarations)}
        self.without_tags = self.all[0].without_tags


def write_package(out, version, headers, here):
    ffi = FFI()
    ffi.cdef(BASE + "".join(header.declarations for header in headers.all))
    ffi.set_source("_ddal", None)
    ffi.emit_python_code(str(out / "_ddal.py"))
    modules = [Module(header, headers, (here / "ddal" / f"_{header.stem}.py").exists()) for header in headers.all if header.operations]
    for module in modules:
        (out / f"{module.header.stem}.py").write_text(module.source())
        (out / f"{module.header.stem}.pyi").write_text(module.stub())
    places = {f.name: (m.header.stem, f.python) for m in modules for f in m.functions}
    places |= {o.name: (m.header.stem, m.header.python_name(o.name)) for m in modules for o in m.header.operations if o.name in exceptions.BY_HAND}
    (out / "_operations.py").write_text(
        '"""Every operation of the library: its module and function, or the reason why Python does not have it."""\n'
        f"VERSION = {version!r}\nMODULES = {[m.header.stem for m in modules]!r}\n"
        + "OPERATIONS = {\n" + "".join(f"    {name!r}: {place!r},\n" for name, place in places.items()) + "}\n"
        + f"LEFT_OUT = {exceptions.LEFT_OUT!r}\n")
    init = "".join(f"from . import {m.header.stem} as {m.header.stem}\n" for m in modules)
    (out / "__init__.pyi").write_text(f"{init}from ._binding import Error as Error, NotABoard as NotABoard\n__version__: str\n")
    return places


def stale_rows(places):
    tables = (exceptions.RESULTS, exceptions.FIXED, exceptions.DEFAULTS, exceptions.ROOMS, exceptions.IN_AND_OUT, exceptions.DETAILS)
    yield from (entry for table in tables for entry in table if id(entry) not in used)
    yield from (name for name in exceptions.BY_HAND if name not in places)


def main(out_dir, version, *paths):
    out, here = pathlib.Path(out_dir), pathlib.Path(__file__).resolve().parent
    headers = Headers([pathlib.Path(path) for path in paths])
    try:
        places = write_package(out, version, headers, here)
    except Unfit as fault:
        return f"make_binding.py: {fault}: a rule here, or a row of exceptions.py"
    for entry in stale_rows(places):
        return f"make_binding.py: a row of exceptions.py fits no operation: {entry}"
    declared = {operation.name for header in headers.all for operation in header.operations}
    lost = declared - places.keys() - exceptions.LEFT_OUT.keys() | exceptions.LEFT_OUT.keys() - declared
    if lost:
        return f"make_binding.py: {', '.join(sorted(lost))}: in the headers or in exceptions.py, but not in both"
    print(f"{len(places)} of {len(declared)} operations")
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
