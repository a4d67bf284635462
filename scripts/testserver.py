#!/usr/bin/python3
"""Local HTTP(S) server for tests and the demo. Standard library only.

Serves a folder on 127.0.0.1 with a port chosen by the OS. The first line printed on standard
output is the port (HTTPS, or HTTP with --http-only); with --also-http a second line
"http <port>" follows. Runs until SIGTERM/SIGINT.

  testserver.py --root DIR [--routes FILE] [--log FILE] [--cert-dir DIR] [--strict]
                [--delay-ms N] [--also-http | --http-only]

Certificates: --cert-dir holds ca.pem, server.pem and server.key; missing ones are made with
scripts/make-ca.sh (the openssl command-line tool). Clients trust ca.pem (VELMORA_CA_FILE).

Routes file: JSON {"<path>": {behaviour}, ...}, re-read on every request. A key matches the
request path (query ignored) exactly, or as a shell glob when it contains "*". Behaviours:
  "file": "rel/or/abs"     serve that file (relative to --root)
  "body": "text"           serve this text
  "content_type": "..."    Content-Type (default from the file name)
  "status": 404            answer status; alone it gives a short error body
  "redirect": "/other"     Location header, status 302 unless "status" says otherwise
  "headers": {"K": "V"}    extra headers
  "delay_ms": N            wait before answering (added to --delay-ms)
  "length": "chunked"      no Content-Length, chunked transfer encoding
  "length": "close"        no Content-Length, the body ends when the connection closes
  "drop_after": N          announce the full length, send N body bytes, reset the connection
  "short_by": N            announce the full length, send N bytes fewer, close cleanly
  "stall_after": N         announce the full length, send N body bytes, then nothing more with the
                           connection left open (until the client or server stops)
  "endless": true          no Content-Length, send data until the client goes away
  "hang": true             read the request, never answer (until the client or server stops)
A path without a route is served from --root when such a file exists. Anything else is
unexpected: logged with "unexpected": true and answered 599 with --strict (404 without).

Request log (--log): one JSON object per line, written when the request arrives:
  {"time", "method", "path", "target", "route", "status", "unexpected", "user_agent",
   "cookie", "authorization" (the request's headers, null when absent),
   "client_port" (the same on every request of one kept-alive connection)}
"""

import argparse
import fnmatch
import http.server
import json
import mimetypes
import os
import signal
import socket
import ssl
import struct
import subprocess
import sys
import threading
import time
import urllib.parse

STOP = threading.Event()
LOG_LOCK = threading.Lock()
CHUNK = 16384


