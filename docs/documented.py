#!/usr/bin/env python3
"""Every exported name and every parameter is documented in the public headers, every import also in docs/porting.md.

    documented.py XML_DIRECTORY SOURCE_DIRECTORY

The XML is Doxygen's. A parameter is documented where the text of its function has an entry for it or speaks of it by
name, or where that text refers to a function that documents a parameter of this name: "Otherwise as dvrMalloc()".
"""

import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree


def listed(path):
    lines = path.read_text(encoding="utf-8").splitlines()
    return {line.split("#")[0].strip() for line in lines} - {""}


class Name:
    """A function, variable, constant or type of a header."""

    def __init__(self, header, member):
        self.header = header
        self.kind = member.get("kind")
        self.name = member.findtext("name")
        self.texts = [member.find("briefdescription"), member.find("detaileddescription")]
        self.parameters = [] if self.kind == "define" else self.declared(member)

    @staticmethod
    def declared(member):
        return [name for name in (param.findtext("declname") for param in member.findall("param")) if name]

    def is_described(self):
        return any("".join(text.itertext()).strip() for text in self.texts)

    def spoken_of(self):
        words = set()
        for text in self.texts:
            for element in text.iter():
                if element.tag in ("parametername", "computeroutput"):
                    words.update(re.findall(r"\w+", "".join(element.itertext())))
        return words

    def references(self):
        return {element.get("refid") for text in self.texts for element in text.iter("ref")}


def read(directory):
    names = {}
    for path in sorted(pathlib.Path(directory).glob("*_8h.xml")):
        compound = ElementTree.parse(path).getroot().find("compounddef")
        for member in compound.iter("memberdef"):
            names[member.get("id")] = Name(compound.findtext("compoundname"), member)
    return names


def is_documented(parameter, name, names, seen=()):
    if parameter in name.spoken_of():
        return True
    others = [names[reference] for reference in name.references() if reference in names]
    return any(parameter in other.parameters and is_documented(parameter, other, names, (*seen, name))
               for other in others if other not in seen)


def imports(names):
    return {name.name for name in names.values() if name.header == "firmware.h" and name.kind in ("function", "variable")}


def main():
    names = read(sys.argv[1])
    source = pathlib.Path(sys.argv[2])
    known = {name.name for name in names.values()}
    exported = listed(source / "cmake/exports.txt") - listed(source / "cmake/exports-pending.txt")
    porting = (source / "docs/porting.md").read_text(encoding="utf-8")
    gaps = [f"{name} is in no header" for name in exported - known]
    gaps += [f"docs/porting.md does not list {name}" for name in imports(names) if f"| `{name}` |" not in porting]
    parameters = 0
    for name in names.values():
        if not name.is_described():
            gaps.append(f"{name.header}: {name.name} is not described")
        for parameter in name.parameters:
            parameters += 1
            if not is_documented(parameter, name, names):
                gaps.append(f"{name.header}: {name.name}() does not say what {parameter} is")
    for gap in sorted(gaps):
        print(gap)
    print(f"{len(known)} names, {parameters} parameters, {len(gaps)} gaps")
    return 1 if gaps or not parameters else 0


sys.exit(main())
