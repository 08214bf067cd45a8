"""The web server of the page: its files, and JSON-RPC at /ubus, on this machine's own address alone.

Other pages that are open in the same browser may send requests here; names that lead here by a resolver under
somebody else's control may be asked for. So other hosts and origins are refused, and nothing is answered on the
bus without the token.
"""

from __future__ import annotations

import http
import http.server
import pathlib
import sys
from collections.abc import Sequence
from typing import Any

from .jsonrpc import Endpoint

ADDRESS = "127.0.0.1"
FOLDER = "/ivarode/"
BODY_MAX = 1 << 24           # a recording of eight megabytes, as text
TYPES = {".html": "text/html; charset=utf-8", ".css": "text/css; charset=utf-8",
         ".js": "text/javascript; charset=utf-8", ".json": "application/json", ".svg": "image/svg+xml"}
POLICY = ("default-src 'none'; script-src 'self'; style-src 'self'; img-src data:; connect-src 'self'; "
          "base-uri 'none'; form-action 'none'; frame-ancestors 'none'")
HEADERS = {"Content-Security-Policy": POLICY, "X-Content-Type-Options": "nosniff", "Referrer-Policy": "no-referrer",
           "Cross-Origin-Resource-Policy": "same-origin", "Cache-Control": "no-store"}


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self, port: int, folders: Sequence[pathlib.Path], endpoint: Endpoint) -> None:
        super().__init__((ADDRESS, port), Handler)
        self.endpoint = endpoint
        self.files = {FOLDER + path.name: path for folder in folders
                      for path in folder.iterdir() if path.suffix in TYPES}
        self.files[FOLDER] = self.files[FOLDER + "index.html"]
        self.hosts = {f"{name}:{self.server_address[1]}" for name in (ADDRESS, "localhost")}

    def handle_error(self, request: Any, client_address: Any) -> None:
        """A browser that has left before its answer is nothing to speak of."""
        if not isinstance(sys.exc_info()[1], ConnectionError):
            super().handle_error(request, client_address)

    @property
    def url(self) -> str:
        return f"http://{ADDRESS}:{self.server_address[1]}{FOLDER}"


class Handler(http.server.BaseHTTPRequestHandler):
    server: Server
    protocol_version = "HTTP/1.1"
    server_version, sys_version = "ivarode-lab", ""
    timeout = 60                # seconds that a connection may be idle

    def do_GET(self) -> None:
        self.look(with_body=True)

    def do_HEAD(self) -> None:
        self.look(with_body=False)

    def look(self, with_body: bool) -> None:
        if self.refused():
            return
        name = self.path.partition("?")[0]
        if name == "/":
            self.reply(http.HTTPStatus.FOUND, headers={"Location": FOLDER})
        elif name in self.server.files:
            path = self.server.files[name]
            self.reply(http.HTTPStatus.OK, path.read_bytes(), {"Content-Type": TYPES[path.suffix]}, with_body)
        else:
            self.reply(http.HTTPStatus.NOT_FOUND)

    def do_POST(self) -> None:
        if self.refused():
            return
        length = self.headers.get("Content-Length", "")
        if self.path != "/ubus":
            self.refuse(http.HTTPStatus.NOT_FOUND)
        elif self.headers.get_content_type() != "application/json":
            self.refuse(http.HTTPStatus.UNSUPPORTED_MEDIA_TYPE)
        elif not length.isascii() or not length.isdigit():
            self.refuse(http.HTTPStatus.LENGTH_REQUIRED)
        elif int(length) > BODY_MAX:
            self.refuse(http.HTTPStatus.REQUEST_ENTITY_TOO_LARGE)
        else:
            answer = self.server.endpoint.answer(self.rfile.read(int(length)))
            self.reply(http.HTTPStatus.OK, answer, {"Content-Type": TYPES[".json"]})

    def refused(self) -> bool:
        """Whether the request is for another host's name, or comes from another's page."""
        hosts: list[str] = self.headers.get_all("Host", [])
        origins: list[str] = self.headers.get_all("Origin", [])
        ours = len(hosts) == 1 and hosts[0] in self.server.hosts and len(origins) <= 1
        if ours and all(origin.removeprefix("http://") == hosts[0] for origin in origins):
            return False
        self.refuse(http.HTTPStatus.FORBIDDEN)
        return True

    def refuse(self, status: http.HTTPStatus) -> None:
        """And ends the connection, since the rest of the request has not been read."""
        self.reply(status, headers={"Connection": "close"})

    def reply(self, status: http.HTTPStatus, body: bytes = b"", headers: dict[str, str] | None = None,
              with_body: bool = True) -> None:
        self.send_response(status)
        for name, value in {**HEADERS, **(headers or {}), "Content-Length": str(len(body))}.items():
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body if with_body else b"")

    def log_message(self, *_: Any) -> None:
        """Nothing: the terminal shows the address, and what goes wrong."""
