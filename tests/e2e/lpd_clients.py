"""LPD senders and the console server for the end-to-end tests.

`LpdServer` runs "vorlix -x" in the background on a free port (the `server` fixture makes them and
kills what is left at the end); `RawSender` and `send_job` speak LPD by hand (RFC 1179), subcommand
by subcommand; `cups_lpd` and `rlpr` are real clients.
"""
import os
import random
import shutil
import signal
import socket
import subprocess

import pytest

import cups_printer as cp

LPD_BACKEND = "/usr/lib/cups/backend/lpd"
RLPR = shutil.which("rlpr")


def random_bytes(size, seed):
    return random.Random(seed).randbytes(size)


class LpdServer:
    """"vorlix -x" in the background on a free port, its output in files."""

    def __init__(self, vorlix, settings=None):
        self.vorlix = vorlix
        self.port = cp.free_port()
        values = {"LPDPort": str(self.port), "LogLevel": "9", "NiAcceptTimeout": "200"}
        values.update(settings or {})
        vorlix.set_values(values)
        self.proc = None
        self.runs = 0

    def start(self):
        self.runs += 1
        out = open(self.vorlix.workdir / f"server{self.runs}.out", "wb")
        err = open(self.vorlix.workdir / f"server{self.runs}.err", "wb")
        with out, err:
            self.proc = subprocess.Popen(self.vorlix.command(["-x"]), stdout=out, stderr=err,
                                         stdin=subprocess.DEVNULL, env=self.vorlix.env(),
                                         cwd=self.vorlix.workdir)
        if not cp.wait_for_port(self.port, timeout=60):
            self.kill()
            pytest.fail(f"the server did not listen on {self.port}: {self.vorlix.trace()[-2000:]}")
        return self

    def wait(self, timeout=60):
        """The exit code once the process has ended."""
        return self.proc.wait(timeout=timeout)

    @property
    def stop_signal(self):
        """The stop request: SIGTERM on Linux; under Wine SIGINT, which Wine hands to the
        program as the console's Ctrl+C event."""
        return signal.SIGINT if self.vorlix.windows else signal.SIGTERM

    def stop(self):
        self.proc.send_signal(self.stop_signal)
        return self.wait()

    def kill(self):
        if self.proc is not None and self.proc.poll() is None:
            if self.vorlix.windows:
                # A crash as Windows has it: the system ends the process and closes its sockets.
                # A SIGKILL to the Wine process leaves them to the wine server, which may keep the
                # port listening for ever (and spin on them).
                subprocess.run(["wine", "taskkill", "/F", "/IM", self.vorlix.exe.name],
                               stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, timeout=60)
                try:
                    self.proc.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    pass
            self.proc.kill()
            self.proc.wait()
            # The next start must find the port free, or it ends at once ("port in use").
            assert cp.wait_for_free_port(self.port), f"port {self.port} still in use after a kill"

    def lines(self):
        return self.vorlix.trace_texts(self.vorlix.trace())


def job_files(vorlix):
    """What the temporary directory holds besides the trace logs (and their dated copies) and
    the emptied spare files."""
    if not vorlix.log_dir.exists():
        return []
    names = []
    for p in vorlix.log_dir.iterdir():
        name = p.name.lower()
        if name.startswith("vxspare."):
            try:
                size = p.stat().st_size
            except FileNotFoundError:
                continue  # a job has just taken it
            # A finished job's file is moved to its spare name before it is emptied: one seen
            # with data in between is listed, so that a caller waiting for "no files" waits on.
            if size != 0:
                names.append(p.name)
        elif ".dbg" not in name and ".nit" not in name:
            names.append(p.name)
    return sorted(names)


@pytest.fixture
def server(vorlix, cups):
    servers = []

    def make(settings=None):
        s = LpdServer(vorlix, settings)
        servers.append(s)
        return s.start()

    yield make
    for s in servers:
        s.kill()
    if vorlix.target == "linux-asan":
        for err in vorlix.workdir.glob("server*.err"):
            text = err.read_text(errors="replace")
            assert "ERROR: AddressSanitizer" not in text and "runtime error:" not in text, text


