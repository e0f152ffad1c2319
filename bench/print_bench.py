#!/usr/bin/env python3
"""Printing through CUPS: Vorlix's LPD jobs beside CUPS's own lp and raw loopback TCP (Linux only).

Starts a private cupsd with two raw queues of the same kind, each printing to a fake network
printer of its own (a socket sink that reads and counts jobs), and "vorlix -x" on a free port with
settings and base directory of its own, printing to one of them. It measures, in one run:
  - 1 KiB jobs, one sender after another and 8 senders at once: jobs per second until every job
    was acknowledged and until every job was at the printer; beside the same jobs submitted with
    "lp -d QUEUE" (1 and 8 submitters) to the other queue, the ceiling;
  - the same jobs sent to Vorlix over the extended protocol (each job's status asked for after
    the measurement), at the printer, beside Vorlix's LPD figure (goal: >= 0.8x);
  - the CPU seconds the Vorlix process used per 1000 of those jobs (utime + stime), its resident
    memory when idle after the start and after the jobs (VmRSS) and its peak (VmHWM);
  - one large job: MB/s until it was acknowledged, at LogLevel 1 and at LogLevel 9, beside the
    same bytes to a socket that reads them (raw loopback TCP).
Every figure is min / median / max of the rounds (3 by default); ratios are of the medians.
The goals it is read against: at the printer >= 0.9x lp (1 and 8 senders); the large job
acknowledged >= 0.5x raw TCP, at LogLevel 9 >= 0.5x the LogLevel 1 figure; <= 1 CPU second per
1000 jobs; idle RSS <= 10 MB. Prints figures; asserts nothing.

    /usr/bin/python3 bench/print_bench.py [--build build/linux] [--jobs 500] [--size-mb 200]
                                          [--rounds 3]
    /usr/bin/python3 bench/print_bench.py --quick   # smoke run: 50 jobs, a 20 MB job, 1 round

The private cupsd and its sinks are the end-to-end tests' own (they need python3-pytest).
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.path.insert(0, str(HERE.parent / "tests"))
from lpd_bench import (REPO, Server, TcpSink, run_senders, send_lpd_job, send_tcp,  # noqa: E402
                       spread)
from extended_bench import ask_statuses, send_extended_job  # noqa: E402
from with_cupsd import private_cupsd  # noqa: E402
from cups_printer import CUPSD, point_clients_at  # noqa: E402

LP = shutil.which("lp") or "/usr/bin/lp"
CANCEL = shutil.which("cancel") or "/usr/bin/cancel"
VORLIX_QUEUE = "vx_bench"
LP_QUEUE = "vx_bench_lp"
SENDERS = (1, 8)
SETTLE_SECONDS = 2  # lets the service fall idle before its memory is read


# ---- the Vorlix process as the kernel sees it ----
def cpu_seconds(pid):
    """utime + stime of the whole process (all its threads) in seconds."""
    stat = Path(f"/proc/{pid}/stat").read_text()
    fields = stat[stat.rindex(")") + 2:].split()  # the name in parentheses may hold blanks
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def memory_mb(pid, key):
    """A line of /proc/PID/status (VmRSS, VmHWM) in MB."""
    for line in Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith(key + ":"):
            return int(line.split()[1]) / 1024
    raise RuntimeError(f"{key} is missing from /proc/{pid}/status")


# ---- measurements ----
def forget_finished_jobs(cups):
    """Purges both queues' job history and kept files, so that every measurement meets the same
    empty cupsd (its history would otherwise grow to MaxJobs and be cleaned while it runs)."""
    for name in (VORLIX_QUEUE, LP_QUEUE):
        cups.run(CANCEL, "-h", cups.server, "-a", "-x", name)


def wait_at_printer(sink, count, timeout, what):
    arrived = sink.wait_for_jobs(count, timeout)
    if len(arrived) < count:
        sys.exit(f"{what}: only {len(arrived)} of {count} jobs reached the printer in {timeout} s")
    return arrived


def vorlix_small_jobs(cups, server, sink, jobs, senders, data, tag):
    """Acknowledged and at-the-printer jobs per second, and CPU seconds per 1000 jobs."""
    forget_finished_jobs(cups)
    sink.clear()
    pid = server.proc.pid
    cpu_before = cpu_seconds(pid)
    start = time.perf_counter()
    run_senders(jobs, senders,
                lambda i, k: send_lpd_job(server.port, VORLIX_QUEUE, f"{tag}{i:02d}{k:05d}", data))
    acknowledged = time.perf_counter() - start
    wait_at_printer(sink, jobs, max(120, jobs), f"vorlix, {senders} sender(s)")
    printed = time.perf_counter() - start
    cpu = cpu_seconds(pid) - cpu_before
    sink.clear()
    return jobs / acknowledged, jobs / printed, cpu * 1000 / jobs


def vorlix_extended_small_jobs(cups, server, sink, jobs, senders, data, tag):
    """At-the-printer jobs per second over the extended protocol; each job's status is asked for
    afterwards, unmeasured, as the application servers that keep statuses do."""
    forget_finished_jobs(cups)
    sink.clear()
    per = [jobs // senders + (1 if i < jobs % senders else 0) for i in range(senders)]
    job_id = lambda i, k: f"x{tag}{i:02d}{k:05d}"
    start = time.perf_counter()
    run_senders(jobs, senders, lambda i, k: send_extended_job(server.port, job_id(i, k), data,
                                                              printer=VORLIX_QUEUE))
    wait_at_printer(sink, jobs, max(120, jobs), f"vorlix extended, {senders} sender(s)")
    printed = time.perf_counter() - start
    sink.clear()
    ask_statuses(server.port, [job_id(i, k) for i in range(senders) for k in range(per[i])],
                 VORLIX_QUEUE)
    return jobs / printed


def submit_with_lp(env, path):
    subprocess.run([LP, "-d", LP_QUEUE, "-o", "raw", "-t", "bench", str(path)], env=env,
                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                   check=True, timeout=60)


def lp_small_jobs(cups, sink, jobs, senders, path):
    """The ceiling: submitted and at-the-printer jobs per second with CUPS's own lp."""
    forget_finished_jobs(cups)
    sink.clear()
    env = cups.env()
    start = time.perf_counter()
    run_senders(jobs, senders, lambda i, k: submit_with_lp(env, path))
    submitted = time.perf_counter() - start
    wait_at_printer(sink, jobs, max(120, jobs), f"lp, {senders} submitter(s)")
    printed = time.perf_counter() - start
    sink.clear()
    return jobs / submitted, jobs / printed


