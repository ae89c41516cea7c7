#!/usr/bin/env python3
"""Checks what neither formatter nor clang-tidy looks at: fixed widths are written one way in a
directory tree, and all tests are in one namespace."""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
C_WIDTH = re.compile(r"\bu?int(8|16|32|64)_t\b")
OWN_WIDTH = re.compile(r"\b[us](8|16|32|64)\b")
NAMESPACE = re.compile(r"^namespace (?=\w)([\w:]+) \{", re.MULTILINE)
NOT_CODE = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|<[\w/.]+>', re.DOTALL)


def faults(name, text):
    code = NOT_CODE.sub(lambda found: "\n" * found[0].count("\n"), text)
    # Programs that use the bed need not know the library's headers.
    bed = name.startswith("tests/bed/")
    for number, line in enumerate(code.splitlines(), 1):
        for word in (OWN_WIDTH if bed else C_WIDTH).finditer(line):
            yield f"{number}: {word[0]} is written otherwise here"
    if name.startswith("tests/") and not bed:
        # A folder that is one program may have one of its own; main has none, nor has a file that
        # only includes another.
        # What stands in for a part of the daemon has that part's namespace besides.
        right = (["vimbra::tests"], ["vimbra::tests::" + name.split("/")[1]],
                 ["vimbra::tests", "vimbrad"])
        nobodys = "\nint main(" in code or not re.search(r"^[^#\s]", code, re.MULTILINE)
        if NAMESPACE.findall(code) not in right and not nobodys:
            yield "1: all of it belongs into one `namespace vimbra::tests`"


def main():
    listing = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard",
                              "*.cpp", "*.hpp"], stdout=subprocess.PIPE, text=True, cwd=ROOT)
    found = [f"{name}:{fault}" for name in listing.stdout.splitlines() if (ROOT / name).is_file()
             for fault in faults(name, (ROOT / name).read_text())]
    print("\n".join(found), end="\n" if found else "")
    sys.exit(1 if found else 0)


main()
