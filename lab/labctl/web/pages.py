"""lab/lab web: the page of a router, on the virtual board."""

from __future__ import annotations

import pathlib
import secrets

from labctl import client, paths

from .jsonrpc import Endpoint
from .router import LAB, Router
from .server import Server
from .sessions import Account, Groups, Sessions

FILES = [paths.ROOT / "image/www/ivarode", pathlib.Path(__file__).parent / "page"]
RIGHTS = paths.ROOT / "image/files/usr/share/rpcd/acl.d/ivarode.json"


def open_page(lab: client.Lab, port: int) -> tuple[Server, str]:
    """The server, which does not run yet, and the address to open; its last part is the token."""
    token = secrets.token_hex(16)
    groups = Groups([RIGHTS])
    account = Account("root", token, read=list(groups.groups), write=list(groups.groups), more=[(LAB, "*")])
    sessions = Sessions([account], groups)
    sessions.open(account, timeout=0, token=token)
    try:
        server = Server(port, FILES, Endpoint(sessions, Router(lab)))
    except (OSError, OverflowError) as error:
        raise client.LabError(f"port {port}: {error}") from error
    return server, f"{server.url}#{token}"


def serve(lab: client.Lab, port: int) -> int:
    lab.info()                              # says so where no lab is up
    server, address = open_page(lab, port)
    print(f"the board's page, until Ctrl-C: {address}", flush=True)
    with server:
        server.serve_forever()
    return 0
