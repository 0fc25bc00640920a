#!/usr/bin/env python3
"""Links identifiers of the guide and of classes to the reference, and then checks all links of the site.

Doxygen links an identifier only in the scope of its class and outside of code spans. This script links the names of
public operations and classes in code spans, and operations of other classes in running text. A name that several
classes have leads to the class of the page, or else to the class to which most other names of its section belong.
"""

import collections
import html
import re
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path
from urllib.parse import unquote

SITE = Path(__file__).resolve().parent.parent / "build/docs"
# The parts of a page in which a link is wrong, then the two ways in which a document writes a name.
NAME = r"(?:osal::)?((?:\w+::)*~?\w+)"
PARTS = re.compile(
    r'<a [^>]*href.*?</a>|<h\d.*?</h\d>|<(?:pre|script|title)\b.*?</(?:pre|script|title)>|<div class="fragment".*?</div><!--'
    rf"|<code>{NAME}(\(\))?</code>|<[^>]*>|\b{NAME}\(\)",
    re.DOTALL,
)


def targets():
    """Maps each name, with and without its class, to pairs of the class and the place of its description."""
    found = collections.defaultdict(dict)
    for compound in ElementTree.parse(SITE / "osal.tag").iter("compound"):
        if compound.get("kind") not in ("class", "struct", "namespace"):
            continue
        owner = compound.findtext("name").removeprefix("osal::")
        if compound.get("kind") != "namespace":
            found[owner][owner] = found[owner.split("::")[-1]][owner] = compound.findtext("filename")
        for member in compound.iter("member"):
            place = f"{member.findtext('anchorfile')}#{member.findtext('anchor')}"
            if member.get("kind") == "function":
                name = member.findtext("name")
                for written in {name, f"{owner}::{name}", f"{owner.split('::')[-1]}::{name}"}:
                    found[written].setdefault(owner, place)
    return found


def link(page, found):
    def places(match):
        return found.get(match[1] or match[3], {})

    owner = page.stem.removeprefix("classosal_1_1").removeprefix("structosal_1_1").replace("_1_1", "::")
    text = page.read_text()
    if 'name="nested-classes"' not in text:  # doxygen links to a list of private classes, which it leaves out
        text = re.sub(r'<a href="#nested-classes">Classes</a> &#124;\n?', "", text)
    sections = re.split(r"(?=<h[123])", text)
    for i, section in enumerate(sections):
        votes = collections.Counter(
            next(iter(there)) for there in map(places, PARTS.finditer(section)) if len(there) == 1
        )

        def linked(match):
            there = places(match)
            if not there:
                return match[0]
            best = owner if owner in there else max(there, key=lambda one: votes[one])
            return f'<a class="el" href="{there[best]}">{match[0]}</a>'

        sections[i] = PARTS.sub(linked, section)
    page.write_text("".join(sections))


def broken(pages):
    texts = {page.name: page.read_text() for page in pages}
    ids = {name: set(re.findall(r'\b(?:id|name)="([^"]+)"', text)) for name, text in texts.items()}
    for name, text in texts.items():
        for target in sorted(set(re.findall(r'\b(?:href|src|data)="([^"]*)"', text))):
            if re.match(r"\w+:|$", target):
                continue
            file, _, fragment = unquote(html.unescape(target)).partition("#")
            file = file.partition("?")[0] or name
            if not (SITE / file).exists():
                yield f"{name}: {target}"
            elif fragment and file in ids and fragment not in ids[file]:
                yield f"{name}: {target}"


def main():
    if len(sys.argv) > 1:
        sys.exit("usage: doc_links.py")
    found = targets()
    pages = sorted(SITE.glob("*.html"))
    for page in pages:
        if page.stem == "md_docs_guide" or page.stem.startswith("classosal") and not page.stem.endswith("-members"):
            link(page, found)
    lost = list(broken(pages))
    if lost:
        sys.exit("\n".join(lost) + "\nthese links lead nowhere")


main()
