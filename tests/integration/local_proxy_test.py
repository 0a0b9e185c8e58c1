#!/usr/bin/env python3
"""The local proxy from end to end: the real server, started through COM by the local_proxy sample in
processes of their own, with curl and raw sockets as the proxy's clients, against the tests' origin
server directly and through tinyproxy. Run under scripts/with-servers: local_proxy_test.py <bin-dir>."""
import concurrent.futures
import glob
import hashlib
import itertools
import json
import os
import pathlib
import re
import select
import socket
import subprocess
import sys
import tempfile
import time
import unittest

BIN = sys.argv.pop(1)
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "common"))
from local_proxy_holder import DIRECT, ENV, ORIGIN, Holder, ready  # noqa: E402

# Wine's internet client hands a kept-alive direct connection on to a later request that should go
# through a proxy, so requests through tinyproxy name the origin by another name.
ORIGINS = {"direct": ORIGIN, "tinyproxy": ORIGIN.replace("127.0.0.1", "localhost")}
TINYPROXY = DIRECT[:1] + ["proxy/mode=2", "proxy/address=127.0.0.1", "proxy/port=" + ready("VN_PROXY")["port"],
                          "proxy/exclude=", "proxy/noLocal=false"] + DIRECT[2:]


def log_count(text):
    """How often the server's log in the test prefix holds the text."""
    pattern = "drive_c/users/*/AppData/Local/Velorin/VnLinkhost/Konfiguration/VnLinkhost.log"
    paths = glob.glob(os.path.join(ENV["WINEPREFIX"], pattern))
    return sum(pathlib.Path(p).read_bytes().decode(errors="replace").count(text) for p in paths)


def wait_for(predicate, seconds=60):
    return any(predicate() or time.sleep(0.1) for _ in range(int(seconds * 10)))


def curl(holder, *args, seconds=120, **more):
    return subprocess.run(["curl", "-sS", "--max-time", str(seconds), "-x", "http://127.0.0.1:%d" % holder.port] +
                          list(args), capture_output=True, timeout=seconds + 10, **more)


def connect(holder):
    s = socket.create_connection(("127.0.0.1", holder.port), timeout=60)
    s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return s


def get(path, host=True, method="GET"):
    host = "Host: %s\r\n" % ORIGIN[7:] if host else ""
    return ("%s %s HTTP/1.1\r\n%sUser-Agent: raw\r\n\r\n" % (method, path, host)).encode()


def read_response(f, bodiless=False):
    """Status line, headers (lower-case names) and the Content-Length body of one response on the
    connection's reader (one reader for each connection: what it read ahead stays in it)."""
    status = f.readline().decode().strip()
    headers = {}
    for line in iter(f.readline, b"\r\n"):
        assert line, "the connection ended within the head"
        name, value = line.decode().split(":", 1)
        headers[name.strip().lower()] = value.strip()
    return status, headers, b"" if bodiless else f.read(int(headers.get("content-length", 0)))


def read_to_end(s):
    return b"".join(itertools.takewhile(bool, (s.recv(65536) for _ in range(100000))))


def setUpModule():
    assert subprocess.run(["timeout", "120", "wine", os.path.join(BIN, "VnLinkhost.exe"), "/RegServer"],
                          env=ENV).returncode == 0
    global HOLDERS
    HOLDERS = {"direct": Holder(BIN), "tinyproxy": Holder(BIN, TINYPROXY)}


def tearDownModule():
    try:
        for name, holder in HOLDERS.items():
            assert holder.stop() == 0, "the %s proxy no longer answered at the end" % name
    finally:
        subprocess.run(["wineserver", "-k"], env=ENV, timeout=60)


