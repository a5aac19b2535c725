#!/usr/bin/env python3
# A scriptable HTTPS server for the service client tests.
#
# Usage: https_test_server.py DIR NAME:CERT:KEY...
# Each NAME:CERT:KEY opens a TLS listener on 127.0.0.1 and writes its port to DIR/NAME.port.
# Every request is appended to DIR/requests.log as one line: method, path, the headers the clients
# set (as JSON) and body. It is then answered as DIR/response.json, read afresh each time, says:
#   status, body  the answer, always labelled application/json (default 404, empty)
#   delay         seconds to wait before answering
#   endless       true: send "x" forever until the client goes away, then write the number of
#                 bytes it took to DIR/endless-sent
#   drip          seconds: send "x" one byte at a time, that long apart, until the client goes away
#   drop          true: close the connection without answering
#   paths         an answer as above for each request path; other paths get the default
import json
import os
import ssl
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    chosen_headers = ["accept", "authorization", "content-type"]

    def log_message(self, format, *args):
        pass

    def do_GET(self):
        self.answer()

    do_POST = do_GET

    def answer(self):
        body = self.rfile.read(int(self.headers.get("Content-Length") or 0))
        headers = {key: self.headers[key] for key in self.chosen_headers if key in self.headers}
        with open("requests.log", "a") as log:
            log.write(" ".join([self.command, self.path, json.dumps(headers, separators=(",", ":")),
                                body.decode("utf-8", "replace")]) + "\n")
        with open("response.json") as script:
            reply = json.load(script)
        if "paths" in reply:
            reply = reply["paths"].get(self.path.split("?")[0], {})
        time.sleep(reply.get("delay", 0))
        if reply.get("drop"):
            self.close_connection = True
            return
        self.send_response(reply.get("status", 404))
        self.send_header("Content-Type", "application/json")
        payload = reply.get("body", "").encode("utf-8")
        if reply.get("endless") or "drip" in reply:
            self.send_header("Connection", "close")
            self.end_headers()
            self.close_connection = True
            sent = 0
            try:
                while True:
                    if "drip" in reply:
                        sent += self.wfile.write(b"x")
                        time.sleep(reply["drip"])
                    else:
                        sent += self.wfile.write(b"x" * 16384)
            except OSError:
                with open("endless-sent", "w") as out:
                    out.write(str(sent))
            return
        self.send_header("Content-Length", str(len(payload)))
        self.end_headers()
        self.wfile.write(payload)


def main():
    os.chdir(sys.argv[1])
    for listener in sys.argv[2:]:
        name, cert, key = listener.split(":")
        server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(cert, key)
        server.socket = context.wrap_socket(server.socket, server_side=True)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        with open(name + ".port.tmp", "w") as out:
            out.write(str(server.server_address[1]))
        os.rename(name + ".port.tmp", name + ".port")
    threading.Event().wait()


if __name__ == "__main__":
    main()
