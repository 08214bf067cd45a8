"""What a run of rounds keeps with pytest: its seed, and a line about each round."""

from __future__ import annotations

import pytest

SEED = pytest.StashKey[int]()
STORY = pytest.StashKey[list[str]]()
