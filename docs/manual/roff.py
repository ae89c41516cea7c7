"""Writes a page for man(1)."""
import re

from document import inline


def escape(text):
    text = text.replace("\\", r"\e").replace("-", r"\-").replace("'", r"\(aq")
    text = text.replace("^", r"\(ha").replace("~", r"\(ti").replace("`", r"\(ga")
    return text.replace("→", r"\(->").replace("≤", r"\(<=").replace("…", "...")


def guarded(line):
    """A line that begins like a request is none."""
    return r"\&" + line if line[:1] in (".", "'") else line


def formatted(text):
    pieces = []
    for kind, words, target in inline(text):
        words = escape(words)
        if kind == "plain" or kind == "link":
            pieces.append(words if kind == "plain" else f"{words} ({escape(target)})")
        elif kind == "page":
            pieces.append(rf"\fB{words}\fR({target})")
        elif kind == "header":
            pieces.append(rf"\fI<{words}>\fR")
        elif kind == "call":
            pieces.append(rf"\fB{words}\fR()")
        else:
            pieces.append(rf"\fB{words}\fR")
    return guarded("".join(pieces))


def write_block(block, out):
    kind = block[0]
    if kind == "heading":
        out.append(f".{'SH' if block[1] == 1 else 'SS'} {escape(block[2]).replace('`', '')}")
    elif kind == "text":
        out += [".PP", formatted(block[1])]
    elif kind == "code":
        out += [".PP", ".in +4n", ".nf", *(guarded(escape(line)) for line in block[1].split("\n")),
                ".fi", ".in"]
    elif kind == "terms":
        for term, text in block[1]:
            out += [".TP", rf"\fB{escape(term)}\fR", formatted(text) or r"\&"]
    elif kind == "list":
        for item in block[1]:
            out += [r".IP \(bu 3", formatted(item[0][1])]
            for more in item[1:]:
                write_block(more, out)
    elif kind == "table":
        head, *rows = block[1]
        for row in rows:
            out += [".TP", formatted(row[0]) or r"\&"]
            told = [f"{name}: {cell}" if index else cell
                    for index, (name, cell) in enumerate(zip(head[1:], row[1:])) if cell]
            out.append(formatted("; ".join(told)) or r"\&")


def write(page, version, date):
    names = ", ".join(escape(name) for name in [page.name, *page.also])
    out = [f'.TH {page.name.upper()} {page.section} "{date}" "Vimbra {version}" "Vimbra Manual"',
           ".SH NAME", rf"{names} \- {escape(page.summary)}"]
    for block in page.blocks:
        write_block(block, out)
    text = "\n".join(out) + "\n"
    # A paragraph begins by itself behind a heading.
    return re.sub(r"(?m)^(\.S[HS] .*\n)\.PP\n", r"\1", text)