class PassesResponsesThrough(unittest.TestCase):
    # path, status code, what the body must be
    CASES = [("/bytes?n=5000000&seed=3", "200", "digest"), ("/bytes?n=3000000&mode=chunked", "200", "digest"),
             ("/bytes?n=3000000&mode=close", "200", "digest"), ("/status/204", "204", ""),
             ("/status/404", "404", "status 404\n"), ("/echo", "200", "echo")]

    def test_status_headers_and_body(self):
        for mode, holder in HOLDERS.items():
            for path, code, body in self.CASES:
                with self.subTest(mode=mode, path=path):
                    run = curl(holder, "-i", ORIGINS[mode] + path)
                    self.assertEqual(0, run.returncode, run.stderr)
                    head, _, received = run.stdout.partition(b"\r\n\r\n")
                    lines = head.decode().split("\r\n")
                    headers = dict(line.lower().split(": ", 1) for line in lines[1:] if ": " in line)
                    self.assertRegex(lines[0], r"^HTTP/1\.[01] %s " % code)
                    if body == "digest":
                        self.assertEqual(headers["x-body-sha256"], hashlib.sha256(received).hexdigest())
                    elif body == "echo":  # the request went through tinyproxy exactly when it should
                        self.assertEqual(mode == "tinyproxy", "tinyproxy" in json.dumps(json.loads(received)))
                    else:
                        self.assertEqual(body.encode(), received)

    def test_a_posted_body_arrives_whole(self):
        # No two line feeds in a row: the head's end is looked for as "\n\n" first.
        body = hashlib.shake_256(b"upload").digest(4 << 20).replace(b"\n", b"\r")
        for mode, holder in HOLDERS.items():
            with self.subTest(mode=mode):
                run = curl(holder, "--data-binary", "@-", ORIGINS[mode] + "/upload", input=body)
                self.assertEqual(0, run.returncode, run.stderr)
                answer = json.loads(run.stdout)
                self.assertEqual((len(body), hashlib.sha256(body).hexdigest()), (answer["length"], answer["sha256"]))


class KeepsTheClientConnection(unittest.TestCase):
    def test_requests_in_a_row_on_one_connection(self):
        # Were a body sent after a HEAD or a 204, the next response would not begin with its status line.
        with connect(HOLDERS["direct"]) as s, s.makefile("rb") as f:
            for method, path, status in [("GET", "/echo?i=1", "200 OK"), ("HEAD", "/bytes?n=1000", "200 OK"),
                                         ("GET", "/status/204", "204 No Content"), ("GET", "/echo?i=2", "200 OK")]:
                s.sendall(get(path, method=method))
                line, _, body = read_response(f, bodiless=method == "HEAD")
                self.assertEqual("HTTP/1.1 " + status, line)
                if path.startswith("/echo"):
                    self.assertEqual(path, json.loads(body)["target"])
            # A response that asks for it ends the connection.
            s.sendall(get("/headers?h=Proxy-Connection:close"))
            self.assertEqual("close", read_response(f)[1]["proxy-connection"])
            self.assertEqual(b"", read_to_end(s))

    def test_many_keep_alive_clients_at_once_are_all_answered(self):
        # wrk keeps each of its 32 connections for all its requests; a lua script sends them in the
        # proxy's absolute form and alternates a body with a short answer.
        with tempfile.NamedTemporaryFile("w", suffix=".lua") as script:
            script.write(WRK_SCRIPT % (ORIGIN, ORIGIN, ORIGIN[7:]))
            script.flush()
            run = subprocess.run(["wrk", "-t2", "-c32", "-d3s", "--timeout", "30s", "-s", script.name, HOLDERS["direct"].url],
                                 capture_output=True, text=True, timeout=60)
        self.assertEqual(0, run.returncode, run.stderr)
        requests = int(re.search(r"(\d+) requests in", run.stdout).group(1))
        self.assertGreater(requests, 32, run.stdout)
        self.assertNotRegex(run.stdout, "Socket errors|Non-2xx")
        bad, bodies = map(int, re.search(r"bad (\d+) of (\d+)", run.stdout).groups())
        self.assertEqual(0, bad)
        self.assertGreater(bodies, 16)


WRK_SCRIPT = """
local threads = {}
setup = function(thread) table.insert(threads, thread) end
init = function() n, bad, bodies = 0, 0, 0 end
request = function()
  n = n + 1
  return wrk.format("GET", n %% 2 == 0 and "%s/bytes?n=20000" or "%s/echo", {Host = "%s"})
end
response = function(status, headers, body)
  if headers["X-Body-Sha256"] then bodies = bodies + 1 end
  if headers["X-Body-Sha256"] and #body ~= 20000 then bad = bad + 1 end
end
done = function()
  local sum, all = 0, 0
  for _, thread in ipairs(threads) do sum, all = sum + thread:get("bad"), all + thread:get("bodies") end
  io.write("bad " .. sum .. " of " .. all .. "\\n")
end
"""