# ---- clients ----

def cups_lpd(port, queue, path, title="job"):
    """CUPS's lpd backend as the scheduler would run it for one job."""
    env = dict(os.environ)
    env["DEVICE_URI"] = f"lpd://127.0.0.1:{port}/{queue}?reserve=none&snmp=false&contimeout=30"
    proc = subprocess.run([LPD_BACKEND, "1", "tester", title, "1", "", str(path)], env=env,
                          stdin=subprocess.DEVNULL, capture_output=True, timeout=600)
    assert proc.returncode == 0, proc.stderr.decode(errors="replace")[-2000:]


def rlpr(port, queue, path):
    proc = subprocess.run([RLPR, "-N", "-H", "127.0.0.1", f"--port={port}", "-P", queue,
                           str(path)], stdin=subprocess.DEVNULL, capture_output=True, timeout=120)
    assert proc.returncode == 0, proc.stderr.decode(errors="replace")


def connect(port, timeout=30):
    return socket.create_connection(("127.0.0.1", port), timeout=timeout)


def ask(port, line):
    """Sends one command line; returns everything the server answers until it closes."""
    with connect(port) as s:
        s.sendall(line)
        answer = bytearray()
        while chunk := s.recv(65536):
            answer += chunk
        return bytes(answer)


def ack(s):
    return s.recv(1)


def control_text(data_names, title="raw job", copies=1):
    """A control file that prints each data file copies times (one print line a copy)."""
    lines = "".join(f"l{n}\n" * copies for n in data_names)
    return ("Hvxtest\nPtester\nJ" + title + "\n" + lines).encode()


class RawSender:
    """An LPD sender by hand, subcommand by subcommand (RFC 1179)."""

    def __init__(self, port, queue):
        self.sock = connect(port)
        self.sock.sendall(b"\x02" + queue.encode() + b"\n")
        assert ack(self.sock) == b"\x00"

    def control(self, queue, data_names, name="cfA001vxtest", title="raw job"):
        body = control_text(data_names, title)
        self.sock.sendall(f"\x02{len(body)} {name}\n".encode())
        assert ack(self.sock) == b"\x00"
        self.sock.sendall(body + b"\x00")
        assert ack(self.sock) == b"\x00"

    def data_header(self, name, size):
        self.sock.sendall(f"\x03{size} {name}\n".encode())
        assert ack(self.sock) == b"\x00"

    def data(self, name, body):
        self.data_header(name, len(body))
        self.sock.sendall(body + b"\x00")
        assert ack(self.sock) == b"\x00"

    def close(self):
        self.sock.close()


def try_job(port, queue, body, number, data_name=None, copies=1, timeout=30):
    """One job of one data file over a connection of its own, the control file first (as LPRng
    sends). Two flags: the data file went out whole (the server may have made a job of it), and
    it was acknowledged. A refused subcommand or a failed connection ends the attempt, as for a
    client that will send the job again."""
    data_name = data_name or f"dfA{number % 1000:03d}vxtest"
    control = control_text([data_name], f"job {number}", copies)
    steps = (b"\x02" + queue.encode() + b"\n",
             f"\x02{len(control)} cfA{number % 1000:03d}vxtest\n".encode(), control + b"\x00",
             f"\x03{len(body)} {data_name}\n".encode(), body + b"\x00")
    whole = False
    try:
        with connect(port, timeout) as s:
            for step in steps:
                s.sendall(step)
                whole = step is steps[-1]
                if ack(s) != b"\x00":
                    return whole, False
        return True, True
    except OSError:
        return whole, False


def send_job(port, queue, body, number, data_name=None, copies=1, timeout=30):
    """True once the job was acknowledged (see try_job)."""
    return try_job(port, queue, body, number, data_name, copies, timeout)[1]
