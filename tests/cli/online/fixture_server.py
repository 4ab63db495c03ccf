#!/usr/bin/env python3
"""A local HTTP server that plays an online music service for the tests.

    fixture_server.py ROUTES.json FIXTURE_DIR

ROUTES.json is a list of routes, each {"path": TEXT, "answers": [ANSWER...]}:
a request whose path and query start with TEXT (after the route's own
percent-decoding) gets the route's answers one after another, the last one
again and again. An ANSWER is an object with
    "status"   HTTP status (default 200)
    "file"     the body is this file of FIXTURE_DIR, as bytes
    "body"     the body as text (UTF-8)
    "latin1"   the body as text, sent in ISO 8859-1
    "size"     the body is this many bytes of "x"
    "delay_ms" wait this long before answering
A request that no route takes gets 404. The server listens on 127.0.0.1, a
free port, and writes "listening on 127.0.0.1:PORT" on stderr once it does,
then one line "request: PATH" per request. SIGTERM ends it.
"""
import http.server
import json
import os
import signal
import sys
import threading
import time
import urllib.parse


class Routes:
    def __init__(self, routes, fixtures):
        self.routes = routes
        self.fixtures = fixtures
        self.used = [0] * len(routes)
        self.lock = threading.Lock()

    def answer(self, target):
        decoded = urllib.parse.unquote(target)
        with self.lock:
            for index, route in enumerate(self.routes):
                if decoded.startswith(route["path"]):
                    answers = route["answers"]
                    answer = answers[min(self.used[index], len(answers) - 1)]
                    self.used[index] += 1
                    return answer
        return {"status": 404, "body": "no route\n"}

    def body(self, answer):
        if "file" in answer:
            with open(os.path.join(self.fixtures, answer["file"]), "rb") as handle:
                return handle.read()
        if "latin1" in answer:
            return answer["latin1"].encode("latin-1")
        if "size" in answer:
            return b"x" * answer["size"]
        return answer.get("body", "").encode("utf-8")


def make_handler(routes):
    class Handler(http.server.BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def do_GET(self):
            sys.stderr.write("request: %s\n" % self.path)
            sys.stderr.flush()
            answer = routes.answer(self.path)
            if answer.get("delay_ms"):
                time.sleep(answer["delay_ms"] / 1000.0)
            body = routes.body(answer)
            try:
                self.send_response(answer.get("status", 200))
                self.send_header("Content-Length", str(len(body)))
                self.send_header("Content-Type", "application/octet-stream")
                self.end_headers()
                self.wfile.write(body)
            except (BrokenPipeError, ConnectionResetError):
                pass

        def log_message(self, *args):
            pass

    return Handler


def main():
    with open(sys.argv[1], encoding="utf-8") as handle:
        routes = Routes(json.load(handle), sys.argv[2])
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), make_handler(routes))
    server.daemon_threads = True
    signal.signal(signal.SIGTERM, lambda *args: sys.exit(0))
    sys.stderr.write("listening on 127.0.0.1:%d\n" % server.server_address[1])
    sys.stderr.flush()
    server.serve_forever()


if __name__ == "__main__":
    main()
