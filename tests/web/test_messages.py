"""The messages that the page explains are those of the book."""

import subprocess

from labctl import paths


def test_messages_are_made_of_the_book() -> None:
    made = subprocess.run([paths.ROOT / "image/make-messages", paths.ROOT / "docs/messages.md"], capture_output=True,
                          text=True, check=True).stdout
    kept = paths.ROOT / "image/files/usr/share/ivarode/messages.json"
    assert kept.read_text() == made, f"image/make-messages docs/messages.md > {kept.relative_to(paths.ROOT)}"
