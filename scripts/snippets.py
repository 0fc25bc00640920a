#!/usr/bin/env python3
"""Compares the C++ blocks of the documents with the programs in examples/.

The line above each block is <!-- examples/FILE.cpp --> for the whole program, or <!-- examples/FILE.cpp REGION -->
for the lines between two lines "//! [REGION]" of the program. --renew rewrites the blocks instead.
"""

import re
import sys
import textwrap
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DOCUMENTS = [ROOT / "README.md", ROOT / "docs/guide.md"]
BLOCK = re.compile(r"(?:<!-- (examples/\w+\.cpp)(?: ([\w-]+))? -->\n)?```cpp\n(.*?)^```$", re.DOTALL | re.MULTILINE)
MARK = re.compile(r"^ *//! \[([\w-]+)\]\n", re.MULTILINE)


def regions(path):
    """Maps None to the program without its marks, and each region name to the lines between its two marks."""
    text = path.read_text()
    found = {None: MARK.sub("", text)}
    for name in dict.fromkeys(MARK.findall(text)):
        parts = re.split(rf"^ *//! \[{name}\]\n", text, flags=re.MULTILINE)
        if len(parts) != 3:
            sys.exit(f"{path.relative_to(ROOT)}: [{name}] occurs {len(parts) - 1} times, not twice")
        found[name] = textwrap.dedent(MARK.sub("", parts[1]))
    return found


def main():
    if sys.argv[1:] not in ([], ["--renew"]):
        sys.exit("usage: snippets.py [--renew]")
    programs = {str(p.relative_to(ROOT)): regions(p) for p in sorted((ROOT / "examples").glob("*.cpp"))}
    unused = {(p, name) for p, found in programs.items() for name in found if name}
    errors = []
    count = 0
    for document in DOCUMENTS:
        name = document.relative_to(ROOT)

        def check(match):
            nonlocal count
            count += 1
            program, region, block = match.groups()
            line = document.read_text()[: match.start()].count("\n") + 1
            if program is None:
                errors.append(f"{name}:{line}: a C++ block without an examples/ line above it")
                return match[0]
            if program not in programs or region not in programs[program]:
                errors.append(f"{name}:{line}: there is no {' '.join(filter(None, match.groups()[:2]))}")
                return match[0]
            unused.discard((program, region))
            wanted = programs[program][region]
            if block == wanted:
                return match[0]
            if sys.argv[1:] != ["--renew"]:
                errors.append(f"{name}:{line}: differs from {' '.join(filter(None, match.groups()[:2]))}")
            return match[0].replace(f"```cpp\n{block}", f"```cpp\n{wanted}")

        text = document.read_text()
        renewed = BLOCK.sub(check, text)
        if sys.argv[1:] and renewed != text:
            document.write_text(renewed)
    errors += [f"{program}: no document contains [{region}]" for program, region in sorted(unused)]
    if errors:
        sys.exit("\n".join(errors) + "\nsnippets.py --renew copies the code of the programs into the documents")
    print(f"snippets passed: {count}")


main()