class Config:
    def __init__(self, args):
        self.root = os.path.realpath(args.root)
        self.routes_file = args.routes
        self.log_file = args.log
        self.strict = args.strict
        self.delay_ms = args.delay_ms

    def routes(self):
        if not self.routes_file or not os.path.exists(self.routes_file):
            return {}
        try:
            with open(self.routes_file, encoding="utf-8") as f:
                data = json.load(f)
            return data if isinstance(data, dict) else {}
        except (OSError, ValueError) as e:
            sys.stderr.write("testserver: unreadable routes file: %s\n" % e)
            return {}

    def find_route(self, path):
        routes = self.routes()
        if path in routes:
            return path, routes[path]
        for key, route in routes.items():
            if "*" in key and fnmatch.fnmatchcase(path, key):
                return key, route
        return None, None

    def local_file(self, name):
        """A route's file: absolute, or relative to the served folder."""
        full = os.path.realpath(os.path.join(self.root, name))
        return full if os.path.isfile(full) else None

    def served_file(self, url_path):
        """The file under the served folder that a request path names, never outside it."""
        full = os.path.realpath(os.path.join(self.root, url_path.lstrip("/")))
        inside = full.startswith(self.root + os.sep)
        return full if inside and os.path.isfile(full) else None

    def log(self, entry):
        if not self.log_file:
            return
        with LOG_LOCK, open(self.log_file, "a", encoding="utf-8") as f:
            f.write(json.dumps(entry) + "\n")


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "VelmoraTestServer/1"
    # Headers and body go out in separate writes: with Nagle's algorithm the body of every
    # answer after the first on a kept-alive connection would wait for the client's delayed
    # acknowledgement (about 40 ms), which web servers avoid the same way.
    disable_nagle_algorithm = True

    def log_message(self, *args):
        pass  # the JSON request log replaces the default stderr lines

    def do_GET(self):
        self.answer(send_body=True)

    def do_HEAD(self):
        self.answer(send_body=False)

    def do_POST(self):
        length = int(self.headers.get("Content-Length") or 0)
        if length:
            self.rfile.read(min(length, 1 << 20))
        self.answer(send_body=True)

    def plan(self):
        cfg = self.server.cfg
        path = urllib.parse.unquote(urllib.parse.urlsplit(self.path).path)
        key, route = cfg.find_route(path)
        if route is None:
            found = cfg.served_file(path)
            if found:
                return path, None, {"file": found}, False
            return path, None, {"status": 599 if cfg.strict else 404}, True
        return path, key, route, False

    def answer(self, send_body):
        cfg = self.server.cfg
        path, key, route, unexpected = self.plan()
        hang = bool(route.get("hang"))
        status = 0 if hang else int(route.get("status", 302 if "redirect" in route else 200))
        cfg.log({"time": time.time(), "method": self.command, "path": path, "target": self.path,
                 "route": key, "status": status, "unexpected": unexpected,
                 "user_agent": self.headers.get("User-Agent", ""),
                 "cookie": self.headers.get("Cookie"), "authorization": self.headers.get("Authorization"),
                 "client_port": self.client_address[1]})
        delay = cfg.delay_ms + int(route.get("delay_ms", 0))
        if delay > 0 and STOP.wait(delay / 1000.0):
            return
        if hang:
            self.hang()
            return
        body, ctype = self.body_of(route, status)
        if body is None:
            status, body, ctype = 404, b"missing test file\n", "text/plain"
        self.send_answer(route, status, body, ctype, send_body)

    def body_of(self, route, status):
        cfg = self.server.cfg
        if "file" in route:
            found = cfg.local_file(route["file"])
            if found is None:
                return None, None
            with open(found, "rb") as f:
                data = f.read()
            guessed = mimetypes.guess_type(found)[0] or "application/octet-stream"
            return data, route.get("content_type", guessed)
        if "body" in route:
            return route["body"].encode("utf-8"), route.get("content_type", "text/plain; charset=utf-8")
        if "redirect" in route or status < 400:
            return b"", route.get("content_type", "text/plain")
        return ("error %d\n" % status).encode(), "text/plain"

    def send_answer(self, route, status, body, ctype, send_body):
        mode = route.get("length", "announce")
        endless = bool(route.get("endless"))
        self.send_response(status)
        self.send_header("Content-Type", ctype)
        if "redirect" in route:
            self.send_header("Location", route["redirect"])
        for name, value in route.get("headers", {}).items():
            self.send_header(name, str(value))
        if endless or mode == "close":
            self.send_header("Connection", "close")
            self.close_connection = True
        elif mode == "chunked":
            self.send_header("Transfer-Encoding", "chunked")
        else:
            self.send_header("Content-Length", str(len(body)))
        if "drop_after" in route or "short_by" in route:
            self.send_header("Connection", "close")
            self.close_connection = True
        self.end_headers()
        if not send_body:
            return
        try:
            self.send_body(route, body, mode, endless)
        except (BrokenPipeError, ConnectionResetError, ssl.SSLError, OSError):
            self.close_connection = True

    def send_body(self, route, body, mode, endless):
        if endless:
            block = b"x" * CHUNK
            while not STOP.is_set():
                self.wfile.write(block)
                self.wfile.flush()
            return
        if "drop_after" in route:
            self.wfile.write(body[: int(route["drop_after"])])
            self.wfile.flush()
            time.sleep(0.2)  # let the client read what was sent before the reset discards it
            self.reset_connection()
            return
        if "short_by" in route:
            self.wfile.write(body[: max(0, len(body) - int(route["short_by"]))])
            self.wfile.flush()
            return
        if "stall_after" in route:
            self.wfile.write(body[: int(route["stall_after"])])
            self.wfile.flush()
            self.hang()
            return
        if mode == "chunked":
            for i in range(0, len(body), CHUNK):
                part = body[i : i + CHUNK]
                self.wfile.write(b"%x\r\n%s\r\n" % (len(part), part))
            self.wfile.write(b"0\r\n\r\n")
        else:
            self.wfile.write(body)
        self.wfile.flush()

    def reset_connection(self):
        # SO_LINGER 0 makes close() send a reset instead of an orderly end of stream.
        raw = self.connection
        raw.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.server.mark_reset(raw)
        self.close_connection = True

    def hang(self):
        self.close_connection = True
        self.connection.settimeout(0.2)
        while not STOP.is_set():
            try:
                if not self.connection.recv(1024):
                    return  # the client gave up
            except (socket.timeout, ssl.SSLWantReadError):
                continue
            except OSError:
                return


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True

    def __init__(self, cfg, tls_context):
        super().__init__(("127.0.0.1", 0), Handler)
        self.cfg = cfg
        self.tls_context = tls_context
        self.reset_lock = threading.Lock()
        self.reset_ids = set()

    def finish_request(self, request, client_address):
        # The TLS handshake runs here, on the request's own thread, so a client that never
        # completes it cannot stall the accepting loop.
        if self.tls_context is not None:
            try:
                request.settimeout(30)
                request = self.tls_context.wrap_socket(request, server_side=True)
                request.settimeout(None)
            except (ssl.SSLError, OSError) as e:
                sys.stderr.write("testserver: TLS handshake failed: %s\n" % e)
                return
        super().finish_request(request, client_address)

    def mark_reset(self, request):
        with self.reset_lock:
            self.reset_ids.add(id(request))

    def shutdown_request(self, request):
        # A reset connection is closed without the orderly end-of-stream shutdown would send.
        with self.reset_lock:
            reset = id(request) in self.reset_ids
            self.reset_ids.discard(id(request))
        if reset:
            self.close_request(request)
        else:
            super().shutdown_request(request)

    def handle_error(self, request, client_address):
        exc = sys.exc_info()[1]
        if not isinstance(exc, (ConnectionError, ssl.SSLError, socket.timeout)):
            super().handle_error(request, client_address)


