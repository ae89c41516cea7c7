#!/usr/bin/env python3
"""Checks names, braces and lengths of the tree's C++ with clang-tidy; the rules are in .clang-tidy.

    script/lib/tidy.py [FILE...]    these files, or all

A file that was found right is looked at again only when it, a header that it may include, or a
rule has changed: nearly all the time goes into the headers of other projects.
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
# A build tree without precompiled headers, which are another compiler's. Nothing is built in it.
WORK = ROOT / "build" / "tidy"
INCLUDE = re.compile(rb'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.MULTILINE)
OWN = f"^{re.escape(str(ROOT))}/(src|tools|tests|bench|examples)/"


def run(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          cwd=ROOT)


def tracked(*patterns):
    listing = run("git", "ls-files", "--cached", "--others", "--exclude-standard", *patterns)
    return [name for name in listing.stdout.splitlines() if (ROOT / name).is_file()]


def compiled():
    """The tree's files that a build of this machine compiles."""
    done = run("cmake", "-S", ".", "-B", WORK, "-G", "Ninja",
               "-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON")
    if done.returncode != 0:
        sys.exit(done.stdout)
    entries = json.loads((WORK / "compile_commands.json").read_text())
    built = {os.path.relpath(entry["file"], ROOT) for entry in entries}
    return [name for name in tracked("*.cpp") if name in built]


class Stamps:
    """Says whether a file was found right as it stands."""

    def __init__(self):
        self.directory = WORK / "stamps"
        self.directory.mkdir(exist_ok=True)
        self.texts = {}
        self.headers = {}
        for name in tracked("*.h", "*.hpp"):
            self.headers.setdefault(os.path.basename(name).encode(), []).append(name)
        self.rules = b"".join(self.text(name) for name in tracked("*.clang-tidy", "*/tidy.py"))

    def text(self, name):
        if name not in self.texts:
            self.texts[name] = (ROOT / name).read_bytes()
        return self.texts[name]

    def parts(self, name):
        """The file, and every header of the tree that it may include."""
        found, rest = {name}, [name]
        while rest:
            for include in INCLUDE.findall(self.text(rest.pop())):
                for header in self.headers.get(os.path.basename(include), []):
                    if header not in found:
                        found.add(header)
                        rest.append(header)
        return sorted(found)

    def of(self, name):
        digest = hashlib.sha256(self.rules)
        for part in self.parts(name):
            digest.update(part.encode() + b"\0" + self.text(part))
        return self.directory / digest.hexdigest()


def check(name):
    done = run("clang-tidy-14", "-p", WORK, "--quiet", f"--header-filter={OWN}", name)
    # Beside the faults it counts what it does not show.
    text = re.sub(r"^\d+ warnings? .*\n|^\d+ warnings treated as errors\n?", "", done.stdout,
                  flags=re.MULTILINE)
    return done.returncode == 0, text.rstrip()


def main():
    WORK.mkdir(parents=True, exist_ok=True)
    names = [name for name in compiled() if name in sys.argv[1:] or not sys.argv[1:]]
    stamps = Stamps()
    stamp = {name: stamps.of(name) for name in names}
    due = [name for name in names if not stamp[name].exists()]
    # A header's fault is found with every file that includes it: once is enough.
    said = set()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for name, (fine, text) in zip(due, pool.map(check, due)):
            if fine:
                stamp[name].touch()
                continue
            for fault in re.split(r"\n(?=\S+:\d+:\d+: )", text):
                if fault not in said:
                    said.add(fault)
                    print(fault, flush=True)
    sys.exit(1 if said else 0)


main()
