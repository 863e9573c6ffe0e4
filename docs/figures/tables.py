"""Tables of the guides: what stands in a guide between two marks <!-- name --> comes from a program.

As a program: reads tables from the standard input, each headed by a line "## name", and writes them into the guide that
the argument names.
"""

import re
import sys
from pathlib import Path


def write(guide, tables):
    text = guide.read_text()
    for name, lines in tables.items():
        mark = f"<!-- {name} -->"
        block = "\n".join([mark, "", *lines, "", mark])
        text, count = re.subn(f"{mark}\n.*?\n{mark}", lambda _: block, text, flags=re.DOTALL)
        if count != 1:
            sys.exit(f"{guide}: two marks {mark} are wanted, around the table's place")
    guide.write_text(text)


def main():
    tables = {}
    for line in sys.stdin.read().splitlines():
        if line.startswith("## "):
            lines = tables.setdefault(line[3:], [])
        elif line:
            lines.append(line)
    write(Path(sys.argv[1]), tables)


if __name__ == "__main__":
    main()
