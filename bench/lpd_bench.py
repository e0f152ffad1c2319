#!/usr/bin/env python3
"""LPD throughput of the Linux build, from send to printer, beside raw loopback TCP.

Starts "vorlix -x" on a free port with settings and base directory of its own, prints to the
built-in file printer ("file", which writes each job into the output directory) and measures:
  - small jobs per second, one sender after another and 8 senders at once;
  - MB/s for one large job;
each next to the same figure for plain loopback TCP (the same bytes to a socket that reads them)
measured in the same run. Prints figures; asserts nothing.

    python3 bench/lpd_bench.py [--build build/linux] [--jobs 400] [--size-mb 200]
"""
import argparse
import os
import socket
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

REPO = Path(__file__).resolve().parents[1]


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for_port(port, timeout=30):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        try:
            socket.create_connection(("127.0.0.1", port), timeout=1).close()
            return True
        except OSError:
            time.sleep(0.05)
    return False


def expect_ack(sock):
    if sock.recv(1) != b"\0":
        raise RuntimeError("negative acknowledgement")


def send_lpd_job(port, queue, name, data):
    """One job the way an RFC 1179 client sends it: control file, then one data file."""
    control = f"Hbench\nPbench\nJ{name}\nldfA{name}\n".encode()
    with socket.create_connection(("127.0.0.1", port)) as s:
        # Without it the closing zero byte waits for the server's delayed acknowledgement of the
        # data (Nagle), and the figure measures that timer instead of the server.
        s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        s.sendall(b"\x02" + queue.encode() + b"\n")
        expect_ack(s)
        s.sendall(f"\x02{len(control)} cfA{name}\n".encode())
        expect_ack(s)
        s.sendall(control + b"\0")
        expect_ack(s)
        s.sendall(f"\x03{len(data)} dfA{name}\n".encode())
        expect_ack(s)
        view = memoryview(data)
        for offset in range(0, len(data), 1 << 20):
            s.sendall(view[offset:offset + (1 << 20)])
        s.sendall(b"\0")
        expect_ack(s)


class TcpSink:
    """The baseline: a socket that reads whatever comes until the sender closes."""

    def __init__(self):
        self.server = socket.socket()
        self.server.bind(("127.0.0.1", 0))
        self.server.listen(64)
        self.port = self.server.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                conn, _ = self.server.accept()
            except OSError:
                return
            threading.Thread(target=self.drain, args=(conn,), daemon=True).start()

    @staticmethod
    def drain(conn):
        with conn:
            while conn.recv(1 << 20):
                pass
            conn.sendall(b"\0")


def send_tcp(port, data):
    with socket.create_connection(("127.0.0.1", port)) as s:
        view = memoryview(data)
        for offset in range(0, len(data), 1 << 20):
            s.sendall(view[offset:offset + (1 << 20)])
        s.shutdown(socket.SHUT_WR)
        s.recv(1)


def run_senders(count, senders, send_one):
    """Sends count jobs with the given number of parallel senders; returns the seconds taken."""
    per = [count // senders + (1 if i < count % senders else 0) for i in range(senders)]
    start = time.perf_counter()
    threads = []
    for i, n in enumerate(per):
        t = threading.Thread(target=lambda i=i, n=n: [send_one(i, k) for k in range(n)])
        t.start()
        threads.append(t)
    for t in threads:
        t.join()
    return time.perf_counter() - start


def wait_for_output(directory, count, total_bytes=None, timeout=600):
    """Seconds until count files (and total_bytes, when given) are in the output directory."""
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        files = list(directory.glob("*")) if directory.exists() else []
        if len(files) >= count:
            if total_bytes is None or sum(f.stat().st_size for f in files) >= total_bytes:
                return True
        time.sleep(0.01)
    return False


class Server:
    def __init__(self, build, work):
        self.work = work
        self.port = free_port()
        home = work / "home"
        registry = work / "registry"
        home.mkdir()
        registry.mkdir()
        (registry / "HKLM.reg").write_text(
            "Windows Registry Editor Version 5.00\n\n"
            "[HKEY_LOCAL_MACHINE\\Software\\Zel\\Zellpd\\ZELLPD]\n"
            f'"LPDPort"="{self.port}"\n"LogLevel"="0"\n"NiAcceptTimeout"="200"\n'
            '"NoJobRestore"="1"\n\n')
        env = dict(os.environ, VORLIX_HOME=str(home), VORLIX_REGISTRY_DIR=str(registry))
        self.output = home / "Output"
        self.proc = subprocess.Popen([str(build / "bin" / "vorlix"), "-x"], env=env, cwd=work,
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                     stdin=subprocess.DEVNULL)
        if not wait_for_port(self.port):
            self.proc.kill()
            sys.exit("vorlix did not start listening")

    def clear_output(self):
        for f in self.output.glob("*"):
            f.unlink()

    def stop(self):
        self.proc.terminate()
        try:
            self.proc.wait(timeout=60)
        except subprocess.TimeoutExpired:
            self.proc.kill()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=str(REPO / "build" / "linux"))
    parser.add_argument("--jobs", type=int, default=400)
    parser.add_argument("--job-bytes", type=int, default=2000)
    parser.add_argument("--size-mb", type=int, default=200)
    args = parser.parse_args()

    small = os.urandom(args.job_bytes)
    large = os.urandom(args.size_mb * 1024 * 1024)
    sink = TcpSink()
    rows = []
    with tempfile.TemporaryDirectory(prefix="vorlix-bench-") as tmp:
        server = Server(Path(args.build), Path(tmp))
        try:
            for senders in (1, 8):
                server.clear_output()
                sent = run_senders(args.jobs, senders,
                                   lambda i, k: send_lpd_job(server.port, "file",
                                                             f"{senders}{i:02d}{k:05d}", small))
                start = time.perf_counter() - sent
                if not wait_for_output(server.output, args.jobs):
                    sys.exit("not every job reached the printer")
                lpd = args.jobs / (time.perf_counter() - start)
                tcp = args.jobs / run_senders(args.jobs, senders, lambda i, k: send_tcp(sink.port, small))
                rows.append((f"{args.job_bytes}-byte jobs, {senders} sender(s)", f"{lpd:,.0f} jobs/s",
                             f"{tcp:,.0f} jobs/s"))

            server.clear_output()
            start = time.perf_counter()
            send_lpd_job(server.port, "file", "large", large)
            if not wait_for_output(server.output, 1, len(large)):
                sys.exit("the large job did not reach the printer")
            lpd = args.size_mb / (time.perf_counter() - start)
            start = time.perf_counter()
            send_tcp(sink.port, large)
            tcp = args.size_mb / (time.perf_counter() - start)
            rows.append((f"one {args.size_mb} MB job", f"{lpd:,.1f} MB/s", f"{tcp:,.1f} MB/s"))
        finally:
            server.stop()

    print(f"{'measure':<34} {'vorlix LPD, send to printer':>28} {'raw loopback TCP':>18}")
    for name, lpd, tcp in rows:
        print(f"{name:<34} {lpd:>28} {tcp:>18}")


if __name__ == "__main__":
    main()
