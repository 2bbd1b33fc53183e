"""Manual pages in the man(7) language: text made safe for it, and the few shapes that our pages have."""
import re
import textwrap

SIGNS = {"\\": r"\(rs", "-": r"\-", "'": r"\(aq", "`": r"\(ga", "^": r"\(ha", "~": r"\(ti"}


def safe(text):
    """Text as it stands, with no sign that the language takes for its own."""
    return "".join(SIGNS.get(sign, sign) for sign in text)


def bold(text):
    return rf"\fB{safe(text)}\fR"


def italic(text):
    return rf"\fI{safe(text)}\fR"


def lines(marked):
    """Text that is marked up already, in short lines of which none begins as a request does."""
    broken = textwrap.wrap(" ".join(marked.split()), 78, break_long_words=False, break_on_hyphens=False)
    return [rf"\&{line}" if line[:1] in ".'" else line for line in broken]


def plain(text):
    return lines(safe(text))


def code(text):
    """Lines that stay as they are."""
    rows = [safe(row) for row in text.rstrip("\n").split("\n")]
    return [".PP", ".RS 4", ".nf"] + [rf"\&{row}" if row[:1] in ("", ".") else row for row in rows] + [".fi", ".RE"]


def entry(term, *paragraphs):
    """A term, marked up already, and what is said of it. A long term stands on lines of its own."""
    if len(term) > 78:
        page = [".PP"] + lines(term)
        for number, paragraph in enumerate(paragraphs):
            page += [".RS" if not number else ".PP"] + lines(paragraph)
        return page + ([".RE"] if paragraphs else [])
    page = [".TP", term]
    for number, paragraph in enumerate(paragraphs):
        page += ([".IP"] if number else []) + lines(paragraph)
    return page


class Page:
    """One page. `date` and `source` are what its foot shows, the same for all pages of a release."""

    def __init__(self, name, section, date, source, title):
        self.name, self.section = name, section
        self.rows = [f'.TH {safe(name.upper())} {section} {date} "{safe(source)}" "{title}"',
                     ".\\\" Left-aligned, since names do not break.", ".ad l", ".nh"]

    def heading(self, text):
        self.rows.append(f'.SH "{safe(text)}"' if " " in text else f".SH {safe(text)}")

    def part(self, text):
        self.rows.append(f'.SS "{safe(text)}"')

    def add(self, rows):
        self.rows += rows

    def paragraph(self, rows):
        first = self.rows[-1].startswith((".SH", ".SS")) or rows[0].startswith(".IP")
        self.rows += rows if first else [".PP"] + rows

    def see_also(self, pages):
        """`pages` are names with their section: ("qlnmedia", 1)."""
        self.heading("SEE ALSO")
        for number, (name, section) in enumerate(pages):
            self.rows.append(rf".BR {safe(name)} ({section})" + ("," if number + 1 < len(pages) else ""))

    def write(self, folder):
        path = folder / f"man{self.section}" / f"{self.name}.{self.section}"
        path.parent.mkdir(parents=True, exist_ok=True)
        rows = [row for before, row in zip([""] + self.rows, self.rows)
                if row != ".PP" or not before.startswith((".SH", ".SS"))]
        path.write_text("\n".join(rows) + "\n", encoding="utf-8")


def first_small(text):
    """A sentence as the line of NAME has it: without its point, its first letter small where it begins a plain word."""
    text = " ".join(text.split()).rstrip(".")
    return text[:1].lower() + text[1:] if re.match(r"[A-Z][a-z]*[ ,]", text) else text
