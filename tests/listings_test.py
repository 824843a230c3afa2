#!/usr/bin/env python3
"""Listings in the pages are the files of examples/, to the byte. listings_test.py SOURCE"""

import pathlib
import sys

source = pathlib.Path(sys.argv[1])
examples = [p for p in (source / "examples").iterdir() if p.suffix in (".cpp", ".c", ".py")]
guide = (source / "docs/embedding.md").read_text()
faults = [f"docs/embedding.md does not show {p.name} as it is" for p in examples if guide.count(p.read_text()) != 1]
if (source / "examples/embed.cpp").read_text() not in (source / "README.md").read_text():
    faults.append("README.md does not show embed.cpp as it is")
sys.exit("\n".join(faults) or (0 if examples else "no examples"))
