# SPDX-License-Identifier: GPL-2.0-only
"""The documents as data: their examples, tables and names, for the checks that hold them to the code.

What a fenced block is, its first line tells:

    ```c NAME.c         a whole program; it compiles, and is /bin/NAME in the machines
    ```c++ NAME.cpp     the same against the library libipfc, compiled only
    ```console          commands behind a prompt, and all that they print, errors included:
                          a# and b#   in two virtual machines, switches 1 and 2, of which each
                                      document gets fresh ones: modules just loaded, eth0 up
                          $           on this computer, where every frame NAME is NAME.pcap
    ```frame NAME       an Ethernet frame as a dump of its bytes
    ```text             a drawing, which nobody checks

A long command goes on behind a backslash, its next line behind "> ". One that ends in " &" is left
running. One that may fail is followed by "echo $?".

Comments in front of a block say what the reader need not see:

    <!-- varies: PATTERN -->    what the pattern matches is different each time; of a frame, PATTERN
                                is a list of byte numbers: 52-53, 82
    <!-- wait a: COMMAND -->    the switch repeats the command until it succeeds
    <!-- frame: FILTER -->      the frame is the first of the document's own on the link that
                                tshark's display filter lets through

Tables are known by the words in their first line; see the functions below.
"""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDER = ROOT / "docs"


class Wrong(Exception):
    """A document says what is not so."""


def expect(condition, what):
    if not condition:
        raise Wrong(what)


class Wait:
    def __init__(self, switch, command):
        self.switch, self.command = switch, command


class Command:
    """One command of a console block: where it runs, and the lines that it prints."""

    def __init__(self, place, text):
        self.place, self.text = place, text
        self.output = []


class Block:
    """A fenced block; `lines` is what stands between its fences, `first` the number of that line."""

    def __init__(self, document, words, first):
        self.document, self.kind, self.name = document, words[0], " ".join(words[1:])
        self.first, self.lines = first, []
        self.varies, self.filter = [], None

    @property
    def place(self):
        return f"{self.document.path.name}:{self.first}"

    @property
    def text(self):
        return "\n".join(self.lines) + "\n"

    def commands(self):
        found = []
        for line in self.lines:
            prompt = re.match(r"(a#|b#|\$) (.*)", line)
            if prompt:
                found.append(Command(prompt[1][0], prompt[2]))
            elif found and found[-1].text.endswith("\\") and line.startswith("> "):
                found[-1].text += "\n" + line[2:]
            else:
                expect(found, f"{self.place}: a console block begins with a command")
                found[-1].output.append(line)
        expect(found, f"{self.place}: no command in a console block")
        return found

    def frame(self):
        """The bytes of a dump: a column of offsets, then of bytes, then perhaps of letters."""
        content = b""
        for line in self.lines:
            offset, dumped = re.match(r"([0-9a-f]{4})  ((?:[0-9a-f]{2} ?)+)", line).groups()
            expect(int(offset, 16) == len(content), f"{self.place}: offset {offset}")
            content += bytes.fromhex(dumped)
        return content

    def varying_bytes(self):
        numbers = set()
        for part in ",".join(self.varies).split(","):
            begin, _, end = part.strip().partition("-")
            if begin:
                numbers |= set(range(int(begin), int(end or begin) + 1))
        return numbers

    def normalised(self, lines):
        text = "\n".join(lines)
        for pattern in self.varies:
            text = re.sub(pattern, "(varies)", text)
        return text


class Document:
    """One file: its blocks and waits in order, its tables, and its prose."""

    def __init__(self, path):
        self.path = path
        self.lines = path.read_text().splitlines()
        self.steps = []
        self.prose = []
        self._read()

    def _read(self):
        block, varies, frame = None, [], None
        for number, line in enumerate(self.lines, 1):
            if block is not None:
                if line == "```":
                    self.steps.append(block)
                    block = None
                else:
                    block.lines.append(line)
            elif line.startswith("```"):
                expect(len(line) > 3, f"{self.path.name}:{number}: a block without a kind")
                block = Block(self, line[3:].split(), number + 1)
                block.varies, block.filter = varies, frame
                varies, frame = [], None
            elif comment := re.fullmatch(r"<!-- (varies|frame|wait ([ab])): (.*) -->", line):
                if comment[2]:
                    self.steps.append(Wait(comment[2], comment[3]))
                elif comment[1] == "varies":
                    varies.append(comment[3])
                else:
                    frame = comment[3]
            else:
                expect("<!--" not in line, f"{self.path.name}:{number}: an unknown comment")
                self.prose.append(line)
        expect(block is None, f"{self.path.name}: a block has no end")

    def blocks(self, *kinds):
        """The blocks of these kinds, or of all."""
        found = [step for step in self.steps if isinstance(step, Block)]
        return [block for block in found if not kinds or block.kind in kinds]

    def tables(self, first_cell):
        """Tables whose first heading matches: (the match, the headings, rows of cells)."""
        rows, found = [], []
        for line in [*self.prose, ""]:
            if line.startswith("|"):
                cells = re.split(r"(?<!\\)\|", line)[1:-1]
                rows.append([cell.strip().replace("\\|", "|") for cell in cells])
                continue
            if rows and (match := re.fullmatch(first_cell, rows[0][0])):
                found.append((match, rows[0], rows[2:]))
            rows = []
        return found

    def replace_block(self, block, lines):
        """Puts other lines into a block of the file itself."""
        begin, end = block.first - 1, block.first - 1 + len(block.lines)
        self.lines[begin:end] = lines
        for later in self.blocks():
            if later.first > block.first:
                later.first += len(lines) - len(block.lines)
        block.lines = list(lines)
        self.path.write_text("\n".join(self.lines) + "\n")


def documents():
    """All documents; that there are none is a mistake and not a success."""
    found = [Document(path) for path in sorted(FOLDER.glob("*.md"))]
    expect(found, f"no documents in {FOLDER}")
    return found


def plain(cell):
    """A cell without the marks of code."""
    return cell.replace("`", "")


def dump(content):
    """A frame as a block shows it."""
    lines = []
    for at in range(0, len(content), 16):
        row = content[at : at + 16]
        letters = "".join(chr(byte) if 0x20 <= byte < 0x7F else "." for byte in row)
        lines.append(f"{at:04x}  {row.hex(' '):<47}  {letters}")
    return lines
