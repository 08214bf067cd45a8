"""Which lines of a trace are looked at."""
import fnmatch
import re
from collections.abc import Iterable

ALWAYS_SHOWN = ("status", "returned", "exit", "killed", "endless", "leak:", "script", "no", "injected")


def word_of(line: str) -> str:
    return re.split(r"[ (]", line, maxsplit=1)[0]


def filtered(lines: Iterable[str], only: list[str], hide: list[str]) -> list[str]:
    def wanted(line: str) -> bool:
        word = word_of(line)
        if word in ALWAYS_SHOWN:
            return True
        if only and not any(fnmatch.fnmatchcase(word, pattern) for pattern in only):
            return False
        return not any(fnmatch.fnmatchcase(word, pattern) for pattern in hide)

    return [line for line in lines if wanted(line)]
