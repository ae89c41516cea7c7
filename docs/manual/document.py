"""What a manual page is made of, whatever it was read from and whatever it is written as.

A page is a list of blocks:

    ("heading", level, text)        level 1 is a section, 2 a subsection
    ("text", text)                  a paragraph
    ("list", [[block, ...], ...])   bullets, each of blocks
    ("terms", [(term, text), ...])  what is told of each of several things
    ("table", [[cell, ...], ...])   the first row is the head
    ("code", text)                  as it stands

Inside texts `words` are code, **words** are strong, and name(3) is another page.
"""
import dataclasses
import re


@dataclasses.dataclass
class Page:
    name: str  # of the file, without section
    section: int
    summary: str  # a phrase without full stop
    blocks: list
    also: list = dataclasses.field(default_factory=list)  # other names of the same page

    @property
    def file(self):
        return f"{self.name}.{self.section}"


def first_sentence(text):
    """The first sentence without its full stop, for lists of pages."""
    text = " ".join(text.split())
    end = re.search(r"(?<!RFC)[.:](?= [A-Z]|$)| - ", text)
    return text[: end.start()] if end else text


INLINE = re.compile(
    r"`(?P<code>[^`]+)`|\*\*(?P<strong>.+?)\*\*|\[(?P<label>[^\]]+)\]\((?P<target>https?://[^)\s]+)\)"
    r"|(?P<page>\b[A-Za-z_][\w.-]*)\((?P<section>[1-8])\)"
    r"|<(?P<header>vimbra/\w+\.h)>|(?P<call>\b[A-Za-z_]\w+)\(\)"
)


def inline(text):
    """The pieces of a text: (kind, words, target)."""
    position = 0
    for match in INLINE.finditer(text):
        if match.start() > position:
            yield "plain", text[position : match.start()], None
        position = match.end()
        if match["code"]:
            yield "code", match["code"], None
        elif match["strong"]:
            yield "strong", match["strong"], None
        elif match["label"]:
            yield "link", match["label"], match["target"]
        elif match["page"]:
            yield "page", match["page"], match["section"]
        elif match["header"]:
            yield "header", match["header"], None
        else:
            yield "call", match["call"], None
    if position < len(text):
        yield "plain", text[position:], None
