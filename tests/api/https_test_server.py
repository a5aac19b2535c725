#!/usr/bin/env python3
# Runs a command beside a scriptable HTTPS server on 127.0.0.1 whose certificates come from
# authorities made for this run only, and returns the command's exit status.
#
# Usage: https_test_server.py <command> [arguments...]
#
# Each listener writes its port to $VANTREL_TEST_HTTPS_DIR/<name>.port: "file" is signed by the
# authority SSL_CERT_FILE names, "stranger" by one that only certs/ there holds, under no hashed
# name. Every request is appended to requests.log there as one line: method, path, the headers
# the clients set (as JSON) and body. It is then answered as response.json there, read afresh each
# time, says:
#   status, body  the answer, always labelled application/json (default 404, empty)
#   delay         seconds to wait before answering
#   endless       true: send "x" forever until the client goes away
#   drop          true: close the connection without answering
#   paths         an answer as above for each request path; other paths get the default
import json
import os
import signal
import ssl
import subprocess
import sys
import tempfile
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    work = ""

    def log_message(self, format, *args):
        pass

    def do_GET(self):
        body = self.rfile.read(int(self.headers.get("Content-Length") or 0))
        headers = {key: self.headers[key] for key in ["accept", "authorization", "content-type"]
                   if key in self.headers}
        with open(os.path.join(self.work, "requests.log"), "a") as log:
            log.write(" ".join([self.command, self.path, json.dumps(headers, separators=(",", ":")),
                                body.decode("utf-8", "replace")]) + "\n")
        reply = json.loads(Path(self.work, "response.json").read_text())
        if "paths" in reply:
            reply = reply["paths"].get(self.path.split("?")[0], {})
        time.sleep(reply.get("delay", 0))
        if reply.get("drop"):
            self.close_connection = True
            return
        self.send_response(reply.get("status", 404))
        self.send_header("Content-Type", "application/json")
        endless = reply.get("endless", False)
        payload = b"x" * 16384 if endless else reply.get("body", "").encode("utf-8")
        self.send_header("Content-Length", str(1 << 40 if endless else len(payload)))
        self.end_headers()
        try:
            self.wfile.write(payload)
            while endless:
                self.wfile.write(payload)
        except OSError:
            self.close_connection = True

    do_POST = do_GET


def certificate(path, subject, *extensions):
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", subject,
                    "-keyout", path + ".key", "-out", path + ".pem", *extensions],
                   check=True, stderr=subprocess.DEVNULL)


def main():
    # A plain SIGTERM would leave the command running and the authorities' keys on disk.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    with tempfile.TemporaryDirectory() as work:
        Handler.work = work
        os.mkdir(os.path.join(work, "certs"))
        for name in ["file", "stranger"]:
            authority = os.path.join(work, "certs" if name == "stranger" else "", name + "-ca")
            certificate(authority, "/CN=Vantrel test authority " + name,
                        "-addext", "basicConstraints=critical,CA:TRUE",
                        "-addext", "keyUsage=critical,keyCertSign,cRLSign")
            server_path = os.path.join(work, name)
            certificate(server_path, "/CN=127.0.0.1", "-CA", authority + ".pem",
                        "-CAkey", authority + ".key", "-addext", "subjectAltName=IP:127.0.0.1",
                        "-addext", "basicConstraints=CA:FALSE",
                        "-addext", "extendedKeyUsage=serverAuth")
            server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(server_path + ".pem", server_path + ".key")
            server.socket = context.wrap_socket(server.socket, server_side=True)
            threading.Thread(target=server.serve_forever, daemon=True).start()
            Path(server_path + ".port").write_text(str(server.server_address[1]))
        return subprocess.call(sys.argv[1:], env=dict(
            os.environ, VANTREL_TEST_HTTPS_DIR=work, SSL_CERT_FILE=f"{work}/file-ca.pem"))


if __name__ == "__main__":
    sys.exit(main())
