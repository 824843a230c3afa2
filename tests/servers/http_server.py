#!/usr/bin/env python3
"""A small HTTP server with the WebDAV methods that file transfers use; serves the current directory.

    http_server.py [--user NAME:PASSWORD] [--cert PEM]

Prints its port and serves until standard input ends. /slow never answers, /redirect leads to /file, /away to a file:
URL, /half ends before the length that it has announced, /stall stays silent there, /drip sends single bytes for ever,
/kept is not deleted, /hidden may be written but not read, /nohead not asked about.
"""

import argparse
import base64
import contextlib
import http.server
import os
import ssl
import sys
import threading
import time
import urllib.parse


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    credentials = None

    def log_message(self, *args):
        pass

    def answer(self, status, body=b"", **headers):
        self.send_response(status)
        for name, value in headers.items():
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def local(self, url):
        return urllib.parse.unquote(urllib.parse.urlparse(url).path).lstrip("/")

    def refused(self):
        if self.credentials is None:
            return False
        wanted = "Basic " + base64.b64encode(self.credentials.encode()).decode()
        if self.headers.get("Authorization") == wanted:
            return False
        self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.answer(401, **{"WWW-Authenticate": 'Basic realm="test"'})
        return True

    def do_GET(self):
        if self.refused():
            return
        name = self.local(self.path)
        if name == "nohead" and self.command == "HEAD":
            self.answer(405)
        elif name == "slow":
            self.rfile.read(1)
        elif name == "redirect":
            self.answer(302, Location="/file")
        elif name == "away":
            self.answer(302, Location="file:///etc/passwd")
        elif name in ("forbidden", "hidden"):
            self.answer(403)
        elif name in ("half", "stall", "drip"):
            self.send_response(200)
            self.send_header("Content-Length", "1000000")
            self.end_headers()
            self.wfile.write(b"half")
            self.close_connection = True
            with contextlib.suppress(OSError):
                while name == "drip":
                    self.wfile.write(b".")
                    time.sleep(0.01)
            if name == "stall":
                self.rfile.read(1)
        elif os.path.isfile(name):
            with open(name, "rb") as file:
                self.answer(200, file.read())
        else:
            self.answer(404, b"no such file")

    do_HEAD = do_GET

    def do_PUT(self):
        if self.refused():
            return
        length = int(self.headers["Content-Length"])
        body = self.rfile.read(length)
        if len(body) < length:
            return
        name = self.local(self.path)
        if not os.path.isdir(os.path.dirname(name) or "."):
            self.answer(409)
        elif name == "forbidden":
            self.answer(403)
        elif os.path.exists(name) and self.headers.get("If-None-Match") == "*":
            self.answer(412)
        else:
            with open(name, "wb") as file:
                file.write(body)
            self.answer(201)

    def do_DELETE(self):
        if self.refused():
            return
        name = self.local(self.path)
        if name in ("forbidden", "kept"):
            self.answer(403)
        elif os.path.isfile(name):
            os.remove(name)
            self.answer(204)
        else:
            self.answer(404)

    def do_MOVE(self):
        if self.refused():
            return
        name, target = self.local(self.path), self.local(self.headers["Destination"])
        if not os.path.isfile(name):
            self.answer(404)
        elif os.path.exists(target) and self.headers.get("Overwrite") == "F":
            self.answer(412)
        else:
            os.rename(name, target)
            self.answer(201)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--user")
    parser.add_argument("--cert")
    args = parser.parse_args()
    Handler.credentials = args.user
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    if args.cert:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(args.cert)
        server.socket = context.wrap_socket(server.socket, server_side=True)
    print(server.server_address[1], flush=True)
    server.daemon_threads = True
    threading.Thread(target=server.serve_forever, daemon=True).start()
    sys.stdin.read()


if __name__ == "__main__":
    main()
