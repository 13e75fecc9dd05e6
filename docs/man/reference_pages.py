#!/usr/bin/env python3
"""Section 3 of the manual out of the headers: libvelkor(3), one page a header, and a way to it from each name.

    reference_pages.py XML_DIRECTORY SOURCE_DIRECTORY VERSION MAN_DIRECTORY

The XML is Doxygen's, of the public headers.
"""

import pathlib
import re
import sys
import textwrap
import xml.etree.ElementTree as ElementTree

import roff

# Names under which people look for a page, beside that of its header.
ALSO_KNOWN_AS = {"velkor-diagnostics": ["velkor-log"], "velkor-configuration": ["velkor-ini"]}
NOT_A_SUBSYSTEM = "api.h"  # its text, the conventions of all headers, is in libvelkor(3)


# ---- Marked-up text ---------------------------------------------------------------------------------------------------

FONTS = {"bold": "B", "ref": "B", "emphasis": "I", "computeroutput": "I"}
SYMBOLS = {"lsquo": r"\(oq", "rsquo": r"\(cq", "ndash": r"\(en", "mdash": r"\(em", "nonbreakablespace": r"\ "}


def inline(element):
    """An element's text, and what is inside it, but for the blocks."""
    text = roff.escape(element.text or "")
    for child in element:
        if child.tag in SYMBOLS:
            text += SYMBOLS[child.tag]
        elif child.tag not in BLOCKS:
            inside = inline(child)
            font = FONTS.get(child.tag)
            # Names are not to be hyphenated.
            text += rf"\f{font}\%{inside}\fP" if font and inside else inside
        text += roff.escape(child.tail or "")
    return text


def parameter_list(element):
    lines = []
    for item in element.findall("parameteritem"):
        names = [roff.escape("".join(name.itertext())) for name in item.iter("parametername")]
        font = "I" if element.get("kind") == "param" else "B"
        lines += roff.item(rf"\f{font}{', '.join(names)}\fP", blocks(item.find("parameterdescription")))
    return roff.indented(lines)


def result(element):
    return roff.indented(blocks(element))


def bullets(element):
    lines = []
    for item in element.findall("listitem"):
        lines += [r".IP \(bu 2", *blocks(item)]
    return [".RS 2", *lines, ".RE"]


def table(element):
    rows = [[inline(entry.find("para")).strip() for entry in row] for row in element.findall("row")]
    columns = len(rows[0])
    last = "lx" if columns > 1 else "l"
    lines = [".TS", "tab(@);", " ".join(["lb"] * columns), " ".join(["l"] * (columns - 1) + [last]) + "."]
    for row in rows:
        lines.append("@".join(f"T{{\n{roff.guarded(cell)}\nT}}" for cell in row))
    return [".PP", ".na", *"\n".join(lines).split("\n"), ".TE", ".ad", ".PP"]


def code(element):
    return roff.example("".join(element.itertext()))


BLOCKS = {
    "parameterlist": parameter_list,
    "simplesect": result,
    "itemizedlist": bullets,
    "table": table,
    "verbatim": code,
    "programlisting": code,
    "para": lambda element: blocks_of_paragraph(element),
}


def heading_of(block):
    """What stands above a block: results come as a text, as a list of codes, or as both."""
    if block.tag == "simplesect" or block.get("kind") == "retval":
        return "Results:"
    return "Parameters:" if block.tag == "parameterlist" else None


def blocks_of_paragraph(element):
    """A paragraph of Doxygen's holds lists, tables and results between its texts."""
    lines = []
    pending = roff.escape(element.text or "")
    last_heading = None
    for child in element:
        if child.tag in BLOCKS:
            lines += roff.paragraph(pending)
            heading = heading_of(child)
            if heading and heading != last_heading:
                lines += [".sp", heading]
            last_heading = heading
            lines += BLOCKS[child.tag](child)
            pending = roff.escape(child.tail or "")
        else:
            shell = ElementTree.Element("shell")
            shell.append(child)
            pending += inline(shell)
    return lines + roff.paragraph(pending)


