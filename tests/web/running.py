"""A web server of the page beside the test."""

from __future__ import annotations

import contextlib
import threading
from collections.abc import Iterator

from labctl.web.server import Server


@contextlib.contextmanager
def serving(server: Server) -> Iterator[Server]:
    thread = threading.Thread(target=server.serve_forever, args=[0.02])
    with server:
        thread.start()
        try:
            yield server
        finally:
            server.shutdown()
            thread.join()
