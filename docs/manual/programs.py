"""Reads the help texts of the two programs, so that their pages cannot say anything else."""
import re
import subprocess

import markdown
from document import Page


def run(command):
    return subprocess.run(command, check=True, capture_output=True, text=True,
                          env={"NO_COLOR": "1", "LC_ALL": "C", "COLUMNS": "80"}).stdout


def entries(lines):
    """Two columns, the second of which may go on below: [(name, told), ...]."""
    found = []
    for line in lines:
        if match := re.match(r"  (\S.*?)(?:  +(.*))?$", line):
            found.append([match[1], match[2] or ""])
        elif found:
            found[-1][1] += " " + line.strip()
    return [(name, " ".join(told.split())) for name, told in found]


def sections(text):
    """What comes before the first heading line, and the lines below each: "Options:" and its like."""
    about, parts, current = [], {}, None
    for line in text.rstrip().split("\n"):
        if re.match(r"Usage: ", line):
            parts["Usage"] = [line[len("Usage: ") :]]
        elif match := re.match(r"([A-Z][a-z ]+):$", line):
            current = parts.setdefault(match[1], [])
        elif line and not line.startswith(" ") and current is not None:
            current = None
            about.append(line)
        elif current is not None:
            current.append(line)
        else:
            about.append(line)
    return " ".join(" ".join(about).split()), parts


def command_blocks(program, words, told_options):
    """The blocks of a command and of those below it."""
    about, parts = sections(run([*program, *words, "--help"]))
    blocks = []
    if words:
        blocks += [("heading", 2, " ".join(words)), ("code", parts["Usage"][0]), ("text", about)]
        if "Arguments" in parts:
            blocks.append(("terms", entries(parts["Arguments"])))
        own = [entry for entry in entries(parts.get("Options", [])) if entry not in told_options]
        if own:
            blocks.append(("terms", own))
        if "Example" in parts:
            example = [line.strip() for line in parts["Example"] if line.strip()]
            blocks += [("text", "Example:"), ("code", "\n".join(example))]
    for name, _ in entries(parts.get("Commands", [])):
        blocks += command_blocks(program, [*words, name], told_options)
    return blocks


def vimbractl(program):
    about, parts = sections(run([*program, "--help"]))
    options = entries(parts["Options"])
    blocks = [("heading", 1, "SYNOPSIS"), ("code", parts["Usage"][0]),
              ("heading", 1, "DESCRIPTION"), ("text", about),
              ("heading", 1, "OPTIONS"), ("terms", options),
              ("heading", 1, "COMMANDS"),
              *command_blocks(program, [], options),
              ("heading", 1, "EXIT STATUS"), ("terms", entries(parts["Exit status"])),
              ("heading", 1, "ENVIRONMENT"),
              ("terms", [("NO_COLOR", "no colours, also on a terminal")]),
              ("heading", 1, "SEE ALSO"), ("text", "vimbrad(8), vimbra(7)")]
    return Page("vimbractl", 1, "show and set the networking of a device", blocks)


def vimbrad(program, readme):
    about, parts = sections(run([*program, "--help"]))
    text = readme.read_text()
    text = text[text.index("## Coming and going") :]
    blocks = [("heading", 1, "SYNOPSIS"), ("code", parts["Usage"][0] if "Usage" in parts else ""),
              ("heading", 1, "DESCRIPTION"),
              ("text", "Carries out on the running kernel what applications ask for through "
                       "libvimbra. It listens on `/tmp/api_daemon` and stays in the foreground."),
              ("heading", 1, "OPTIONS"),
              ("terms", entries(line for line in about_lines(run([*program, "--help"])))),
              ("heading", 1, "EXIT STATUS"),
              ("text", "0 ended by a signal, 1 could not run, 2 wrong usage."),
              *markdown.read(text),
              ("heading", 1, "FILES"),
              ("terms", [("/tmp/api_daemon", "the socket of applications"),
                         ("/run/vimbrad", "what it keeps while the machine is up, root's alone"),
                         ("/run/vimbrad/status", "the socket of operators"),
                         ("/run/vimbrad/state.json", "what its next life takes up")]),
              ("heading", 1, "SEE ALSO"), ("text", "vimbractl(1), vimbra(7)")]
    return Page("vimbrad", 8, "network daemon that serves applications of libvimbra", blocks)


def helper(program, name, summary, also):
    """A program whose help text is its whole manual."""
    text = subprocess.run([*program, "--help"], check=False, capture_output=True, text=True,
                          env={"NO_COLOR": "1", "LC_ALL": "C"})
    told = (text.stdout or text.stderr).strip().replace(program[-1], name)
    blocks = [("heading", 1, "SYNOPSIS"), ("code", f"{name} --help"),
              ("heading", 1, "DESCRIPTION"), ("code", told),
              ("heading", 1, "SEE ALSO"), ("text", also)]
    return Page(name, 1, summary, blocks)


def about_lines(text):
    """The option lines of a help text without headings."""
    return [line for line in text.split("\n") if re.match(r"  \s*(-\w|\S)|\s{10,}", line)]