def blocks(element):
    """A description, its paragraphs apart."""
    lines = []
    for child in element if element is not None else []:
        inside = BLOCKS[child.tag](child) if child.tag in BLOCKS else []
        if lines and inside and not inside[0].startswith("."):
            lines.append(".sp")
        lines += inside
    return lines


def described(member):
    """The first sentence, and what follows it."""
    lines = blocks(member.find("briefdescription"))
    more = blocks(member.find("detaileddescription"))
    return lines + more


# ---- Declarations -----------------------------------------------------------------------------------------------------


def spaced(kind, name):
    kind = re.sub(r"(?<=\w)\(\*$", " (*", kind)  # a pointer to a function
    return f"{kind}{name}" if kind.endswith("*") else f"{kind} {name}"


def text_of(element):
    """The text of a type, which may hold references."""
    return " ".join("".join(element.itertext()).split()) if element is not None else ""


def declaration(member):
    kind = text_of(member.find("type"))
    name = member.findtext("name")
    arguments = " ".join((member.findtext("argsstring") or "").replace(",...", ", ...").split())
    if member.get("kind") == "define":
        return f"#define {name} {text_of(member.find('initializer'))}".strip()
    if member.get("kind") == "typedef":
        return f"typedef {spaced(kind, name)}{arguments};"
    return f"{spaced(kind, name)}{arguments};"


def folded(text):
    """A declaration, its further lines indented behind the bracket; a parameter stays in one piece."""
    bracket = text.find("(")
    indent = " " * min(bracket + 1, 16) if bracket >= 0 else "    "
    pieces = re.sub(r"(?<!,) ", "\N{NO-BREAK SPACE}", text)
    lines = textwrap.wrap(pieces, 76, subsequent_indent=indent, break_long_words=False, break_on_hyphens=False)
    return [rf"\fB{roff.escape(line)}\fP".replace("\N{NO-BREAK SPACE}", " ") for line in lines]


def values(member):
    lines = []
    for value in member.findall("enumvalue"):
        initializer = (value.findtext("initializer") or "").lstrip("= ")
        term = roff.bold(value.findtext("name")) + (rf" ({roff.escape(initializer)})" if initializer else "")
        lines += roff.item(term, described(value))
    return roff.indented(lines)


def member_section(member):
    name = member.findtext("name")
    kind = member.get("kind")
    if kind == "enum":
        return [f".SS enum {roff.escape(name)}", *described(member), *values(member)]
    heading = f"{name}()" if kind == "function" else name
    return [f".SS {roff.escape(heading)}", ".nf", *folded(declaration(member)), ".fi", ".sp", *described(member)]


def record_section(record):
    lines = [f".SS struct {roff.escape(record.findtext('compoundname'))}", *described(record)]
    for member in record.iter("memberdef"):
        lines += roff.item(roff.bold(declaration(member)), described(member))
    return lines


# ---- Pages ------------------------------------------------------------------------------------------------------------


def is_documented(member):
    return bool("".join(member.find("briefdescription").itertext()).strip())


def line_of(member):
    return int(member.find("location").get("line"))


class Header:
    """One public header as Doxygen saw it."""

    def __init__(self, xml, path):
        self.compound = ElementTree.parse(path).getroot().find("compounddef")
        self.name = self.compound.findtext("compoundname")
        self.file = self.compound.find("location").get("file")
        self.page = "velkor-" + self.name.removesuffix(".h").removeprefix("velkor_").replace("_", "-")
        self.records = [
            ElementTree.parse(xml / f"{inner.get('refid')}.xml").getroot().find("compounddef")
            for inner in self.compound.findall("innerclass")
        ]

    def groups(self):
        """The groups in the order of the header."""
        sections = [section for section in self.compound.findall("sectiondef") if self.members(section)]
        return sorted(sections, key=lambda section: line_of(self.members(section)[0]))

    @staticmethod
    def members(section):
        return sorted(filter(is_documented, section.findall("memberdef")), key=line_of)

    def callables(self, section):
        return [m for m in self.members(section) if m.get("kind") in ("function", "variable")]

    def names(self):
        return [m.findtext("name") for section in self.groups() for m in self.callables(section)]

    def purpose(self):
        """The first words of the header's text."""
        text = "".join(self.compound.find("briefdescription").itertext())
        text = " ".join(text.split()).removeprefix("libvelkor-host: ") + " "
        words = re.split(r"[:.]\s", text)[0]
        return words if words.split()[0].isupper() else words[0].lower() + words[1:]

    def include(self):
        return "velkor_host.h" if self.name == "velkor_host.h" else f"velkor/{self.name}"

    def link(self):
        return "velkor-host" if self.name == "velkor_host.h" else "velkor"


