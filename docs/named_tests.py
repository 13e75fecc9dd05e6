#!/usr/bin/env python3
"""Every test that a document names is there, and every trait of docs/compatibility.md names one.

    named_tests.py SOURCE_DIRECTORY
"""

import pathlib
import re
import sys

TRAITS_HEAD = "| trait | why it stays | at the edge | test |"
NAMED = re.compile(r"`([A-Z]\w*)\.(\*|[A-Z]\w*)`")
DEFINED = re.compile(r"\bTEST(?:_F|_P)?\(\s*(\w+)\s*,\s*(\w+)\s*\)")
ADDED = re.compile(r"add_test\(NAME (\w+)\.(\w+)")


def tests_of(source):
    found = set()
    for path in source.glob("tests/**/*"):
        if path.suffix == ".cpp":
            found.update(DEFINED.findall(path.read_text(encoding="utf-8")))
        elif path.name == "CMakeLists.txt":
            found.update(ADDED.findall(path.read_text(encoding="utf-8")))
    return found


def cells(row):
    return [cell.strip() for cell in re.split(r"(?<!\\)\|", row.strip().strip("|"))]


def faults_of_traits(path):
    """Each table of traits has the four columns, and no row leaves one out."""
    lines = path.read_text(encoding="utf-8").splitlines()
    for number, line in enumerate(lines, 1):
        place = f"{path.name}:{number}"
        if not line.startswith("|") or re.fullmatch(r"[|\- ]+", line):
            continue
        if not lines[number - 2].startswith("|"):
            if line != TRAITS_HEAD:
                yield f"{place}: a table with other columns"
        elif len(cells(line)) != 4 or not all(cells(line)):
            yield f"{place}: not four cells"
        elif not NAMED.search(cells(line)[3]):
            yield f"{place}: no test"


def main():
    source = pathlib.Path(sys.argv[1])
    tests = tests_of(source)
    suites = {suite for suite, _ in tests}
    faults = list(faults_of_traits(source / "docs/compatibility.md"))
    count = 0
    for path in sorted([*source.glob("*.md"), *source.glob("docs/*.md")]):
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            for suite, name in NAMED.findall(line):
                count += 1
                if not (suite in suites if name == "*" else (suite, name) in tests):
                    faults.append(f"{path.name}:{number}: there is no test {suite}.{name}")
    for fault in faults:
        print(fault)
    print(f"{count} tests named, {len(tests)} tests, {len(faults)} faults")
    return 1 if faults or not count else 0


sys.exit(main())
