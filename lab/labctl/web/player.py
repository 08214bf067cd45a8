"""A recording repeated on the virtual board for the page, which keeps a picture of the router behind each event."""

from __future__ import annotations

import pathlib
import tempfile
import threading
from typing import Any, NamedTuple

from labctl import client, recordings, repetition

QUESTIONS = ("status ", "statist ", "port_dump ", "run ")


class Moment(NamedTuple):
    time: str               # of the recording
    said: str               # the event, as in a trace
    status: dict[str, Any]  # of the router behind it, as ivarodectl has it


def changes(event: repetition.Event) -> bool:
    """Questions and samples of the counters change nothing."""
    text = event.record.text
    return text != "> timer" and not (text.startswith("> call ") and text.split(" ", 3)[3].startswith(QUESTIONS))


class Player:
    def __init__(self, lab: client.Lab) -> None:
        self.lab = lab
        self.moments: list[Moment] = []
        self.words: list[str] = []          # what differs, and the verdict
        self.thread: threading.Thread | None = None

    @property
    def playing(self) -> bool:
        return self.thread is not None and self.thread.is_alive()

    def start(self, recording: bytes) -> None:
        """Returns once the recording has been read; RecordingError where it is none."""
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder) / "router.rec"
            file.write_bytes(recording)
            kept = repetition.Kept(file)
        self.moments, self.words = [], []
        self.thread = threading.Thread(target=self.play, args=[kept], daemon=True)
        self.thread.start()

    def play(self, kept: repetition.Kept) -> None:
        try:
            repetition.repeat(self.lab, kept, self.words.append, self.look)
        except (client.LabError, recordings.RecordingError, OSError, ValueError) as error:
            self.words.append(str(error))

    def look(self, event: repetition.Event) -> None:
        if changes(event):
            status = self.lab.run("router", "ivarodectl", "status", "--json").json()
            self.moments.append(Moment(recordings.clock(event.record.time), event.record.text[2:], status))

    def state(self) -> dict[str, Any]:
        moments = [{"time": one.time, "said": one.said} for one in self.moments]
        return {"playing": self.playing, "moments": moments, "words": self.words}
