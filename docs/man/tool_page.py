#!/usr/bin/env python3
"""velkor(1) out of what the tool itself says to --help, command by command.

    tool_page.py TEMPLATE VERSION MAN_DIRECTORY TOOL [ARGUMENT...]
"""

import re
import subprocess
import sys

import roff

SECTIONS = ("Positionals", "Options", "Subcommands")


class Help:
    """One answer to --help, taken apart."""

    def __init__(self, text):
        head, _, rest = text.partition("\nUsage: ")
        self.purpose = head.strip()
        usage, _, rest = rest.partition("\n")
        self.usage = usage.strip()
        self.entries = {section: [] for section in SECTIONS}
        self.footer = []
        section = None
        for line in rest.split("\n"):
            title = line.rstrip(":")
            if title in SECTIONS and line.endswith(":"):
                section = title
            elif section and re.match(r" {2}\S", line):
                term, _, meaning = line.strip().partition("  ")
                self.entries[section].append([term, meaning.strip()])
            elif section and line.startswith("   ") and self.entries[section]:
                self.entries[section][-1][1] += " " + line.strip()
            elif line.strip():
                section = None
                self.footer.append(line)


def ask(tool, words):
    answer = subprocess.run([*tool, *words, "--help"], check=True, capture_output=True, text=True)
    return Help(answer.stdout)


def option(term):
    """-c,--count N=4 as a person writes it."""
    names, _, value = term.partition(" ")
    value = value.replace(" REQUIRED", "")
    return ", ".join(roff.bold(name) for name in names.split(",")) + (" " + roff.italic(value) if value else "")


def positional(term):
    return roff.italic(re.sub(r" (TEXT|INT|UINT|FLOAT|REQUIRED|\.\.\.)", "", term))


def footer_lines(lines):
    """Sentences run on; what stands indented, or is an example, stays as it is typed."""
    result = []
    running = []
    for line in lines + [None]:
        example = line is not None and re.match(r"Examples?: (.*)|(\s+\S.*)", line)
        if (line is None or example) and running:
            result += [".sp", *roff.paragraph(roff.escape(" ".join(running)))]
            running = []
        if example:
            result += roff.example(example.group(1) or example.group(2).strip())
        elif line is not None:
            running.append(line)
    return result


def section(words, answer, general_footer):
    usage = re.sub(r"^\S+", "velkor", answer.usage)
    lines = [f'.SS "{roff.escape(" ".join(["velkor", *words]))}"']
    lines += roff.paragraph(roff.escape(answer.purpose) + ".")
    lines += [".sp", rf"\fB{roff.escape(usage)}\fP"]
    items = [(positional(term), meaning) for term, meaning in answer.entries["Positionals"]]
    items += [(option(term), meaning) for term, meaning in answer.entries["Options"] if "--help" not in term]
    entries = []
    for term, meaning in items:
        entries += roff.item(term, roff.paragraph(roff.escape(meaning)))
    lines += roff.indented(entries) if entries else []
    if answer.footer != general_footer:
        lines += footer_lines(answer.footer)
    return lines


def walk(tool, words, general_footer):
    answer = ask(tool, words)
    names = [term for term, _ in answer.entries["Subcommands"]]
    lines = []
    if words:
        lines += section(words, answer, general_footer)
    for name in names:
        lines += walk(tool, [*words, name], general_footer)
    return lines


def main():
    template, version, directory, *tool = sys.argv[1:]
    general = ask(tool, [])
    if not general.entries["Subcommands"]:
        sys.exit("the tool names no command in its help")
    families = []
    for name, meaning in general.entries["Subcommands"]:
        families += roff.item(roff.bold(name), roff.paragraph(roff.escape(meaning)))
    commands = walk(tool, [], general.footer)
    roff.remove_old(directory, 1)
    page = roff.fill_template(template, {"FAMILIES": families, "COMMANDS": commands})
    roff.write(directory, "velkor", 1, roff.title("velkor", 1, version) + page)
    print(f"velkor(1), {sum(line.startswith('.SS') for line in commands)} commands")


main()
