#!/usr/bin/env python3
"""Extended-protocol throughput of the Linux build, beside LPD and raw loopback TCP in the same run.

Starts "vorlix -x" on a free port with settings and base directory of its own, prints to the
built-in file printer ("file", which writes each job into the output directory) and measures:
  - small jobs per second over the extended protocol, one sender after another and 8 senders at
    once, from the first send until the last job reached the printer, beside the same jobs over
    LPD (target: the extended protocol within 80% of LPD's rate) and raw loopback TCP. Each
    job's status is asked for after the round, unmeasured, as the application servers that keep
    statuses do: until then the service keeps the job's data file. A session is 9 round trips
    (greeting, DP, DO, DT, PT, DS, DB, DE, EX) where LPD needs 5, which bounds one sender's ratio;
  - MB/s for one large job sent plain and with C2 (compressible text), until the sender heard
    "OK" for its DE (acknowledged) and until the job was at the printer, beside raw loopback TCP
    (target for C2: at least 0.3x);
as min / median / max of 3 rounds and the ratio of the medians. Prints figures; asserts nothing.

    python3 bench/extended_bench.py [--build build/linux] [--jobs 400] [--size-mb 200]
"""
import argparse
import os
import socket
import sys
import tempfile
import time
import zlib
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests" / "e2e"))
from extended_client import ExtendedSession  # noqa: E402
from lpd_bench import (REPO, ROUNDS, Server, TcpSink, run_senders, send_lpd_job,  # noqa: E402
                       send_tcp, spread, wait_for_output)


def open_session(port):
    session = ExtendedSession(port)
    session.sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return session


def encode_blocks(data, limit, c2=False):
    """The job's DB packets, made before the clock starts: plain blocks of at most limit bytes,
    or C2 blocks of as much data as compresses into limit bytes."""
    packets = []
    view = memoryview(data)
    at = 0
    chunk = limit if not c2 else 8 * limit
    while at < len(data):
        part = view[at:at + chunk]
        block = bytes(part)
        if c2:
            z = zlib.compressobj(6, zlib.DEFLATED, -15)
            block = z.compress(part) + z.flush()
            if len(block) > limit:
                chunk //= 2
                continue
        packets.append(b"DB %d\n" % len(block) + block)
        at += len(part)
    return packets


def send_extended_job(port, job_id, data=None, packets=None, c2=False, printer="file"):
    """One job in blocks as large as the packet size allows; returns when DE was answered."""
    session = open_session(port)
    head = (b"DP " + printer.encode(), b"DO bench", b"DT 0", b"PT RAW")
    for packet in head + ((b"C2",) if c2 else ()):
        assert session.say(packet) == b"OK\n", packet
    assert session.say(b"DS " + job_id.encode()) == b"OK\n"
    for packet in packets if packets is not None else encode_blocks(data, session.packet_size):
        assert session.say(packet) == b"OK\n"
    answer = session.say(b"DE")
    assert answer.startswith(b"OK "), answer
    session.say(b"EX")
    session.close()


def ask_statuses(port, job_ids, printer="file"):
    """Asks the final status of each job, as the application server that sent it does later on:
    the answer releases the job's kept data file, so that the service's next jobs reuse it."""
    for job_id in job_ids:
        end = time.monotonic() + 60
        while True:
            with socket.create_connection(("127.0.0.1", port)) as s:
                s.sendall(f"3{printer} JOB {job_id}\n".encode())
                answer = b""
                while chunk := s.recv(4096):
                    answer += chunk
            if b"Status: done" in answer:
                break
            # At the printer, but its print system has not said "completed" yet: a job still
            # printing is answered like an unknown one, and keeps its entry.
            if time.monotonic() > end:
                sys.exit(f"job {job_id}: {answer!r}")
            time.sleep(0.05)