def vorlix_large_job(cups, server, sink, data, size_mb):
    """Acknowledged and at-the-printer MB/s of one job; returns once the printer has all of it,
    so that the next measurement starts with CUPS idle."""
    forget_finished_jobs(cups)
    sink.clear()
    start = time.perf_counter()
    send_lpd_job(server.port, VORLIX_QUEUE, "large", data)
    acknowledged = time.perf_counter() - start
    arrived = wait_at_printer(sink, 1, 600, f"vorlix, one {size_mb} MB job")
    printed = time.perf_counter() - start
    if len(arrived[0]) != len(data):
        sys.exit(f"the large job reached the printer with {len(arrived[0])} of {len(data)} bytes")
    sink.clear()
    return size_mb / acknowledged, size_mb / printed


def raw_tcp(tcp_sink, data, size_mb):
    start = time.perf_counter()
    send_tcp(tcp_sink.port, data)
    return size_mb / (time.perf_counter() - start)


def start_service(build, directory, log_level):
    """vorlix -x with a base directory and settings of its own, each start in a new directory."""
    directory.mkdir()
    return Server(Path(build), directory, {"LogLevel": str(log_level)})


def one_round(args, cups, sinks, tcp_sink, small, small_path, large, work, round_no):
    """Every figure once; returns them by name."""
    f = {}
    printer = sinks[VORLIX_QUEUE]
    server = start_service(args.build, work / f"round{round_no}-loglevel1", 1)
    try:
        pid = server.proc.pid
        time.sleep(SETTLE_SECONDS)
        f["rss idle after start"] = memory_mb(pid, "VmRSS")
        for n in SENDERS:
            f[f"vorlix ack {n}"], f[f"vorlix printed {n}"], f[f"cpu {n}"] = vorlix_small_jobs(
                cups, server, printer, args.jobs, n, small, f"{round_no}{n}")
        time.sleep(SETTLE_SECONDS)
        f["rss idle after jobs"] = memory_mb(pid, "VmRSS")
        for n in SENDERS:
            f[f"extended printed {n}"] = vorlix_extended_small_jobs(
                cups, server, printer, args.jobs, n, small, f"{round_no}{n}")
        f["peak rss small"] = memory_mb(pid, "VmHWM")
        f["large ack 1"], f["large printed 1"] = vorlix_large_job(cups, server, printer, large,
                                                                  args.size_mb)
        f["peak rss large"] = memory_mb(pid, "VmHWM")
    finally:
        server.stop()
    for n in SENDERS:
        f[f"lp submitted {n}"], f[f"lp printed {n}"] = lp_small_jobs(
            cups, sinks[LP_QUEUE], args.jobs, n, small_path)
    f["tcp"] = raw_tcp(tcp_sink, large, args.size_mb)
    server = start_service(args.build, work / f"round{round_no}-loglevel9", 9)
    try:
        f["large ack 9"], _ = vorlix_large_job(cups, server, printer, large, args.size_mb)
    finally:
        server.stop()
    return f


# ---- the table ----
def show(values, unit):
    fmt = "{:,.0f}" if unit == "jobs/s" else "{:,.2f}" if unit == "s" else "{:,.1f}"
    return " / ".join(fmt.format(v) for v in spread(values)) + " " + unit


