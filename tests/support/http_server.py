#!/usr/bin/env python3
"""Serves a folder over HTTP and HTTPS on 127.0.0.1 for the tests.

Usage: http_server.py ROOT CERT KEY LOG
Prints {"http": PORT, "https": PORT} on one line once both listen. Every request is
appended to LOG as one JSON line (method, path, headers).

Special paths:
  /stall/...   accepts the request and never answers
  /cut/...     sends headers promising 1000 bytes, then 10 bytes and closes
A directory path answers 404 (there is no listing).
"""
import http.server
import json
import os
import socketserver
import ssl
import sys
import threading
import time

root, cert, key, log_path = sys.argv[1:5]
log_lock = threading.Lock()


class Handler(http.server.SimpleHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def __init__(self, *args, **kwargs):
        super().__init__(*args, directory=root, **kwargs)

    def log_message(self, fmt, *args):
        pass

    def record(self):
        entry = {"method": self.command, "path": self.path, "headers": dict(self.headers.items())}
        with log_lock, open(log_path, "a", encoding="utf-8") as f:
            f.write(json.dumps(entry) + "\n")

    def do_GET(self):
        self.record()
        if self.path.startswith("/stall/"):
            time.sleep(3600)
            return
        if self.path.startswith("/cut/"):
            self.send_response(200)
            self.send_header("Content-Length", "1000")
            self.end_headers()
            self.wfile.write(b"0123456789")
            self.wfile.flush()
            self.close_connection = True
            return
        local = self.translate_path(self.path)
        if os.path.isdir(local) or not os.path.isfile(local):
            self.send_error(404, "Not Found")
            return
        with open(local, "rb") as f:
            body = f.read()
        self.send_response(200)
        self.send_header("Content-Type", "application/octet-stream")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True
    allow_reuse_address = True


def main():
    plain = Server(("127.0.0.1", 0), Handler)
    secure = Server(("127.0.0.1", 0), Handler)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    secure.socket = context.wrap_socket(secure.socket, server_side=True)
    for s in (plain, secure):
        threading.Thread(target=s.serve_forever, daemon=True).start()
    print(json.dumps({"http": plain.server_address[1], "https": secure.server_address[1]}), flush=True)
    try:
        sys.stdin.read()  # ends when the test closes our input
    finally:
        os._exit(0)


main()
