"""What a recording says of passwords: stars, unless it is asked for more."""

import os
import pathlib
from collections.abc import Sequence

import pytest

from labctl import recordings
from tests.conformance.recording import Board, Command, record, temporary_folder
from tests.conformance.replaying import Recorded
from tests.conformance.scenario import load, load_fixtures

ROOT = pathlib.Path(__file__).resolve().parents[2]
CONFORMANCE = ROOT / "tests/conformance"
BUILD = pathlib.Path(os.environ.get("IVARODE_BUILD", ROOT / "build")).resolve()
CONFIGURED, SENT, LATER = "open sesame", "Rumpelstilzchen", "shibboleth"
STARS = {text: "*" * len(text) for text in (CONFIGURED, SENT, LATER)}
CONFIG = f'{{intf: "wan1", old_intf: "wan1", proto: "pppoe", defrt_pri: "20001", username: "u", password: "{LATER}"}}'
STORY = f"""
=== a life with passwords
use one-wan-board
uci lan_intf
uci wan_intf
    interface wan1
        enable 1
        proto pppoe
        username alice
        password "{CONFIGURED}"
uci route_config
> link 0 up
...
> call ivarode.pppuser add {{username: "bob", provider: "isp", password: "{SENT}", ipaddr: "10.0.0.9"}}
...
> call ivarode.intf config {CONFIG}
...
"""
# Where each stands: an option of the configuration, a field of a request, a text of a call, a text of a message.
PLACES = (
    'ucilib_lookup_option_string("wan1", "password", "{secret}")', CONFIGURED,
    'user alice password {secret} mtu ', CONFIGURED,
    '> call ivarode.pppuser add {{username: "bob", provider: "isp", password: "{secret}"', SENT,
    'cslib_entry_add("bob", "isp", "{secret}", "10.0.0.9")', SENT,
    'username: "u", password: "{secret}"', LATER,
    'user u password {secret} mtu ', LATER,
)


class WithSecrets(Recorded):
    """As with RECORD_SECRETS=1 in the init script."""

    def command(self, script: pathlib.Path, entry: Sequence[str] = (), arguments: Sequence[str] = ()) -> Command:
        words, environment = super().command(script, entry, arguments)
        return words, {**environment, "IVARODE_RECORD_SECRETS": "1"}


def recorded(kind: type[Recorded], folder: pathlib.Path) -> pathlib.Path:
    (folder / "story.txt").write_text(STORY)
    (scenario,) = load(folder / "story.txt", load_fixtures(CONFORMANCE / "fixtures.txt"))
    board = kind(Board(BUILD), folder)
    with temporary_folder() as scratch:
        record(board, scenario, scratch)
    return board.recordings[0]


@pytest.mark.parametrize("kind, is_masked", [(Recorded, True), (WithSecrets, False)])
def test_passwords_are_stars_unless_asked_for(tmp_path: pathlib.Path, kind: type[Recorded], is_masked: bool) -> None:
    recording = recorded(kind, tmp_path)
    lines = [one.text for one in recordings.records(recording)]
    for place, secret in zip(PLACES[::2], PLACES[1::2]):
        shown, other = (STARS[secret], secret) if is_masked else (secret, STARS[secret])
        assert any(place.format(secret=shown) in line for line in lines), place
        assert not any(place.format(secret=other) in line for line in lines), place
    content = recording.read_bytes()
    assert [secret.encode() in content for secret in STARS] == [not is_masked] * len(STARS)
    verdict = recordings.play(recording)
    assert verdict.same, verdict.text