def report(rounds, args):
    column = lambda name: [r[name] for r in rounds]
    median = lambda name: spread(column(name))[1]
    ratio = lambda a, b: f"{median(a) / median(b):.2f}" if median(b) else "-"
    rows = []
    for senders in SENDERS:
        label = f"1 KiB jobs, {senders} sender(s)"
        rows.append((f"{label}, acknowledged", show(column(f"vorlix ack {senders}"), "jobs/s"),
                     "lp " + show(column(f"lp submitted {senders}"), "jobs/s"),
                     ratio(f"vorlix ack {senders}", f"lp submitted {senders}")))
        rows.append((f"{label}, at the printer",
                     show(column(f"vorlix printed {senders}"), "jobs/s"),
                     "lp " + show(column(f"lp printed {senders}"), "jobs/s"),
                     ratio(f"vorlix printed {senders}", f"lp printed {senders}")))
    for senders in SENDERS:
        rows.append((f"1 KiB jobs, {senders} sender(s), extended protocol, at the printer",
                     show(column(f"extended printed {senders}"), "jobs/s"),
                     "LPD " + show(column(f"vorlix printed {senders}"), "jobs/s"),
                     ratio(f"extended printed {senders}", f"vorlix printed {senders}")))
    big = f"one {args.size_mb} MB job"
    rows.append((f"{big}, acknowledged, LogLevel 1", show(column("large ack 1"), "MB/s"),
                 "TCP " + show(column("tcp"), "MB/s"), ratio("large ack 1", "tcp")))
    rows.append((f"{big}, acknowledged, LogLevel 9", show(column("large ack 9"), "MB/s"),
                 "TCP " + show(column("tcp"), "MB/s"), ratio("large ack 9", "tcp")))
    rows.append((f"{big}, acknowledged, LogLevel 9 / 1", "", "LogLevel 1 (rows above)",
                 ratio("large ack 9", "large ack 1")))
    rows.append((f"{big}, at the printer, LogLevel 1", show(column("large printed 1"), "MB/s"),
                 "TCP " + show(column("tcp"), "MB/s"), ratio("large printed 1", "tcp")))
    for senders in SENDERS:
        rows.append((f"CPU per 1000 jobs, {senders} sender(s)", show(column(f"cpu {senders}"), "s"),
                     "", ""))
    rows.append(("RSS idle after start (VmRSS)", show(column("rss idle after start"), "MB"),
                 "", ""))
    rows.append(("RSS idle after the small jobs (VmRSS)", show(column("rss idle after jobs"), "MB"),
                 "", ""))
    rows.append(("peak RSS after the small jobs (VmHWM)", show(column("peak rss small"), "MB"),
                 "", ""))
    rows.append((f"peak RSS after the {args.size_mb} MB job (VmHWM)",
                 show(column("peak rss large"), "MB"), "", ""))

    rows.insert(0, ("measure", "vorlix", "ceiling, same run", "ratio"))
    widths = [max(len(row[i]) for row in rows) for i in range(4)]
    print(f"min / median / max of {len(rounds)} round(s); ratios of the medians")
    for name, value, ceiling, r in rows:
        print(f"{name:<{widths[0]}}  {value:>{widths[1]}}  {ceiling:>{widths[2]}}  "
              f"{r:>{widths[3]}}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=str(REPO / "build" / "linux"))
    parser.add_argument("--jobs", type=int, default=None,
                        help="small jobs per measurement (default 500; above 500 cupsd's "
                             "MaxJobs may refuse jobs)")
    parser.add_argument("--size-mb", type=int, default=None, help="the large job (default 200)")
    parser.add_argument("--rounds", type=int, default=None, help="repetitions (default 3)")
    parser.add_argument("--quick", action="store_true",
                        help="smoke run: 50 jobs, a 20 MB job, 1 round (explicit options win)")
    args = parser.parse_args()
    defaults = (50, 20, 1) if args.quick else (500, 200, 3)
    args.jobs = args.jobs or defaults[0]
    args.size_mb = args.size_mb or defaults[1]
    args.rounds = args.rounds or defaults[2]
    args.build = str(Path(args.build).resolve())

    if not sys.platform.startswith("linux"):
        sys.exit("print_bench runs on Linux only")
    if not os.path.exists(CUPSD):
        sys.exit("print_bench needs cupsd (Debian package cups)")
    if not (Path(args.build) / "bin" / "vorlix").exists():
        sys.exit(f"{args.build}/bin/vorlix is not built")

    small = bytes(range(256)) * 4  # 1 KiB, the same bytes for Vorlix and for lp
    large = os.urandom(args.size_mb * 1024 * 1024)
    tcp_sink = TcpSink()
    with private_cupsd(prefix="vorlix-bench-cups-") as cups, \
            tempfile.TemporaryDirectory(prefix="vorlix-bench-") as tmp:
        # The service, and every lp, reach this cupsd through CUPS_SERVER.
        restore = point_clients_at(cups)
        try:
            sinks = {name: cups.add_queue(name) for name in (VORLIX_QUEUE, LP_QUEUE)}
            work = Path(tmp)
            small_path = work / "job-1k.bin"
            small_path.write_bytes(small)
            rounds = []
            for round_no in range(args.rounds):
                print(f"round {round_no + 1} of {args.rounds} ...", file=sys.stderr, flush=True)
                rounds.append(one_round(args, cups, sinks, tcp_sink, small, small_path, large,
                                        work, round_no))
        finally:
            restore()
    report(rounds, args)


if __name__ == "__main__":
    main()
