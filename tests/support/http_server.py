#!/usr/bin/env python3
"""Serves a folder over HTTP and HTTPS on 127.0.0.1 for the tests.

Usage: http_server.py ROOT CERT KEY LOG
Prints {"http": PORT, "https": PORT} on one line once both listen; ends when its standard
input closes. Every request is appended to LOG as one JSON line (scheme, method, path,
headers) before it is answered.

Special paths (the rest of the path is free, so tests can tell requests apart):
  /stall/...         accepts the request and never answers
  /stall-body/...    sends headers promising 1000 bytes, then 10 bytes, then nothing more
  /cut/...           sends headers promising 1000 bytes, then 10 bytes and closes
  /status/NNN/...    answers with HTTP status NNN and a short body
  /redirect/REST     answers 302 with Location /REST on the same server
A directory path answers 404 (there is no listing).

ROOT/.control.json, read on every request when present, maps a path to a behaviour:
  {"/some/path": {"status": 503, "body": "text", "delay": 0.5}}
"""
import http.server
import json
import os
import ssl
import sys
import threading
import time

root, cert, key, log_path = sys.argv[1:5]
log_lock = threading.Lock()


class Handler(http.server.SimpleHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    scheme = "http"

    def __init__(self, *args, **kwargs):
        super().__init__(*args, directory=root, **kwargs)

    def log_message(self, fmt, *args):
        pass

    def record(self):
        entry = {"scheme": self.scheme, "method": self.command, "path": self.path,
                 "headers": dict(self.headers.items())}
        with log_lock, open(log_path, "a", encoding="utf-8") as f:
            f.write(json.dumps(entry) + "\n")

    def answer(self, status, body, headers=()):
        self.send_response(status)
        self.send_header("Content-Type", "application/octet-stream")
        self.send_header("Content-Length", str(len(body)))
        for name, value in headers:
            self.send_header(name, value)
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def half_body(self):
        self.send_response(200)
        self.send_header("Content-Length", "1000")
        self.end_headers()
        self.wfile.write(b"0123456789")
        self.wfile.flush()

    def control(self):
        try:
            with open(os.path.join(root, ".control.json"), encoding="utf-8") as f:
                return json.load(f).get(self.path.split("?")[0])
        except (OSError, ValueError):
            return None

    def do_HEAD(self):
        self.do_GET()

    def do_GET(self):
        self.record()
        path = self.path.split("?")[0]
        rule = self.control()
        if rule is not None:
            time.sleep(float(rule.get("delay", 0)))
            self.answer(int(rule.get("status", 200)), str(rule.get("body", "")).encode())
            return
        if path.startswith("/stall/"):
            time.sleep(3600)
            return
        if path.startswith("/stall-body/"):
            self.half_body()
            time.sleep(3600)
            return
        if path.startswith("/cut/"):
            self.half_body()
            self.close_connection = True
            return
        if path.startswith("/status/"):
            code = int(path.split("/")[2])
            self.answer(code, b"status %d\n" % code)
            return
        if path.startswith("/redirect/"):
            self.answer(302, b"", [("Location", path[len("/redirect"):])])
            return
        local = self.translate_path(path)
        if os.path.isdir(local) or not os.path.isfile(local):
            self.answer(404, b"Not Found\n")
            return
        with open(local, "rb") as f:
            body = f.read()
        self.answer(200, body)


class SecureHandler(Handler):
    scheme = "https"


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True

    def handle_error(self, request, client_address):
        # Refused certificates and clients that hang up are part of the tests.
        if not isinstance(sys.exc_info()[1], (ssl.SSLError, ConnectionError)):
            super().handle_error(request, client_address)


def main():
    plain = Server(("127.0.0.1", 0), Handler)
    secure = Server(("127.0.0.1", 0), SecureHandler)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    # The handshake runs in the request's thread, so a client that stalls or rejects the
    # certificate never holds up the accept loop.
    secure.socket = context.wrap_socket(secure.socket, server_side=True, do_handshake_on_connect=False)
    for s in (plain, secure):
        threading.Thread(target=s.serve_forever, daemon=True).start()
    print(json.dumps({"http": plain.server_address[1], "https": secure.server_address[1]}), flush=True)
    try:
        sys.stdin.read()  # ends when the test closes our input
    finally:
        os._exit(0)


main()
