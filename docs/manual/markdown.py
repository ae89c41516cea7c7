"""Reads as much of Markdown as the project's documents use."""
import re


def read(text, shift=0):
    """Blocks; headings are `shift` levels lower than they stand. The title, # ..., is left out."""
    lines = text.split("\n")
    blocks = []
    position = 0

    def paragraph(start):
        end = start
        while end < len(lines) and lines[end].strip():
            end += 1
        return end

    while position < len(lines):
        line = lines[position]
        if not line.strip():
            position += 1
        elif heading := re.match(r"(#+) (.*)", line):
            if len(heading[1]) > 1:
                blocks.append(("heading", len(heading[1]) - 1 + shift, heading[2]))
            position += 1
        elif line.startswith("```"):
            end = lines.index("```", position + 1)
            blocks.append(("code", "\n".join(lines[position + 1 : end])))
            position = end + 1
        elif line.startswith("    "):
            end = position
            while end < len(lines) and (lines[end].startswith("    ") or not lines[end].strip()):
                end += 1
            blocks.append(("code", "\n".join(text[4:] for text in lines[position:end]).rstrip()))
            position = end
        elif line.startswith("|"):
            end = paragraph(position)
            rows = [[cell.strip() for cell in re.split(r"(?<!\\)\|", row.strip().strip("|"))]
                    for row in lines[position:end]]
            blocks.append(("table", [rows[0]] + rows[2:]))
            position = end
        elif re.match(r"[*-] ", line):
            end = paragraph(position)
            items = re.split(r"(?:^|\n)[*-] ", "\n".join(lines[position:end]))[1:]
            blocks.append(("list", [[("text", " ".join(item.split()))] for item in items]))
            position = end
        else:
            end = paragraph(position)
            blocks.append(("text", " ".join(" ".join(lines[position:end]).split())))
            position = end
    return blocks
