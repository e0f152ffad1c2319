#!/usr/bin/env python3
"""LPD throughput of the Linux build, from send to printer, beside raw loopback TCP.

Starts "vorlix -x" on a free port with settings and base directory of its own, prints to the
built-in file printer ("file", which writes each job into the output directory) and measures:
  - small jobs per second, one sender after another and 8 senders at once, in three set-ups:
    without the journal beside each job (NoJobRestore 1), with it (the default), and with it
    written through to the disk before each acknowledgement (SyncJobFiles 1);
  - MB/s for one large job: until the sender has its last acknowledgement (the reception) and
    until the job is at the printer;
each next to the same figure for plain loopback TCP (the same bytes to a socket that reads them)
measured in the same run, as min / median / max of 3 rounds and the ratio of the medians.
With --log-level N the large job is also measured with the trace on, at LogLevel 1 and at
LogLevel N, and the LogLevel N figures are shown beside the LogLevel 1 figures as a ratio.
Prints figures; asserts nothing.

    python3 bench/lpd_bench.py [--build build/linux] [--jobs 400] [--size-mb 200]
                               [--log-level 9] [--large-only]
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


def size_of(path):
    """0 for a file that went meanwhile (a job's ".part" file is renamed when it is complete)."""
    try:
        return path.stat().st_size
    except FileNotFoundError:
        return 0


def wait_for_output(directory, count, total_bytes=None, timeout=600):
    """Seconds until count files (and total_bytes, when given) are in the output directory."""
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        # A ".part" file is a job still being written by the file printer.
        files = [f for f in directory.glob("*") if f.suffix != ".part"] \
            if directory.exists() else []
        if len(files) >= count:
            if total_bytes is None or sum(size_of(f) for f in files) >= total_bytes:
                return True
        time.sleep(0.01)
    return False


class Server:
    def __init__(self, build, work, settings, prepare_home=None):
        """prepare_home(home), when given, puts the files the service reads at its start into
        the base directory before it starts."""
        self.work = work
        self.port = free_port()
        home = work / "home"
        registry = work / "registry"
        home.mkdir()
        registry.mkdir()
        if prepare_home is not None:
            prepare_home(home)
        values = {"LPDPort": str(self.port), "LogLevel": "0", "NiAcceptTimeout": "200"}
        values.update(settings)
        (registry / "HKLM.reg").write_text(
            "Windows Registry Editor Version 5.00\n\n"
            "[HKEY_LOCAL_MACHINE\\Software\\Zel\\Zellpd\\ZELLPD]\n"
            + "".join(f'"{name}"="{value}"\n' for name, value in values.items()) + "\n")
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
            f.unlink(missing_ok=True)  # a job being written may move its file meanwhile

    def stop(self):
        self.proc.terminate()
        try:
            self.proc.wait(timeout=60)
        except subprocess.TimeoutExpired:
            self.proc.kill()


ROUNDS = 3
SETUPS = [
    ("no journal", {"NoJobRestore": "1"}),
    ("journal", {}),
    ("journal + SyncJobFiles", {"SyncJobFiles": "1"}),
]


def spread(values):
    """min / median / max of the rounds."""
    ordered = sorted(values)
    return ordered[0], ordered[len(ordered) // 2], ordered[-1]


def small_jobs(server, sink, jobs, senders, small, round_no):
    """Jobs per second from the first send until the last job reached the printer, and the same
    sends over plain TCP."""
    server.clear_output()
    sent = run_senders(jobs, senders,
                       lambda i, k: send_lpd_job(server.port, "file",
                                                 f"{round_no}{senders}{i:02d}{k:05d}", small))
    start = time.perf_counter() - sent
    if not wait_for_output(server.output, jobs):
        sys.exit("not every job reached the printer")
    lpd = jobs / (time.perf_counter() - start)
    tcp = jobs / run_senders(jobs, senders, lambda i, k: send_tcp(sink.port, small))
    return lpd, tcp


def large_job(server, sink, large, size_mb):
    """MB/s until the last acknowledgement and until the job is at the printer, and over plain
    TCP."""
    server.clear_output()
    start = time.perf_counter()
    send_lpd_job(server.port, "file", "large", large)
    acknowledged = size_mb / (time.perf_counter() - start)
    if not wait_for_output(server.output, 1, len(large)):
        sys.exit("the large job did not reach the printer")
    printed = size_mb / (time.perf_counter() - start)
    start = time.perf_counter()
    send_tcp(sink.port, large)
    tcp = size_mb / (time.perf_counter() - start)
    return acknowledged, printed, tcp


def large_rows(name, triples):
    """The rows of the large job: acknowledged and at the printer, each beside plain TCP."""
    return [row(f"{name}, acknowledged", "MB/s", [(t[0], t[2]) for t in triples]),
            row(f"{name}, at printer", "MB/s", [(t[1], t[2]) for t in triples])]


def show(values, unit):
    fmt = "{:,.0f}" if unit == "jobs/s" else "{:,.1f}"
    return " / ".join(fmt.format(v) for v in values) + f" {unit}"


def row(name, unit, pairs):
    lpd = spread([p[0] for p in pairs])
    tcp = spread([p[1] for p in pairs])
    ratio = lpd[1] / tcp[1] if tcp[1] else 0.0
    return name, show(lpd, unit), show(tcp, unit), f"{ratio:.2f}"


def log_level_rows(level, base, traced):
    """The large job at LogLevel level beside LogLevel 1: the ratio of the medians."""
    rows = []
    for index, what in ((0, "acknowledged"), (1, "at printer")):
        one = spread([t[index] for t in base])
        other = spread([t[index] for t in traced])
        ratio = other[1] / one[1] if one[1] else 0.0
        rows.append((f"{what}: LogLevel {level} beside LogLevel 1", show(other, "MB/s"),
                     show(one, "MB/s"), f"{ratio:.2f}"))
    return rows


def print_table(rows, header):
    print(f"{'measure (min / median / max of 3)':<46} {header[0]:>30} {header[1]:>26} "
          f"{'ratio':>6}")
    for name, lpd, tcp, ratio in rows:
        print(f"{name:<46} {lpd:>30} {tcp:>26} {ratio:>6}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=str(REPO / "build" / "linux"))
    parser.add_argument("--jobs", type=int, default=400)
    parser.add_argument("--job-bytes", type=int, default=2000)
    parser.add_argument("--size-mb", type=int, default=200)
    parser.add_argument("--log-level", type=int, default=None,
                        help="also measure the large job at LogLevel 1 and at this LogLevel")
    parser.add_argument("--large-only", action="store_true",
                        help="measure the large job only, not the small jobs")
    args = parser.parse_args()

    small = os.urandom(args.job_bytes)
    large = os.urandom(args.size_mb * 1024 * 1024)
    sink = TcpSink()
    rows = []
    large_name = f"one {args.size_mb} MB job"
    for setup, settings in SETUPS:
        if args.large_only and setup != "journal":
            continue
        with tempfile.TemporaryDirectory(prefix="vorlix-bench-") as tmp:
            server = Server(Path(args.build).resolve(), Path(tmp), settings)
            try:
                for senders in () if args.large_only else (1, 8):
                    pairs = [small_jobs(server, sink, args.jobs, senders, small, r)
                             for r in range(ROUNDS)]
                    rows.append(row(f"{args.job_bytes} B jobs, {senders} sender(s), {setup}",
                                    "jobs/s", pairs))
                if setup == "journal":
                    triples = [large_job(server, sink, large, args.size_mb)
                               for _ in range(ROUNDS)]
                    rows += large_rows(f"{large_name}, {setup}", triples)
            finally:
                server.stop()

    # Both servers run side by side and take turns, so that a change in the machine's load
    # falls on both figures alike.
    levels = {} if args.log_level is None else dict.fromkeys((1, args.log_level))
    with tempfile.TemporaryDirectory(prefix="vorlix-bench-") as tmp:
        servers = {}
        try:
            for level in levels:
                (Path(tmp) / str(level)).mkdir()
                servers[level] = Server(Path(args.build).resolve(), Path(tmp) / str(level),
                                        {"LogLevel": str(level)})
            for level in levels:
                levels[level] = []
            for _ in range(ROUNDS):
                for level, server in servers.items():
                    levels[level].append(large_job(server, sink, large, args.size_mb))
        finally:
            for server in servers.values():
                server.stop()
    for level, triples in levels.items():
        rows += large_rows(f"{large_name}, LogLevel {level}", triples)

    print_table(rows, ("vorlix LPD", "raw loopback TCP"))
    if args.log_level is not None:
        print()
        print_table(log_level_rows(args.log_level, levels[1], levels[args.log_level]),
                    (f"LogLevel {args.log_level}", "LogLevel 1"))


if __name__ == "__main__":
    main()
