#!/usr/bin/env python3
"""Tells the fields of every record of the protocol, as the headers declare them.

    fields.py OUT HEADER...

Writes a C++ header with a description of each structure: names and comments come from here, offsets,
sizes and types from the compiler, so that a description cannot disagree with its record.
"""
import pathlib
import re
import sys

STRUCT = re.compile(r"^(?:typedef )?struct(?: VIMBRA_WIRE| __attribute__\(\(packed\)\))?(?: (\w+))? \{\n(.*?)^\}(?: (\w+)(?:, \w+)*)?;",
                    re.DOTALL | re.MULTILINE)
FIELD = re.compile(r"^(?: */\*\*\s+((?:(?!\*/).)*?)\s*\*/\n)? *(?:[\w:]+ )+\**(\w+)(?:\[[^\]\n]*\])*;(?: *// *([^\n]*(?:\n *//[^\n]*)*)| */\*\*< *(.*?) *\*/)?$",
                   re.DOTALL | re.MULTILINE)
ABOVE = re.compile(r"/\*\*((?:(?!\*/).)*?)\*/\s*\Z", re.DOTALL)


def quoted(text):
    text = " ".join(re.sub(r"\n *(//|\*)?", " ", text or "").split())
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def comment_above(source, position):
    """The manual's words on a public record; nothing on one of the inside, which its message tells."""
    match = ABOVE.search(source, 0, position)
    return re.sub(r"^\s*\*\s?", "", match[1], flags=re.MULTILINE) if match else ""


def records(source):
    """(name, comment, [(field, comment), ...]) of each structure without unions or pointers."""
    for match in STRUCT.finditer(source):
        name = match[3] or match[1]
        if source[: match.start()].endswith(">\n") or "union" in match[2] or "*" in re.sub(
                r"/\*.*?\*/", "", match[2], flags=re.DOTALL):
            continue
        yield name, comment_above(source, match.start()), [
            (field[2], field[3] or field[4] or field[1]) for field in FIELD.finditer(match[2])]


def main(out, headers):
    lines = ["// Made by tools/protocol/fields.py: not to be edited.", ""]
    known = set()
    for header in headers:
        for name, comment, fields in records(pathlib.Path(header).read_text()):
            if name in known or not fields:
                continue
            known.add(name)
            lines += ["template <>", f"struct Fields<{name}> {{",
                      f"    static constexpr const char* kName = {quoted(name)};",
                      f"    static constexpr const char* kMeaning = {quoted(comment)};",
                      "    static constexpr auto kList = std::to_array<Field>({"]
            lines += [f"        VIMBRA_FIELD({name}, {field}, {quoted(meaning)}),"
                      for field, meaning in fields]
            lines += ["    });", "};", ""]
    pathlib.Path(out).write_text("\n".join(lines))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2:]))
