"""Compares what the tests took of the library with tests/coverage.txt; script/coverage calls it.

    coverage.py COUNTS LIST

COUNTS is gcovr's JSON. Every line and branch is taken or listed, and what is listed is not taken.
"""

import json
import re
import sys


class Entry:
    """A line of the source some of whose branches no test can take."""

    def __init__(self, path, text, untaken, branches):
        self.path, self.text = path, text
        self.untaken, self.branches = untaken, branches

    def __str__(self):
        return f"{self.path}: {self.text}"


def read_list(path):
    """Reads blocks of file name, source line, "N of M: reason"; what is indented deeper goes on."""
    entries = {}
    source = text = None
    for number, line in enumerate(open(path), 1):
        line = line.rstrip()
        if not line or line.startswith("#"):
            continue
        if not line.startswith(" "):
            source, text = line, None
        elif line.startswith(" " * 8):
            if text is not None:
                sys.exit(f"{path}:{number}: a reason is wanted for: {text}")
        elif text is None:
            text = line.strip()
        else:
            found = re.fullmatch(r"    (\d+) of (\d+): .+", line)
            if not found or source is None or (source, text) in entries:
                sys.exit(f"{path}:{number}: not a list's line, or a second one: {line}")
            entries[source, text] = Entry(source, text, int(found[1]), int(found[2]))
            text = None
    return entries


class Comparison:
    def __init__(self, entries):
        self.entries = entries
        self.lines = self.lines_taken = self.branches = self.branches_taken = 0
        self.untaken = {}
        self.findings = []

    def look_at(self, path, lines):
        texts = open(path).read().split("\n")
        excused = False
        for line in lines:
            if line["gcovr/noncode"]:
                continue
            text = texts[line["line_number"] - 1].strip()
            missed = sum(branch["count"] == 0 for branch in line["branches"])
            self.count(line, missed)
            if (path, text) in self.entries:
                seen = self.untaken.setdefault((path, text), [0, 0])
                seen[0] += missed
                seen[1] += len(line["branches"])
                excused = missed > 0 or line["count"] == 0
                continue
            # The lines that only a listed branch leads to go with it.
            excused = excused and line["count"] == 0
            if not excused and (missed or line["count"] == 0):
                what = f"{missed} of {len(line['branches'])} branches" if missed else "line"
                self.findings.append(f"{path}:{line['line_number']}: {what} not taken: {text}")

    def count(self, line, missed):
        self.lines += 1
        self.lines_taken += line["count"] > 0
        self.branches += len(line["branches"])
        self.branches_taken += len(line["branches"]) - missed

    def look_at_list(self):
        for key, entry in self.entries.items():
            if key not in self.untaken:
                self.findings.append(f"{entry}: listed, but not in the source")
            elif self.untaken[key][0] != entry.untaken:
                missed, branches = self.untaken[key]
                self.findings.append(f"{entry}: listed with {entry.untaken} of {entry.branches}, "
                                     f"found {missed} of {branches} not taken")


def main():
    counts, listed = sys.argv[1:]
    comparison = Comparison(read_list(listed))
    for source in json.load(open(counts))["files"]:
        comparison.look_at(source["file"], source["lines"])
    comparison.look_at_list()
    excused = sum(entry.untaken for entry in comparison.entries.values())
    for name, taken, all_of in (("lines", comparison.lines_taken, comparison.lines),
                                ("branches", comparison.branches_taken, comparison.branches)):
        print(f"{name + ':':10}{taken} of {all_of} taken, {100 * taken / all_of:.2f} %")
    print(f"listed:   {excused} branches in {len(comparison.entries)} lines that no test can take")
    for finding in comparison.findings:
        print(finding)
    sys.exit(1 if comparison.findings else 0)


main()
