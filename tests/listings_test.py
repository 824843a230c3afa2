#!/usr/bin/env python3
"""Listings in the pages are the files of examples/, to the byte; links lead somewhere, and to every page from both
README.md and docs/README.md. listings_test.py SOURCE"""

import pathlib
import re
import sys

source = pathlib.Path(sys.argv[1]).resolve()
examples = [p for p in (source / "examples").iterdir() if p.suffix in (".cpp", ".c", ".py")]
guide = (source / "docs/embedding.md").read_text()
faults = [f"docs/embedding.md does not show {p.name} as it is" for p in examples if guide.count(p.read_text()) != 1]
if (source / "examples/embed.cpp").read_text() not in (source / "README.md").read_text():
    faults.append("README.md does not show embed.cpp as it is")


def anchors(page):
    return {re.sub(r"[^\w\- ]", "", h.lower()).replace(" ", "-") for h in re.findall(r"^#+ (.*)", page.read_text(), re.M)}


def reach(page, seen):
    seen.add(page)
    for file, anchor in re.findall(r"\]\((?!https?:)([^)#\s]*)#?([^)\s]*)\)", page.read_text()):
        target = (page.parent / file).resolve() if file else page
        if not target.exists() or (anchor and anchor not in anchors(target)):
            faults.append(f"{page.relative_to(source)}: nothing is at {file}#{anchor}")
        elif target.suffix == ".md" and target not in seen:
            reach(target, seen)
    return seen


for start in "README.md", "docs/README.md":
    unreached = set((source / "docs").rglob("*.md")) - reach(source / start, set())
    faults += [f"no link leads from {start} to {page.relative_to(source)}" for page in unreached]
sys.exit("\n".join(dict.fromkeys(faults)) or (0 if examples else "no examples"))
