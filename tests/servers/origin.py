#!/usr/bin/env python3
"""Loopback HTTP/1.1 origin server of the tests; binds 127.0.0.1 only, prints (and puts in --ready-file)
"READY http=<port> https=<port> ... refused=<port> echo=<port> pid=<pid>": a TLS listener per make-test-ca
certificate in --tls-dir, a port that refuses, and a raw TCP echo. --log gets a JSON line per request, as /echo
gives it less query and tls, plus id, t, status. Routes: /echo, /bytes?n=&mode=length|chunked|close&seed=
(X-Body-Sha256: what the bytes hash to, for up to 256 MiB), /slow?n=&piece=64&delay_ms=100&mode=, /short?n=&sent=n/2,
/stall?n=&sent=n/2&max_ms=, /reset, /silent?max_ms=, /status/<code>, /redirect?to=/echo&code=302, /upload,
/headers?h=Name:Value&..., /gather?group=&n=&max_ms= (each request
but a HEAD waits until n of its group are waiting, then all get 200 and the /echo body; 504 if max_ms passes first), /auth/basic?user=user&pass=pass&realm=vn, /auth/digest (a challenge that is never
met; each 401 carries the /echo body), /pac?proxy=host:port (a proxy script naming it).
"""

import argparse
import base64
import functools
import hashlib
import http.server
import itertools
import json
import os
import select
import socket
import ssl
import struct
import threading
import time
import urllib.parse

# The request log's file, shared by all listeners, and the counts of requests and connections.
LOCK, IDS, CONNECTIONS = threading.Lock(), itertools.count(1), itertools.count(1)
# /gather's groups: how many of each have arrived, and the wake-up when one more does.
GROUPS, GATHERED = {}, threading.Condition()
LOG_FILE, LIFETIME = None, 900


def add(entry):
    with LOCK:
        if LOG_FILE:
            LOG_FILE.write(json.dumps(dict(id=next(IDS), t=round(time.time(), 3), **entry)) + "\n")
            LOG_FILE.flush()


def generated(seed, n, piece=1 << 18):
    """Seed's first n bytes, in pieces: 64 KiB blocks, each the SHAKE-128 of the seed and its number."""
    buf, block = bytearray(), 0
    while n > 0:
        take = min(piece, n)
        while len(buf) < take:
            buf += hashlib.shake_128(b"%d:%d" % (seed, block)).digest(65536)
            block += 1
        yield bytes(buf[:take])
        del buf[:take]
        n -= take


