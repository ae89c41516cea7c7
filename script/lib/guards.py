#!/usr/bin/env python3
"""Gives every header the include guard that its path says; with --check only tells which have another.

src/lib/fd.hpp is guarded by VIMBRA_LIB_FD_HPP, what is included as <vimbra/log.h> by VIMBRA_LOG_H, and as
<vimbra-test/fake.h> by VIMBRA_TEST_FAKE_H. Words that a name takes over from its folder stand once:
src/api/api_web/web_wire.hpp is guarded by VIMBRA_API_WEB_WIRE_HPP.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BEGIN = re.compile(r"^#ifndef (\w+)\n#define \1\n|^#pragma once\n", re.MULTILINE)
END = re.compile(r"\n#endif[^\n]*\n*\Z")


def guard_of(name):
    path = name.removeprefix("src/").replace("include/vimbra/", "")
    path = re.sub(r".*include/vimbra-", "", path)
    words = []
    for part in path.upper().split("/"):
        added = re.split(r"\W|_", part)
        length = len(added)
        while length > 0 and words[-length:] != added[:length]:
            length -= 1
        words += added[length:]
    return "_".join(["VIMBRA", *words])


def guarded(text, guard):
    """The header with its guard; None where none can be told."""
    begin = BEGIN.search(text)
    if not begin:
        return None
    if begin[1] is None:
        text = text.rstrip() + "\n\n#endif\n"
    elif not END.search(text):
        return None
    text = END.sub("\n#endif\n", text)
    return f"{text[:begin.start()]}#ifndef {guard}\n#define {guard}\n{text[begin.end():]}"


def main():
    listing = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard",
                              "*.h", "*.hpp"], stdout=subprocess.PIPE, text=True, cwd=ROOT)
    faults = 0
    for name in listing.stdout.splitlines():
        file = ROOT / name
        if not file.is_file():
            continue
        text = file.read_text()
        right = guarded(text, guard_of(name))
        if right is None:
            print(f"{name}: has no include guard; {guard_of(name)} is its")
        elif right == text:
            continue
        elif "--check" in sys.argv:
            print(f"{name}: its include guard is to be {guard_of(name)}")
        else:
            file.write_text(right)
            continue
        faults += 1
    sys.exit(1 if faults else 0)


main()