class SurvivesOddClients(unittest.TestCase):
    def assertStillServes(self):
        run = curl(HOLDERS["direct"], ORIGIN + "/echo")
        self.assertEqual(0, run.returncode, run.stderr)
        self.assertEqual("/echo", json.loads(run.stdout)["target"])

    def test_requests_that_get_no_answer(self):
        # bytes sent, log line expected; each connection is held while another client is served, then
        # closed by the client, and the proxy lets it go without having answered.
        cases = [(b"", None), (b"\x00\xff garbage\r\n\r\n", None), (get("/echo").replace(b"GET", b"get"), None),
                 (get("/echo", host=False), "GetHeaderValue(Host) not found.")]
        for data, line in cases:
            with self.subTest(data=data), connect(HOLDERS["direct"]) as s:
                before = log_count(line) if line else 0
                s.sendall(data)
                if line:
                    self.assertTrue(wait_for(lambda: log_count(line) > before))
                self.assertStillServes()
                s.shutdown(socket.SHUT_WR)
                self.assertEqual(b"", read_to_end(s))

    def test_clients_that_connect_and_leave_at_once(self):
        # More of them than the proxy has places: each one's place must come free again.
        for _ in range(150):
            socket.create_connection(("127.0.0.1", HOLDERS["direct"].port)).close()
        self.assertStillServes()

    def test_a_head_split_over_many_reads(self):
        with connect(HOLDERS["direct"]) as s:
            request = get("/echo?split=1")
            s.sendall(request[:4])  # a piece that begins with the method comes first
            for i in range(4, len(request), 3):
                time.sleep(0.01)
                s.sendall(request[i:i + 3])
            self.assertEqual("/echo?split=1", json.loads(read_response(s.makefile("rb"))[2])["target"])

    def test_a_client_that_writes_while_its_response_waits_for_it(self):
        # Each line it sends while not reading brings a job that finds the socket still full: the
        # piece waiting to go out must stay, and the body arrive whole.
        with connect(HOLDERS["direct"]) as s, s.makefile("rb") as f:
            s.sendall(get("/bytes?n=8388608"))
            headers = read_response(f, bodiless=True)[1]
            time.sleep(1.5)  # the proxy's sends block by now
            for _ in range(3):
                s.sendall(b"\r\n")
                time.sleep(0.3)
            self.assertEqual(headers["x-body-sha256"], hashlib.sha256(f.read(8388608)).hexdigest())
        self.assertStillServes()

    def test_a_client_that_leaves_during_a_response(self):
        with connect(HOLDERS["direct"]) as s:
            s.sendall(get("/bytes?n=30000000"))
            self.assertGreater(len(s.recv(65536)), 0)
        self.assertStillServes()


class HoldsClientsAtTheLimit(unittest.TestCase):
    """A proxy of its own: 63 clients fill it."""

    @classmethod
    def setUpClass(cls):
        cls.holder = Holder(BIN)

    @classmethod
    def tearDownClass(cls):
        cls.holder.stop()

    def test_1_the_64th_client_waits_until_another_leaves(self):
        def client(i):
            s = connect(self.holder)
            s.sendall(get("/echo?client=%d" % i))
            return s, read_response(s.makefile("rb"))[0]

        with concurrent.futures.ThreadPoolExecutor(63) as pool:
            clients = list(pool.map(client, range(63)))
        try:
            self.assertEqual(["HTTP/1.1 200 OK"] * 63, [status for _, status in clients])
            before = log_count("Count of sockets will be > 64")
            with connect(self.holder) as last:
                last.sendall(get("/echo?client=64"))
                self.assertTrue(wait_for(lambda: log_count("Count of sockets will be > 64") > before))
                self.assertEqual([], select.select([last], [], [], 0)[0])
                clients.pop(0)[0].close()
                self.assertEqual("/echo?client=64", json.loads(read_response(last.makefile("rb"))[2])["target"])
        finally:
            for s, _ in clients:
                s.close()

    def test_2_releasing_the_proxy_waits_for_a_streaming_response(self):
        with connect(self.holder) as s:
            s.sendall(get("/slow?n=65536&piece=4096&delay_ms=100"))
            f = s.makefile("rb")
            headers = read_response(f, bodiless=True)[1]
            self.assertEqual(0, self.holder.stop())
            self.assertEqual(headers["x-body-sha256"], hashlib.sha256(f.read(65536)).hexdigest())


class ListensOnLoopbackOnly(unittest.TestCase):
    def test_listener_address(self):
        holder = HOLDERS["direct"]
        listening = [line.split()[1] for table in ("/proc/net/tcp", "/proc/net/tcp6")
                     for line in pathlib.Path(table).read_bytes().decode().splitlines()[1:] if line.split()[3] == "0A"]
        self.assertEqual("127.0.0.1", holder.lines["LocalHost"])
        self.assertEqual(["0100007F:%04X" % holder.port], [a for a in listening if a.endswith(":%04X" % holder.port)])


if __name__ == "__main__":
    unittest.main(verbosity=2)
