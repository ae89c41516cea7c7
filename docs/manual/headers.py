"""Reads public headers: each is a page, made of the comments that stand there."""
import re

from document import Page, first_sentence

# A comment, or a token of what it stands before.
COMMENT = re.compile(r"/\*\*(?!<)(?P<doc>.*?)\*/", re.DOTALL)


def unstar(comment):
    """A comment's lines without their stars."""
    return "\n".join(re.sub(r"^ ?\* ?", "", line.strip()) for line in comment.strip().split("\n"))


def blocks_of(text):
    """Paragraphs and bullets of a comment without tags."""
    blocks = []
    for paragraph in re.split(r"\n\s*\n", text.strip()):
        before, *bullets = re.split(r"(?:^|\n)\s*- ", paragraph)
        if before.strip():
            blocks.append(("text", " ".join(before.split())))
        if bullets:
            blocks.append(("list", [[("text", " ".join(item.split()))] for item in bullets]))
    return blocks


def split_tags(doc):
    """The text of a comment, and what its @param, @retval and @return lines say."""
    text, *tags = re.split(r"(?:^|\n)@(?=param|retval|return)", doc)
    params, results = [], []
    for tag in tags:
        tag, _, later = tag.partition("\n\n")  # a paragraph behind the tags belongs to the text
        text += "\n\n" + later
        kind, _, rest = tag.partition(" ")
        if kind == "return":
            results.append(("", " ".join(rest.split())))
        else:
            name, _, told = rest.strip().partition(" ")
            (params if kind == "param" else results).append((name, " ".join(told.split())))
    return text, params, results


def end_of_statement(source, start):
    """Where the declaration that begins at start ends; a definition of a macro is a logical line."""
    if source[start] == "#":
        match = re.compile(r"(?:[^\n\\]|\\\n|\\.)*").match(source, start)
        return match.end()
    depth = 0
    for match in re.compile(r"/\*.*?\*/|[{};]", re.DOTALL).finditer(source, start):
        token = match.group()
        depth += {"{": 1, "}": -1}.get(token, 0)
        if token == ";" and depth == 0:
            return match.end()
    raise ValueError(f"a declaration without end: {source[start:start + 60]!r}")


def tidy(statement):
    """A declaration as an application sees it."""
    statement = re.sub(r"\bVIMBRA_API ", "", statement)
    statement = re.sub(r"\s*\bVIMBRA_ENUM32\b", "", statement)
    return re.sub(r"\s*__attribute__ *\(\((?:[^()]|\([^()]*\))*\)\)", "", statement).strip()


def name_of(statement):
    """The function or variable that is declared; None for everything else."""
    if "VIMBRA_API" not in statement or statement.startswith("#"):
        return None
    plain = re.sub(r"__attribute__ *\(\((?:[^()]|\([^()]*\))*\)\)", "", statement)
    function = re.search(r"(\w+)\s*\(", plain)
    return function[1] if function else re.search(r"(\w+)\s*(?:\[[^\]]*\])*\s*;", plain)[1]


def declarations(source):
    """(comment, statement) of everything that has a comment of its own, in order."""
    for match in COMMENT.finditer(source):
        doc = unstar(match["doc"])
        if doc.startswith("@file"):
            continue
        rest = source[match.end() :]
        gap = re.match(r"\n(?=\S)", rest)
        if not gap:
            continue  # inside a record, or above nothing
        start = match.end() + gap.end()
        if source[start:].startswith(("VIMBRA_BEGIN", "VIMBRA_END")):
            continue
        yield doc, source[start : end_of_statement(source, start)]


def read(path, version):
    """The page of a header."""
    source = path.read_text()
    about = unstar(re.search(r"/\*\*(.*?@file.*?)\*/", source, re.DOTALL)[1])
    about = about.replace("@file", "", 1).strip()
    calls, types = [], []
    for doc, statement in declarations(source):
        (calls if name_of(statement) else types).append((doc, statement))

    synopsis = f"#include <vimbra/{path.name}>\n\n" + "\n".join(
        tidy(statement) for _, statement in calls)
    blocks = [("heading", 1, "SYNOPSIS"), ("code", synopsis + "\n\ncc program.c -lvimbra")]
    blocks += [("heading", 1, "DESCRIPTION"), *blocks_of(about)]
    for doc, statement in calls:
        text, params, results = split_tags(doc)
        blocks.append(("heading", 2, name_of(statement)))
        blocks.append(("code", tidy(statement)))
        blocks += blocks_of(text)
        if params:
            blocks += [("text", "**Parameters**"), ("terms", params)]
        if results and results[0][0]:
            blocks += [("text", "**Returns**"), ("terms", results)]
        elif results:
            blocks.append(("text", "**Returns** " + results[0][1]))
    if types:
        blocks.append(("heading", 1, "TYPES AND CONSTANTS"))
        for doc, statement in types:
            blocks += blocks_of(split_tags(doc)[0])
            _, params, results = split_tags(doc)
            blocks.append(("code", tidy(statement)))
            if params or results:
                blocks.append(("terms", params + [(name or "returns", told)
                                                  for name, told in results]))
    names = [name_of(statement) for _, statement in calls]
    return Page(f"vimbra_{path.stem}", 3, first_sentence(about), blocks, names)