def small_jobs(server, sink, jobs, senders, small, round_no):
    rates = []
    for protocol in ("extended", "lpd"):
        server.clear_output()
        name = lambda i, k: f"{round_no}{senders}{i:02d}{k:05d}"
        if protocol == "extended":
            send = lambda i, k: send_extended_job(server.port, "x" + name(i, k), small)
        else:
            send = lambda i, k: send_lpd_job(server.port, "file", name(i, k), small)
        sent = run_senders(jobs, senders, send)
        start = time.perf_counter() - sent
        if not wait_for_output(server.output, jobs):
            sys.exit("not every job reached the printer")
        rates.append(jobs / (time.perf_counter() - start))
        if protocol == "extended":  # unmeasured: the status answers come after the printing
            per = [jobs // senders + (1 if i < jobs % senders else 0) for i in range(senders)]
            ask_statuses(server.port, ["x" + name(i, k) for i in range(senders)
                                       for k in range(per[i])])
    rates.append(jobs / run_senders(jobs, senders, lambda i, k: send_tcp(sink.port, small)))
    return rates  # extended, lpd, tcp


def large_job(server, sink, data, size_mb, c2):
    server.clear_output()
    packets = encode_blocks(data, 2 * 15000, c2)
    # Each round starts with the disk idle, not still writing out the rounds before it.
    os.sync()
    start = time.perf_counter()
    send_extended_job(server.port, "large", packets=packets, c2=c2)
    acknowledged = size_mb / (time.perf_counter() - start)
    if not wait_for_output(server.output, 1, len(data)):
        sys.exit("the large job did not reach the printer")
    printed = size_mb / (time.perf_counter() - start)
    ask_statuses(server.port, ["large"])
    start = time.perf_counter()
    send_tcp(sink.port, data)
    tcp = size_mb / (time.perf_counter() - start)
    return acknowledged, printed, tcp


def show(values, unit):
    fmt = "{:,.0f}" if unit == "jobs/s" else "{:,.1f}"
    return " / ".join(fmt.format(v) for v in spread(values)) + " " + unit


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=str(REPO / "build" / "linux"))
    parser.add_argument("--jobs", type=int, default=400)
    parser.add_argument("--job-bytes", type=int, default=1024)
    parser.add_argument("--size-mb", type=int, default=200)
    args = parser.parse_args()

    small = bytes(range(256)) * (args.job_bytes // 256) + b"\n"
    line = b"%08d Invoice 4711  Widgets, blue      12 pcs     19.99 EUR        239.88 EUR\n"
    text = b"".join(line % n for n in range(args.size_mb * 1024 * 1024 // len(line % 0)))
    sink = TcpSink()
    rows = []
    with tempfile.TemporaryDirectory(prefix="vorlix-bench-") as tmp:
        server = Server(Path(args.build), Path(tmp), {})
        try:
            # Measured as a running service, not one that has just started: the settings it
            # writes at its start are read from the file until they have been still for a
            # moment, and from memory after that.
            time.sleep(2.5)
            # Unmeasured: the first jobs of a run make the files that later jobs reuse, so that
            # whichever protocol went first would pay for both.
            small_jobs(server, sink, args.jobs, 8, small, 9)
            for senders in (1, 8):
                rounds = [small_jobs(server, sink, args.jobs, senders, small, r)
                          for r in range(ROUNDS)]
                ext, lpd, tcp = ([r[i] for r in rounds] for i in range(3))
                med = lambda v: spread(v)[1]
                rows.append((f"{len(small)} B jobs at the printer, {senders} sender(s)",
                             show(ext, "jobs/s"), show(lpd, "jobs/s"), show(tcp, "jobs/s"),
                             f"{med(ext) / med(lpd):.2f}", f"{med(ext) / med(tcp):.2f}"))
            for c2 in (False, True):
                rounds = [large_job(server, sink, text, args.size_mb, c2) for _ in range(ROUNDS)]
                ack, printed, tcp = ([r[i] for r in rounds] for i in range(3))
                med = lambda v: spread(v)[1]
                name = f"one {args.size_mb} MB text job, {'C2' if c2 else 'plain'}"
                rows.append((name + ", acknowledged", show(ack, "MB/s"), "-", show(tcp, "MB/s"),
                             "-", f"{med(ack) / med(tcp):.2f}"))
                rows.append((name + ", at the printer", show(printed, "MB/s"), "-",
                             show(tcp, "MB/s"), "-", f"{med(printed) / med(tcp):.2f}"))
        finally:
            server.stop()

    print("min / median / max of 3; ratios of the medians")
    print(f"{'measure':<48} {'extended protocol':>26} {'LPD':>24} {'raw loopback TCP':>26} "
          f"{'/LPD':>5} {'/TCP':>5}")
    for r in rows:
        print(f"{r[0]:<48} {r[1]:>26} {r[2]:>24} {r[3]:>26} {r[4]:>5} {r[5]:>5}")


if __name__ == "__main__":
    main()
