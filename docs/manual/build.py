#!/usr/bin/env python3
"""Makes the manual: pages for man(1) and a reference for browsers, both from one reading.

    build.py --version TEXT --out DIR [--date DATE] [--vimbractl COMMAND] [--vimbrad COMMAND]

Pages of section 3 are the public headers' own comments, vimbra(7) is what vimbra.h says of all calls,
the programs' pages are their help texts. Writes DIR/man/manN/NAME.N and DIR/html/.
"""
import argparse
import pathlib
import re
import shlex
import sys

import headers
import browser
import markdown
import programs
import roff
from document import Page, first_sentence

# The smaller programs: what they do, and where the rest is told.
HELPERS = {
    "vimbra-daemon-check": ("does a network daemon serve everything, and rightly",
                            "vimbra-protocol(1), vimbrad(8)"),
    "vimbra-fake": ("a network daemon by a script, for tests", "vimbra-sandbox(1), vimbra(7)"),
    "vimbra-protocol": ("the protocol as Markdown, JSON or a dissector", "vimbra(7)"),
    "vimbra-sandbox": ("runs a test in a machine of its own", "vimbra-fake(1)"),
}

ROOT = pathlib.Path(__file__).resolve().parents[2]


def overview(pages):
    """vimbra(7): what holds for all calls, and which page tells of what."""
    source = (ROOT / "include/vimbra/vimbra.h").read_text()
    about = headers.unstar(re.search(r"/\*\*(.*?@file.*?)\*/", source, re.DOTALL)[1])
    about = about.replace("@file", "", 1).strip()
    blocks = [("heading", 1, "SYNOPSIS"),
              ("code", "#include <vimbra/vimbra.h>\n\ncc program.c "
                       "$(pkg-config --cflags --libs vimbra)"),
              ("heading", 1, "DESCRIPTION")]
    # A paragraph that begins with capitals is a section of its own.
    for block in headers.blocks_of(about):
        if block[0] == "text" and (match := re.match(r"([A-Z][A-Z ]{3,})\. (.*)", block[1])):
            blocks += [("heading", 2, match[1].capitalize()), ("text", match[2])]
        else:
            blocks.append(block)
    readme = (ROOT / "README.md").read_text()
    table = readme[readme.index("## The operations") : readme.index("### On the command line")]
    blocks += [("heading", 1, "OPERATIONS"), *(block for block in markdown.read(table)
                                               if block[0] != "heading")]
    blocks += [("heading", 1, "PAGES"),
               ("terms", [(f"{page.name}(3)", page.summary) for page in pages])]
    example = (ROOT / "examples/set_address.c").read_text()
    blocks += [("heading", 1, "EXAMPLE"), ("code", example.strip()),
               ("heading", 1, "SEE ALSO"), ("text", "vimbractl(1), vimbrad(8)")]
    return Page("vimbra", 7, "networking interface of an embedded Linux device", blocks)


def see_also(page, pages):
    """The pages that a header's page speaks of, and the one that all belong to."""
    text = "\n".join(str(block) for block in page.blocks)
    names = [other.name for other in pages
             if other is not page and re.search(rf"<vimbra/{other.name[7:]}\.h>", text)]
    return [("heading", 1, "SEE ALSO"),
            ("text", ", ".join(["vimbra(7)", *(f"{name}(3)" for name in names
                                               if name not in ("vimbra_vimbra", "vimbra_net"))]))]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--version", required=True)
    parser.add_argument("--out", required=True, type=pathlib.Path)
    parser.add_argument("--date", default="")
    parser.add_argument("--vimbractl")
    parser.add_argument("--vimbrad")
    for name in HELPERS:
        parser.add_argument(f"--{name}")
    options = parser.parse_args()

    pages = [headers.read(path, options.version)
             for path in sorted((ROOT / "include/vimbra").glob("*.h"))]
    for page in pages:
        page.blocks += see_also(page, pages)
    everything = [overview(pages), *pages]
    if options.vimbractl:
        everything.append(programs.vimbractl(shlex.split(options.vimbractl)))
    if options.vimbrad:
        everything.append(programs.vimbrad(shlex.split(options.vimbrad),
                                           ROOT / "tools/vimbrad/README.md"))

    for name, (summary, also) in HELPERS.items():
        if program := getattr(options, name.replace("-", "_")):
            everything.append(programs.helper(shlex.split(program), name, summary, also))

    reference = browser.Writer(everything, options.version)
    (options.out / "html").mkdir(parents=True, exist_ok=True)
    for page in everything:
        directory = options.out / "man" / f"man{page.section}"
        directory.mkdir(parents=True, exist_ok=True)
        (directory / page.file).write_text(roff.write(page, options.version, options.date))
        for name in page.also:
            (directory / f"{name}.{page.section}").write_text(
                f".so man{page.section}/{page.file}\n")
        (options.out / "html" / f"{page.file}.html").write_text(reference.page(page))
    (options.out / "html/index.html").write_text(reference.index(everything))


if __name__ == "__main__":
    sys.exit(main())
