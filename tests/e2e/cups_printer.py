"""A private CUPS for the end-to-end tests, with raw queues to fake network printers.

One cupsd per test session: its own configuration, spool and state directories and its own port
on 127.0.0.1. Every queue sends to a small TCP sink (the fake printer) that records the bytes of
each connection. The queues are made when the session starts, before any Wine process of the run:
Wine reads the printer list once per prefix while a process that loaded winspool lives.

CUPS_SERVER is set in this process's environment, so every program the tests start talks to this
cupsd. Wine's winspool honours it too: it reads CUPS_SERVER from the environment of the Wine
program that loads it (measured with a prefix booted and a wineserver started without it), so
nothing else (no ~/.cups/client.conf, which would redirect every other CUPS client of the user)
is needed.
"""
import os
import shutil
import socket
import subprocess
import tempfile
import threading
import time
from pathlib import Path

import pytest

CUPSD = shutil.which("cupsd") or "/usr/sbin/cupsd"
LPADMIN = shutil.which("lpadmin") or "/usr/sbin/lpadmin"

# The session's queues: name -> how they are set up.
PRINTING = "vx_print"
SECOND = "vx_print2"
STOPPED = "vx_stopped"
REJECTING = "vx_rejecting"
UNREACHABLE = "vx_unreachable"
UNKNOWN = "vx_no_such_printer"
HELD = "vx_held"  # its printer can be held: it then takes each job but finishes none
BULK = [f"vx_bulk{n}" for n in range(4)]  # printers that share many jobs between them


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for_free_port(port, timeout=60.0):
    """True once nothing listens on the port (a killed program's socket may outlive it a while:
    under Wine until the wineserver has seen the process end)."""
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        with socket.socket() as s:
            s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            try:
                s.bind(("0.0.0.0", port))
                return True
            except OSError:
                time.sleep(0.1)
    return False


def wait_for_port(port, timeout=30.0):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=1):
                return True
        except OSError:
            time.sleep(0.1)
    return False


class Sink:
    """A fake network printer: accepts connections and keeps each one's bytes. While held, it
    reads nothing: CUPS's backend waits with the job processing, as for a slow device."""

    def __init__(self):
        self.server = socket.socket()
        self.server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.server.bind(("127.0.0.1", 0))
        self.server.listen(8)
        self.port = self.server.getsockname()[1]
        self.lock = threading.Condition()
        self.jobs = []  # bytes of every finished connection, in order of their end
        self.closed = False
        self.running = threading.Event()
        self.running.set()
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            try:
                conn, _ = self.server.accept()
            except OSError:
                return
            threading.Thread(target=self._receive, args=(conn,), daemon=True).start()

    def _receive(self, conn):
        self.running.wait()
        data = bytearray()
        with conn:
            while True:
                try:
                    chunk = conn.recv(65536)
                except OSError:
                    break
                if not chunk:
                    break
                data += chunk
        with self.lock:
            self.jobs.append(bytes(data))
            self.lock.notify_all()

    def hold(self):
        self.running.clear()

    def release(self):
        self.running.set()

    def clear(self):
        with self.lock:
            self.jobs = []

    def wait_for_jobs(self, count, timeout=60.0):
        """The first count jobs once they have arrived (fewer when the time runs out)."""
        end = time.monotonic() + timeout
        with self.lock:
            while len(self.jobs) < count:
                left = end - time.monotonic()
                if left <= 0:
                    break
                self.lock.wait(left)
            return list(self.jobs)

    def close(self):
        self.server.close()