def ensure_certificates(cert_dir):
    names = ["ca.pem", "server.pem", "server.key"]
    if all(os.path.exists(os.path.join(cert_dir, n)) for n in names):
        return
    script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "make-ca.sh")
    subprocess.run(["/bin/sh", script, cert_dir], check=True, stdout=subprocess.DEVNULL)


def tls_context(cert_dir):
    ensure_certificates(cert_dir)
    ctx = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    ctx.load_cert_chain(os.path.join(cert_dir, "server.pem"), os.path.join(cert_dir, "server.key"))
    return ctx


def serve(server):
    thread = threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.1}, daemon=True)
    thread.start()
    return thread


def main():
    p = argparse.ArgumentParser(description="local test server")
    p.add_argument("--root", required=True)
    p.add_argument("--routes")
    p.add_argument("--log")
    p.add_argument("--cert-dir")
    p.add_argument("--strict", action="store_true")
    p.add_argument("--delay-ms", type=int, default=0)
    group = p.add_mutually_exclusive_group()
    group.add_argument("--also-http", action="store_true")
    group.add_argument("--http-only", action="store_true")
    args = p.parse_args()
    cfg = Config(args)

    servers = []
    if not args.http_only:
        cert_dir = args.cert_dir or os.path.join(cfg.root, ".certs")
        os.makedirs(cert_dir, exist_ok=True)
        servers.append(Server(cfg, tls_context(cert_dir)))
    if args.http_only or args.also_http:
        servers.append(Server(cfg, None))

    print(servers[0].server_address[1])
    if len(servers) > 1:
        print("http %d" % servers[1].server_address[1])
    sys.stdout.flush()

    def stop(*_):
        STOP.set()

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)
    for s in servers:
        serve(s)
    STOP.wait()
    for s in servers:
        s.shutdown()
        s.server_close()


if __name__ == "__main__":
    main()
