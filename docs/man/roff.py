"""The small part of the language of manual pages that these pages are written in."""

import gzip
import pathlib
import re
import textwrap

# In running text a page must show the characters that are meant, so that options and code can be copied from it.
SPECIAL = str.maketrans({"\\": r"\e", "-": r"\-", "^": r"\(ha", "~": r"\(ti", "`": r"\(ga", "'": r"\(aq"})


def escape(text):
    return text.translate(SPECIAL)


def bold(text):
    return rf"\fB{escape(text)}\fP"


def italic(text):
    return rf"\fI{escape(text)}\fP"


def guarded(line):
    """A line that begins with a dot or an apostrophe would be taken for a request."""
    return r"\&" + line if re.match(r"(\\f.)?[.']", line) else line


def paragraph(text, indent=""):
    """Marked-up text as source lines, each sentence on lines of its own."""
    lines = []
    for sentence in re.split(r"(?<=[.:?!])\s+(?=[A-Z\\\"(*])", " ".join(text.split())):
        lines += textwrap.wrap(sentence, 110, break_long_words=False, break_on_hyphens=False)
    return [indent + guarded(line) for line in lines]


def example(text):
    body = textwrap.dedent(text.expandtabs(4)).strip("\n").split("\n")
    return [".PP", ".RS 4", ".EX", *(guarded(escape(line)) for line in body), ".EE", ".RE", ".PP"]


def item(term, body):
    """A term in marked-up text, and the lines of its explanation beside or below it."""
    return [".TP", guarded(term), *(body or [r"\&"])]


def indented(lines):
    """A list, or a text, set off and without blank lines between its items."""
    return [".RS 4", ".PD 0", *lines, ".PD", ".RE"]


def title(name, section, version, *, has_tables=False):
    lines = ["'\\\" t"] if has_tables else []
    # A terminal has no pages: without the second request a table that would lie across two of paper is complained of.
    return [*lines, f'.TH {escape(name.upper())} {section} "" "libvelkor {version}" "libvelkor"', ".if n .pl 1000i"]


def write(directory, name, section, lines, extension=None):
    """Compressed in the way in which Debian wants them, and the same bytes each time."""
    place = pathlib.Path(directory) / f"man{section}"
    place.mkdir(parents=True, exist_ok=True)
    text = "\n".join(lines) + "\n"
    page = place / f"{name}.{extension or section}.gz"
    page.write_bytes(gzip.compress(text.encode("utf-8"), 9, mtime=0))


def remove_old(directory, section):
    for page in (pathlib.Path(directory) / f"man{section}").glob("*.gz"):
        page.unlink()


def fill_template(template, replacements):
    """A page written by hand, in which a line @NAME@ stands for generated lines."""
    lines = []
    for line in pathlib.Path(template).read_text(encoding="utf-8").splitlines():
        match = re.fullmatch(r"@([A-Z]+)@", line)
        if match:
            lines += replacements[match.group(1)]
        else:
            lines.append(line)
    return lines
