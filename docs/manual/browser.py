"""Writes a page for a browser, and the page that leads to all of them."""
import html
import re

from document import inline

STYLE = """
body { max-width: 60em; margin: 2em auto; padding: 0 1em; line-height: 1.5;
       font-family: system-ui, sans-serif; color: #1b1b1b; background: #fff; }
pre { background: #f4f4f1; padding: .7em 1em; overflow-x: auto; }
code, pre { font-family: ui-monospace, monospace; font-size: .92em; }
dt { font-weight: 600; font-family: ui-monospace, monospace; }
table { border-collapse: collapse; }
th, td { border: 1px solid #ccc; padding: .25em .6em; text-align: left; vertical-align: top; }
h2 { border-bottom: 1px solid #ccc; }
@media (prefers-color-scheme: dark) {
  body { color: #ddd; background: #161616; } pre { background: #222; } a { color: #8ab4f8; }
}
"""


class Writer:
    def __init__(self, pages, version):
        self.version = version
        self.target = {}
        for page in pages:
            self.target[page.name] = f"{page.file}.html"
            for name in page.also:
                self.target[name] = f"{page.file}.html#{name}"

    def link(self, name, text):
        if name in self.target:
            return f'<a href="{self.target[name]}">{text}</a>'
        return text

    def formatted(self, text):
        pieces = []
        for kind, words, target in inline(text):
            safe = html.escape(words)
            if kind == "plain":
                pieces.append(safe)
            elif kind == "strong":
                pieces.append(f"<strong>{safe}</strong>")
            elif kind == "link":
                pieces.append(f'<a href="{html.escape(target)}">{safe}</a>')
            elif kind == "page":
                pieces.append(self.link(words, f"{safe}({target})"))
            elif kind == "header":
                page = "vimbra_" + words[len("vimbra/") : -2]
                pieces.append(self.link(page, f"<code>&lt;{safe}&gt;</code>"))
            elif kind == "call":
                pieces.append(self.link(words, f"<code>{safe}()</code>"))
            else:
                pieces.append(self.link(words, f"<code>{safe}</code>"))
        return "".join(pieces)

    def block(self, block):
        kind = block[0]
        if kind == "heading":
            level = block[1] + 1
            mark = re.sub(r"\W+", "-", block[2])
            return f'<h{level} id="{mark}">{self.formatted(block[2])}</h{level}>'
        if kind == "text":
            return f"<p>{self.formatted(block[1])}</p>"
        if kind == "code":
            return f"<pre>{html.escape(block[1])}</pre>"
        if kind == "terms":
            rows = "".join(f"<dt>{html.escape(term)}</dt><dd>{self.formatted(text)}</dd>"
                           for term, text in block[1])
            return f"<dl>{rows}</dl>"
        if kind == "list":
            items = "".join("<li>" + "".join(self.block(part) for part in item) + "</li>"
                            for item in block[1])
            return f"<ul>{items}</ul>"
        head, *rows = block[1]
        lines = ["<tr>" + "".join(f"<th>{self.formatted(cell)}</th>" for cell in head) + "</tr>"]
        lines += ["<tr>" + "".join(f"<td>{self.formatted(cell)}</td>" for cell in row) + "</tr>"
                  for row in rows]
        return "<table>" + "\n".join(lines) + "</table>"

    def document(self, title, body):
        return (f'<!DOCTYPE html>\n<html lang="en"><head><meta charset="utf-8">'
                f'<meta name="viewport" content="width=device-width">'
                f"<title>{html.escape(title)}</title><style>{STYLE}</style></head>\n<body>\n"
                f'<p><a href="index.html">Vimbra {self.version}</a></p>\n{body}\n</body></html>\n')

    def page(self, page):
        body = [f"<h1>{page.name}({page.section})</h1>",
                f"<p>{self.formatted(page.summary)}</p>"]
        body += [self.block(block) for block in page.blocks]
        return self.document(f"{page.name}({page.section})", "\n".join(body))

    def index(self, pages):
        body = ["<h1>Vimbra manual</h1>"]
        titles = {7: "To begin with", 1: "Programs", 8: "Daemon", 3: "Headers"}
        for section, title in titles.items():
            body.append(f"<h2>{title}</h2><dl>")
            for page in pages:
                if page.section == section:
                    name = self.link(page.name, f"{page.name}({section})")
                    body.append(f"<dt>{name}</dt><dd>{self.formatted(page.summary)}</dd>")
            body.append("</dl><h3>Names</h3><p>" if section == 3 else "</dl>")
        names = sorted(name for page in pages for name in page.also)
        body.append(", ".join(self.link(name, f"<code>{name}</code>") for name in names))
        return self.document("Vimbra manual", "\n".join(body) + "</p>")