class Cups:
    """The private cupsd and its queues."""

    def __init__(self, root):
        self.root = root
        self.port = free_port()
        self.server = f"127.0.0.1:{self.port}"
        self.sinks = {}
        self.proc = None

    # ---- the daemon ----
    def start(self):
        for sub in ("conf", "spool/tmp", "state", "cache", "log"):
            (self.root / sub).mkdir(parents=True, exist_ok=True)
        conf = self.root / "conf"
        (conf / "cupsd.conf").write_text(f"""LogLevel info
Listen {self.server}
Browsing No
BrowseLocalProtocols none
DefaultAuthType None
WebInterface No
PreserveJobHistory Yes
ErrorPolicy stop-printer
Printcap {self.root}/printcap
<Location />
  Order allow,deny
  Allow all
</Location>
<Policy default>
  JobPrivateAccess all
  JobPrivateValues none
  SubscriptionPrivateAccess all
  SubscriptionPrivateValues none
  <Limit All>
    Order deny,allow
  </Limit>
</Policy>
""")
        (conf / "cups-files.conf").write_text(f"""ServerRoot {conf}
RequestRoot {self.root}/spool
TempDir {self.root}/spool/tmp
StateDir {self.root}/state
CacheDir {self.root}/cache
AccessLog {self.root}/log/access_log
ErrorLog {self.root}/log/error_log
PageLog {self.root}/log/page_log
FileDevice No
Sandboxing Relaxed
""")
        self.log = open(self.root / "log" / "cupsd.out", "wb")
        self.proc = subprocess.Popen(
            [CUPSD, "-f", "-c", str(conf / "cupsd.conf"), "-s", str(conf / "cups-files.conf")],
            stdout=self.log, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        if not wait_for_port(self.port):
            self.stop()
            pytest.fail(f"the private cupsd did not start: {self.error_log()[-2000:]}")

    def stop(self):
        if self.proc is not None:
            self.proc.terminate()
            try:
                self.proc.wait(timeout=20)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
            self.proc = None
        for sink in self.sinks.values():
            sink.close()

    def error_log(self):
        path = self.root / "log" / "error_log"
        return path.read_text(errors="replace") if path.exists() else ""

    def run(self, *command):
        """A CUPS command-line tool against this cupsd; fails the test when it fails."""
        proc = subprocess.run(list(command), capture_output=True, text=True, timeout=60,
                              stdin=subprocess.DEVNULL, env=self.env())
        if proc.returncode != 0:
            pytest.fail(f"{' '.join(command)}: {proc.stderr}")
        return proc.stdout

    def env(self):
        env = dict(os.environ)
        env["CUPS_SERVER"] = self.server
        return env

    # ---- queues ----
    def add_queue(self, name, device_uri=None, *options):
        """A raw queue; without a device URI it prints to a new sink, returned."""
        sink = None
        if device_uri is None:
            sink = Sink()
            self.sinks[name] = sink
            device_uri = f"socket://127.0.0.1:{sink.port}"
        self.run(LPADMIN, "-h", self.server, "-p", name, "-E", "-v", device_uri, "-m", "raw",
                 *options)
        return sink

    def pause(self, name):
        self.run(shutil.which("cupsdisable") or "/usr/sbin/cupsdisable", "-h", self.server, name)

    def resume(self, name):
        self.run(shutil.which("cupsenable") or "/usr/sbin/cupsenable", "-h", self.server, name)

    def cancel_all(self, name):
        self.run(shutil.which("cancel") or "/usr/bin/cancel", "-h", self.server, "-a", name)

    def sink(self, name):
        sink = self.sinks[name]
        sink.clear()
        return sink

    def active_jobs(self, name):
        """The queue's jobs that CUPS has not finished ("lpstat -o" lines)."""
        out = self.run(shutil.which("lpstat") or "/usr/bin/lpstat", "-h", self.server, "-o")
        return [line for line in out.splitlines() if line.startswith(name + "-")]


def point_clients_at(cups):
    """Every CUPS client the tests start (native or under Wine) talks to the private cupsd."""
    previous = os.environ.get("CUPS_SERVER")
    os.environ["CUPS_SERVER"] = cups.server

    def restore():
        if previous is None:
            os.environ.pop("CUPS_SERVER", None)
        else:
            os.environ["CUPS_SERVER"] = previous
    return restore


@pytest.fixture(scope="session", autouse=True)
def cups_server():
    """The session's cupsd with its queues, made before any test (and any Wine process) runs."""
    if not os.path.exists(CUPSD):
        yield None
        return
    # The backends run as an unprivileged user and must reach the spool below this directory.
    root = Path(tempfile.mkdtemp(prefix="vorlix-cups-"))
    root.chmod(0o755)
    cups = Cups(root)
    cups.start()
    restore = point_clients_at(cups)
    try:
        for name in [PRINTING, SECOND, HELD, STOPPED, REJECTING] + BULK:
            cups.add_queue(name)
        # Holds its jobs: disabled (it still accepts jobs).
        cups.pause(STOPPED)
        cups.run(shutil.which("cupsreject") or "/usr/sbin/cupsreject", "-h", cups.server, REJECTING)
        # A closed port: the socket backend gives up after the URI's connect time-out; CUPS then
        # stops the queue with the job pending.
        cups.add_queue(UNREACHABLE, f"socket://127.0.0.1:{free_port()}/?contimeout=2",
                       "-o", "printer-error-policy=stop-printer")
        yield cups
    finally:
        restore()
        cups.stop()
        shutil.rmtree(root, ignore_errors=True)


@pytest.fixture
def cups(cups_server):
    if cups_server is None:
        pytest.skip("cupsd is not installed")
    return cups_server