def synopsis(header):
    lines = [".nf", f".B #include <{roff.escape(header.include())}>"]
    for section in header.groups():
        callables = header.callables(section)
        if callables:
            lines.append(".sp")
        for member in callables:
            prefix = "extern " if member.get("kind") == "variable" else ""
            lines += folded(prefix + declaration(member))
    return [*lines, ".fi", ".sp", f"Link with \\fI$(pkg\\-config \\-\\-libs {roff.escape(header.link())})\\fP."]


def group(section):
    heading = section.findtext("header") or {"func": "Functions", "var": "Variables", "define": "Constants",
                                             "enum": "Enumerations", "typedef": "Types"}[section.get("kind")]
    lines = [f'.SH "{roff.escape(heading.upper())}"', *blocks(section.find("description"))]
    for member in Header.members(section):
        lines += member_section(member)
    return lines


def see_also(header, headers):
    pages = sorted(other.page for other in headers if other is not header)
    names = [rf"\fB{roff.escape(page)}\fP(3)" for page in ["libvelkor", *pages]]
    return [".SH SEE ALSO", *roff.paragraph(", ".join(names) + r", \fBvelkor\fP(1)")]


def page_of(header, headers, version):
    lines = roff.title(header.page, 3, version, has_tables=True)
    lines += [".SH NAME", rf"{roff.escape(header.page)} \- {roff.escape(header.purpose())}"]
    lines += [".SH SYNOPSIS", *synopsis(header), ".SH DESCRIPTION", *described(header.compound)]
    for section in header.groups():
        lines += group(section)
    if header.records:
        lines.append('.SH "RECORDS"')
        for record in header.records:
            lines += record_section(record)
    lines += ['.SH "RESULTS AND THREADS"', *roff.paragraph(
        r"What a function answers is said at the function. \(lqThread\-safe\(rq and \(lqreentrant\(rq mean what "
        r"\fBlibvelkor\fP(3) says.")]
    return lines + see_also(header, headers)


def overview(headers, source, version, conventions):
    pages = []
    for header in sorted(headers, key=lambda header: header.page):
        pages += roff.item(rf"\fB{roff.escape(header.page)}\fP(3)", roff.paragraph(roff.escape(header.purpose())))
    hello = (source / "examples/hello_log.c").read_text(encoding="utf-8")
    body = roff.fill_template(source / "docs/man/libvelkor.3.in",
                              {"PAGES": pages, "CONVENTIONS": conventions, "EXAMPLE": roff.example(hello)})
    return roff.title("libvelkor", 3, version) + body


def main():
    xml, source, version, directory = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3], sys.argv[4]
    every = [Header(xml, path) for path in sorted(xml.glob("*_8h.xml"))]
    headers = [header for header in every if header.name != NOT_A_SUBSYSTEM]
    conventions = [bullets(header.compound.find(".//itemizedlist")) for header in every
                   if header.name == NOT_A_SUBSYSTEM][0]
    roff.remove_old(directory, 3)
    roff.write(directory, "libvelkor", 3, overview(headers, source, version, conventions))
    count = 0
    for header in headers:
        roff.write(directory, header.page, 3, page_of(header, headers, version))
        for name in ALSO_KNOWN_AS.get(header.page, []):
            roff.write(directory, name, 3, [f".so man3/{header.page}.3"])
        # Names such as mod(3) are common words: in a section of their own they are in nobody's way.
        for name in header.names():
            roff.write(directory, name, 3, [f".so man3/{header.page}.3"], extension="3velkor")
            count += 1
    print(f"libvelkor(3), {len(headers)} pages of headers, {count} names")


main()
