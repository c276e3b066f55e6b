#!/usr/bin/env python3
"""HTTPS server on 127.0.0.1 for the HTTP client's tests.

Usage: https_feed_server.py CERT KEY PORT_FILE
Writes the chosen port to PORT_FILE once it listens. Paths:
/feed a small feed, /slow the feed after 5 s, /huge 4 MB, /to-file a redirect
to file:///etc/hostname, /to-http a redirect to plain http, /missing a 404.
"""
import http.server
import os
import ssl
import sys
import time

FEED = b'<?xml version="1.0"?><rss><channel><item><title>J</title></item></channel></rss>'


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def answer(self, code, body=b"", headers=()):
        self.send_response(code)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        try:
            self.wfile.write(body)
        except (BrokenPipeError, ConnectionResetError, ssl.SSLError):
            pass

    def do_GET(self):
        if self.path == "/feed":
            self.answer(200, FEED)
        elif self.path == "/slow":
            time.sleep(5)
            self.answer(200, FEED)
        elif self.path == "/huge":
            self.answer(200, b"x" * (4 * 1024 * 1024))
        elif self.path == "/to-file":
            self.answer(302, headers=[("Location", "file:///etc/hostname")])
        elif self.path == "/to-http":
            self.answer(302, headers=[("Location", "http://127.0.0.1:1/feed")])
        else:
            self.answer(404)


def main():
    cert, key, port_file = sys.argv[1:4]
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    server.socket = context.wrap_socket(server.socket, server_side=True)
    with open(port_file + ".tmp", "w") as f:
        f.write(str(server.server_address[1]))
    os.rename(port_file + ".tmp", port_file)
    server.serve_forever()


if __name__ == "__main__":
    main()
