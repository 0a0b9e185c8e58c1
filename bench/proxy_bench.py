#!/usr/bin/env python3
"""The local proxy against tinyproxy, side by side in one run: the same curl, the same origin, the
same bodies, rounds alternating between the two, medians with the first round left out.
Run under scripts/with-servers: proxy_bench.py <bin-dir> <MiB> <rounds>."""
import os
import statistics
import subprocess
import sys
import tempfile

BIN, MIB, ROUNDS = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
ENV = dict(os.environ, WINEARCH="win64", WINEDEBUG="-all")
ENV.pop("DISPLAY", None)
WORDS = {v: dict(w.split("=", 1) for w in os.environ[v].split()[1:]) for v in ("VN_ORIGIN", "VN_PROXY")}
ORIGIN = "http://127.0.0.1:%s" % WORDS["VN_ORIGIN"]["http"]
SMALL = 200  # small GETs on one kept-alive connection per round


def curl(proxy, urls, *args):
    """Seconds that curl took for the URLs, one after the other on one connection, bodies dropped."""
    dropped = [a for url in urls for a in ("-o", os.devnull, url)]
    done = subprocess.run(["curl", "-sS", "--fail", "-x", proxy, "-w", "%{time_total} "] + list(args) + dropped,
                          capture_output=True, text=True, timeout=900, check=True)
    return sum(float(t) for t in done.stdout.split())


def measure(proxy, upload):
    n = MIB << 20
    down = curl(proxy, ["%s/bytes?n=%d&mode=length" % (ORIGIN, n)])
    up = curl(proxy, ["%s/upload" % ORIGIN], "-T", upload)
    small = curl(proxy, ["%s/bytes?n=100&seed=%d" % (ORIGIN, i) for i in range(SMALL)])
    return {"download MiB/s": MIB / down, "upload MiB/s": MIB / up, "small GETs/s": SMALL / small}


def main():
    holder = subprocess.Popen(["wine", os.path.join(BIN, "local_proxy.exe"), "--set", "proxy/useSystemProxy=false",
                               "--set", "proxy/mode=0", "--set", "dialup/useSystemConnection=false",
                               "--set", "dialup/mode=0"], env=ENV, text=True, errors="replace", stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE)
    port = next(line.split(": ")[1].strip() for line in holder.stdout if line.startswith("LocalPort: "))
    proxies = {"local proxy": "http://127.0.0.1:" + port, "tinyproxy": "http://127.0.0.1:" + WORDS["VN_PROXY"]["port"]}
    results = {name: [] for name in proxies}
    with tempfile.NamedTemporaryFile() as upload:
        upload.write(os.urandom(MIB << 20))
        upload.flush()
        for _ in range(ROUNDS + 1):
            for name, proxy in proxies.items():
                results[name].append(measure(proxy, upload.name))
    holder.communicate("stop\n", timeout=120)
    print("%d MiB bodies, %d small GETs, medians of %d rounds (first left out)" % (MIB, SMALL, ROUNDS))
    for metric in results["local proxy"][0]:
        ours, theirs = (statistics.median(r[metric] for r in results[name][1:]) for name in proxies)
        print("%-15s local proxy %9.1f   tinyproxy %9.1f   ratio %.2f" % (metric, ours, theirs, ours / theirs))


main()
