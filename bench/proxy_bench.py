#!/usr/bin/env python3
"""The local proxy side by side with tinyproxy and with the platform's own internet client, in one run:
the same origin, the same bodies, rounds alternating between them, medians with the first round left out;
then the server's memory at rest, with 63 clients streaming and after 10,000 requests.
Run under scripts/with-servers: proxy_bench.py <bin-dir> <MiB> <rounds>."""
import glob
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "common"))
from local_proxy_holder import ENV, ORIGIN, Holder, ready  # noqa: E402

BIN, MIB, ROUNDS = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
TINYPROXY = "http://127.0.0.1:" + ready("VN_PROXY")["port"]
SMALL = ORIGIN + "/bytes?n=100"
SECONDS = 5  # of each small-request run
WRK_SCRIPT = 'wrk.path = "%s"\nwrk.headers["Host"] = "%s"\n' % (SMALL, ORIGIN[7:])


def curl(proxy, url, *args):
    """MiB/s of one transfer through the proxy, the body dropped."""
    done = subprocess.run(["curl", "-sS", "--fail", "-x", proxy, "-o", os.devnull, "-w", "%{time_total}"] +
                          list(args) + [url], capture_output=True, text=True, timeout=900, check=True)
    return MIB / float(done.stdout)


def wrk(proxy, script, seconds=SECONDS):
    """Requests a second and their number: 32 kept-alive connections asking the proxy for small bodies."""
    out = subprocess.run(["wrk", "-t2", "-c32", "-d%ds" % seconds, "-s", script, proxy], capture_output=True,
                         text=True, timeout=seconds + 60, check=True).stdout
    return float(re.search(r"Requests/sec:\s+([\d.]+)", out).group(1)), int(re.search(r"(\d+) requests in", out)[1])


def raw(*args):
    """The number the platform's client printed: pre-flight and request pairs a second, or MiB/s."""
    out = subprocess.run(["wine", os.path.join(BIN, "bench_raw_wininet.exe")] + [str(a) for a in args], env=ENV,
                         capture_output=True, text=True, timeout=900, check=True).stdout
    return float(out.split()[1])


def server_kib():
    """Resident memory of this prefix's server process, in KiB, and its number of threads."""
    for environ in glob.glob("/proc/[0-9]*/environ"):
        try:
            cmdline = open(environ[:-7] + "cmdline", "rb").read()
            if b"VnLinkhost.exe" in cmdline and ("WINEPREFIX=" + ENV["WINEPREFIX"]).encode() + b"\0" in \
                    open(environ, "rb").read():
                status = open(environ[:-7] + "status").read()
                return tuple(int(re.search(field + r":\s+(\d+)", status).group(1)) for field in ("VmRSS", "Threads"))
        except OSError:
            pass
    raise RuntimeError("no server process in this prefix")


def settled_kib():
    time.sleep(3)
    return server_kib()


def memory(holder, script, done):
    print("memory", file=sys.stderr, flush=True)
    rest = settled_kib()
    # Held back by their own rate, so that the proxy's queues fill up; a client that left would make
    # its worker read the rest of the body first.
    streams = [subprocess.Popen(["curl", "-sS", "--fail", "-x", holder.url, "--limit-rate", "2M", "-o", os.devnull,
                                 ORIGIN + "/bytes?n=%d&seed=%d" % (16 << 20, i)]) for i in range(63)]
    streaming = (0, 0)
    while any(stream.poll() is None for stream in streams):
        streaming = max(streaming, server_kib())
        time.sleep(0.5)
    assert all(stream.returncode == 0 for stream in streams), "a streaming client failed"
    while done < 10000:
        done += wrk(holder.url, script)[1]
    after = settled_kib()
    bound = rest[0] + 63 * 256
    print("server memory: at rest %d KiB (%d threads), 63 clients streaming %d KiB (%d threads; bound %d KiB: %s), "
          "after %d requests %d KiB (%d threads)" % (rest + streaming + (bound, "held" if
          streaming[0] <= bound else "EXCEEDED", done) + after))


def main():
    holder = Holder(BIN, seconds=7200)
    proxies = {"local proxy": holder.url, "tinyproxy": TINYPROXY}
    rows = {}

    def add(metric, name, value):
        rows.setdefault(metric, {}).setdefault(name, []).append(value)

    done = 0
    with tempfile.NamedTemporaryFile() as upload, tempfile.NamedTemporaryFile("w", suffix=".lua") as script:
        upload.write(os.urandom(MIB << 20))
        upload.flush()
        script.write(WRK_SCRIPT)
        script.flush()
        body = ORIGIN + "/bytes?n=%d&mode=length" % (MIB << 20)
        for round in range(ROUNDS + 1):
            print("round %d of %d" % (round, ROUNDS), file=sys.stderr, flush=True)
            for name, proxy in proxies.items():
                rate, count = wrk(proxy, script.name)
                done += count if proxy == holder.url else 0
                add("small requests/s, 32 clients", name, rate)
                add("download MiB/s", name, curl(proxy, body))
                add("upload MiB/s", name, curl(proxy, ORIGIN + "/upload", "-T", upload.name))
            add("small requests/s, 32 clients", "raw WinInet", raw("pairs", SMALL, 32, SECONDS))
            add("download MiB/s", "raw WinInet", raw("body", body, 4096))
        memory(holder, script.name, done)
    holder.stop()
    print("%d MiB bodies, %d s of small requests, medians of %d rounds (first left out)" % (MIB, SECONDS, ROUNDS))
    for metric, by_name in rows.items():
        medians = {name: statistics.median(values[1:]) for name, values in by_name.items()}
        ours = medians.pop("local proxy")
        print("%-29s local proxy %8.1f" % (metric, ours) +
              "".join("   %s %8.1f (ratio %.2f)" % (name, v, ours / v) for name, v in medians.items()))


main()
