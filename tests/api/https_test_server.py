#!/usr/bin/env python3
"""A scriptable HTTPS server for the service client tests.

Each --listen NAME:CERT:KEY opens a TLS listener on 127.0.0.1 (port chosen by the system and
written to DIR/NAME.port). Every request is appended as one JSON line to DIR/requests.jsonl before
it is answered. The answer follows DIR/response.json, read afresh for every request:
  status        HTTP status (default 404)
  body          body text (default empty)
  content_type  default "application/json"
  delay         seconds to wait before answering
  endless       true: send the body "x" forever, until the client goes away
  drop          true: close the connection without answering
For an endless body the number of bytes the client took is written to DIR/endless-sent.
"""
import argparse
import json
import os
import signal
import ssl
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

log_lock = threading.Lock()


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, format, *args):
        pass

    def do_GET(self):
        self.answer()

    def do_POST(self):
        self.answer()

    def answer(self):
        directory = self.server.directory
        length = int(self.headers.get("Content-Length") or 0)
        body = self.rfile.read(length) if length else b""
        record = {
            "listener": self.server.name,
            "method": self.command,
            "path": self.path,
            "headers": {key.lower(): value for key, value in self.headers.items()},
            "body": body.decode("utf-8", "replace"),
        }
        with log_lock:
            with open(os.path.join(directory, "requests.jsonl"), "a") as log:
                log.write(json.dumps(record) + "\n")
        try:
            with open(os.path.join(directory, "response.json")) as script:
                reply = json.load(script)
        except FileNotFoundError:
            reply = {}
        time.sleep(reply.get("delay", 0))
        if reply.get("drop"):
            self.close_connection = True
            return
        self.send_response(reply.get("status", 404))
        self.send_header("Content-Type", reply.get("content_type", "application/json"))
        if reply.get("endless"):
            self.send_header("Connection", "close")
            self.end_headers()
            self.close_connection = True
            chunk = b"x" * 16384
            sent = 0
            try:
                while True:
                    self.wfile.write(chunk)
                    sent += len(chunk)
            except OSError:
                pass
            with open(os.path.join(directory, "endless-sent"), "w") as out:
                out.write(str(sent))
            return
        payload = reply.get("body", "").encode("utf-8")
        self.send_header("Content-Length", str(len(payload)))
        self.end_headers()
        self.wfile.write(payload)


def listen(directory, name, cert, key):
    server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    server.directory = directory
    server.name = name
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    server.socket = context.wrap_socket(server.socket, server_side=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    port_file = os.path.join(directory, name + ".port")
    with open(port_file + ".tmp", "w") as out:
        out.write(str(server.server_address[1]))
    os.rename(port_file + ".tmp", port_file)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--dir", required=True)
    parser.add_argument("--listen", action="append", default=[])
    arguments = parser.parse_args()
    for listener in arguments.listen:
        name, cert, key = listener.split(":")
        listen(arguments.dir, name, cert, key)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    while True:
        time.sleep(3600)


if __name__ == "__main__":
    main()