@functools.lru_cache(maxsize=256)
def digest(seed, n):
    h = hashlib.sha256()
    for piece in generated(seed, n, 1 << 20):
        h.update(piece)
    return h.hexdigest()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version, timeout = "HTTP/1.1", 120
    disable_nagle_algorithm = True  # else a head and a body in two writes wait for the client's delayed ACK

    def setup(self):
        super().setup()
        self.conn_number, self.seq = next(CONNECTIONS), 0

    def __getattr__(self, name):  # do_GET, do_DELETE, ...: every verb is served alike
        if name.startswith("do_"):
            return self.serve
        raise AttributeError(name)

    def serve(self):
        self.seq += 1
        split = urllib.parse.urlsplit(self.path)
        self.route, self.query = split.path, urllib.parse.parse_qs(split.query, keep_blank_values=True)
        try:
            self.read_body()
            self.dispatch()
        except ValueError as e:
            self.reply(400, "bad request: %s\n" % e, keep=False)

    def read_body(self):
        h, self.body_length = hashlib.sha256(), 0
        self.chunked = "chunked" in self.headers.get("Transfer-Encoding", "").lower()
        sizes = iter(lambda: int(self.rfile.readline().split(b";")[0], 16), 0) if self.chunked else \
            [int(self.headers.get("Content-Length") or 0)]
        for left in sizes:
            while left > 0:
                part = self.rfile.read(min(left, 1 << 20))
                if not part:
                    raise ConnectionError("the body ended short")
                h.update(part)
                self.body_length += len(part)
                left -= len(part)
            if self.chunked:
                self.rfile.readline()
        while self.chunked and self.rfile.readline().strip():  # trailers
            pass
        self.body_sha256 = h.hexdigest()

    def arg(self, name, default=None):
        return self.query.get(name, [default])[0]

    def number(self, name, default):
        text = self.arg(name)
        return int(text, 0) if text else default

    def describe(self, **more):
        return dict(listener=self.server.name, conn=self.conn_number, seq=self.seq, method=self.command,
                    target=self.path, path=self.route, version=self.request_version,
                    headers=[list(h) for h in self.headers.items()], body_length=self.body_length,
                    body_sha256=self.body_sha256, **more)

    def head(self, status, headers, keep=True):
        add(self.describe(status=status))
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Connection", "keep-alive" if keep and not self.close_connection else "close")
        self.end_headers()

    def reply(self, status, body, headers=(), keep=True, content_type="text/plain"):
        body = body.encode("utf-8") if isinstance(body, str) else body
        has_body = status not in (204, 304)
        fixed = [("Content-Type", content_type), ("Content-Length", len(body))] if has_body else []
        self.head(status, fixed + list(headers), keep)
        if has_body and self.command != "HEAD":
            self.wfile.write(body)

    def json(self, obj, status=200):
        self.reply(status, json.dumps(obj) + "\n", content_type="application/json")

    def body(self, sent=None, piece=1 << 18, delay_ms=0):
        """Answers with the generated body of ?n= and ?seed=, of which only `sent` bytes go out."""
        n, seed, mode = self.number("n", 1024), self.number("seed", 1), self.arg("mode", "length")
        sent = n if sent is None else min(sent, n)
        if mode not in ("length", "chunked", "close"):
            raise ValueError("mode must be length, chunked or close")
        headers = [("Content-Type", "application/octet-stream")]
        if n <= 1 << 28:  # hashing more would hold the head for longer than a client waits
            headers.append(("X-Body-Sha256", digest(seed, n)))
        if mode != "close":
            headers.append(("Transfer-Encoding", "chunked") if mode == "chunked" else ("Content-Length", n))
        self.head(200, headers, keep=mode != "close" and sent == n)
        for data in generated(seed, sent if self.command != "HEAD" else 0, piece):
            time.sleep(delay_ms / 1000.0)
            self.wfile.write(b"%x\r\n%s\r\n" % (len(data), data) if mode == "chunked" else data)
        if mode == "chunked" and sent == n and self.command != "HEAD":
            self.wfile.write(b"0\r\n\r\n")

    def gather(self):
        group, n, max_ms = self.arg("group", ""), self.number("n", 2), self.number("max_ms", 60000)
        if self.command == "HEAD":  # a client's look ahead of its request
            return self.json(self.describe())
        with GATHERED:
            GROUPS[group] = GROUPS.get(group, 0) + 1
            GATHERED.notify_all()
            complete = GATHERED.wait_for(lambda: GROUPS[group] >= n, max_ms / 1000.0)
        self.reply(200 if complete else 504, json.dumps(self.describe(gathered=GROUPS[group])) + "\n",
                   content_type="application/json")

    def hold(self, max_ms):
        """Leaves the connection unanswered until the client closes it or max_ms (else forever) passed."""
        deadline, sock = time.monotonic() + (max_ms / 1000.0 if max_ms else LIFETIME), self.connection
        while time.monotonic() < deadline:
            pending = isinstance(sock, ssl.SSLSocket) and sock.pending()
            if (pending or select.select([sock], [], [], 0.25)[0]) and not sock.recv(65536):
                break
        self.close_connection = True

    def reset(self):
        self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.connection.close()
        self.close_connection = True

    def dispatch(self):
        route, echo = self.route, self.describe(query=self.query, tls=self.server.name != "http")
        head_ms = self.number("head_ms", 0)
        if head_ms:  # logged on arrival, answered later
            add(self.describe(status=0))
            time.sleep(head_ms / 1000.0)
        if route == "/echo":
            return self.json(echo)
        if route in ("/auth/basic", "/auth/digest"):
            login = base64.b64encode(("%s:%s" % (self.arg("user", "user"), self.arg("pass", "pass"))).encode())
            if route == "/auth/basic" and self.headers.get("Authorization", "").split() == ["Basic", login.decode()]:
                return self.json(echo)
            challenge = [("WWW-Authenticate", '%s realm="%s"' % (route[6:].capitalize(), self.arg("realm", "vn")))]
            return self.reply(401, json.dumps(echo) + "\n", challenge, content_type="application/json")
        if route == "/bytes":
            return self.body()
        if route == "/slow":
            return self.body(piece=self.number("piece", 64), delay_ms=self.number("delay_ms", 100))
        if route in ("/short", "/stall"):
            self.body(sent=self.number("sent", self.number("n", 1024) // 2))
            return self.hold(self.number("max_ms", 0)) if route == "/stall" else None
        if route in ("/reset", "/silent"):
            add(self.describe(status=0))
            return self.reset() if route == "/reset" else self.hold(self.number("max_ms", 0))
        if route.startswith("/status/"):
            return self.reply(int(route[8:]), "status %s\n" % route[8:])
        if route == "/redirect":
            to = self.arg("to", "/echo")
            return self.reply(self.number("code", 302), "redirect to %s\n" % to, [("Location", to)])
        if route == "/gather":
            return self.gather()
        if route == "/upload":
            return self.json({"method": self.command, "length": self.body_length, "sha256": self.body_sha256})
        if route == "/pac":
            script = 'function FindProxyForURL(url, host) { return "PROXY %s"; }\n' % self.arg("proxy", "p:1")
            return self.reply(200, script, content_type="application/x-ns-proxy-autoconfig")
        if route == "/headers":
            return self.reply(200, "ok\n", [h.split(":", 1) for h in self.query.get("h", [])])
        self.reply(404, "no route for %s\n" % route)


class Listener(http.server.ThreadingHTTPServer):
    def __init__(self, name, context=None):
        self.name = name
        super().__init__(("127.0.0.1", 0), Handler)
        if context:  # accepted sockets do their handshakes on their own threads
            self.socket = context.wrap_socket(self.socket, server_side=True, do_handshake_on_connect=False)
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def shutdown_request(self, request):
        """Ends with close_notify, FIN and a drain, so that a late client write can't turn it into RST."""
        try:
            request.settimeout(0.3)
            if isinstance(request, ssl.SSLSocket):
                try:
                    request.unwrap()  # many clients never answer the close_notify
                except (OSError, ValueError):
                    pass
            request.shutdown(socket.SHUT_WR)
            deadline = time.monotonic() + 1
            while time.monotonic() < deadline and request.recv(65536):
                pass
        except (OSError, ValueError):
            pass
        request.close()


def echo(server):
    """Sends back what each connection sends, until it closes."""
    def serve(connection):
        with connection:
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            for piece in iter(lambda: connection.recv(65536), b""):
                connection.sendall(piece)
    while True:
        threading.Thread(target=serve, args=(server.accept()[0],), daemon=True).start()


def main():
    global LOG_FILE, LIFETIME
    p = argparse.ArgumentParser(description="Loopback origin server of the tests.")
    p.add_argument("--tls-dir", help="make-test-ca's folder: one TLS listener per certificate")
    p.add_argument("--log", help="request log, one JSON line per request")
    p.add_argument("--ready-file", help="also write the READY line here")
    p.add_argument("--lifetime", type=float, default=900, help="seconds until the server ends")
    p.add_argument("--parent", type=int, default=0, help="end when this process is gone")
    args = p.parse_args()
    LOG_FILE, LIFETIME = open(args.log, "a") if args.log else None, args.lifetime
    ports = [("http", Listener("http").server_address[1])]
    for name in ("https", "expired", "notyet", "wrongname", "selfsigned", "untrusted"):
        stem = os.path.join(args.tls_dir or "", "localhost" if name == "https" else name)
        if args.tls_dir and os.path.exists(stem + ".pem"):
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(stem + ".pem", stem + ".key")
            ports.append((name, Listener(name, context).server_address[1]))
    refused = socket.socket()  # held for the server's life, so that nobody else takes the port
    refused.bind(("127.0.0.1", 0))
    echoing = socket.create_server(("127.0.0.1", 0))
    threading.Thread(target=echo, args=(echoing,), daemon=True).start()
    ports += [("refused", refused.getsockname()[1]), ("echo", echoing.getsockname()[1]), ("pid", os.getpid())]
    line = "READY " + " ".join("%s=%d" % item for item in ports)
    if args.ready_file:
        with open(args.ready_file + ".tmp", "w") as f:
            f.write(line + "\n")
        os.replace(args.ready_file + ".tmp", args.ready_file)
    print(line, flush=True)
    end = time.monotonic() + args.lifetime
    while time.monotonic() < end and (not args.parent or os.path.exists("/proc/%d" % args.parent)):
        time.sleep(0.25)
    os._exit(0)  # connection threads are daemons; one blocked in a send must not hold the process


if __name__ == "__main__":
    main()
