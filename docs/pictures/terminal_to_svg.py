#!/usr/bin/env python3
"""Draw one moment of a terminal's typescript as SVG.

    script -qc './dev demo --fault link' typescript   # keeps what the terminal is sent
    docs/pictures/terminal_to_svg.py typescript --when 'is pulled' >docs/pictures/recorder.svg

Takes the last moment at which the text of --when was on the screen; without it, the last one before the program left
the alternate screen. Understands what this project's programs send: text, cursor addresses, erasing, colours.
"""
import argparse
import re
from xml.sax.saxutils import escape

COLOURS = {31: "#e95678", 32: "#27d796", 33: "#fab795"}
PAPER, INK = "#1c1e26", "#d5d8da"
CHARACTER, LINE, MARGIN = 8.43, 20, 16

TOKEN = re.compile(r"\x1b\[([?0-9;]*)([A-Za-z])|(.)", re.DOTALL)


class Terminal:
    def __init__(self, columns, rows):
        self.columns, self.rows = columns, rows
        self.style = ()
        self.erase()

    def erase(self):
        self.cells = [[(" ", ())] * self.columns for _ in range(self.rows)]
        self.row = self.column = 0

    def text(self):
        return "\n".join("".join(character for character, _ in row) for row in self.cells)

    def put(self, character):
        if character == "\n":
            self.row = min(self.row + 1, self.rows - 1)
        elif character == "\r":
            self.column = 0
        elif self.row < self.rows and self.column < self.columns:
            self.cells[self.row][self.column] = (character, self.style)
            self.column += 1

    def command(self, arguments, letter):
        if letter == "H":
            row, _, column = arguments.partition(";")
            self.row, self.column = int(row or 1) - 1, int(column or 1) - 1
        elif letter == "J":
            self.erase()
        elif letter == "K" and self.row < self.rows:
            self.cells[self.row][self.column:] = [(" ", ())] * (self.columns - self.column)
        elif letter == "m":
            numbers = tuple(int(number or 0) for number in arguments.split(";"))
            self.style = () if numbers == (0,) else self.style + numbers


def moment(typescript, columns, rows, wanted):
    """The cells at the moment that is asked for."""
    terminal = Terminal(columns, rows)
    found = None
    for arguments, letter, character in TOKEN.findall(typescript):
        is_leaving = letter == "l" and arguments == "?1049"
        # A frame begins at the top: what is on the screen then is the frame before.
        if is_leaving or (letter == "H" and arguments in ("", "1;1")):
            if wanted in terminal.text():
                found = [list(row) for row in terminal.cells]
        if is_leaving:
            break
        if letter:
            terminal.command(arguments, letter)
        else:
            terminal.put(character)
    if found is None:
        raise SystemExit(f"'{wanted}' was never on the screen")
    return found


def runs(row):
    """The row as (column, text, style), a run for each style."""
    begin = 0
    for end in range(1, len(row) + 1):
        if end == len(row) or row[end][1] != row[begin][1]:
            yield begin, "".join(character for character, _ in row[begin:end]), row[begin][1]
            begin = end


def svg(cells):
    width, height = round(len(cells[0]) * CHARACTER + 2 * MARGIN), len(cells) * LINE + 28
    yield f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" font-family="monospace" font-size="14">'
    yield f'<rect width="100%" height="100%" rx="6" fill="{PAPER}"/>'
    for number, row in enumerate(cells):
        base = 30 + number * LINE
        for column, text, style in runs(row):
            if not text.strip() and 7 not in style:
                continue
            x, length = MARGIN + column * CHARACTER, len(text) * CHARACTER
            ink = next((COLOURS[number] for number in style if number in COLOURS), INK)
            if 7 in style:
                yield f'<rect x="{x:.1f}" y="{base - 15}" width="{length:.1f}" height="{LINE}" fill="{ink}"/>'
                ink = PAPER
            weight = ' font-weight="bold"' if 1 in style else ""
            faint = ' opacity="0.6"' if 2 in style else ""
            yield (f'<text x="{x:.1f}" y="{base}" textLength="{length:.1f}" xml:space="preserve" '
                   f'fill="{ink}"{weight}{faint}>{escape(text)}</text>')
    yield "</svg>"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("typescript", help="what a terminal was sent, as script(1) records it")
    parser.add_argument("--size", default="80x24", help="columns and rows of that terminal")
    parser.add_argument("--when", default="", help="a text on the screen")
    options = parser.parse_args()
    columns, rows = map(int, options.size.split("x"))
    with open(options.typescript, encoding="utf-8", errors="replace", newline="") as file:
        print("\n".join(svg(moment(file.read(), columns, rows, options.when))))


if __name__ == "__main__":
    main()
