#!/usr/bin/env python3
"""Writes CHANGELOG.md in the form that Debian packages have: packaging/changelog.py MAINTAINER."""

from __future__ import annotations

import datetime
import email.utils
import pathlib
import re
import sys
import textwrap

BOOK = pathlib.Path(__file__).resolve().parents[1] / "CHANGELOG.md"


def entries() -> list[tuple[str, str, list[str]]]:
    """[(version, day, points)], the newest first."""
    parts = re.split(r"^## (\S+) \((\S+)\)$", BOOK.read_text(encoding="utf-8"), flags=re.M)
    return [(version, day, [re.sub(r"\s+", " ", point).strip() for point in re.split(r"^- ", text, flags=re.M)[1:]])
            for version, day, text in zip(parts[1::3], parts[2::3], parts[3::3])]


def debian(maintainer: str) -> str:
    out = []
    for version, day, points in entries():
        noon = datetime.datetime.fromisoformat(day).replace(hour=12, tzinfo=datetime.timezone.utc)
        out += [f"ivarode ({version}) unstable; urgency=medium", ""]
        for point in points:
            out += textwrap.wrap(point.replace("`", ""), 78, initial_indent="  * ", subsequent_indent="    ",
                                 break_long_words=False, break_on_hyphens=False)
        out += ["", f" -- {maintainer}  {email.utils.format_datetime(noon)}", ""]
    return "\n".join(out)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: packaging/changelog.py MAINTAINER")
    print(debian(sys.argv[1]), end="")
