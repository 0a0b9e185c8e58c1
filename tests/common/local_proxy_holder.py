"""The local_proxy sample as the tests and the benchmark hold it: a session of the real server and its
local proxy, in a process of its own, held until told to stop. Run under scripts/with-servers."""
import os
import subprocess

ENV = dict(os.environ, WINEARCH="win64", WINEDEBUG="-all")
ENV.pop("DISPLAY", None)


def ready(variable):
    """The words of a server's ready line that with-servers exported, as a dict."""
    return dict(word.split("=", 1) for word in os.environ[variable].split()[1:])


ORIGIN = "http://127.0.0.1:%s" % ready("VN_ORIGIN")["http"]
DIRECT = ["proxy/useSystemProxy=false", "proxy/mode=0", "dialup/useSystemConnection=false", "dialup/mode=0"]


class Holder:
    def __init__(self, bin_dir, keys=DIRECT, seconds=400):
        self.proc = subprocess.Popen(["timeout", "-k", "5", str(seconds), "wine",
                                      os.path.join(bin_dir, "local_proxy.exe")] +
                                     [a for key in keys for a in ("--set", key)], env=ENV, text=True,
                                     errors="replace", stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT)
        self.lines = {}
        while "LocalPort" not in self.lines:
            line = self.proc.stdout.readline()
            assert line, "local_proxy ended: %r" % self.lines
            self.lines.update([line.strip().split(": ", 1)] if ": " in line else [])
        self.port = int(self.lines["LocalPort"])
        self.url = "http://127.0.0.1:%d" % self.port

    def stop(self):
        """The exit code: 0 when the proxy still answered before it was released."""
        if self.proc.poll() is None:
            self.proc.stdin.write("stop\n")
            self.proc.stdin.close()
        code = self.proc.wait(120)
        self.proc.stdout.close()
        return code
