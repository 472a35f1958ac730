#!/usr/bin/env python3
"""Serves ROOT over HTTP and HTTPS on 127.0.0.1 for the tests: http_server.py ROOT CERT KEY LOG

Prints {"http": PORT, "https": PORT} once both listen; ends when its standard input closes.
Each request is logged to LOG as a JSON line (path; headers, names in lower case) before it is
answered. Files answer 200, anything else 404 with an HTML page; a path under /stall/ is never answered, one
under /page200/ is answered 200 with an HTML page whatever it names (a captive portal), and
one under /endless/ with a text body that never ends.
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

    def __init__(self, *args, **kwargs):
        super().__init__(*args, directory=root, **kwargs)

    def log_message(self, fmt, *args):
        pass

    def do_GET(self):
        with log_lock, open(log_path, "a", encoding="utf-8") as f:
            f.write(json.dumps({"path": self.path, "headers": {k.lower(): v for k, v in self.headers.items()}}) + "\n")
        if self.path.startswith("/stall/"):
            time.sleep(3600)
            return
        if self.path.startswith("/page200/"):
            body = b"<!DOCTYPE html>\n<html><head><title>Anmeldung</title></head><body>Bitte anmelden</body></html>\n"
            self.send_response(200)
            self.send_header("Content-Type", "text/html; charset=utf-8")
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)
            return
        if self.path.startswith("/endless/"):
            self.send_response(200)
            self.send_header("Content-Type", "application/octet-stream")
            self.send_header("Connection", "close")
            self.end_headers()
            chunk = b"170,1.70," * 4096
            try:
                while True:
                    self.wfile.write(chunk)
            except (ConnectionError, OSError):
                pass
            self.close_connection = True
            return
        local = self.translate_path(self.path)
        status, body = 404, b"<!DOCTYPE HTML>\n<html><head><title>404 Not Found</title></head><body>Not Found</body></html>\n"
        if os.path.isfile(local):
            with open(local, "rb") as f:
                status, body = 200, f.read()
        self.send_response(status)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        # Refused certificates and clients that hang up are part of the tests.
        if not isinstance(sys.exc_info()[1], (ssl.SSLError, ConnectionError)):
            super().handle_error(request, client_address)


plain = Server(("127.0.0.1", 0), Handler)
secure = Server(("127.0.0.1", 0), Handler)
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(cert, key)
# The handshake runs in the request's thread, so a refused certificate never holds up the accept loop.
secure.socket = context.wrap_socket(secure.socket, server_side=True, do_handshake_on_connect=False)
for s in (plain, secure):
    threading.Thread(target=s.serve_forever, daemon=True).start()
print(json.dumps({"http": plain.server_address[1], "https": secure.server_address[1]}), flush=True)
sys.stdin.read()
os._exit(0)
