"""The declarations of a public header, as make_binding.py needs them."""
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "docs/reference"))
import header_comments  # noqa: E402

TYPES = r"(?:/\* ?(?P<comment>(?:(?!\*/).)*?) ?\*/\n)?"


def snake(name):
    name = re.sub(r"([a-z0-9])([A-Z])", r"\1_\2", name)
    return re.sub(r"([A-Z])([A-Z][a-z])", r"\1_\2", name).lower()


def camel(name):
    return "".join(word.capitalize() for word in name.split("_"))


def plain(comment):
    return " ".join(line.strip().lstrip("*").strip() for line in (comment or "").split("\n")).strip()


def parameters_of(declaration):
    inside = re.sub(r"\)\s*DDAL_PRINTF\(.*", "", declaration[declaration.index("(") + 1 : declaration.rindex(")")]).strip()
    return [] if inside == "void" else [" ".join(part.split()) for part in inside.split(",")]


class Parameter:
    def __init__(self, text):
        self.text = text
        found = re.fullmatch(r"(.*?)(\w+)(?:\[(\d+)\])?", text)
        self.type, self.name, room = (found[1].strip(), found[2], found[3]) if found else (text, "", None)
        self.room = int(room or 0)
        self.constant = self.type.startswith("const ")
        bare = self.type.removeprefix("const ")
        self.pointee = bare if self.room else bare[:-1].strip() if bare.endswith("*") else ""
        self.python = snake(self.name)

    def said(self, comments):
        """Returns what a comment says about the parameter."""
        for comment in reversed(comments):
            found = re.search(rf"^(?:\w+, )*{self.name}(?:, \w+)*: +(.*?)(?=^\S|^\s*$|\Z)", comment, re.MULTILINE | re.DOTALL)
            if found:
                return plain(found[1])
        return ""


class Field:
    def __init__(self, kind, name, room, comment):
        self.kind, self.name, self.room, self.comment = kind.strip(), name, int(room or 0), comment
        self.python = snake(name)

    def annotation(self):
        if not self.room:
            return "int"
        return {"char": "str", "uint8_t": "bytes"}.get(self.kind, "tuple[int, ...]")

    def value(self):
        return {"int": f"c.{self.name}", "str": f"_text(c.{self.name})", "bytes": f"bytes(c.{self.name})"}.get(
            self.annotation(), f"tuple(c.{self.name})")


class Record:
    def __init__(self, header, name, comment, fields):
        self.header, self.name, self.comment = header, name, plain(comment) or camel(name) + "."
        self.python = camel(header.python_name(name))
        self.fields = [f for f in fields if not f.name.startswith("reserved")]

    def initializer(self):
        words = (f'"{f.name}": self.{f.python}' + (".encode()" if f.annotation() == "str" else "") for f in self.fields)
        return "{" + ", ".join(words) + "}"


class Enumeration:
    def __init__(self, header, name, comment, members):
        self.header, self.name, self.comment = header, name, plain(comment)
        self.python = camel(header.python_name(name))
        # What all members begin with says no more than the enumeration's name.
        common = members[0][0]
        while not all(member[0].startswith(common) for member in members):
            common = common[: common.rstrip("_").rfind("_") + 1]
        start = len(common) if len(members) > 1 else 0
        self.members = [(n[start:] if n[start:].isidentifier() else n[n.rstrip("0123456789").rstrip("_").rfind("_") + 1 :], v, c) for n, v, c in members]


class Header:
    without_tags = staticmethod(header_comments.without_tags)

    def __init__(self, path, prefixes):
        text = path.read_text()
        self.stem = path.stem
        self.prefix = prefixes.get(self.stem, self.stem + "_")
        self.operations = header_comments.operations_of(text)
        self.text = header_comments.comment_text(text[: text.index("*/") + 2].split("\n"))
        self.enumerations = [self.enumeration(found) for found in re.finditer(TYPES + r"enum (?P<name>\w+) \{(?P<body>.*?)\};", text, re.DOTALL)]
        self.records = [self.record(found) for found in re.finditer(TYPES + r"struct (?P<name>\w+) \{(?P<body>.*?)\};", text, re.DOTALL)]
        self.constants = list(self.constants_of(text))
        bare = re.sub(r"/\*.*?\*/", "", text, flags=re.DOTALL)
        bare = re.sub(r"^(#.*(\\\n.*)*|DDAL_(BEGIN|END)_DECLS|struct timespec;.*)$", "", bare, flags=re.MULTILINE)
        self.declarations = re.sub(r"DDAL_PRINTF\(\d, \d\)|DDAL_API ", "", bare) if self.stem != "export" else ""

    def python_name(self, name):
        """Returns a name without what the module says already."""
        name = re.sub(r"^_*(ddal_)?(ext_)?(kvb_)?", "", name)
        return snake(re.sub(rf"^{self.prefix}", "", name))

    def enumeration(self, found):
        members, following = [], 0
        for line in re.finditer(r"(\w+)(?: = (\w+))?,?[ \t]*(?:/\* (.*?) \*/)?", found["body"]):
            value = int(line[2], 0) if line[2] else following
            members.append((line[1], value, line[3] or ""))
            following = value + 1
        return Enumeration(self, found["name"], found["comment"], members)

    def record(self, found):
        fields = [Field(*line.groups()) for line in re.finditer(r"^ +([\w ]+?[ *]+)(\w+)(?:\[(\d+)\])?;[ \t]*(?:/\* (.*?) \*/)?", found["body"], re.MULTILINE)]
        return Record(self, found["name"], found["comment"], fields)

    def constants_of(self, text):
        for name, value, comment in re.findall(r'^#define (\w+) +(\(?-?(?:0x)?[0-9A-Fa-f]+u?\)?|"[^"]*"|UINT32_MAX)[ \t]*(?:/\* (.*?) \*/)?$', text, re.MULTILINE):
            short = re.sub(rf"^(DDAL_)?(EXT_)?({self.prefix.upper()})?", "", name)
            short = short if short.isidentifier() else re.sub("^(DDAL_)?(EXT_)?", "", name)
            yield short, value.strip("()").rstrip("u").replace("UINT32_MAX", "0xFFFFFFFF"), comment
