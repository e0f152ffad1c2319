"""What one sender can make the service hold, trace and print: control files announced at the
largest size and never sent, a control file of millions of unknown lines, a job that asks for
2,000 copies, and the trace logs moved aside by earlier runs.
"""
import re

import pytest

import cups_printer as cp
from lpd_clients import ack, connect, control_text, send_job
from lpd_clients import server  # noqa: F401 (a fixture)

MIB = 1024 * 1024
LARGEST_CONTROL_FILE = 16 * MIB


def resident_bytes(pid):
    """The process's resident memory (VmRSS) in bytes."""
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith("VmRSS:"):
                return int(line.split()[1]) * 1024
    raise AssertionError("no VmRSS")


def trace_bytes(vorlix):
    """What the main trace log and the logs moved aside from it hold together."""
    return sum(p.stat().st_size for p in vorlix.log_dir.iterdir()
               if p.name.startswith("vorlix.dbg"))


def announce_control_file(port, queue, size, name):
    """A connection that announces a control file of size bytes and sends none of it."""
    s = connect(port, timeout=60)
    s.sendall(b"\x02" + queue.encode() + b"\n")
    assert ack(s) == b"\x00"
    s.sendall(f"\x02{size} {name}\n".encode())
    assert ack(s) == b"\x00"
    return s


def test_silent_announcements_hold_what_arrived_not_what_was_announced(vorlix, cups, server):
    s = server({"LogLevel": "1"})
    sink = cups.sink(cp.PRINTING)
    # They name a CUPS queue: the service must not keep a connection to cupsd (which serves at
    # most 100 clients) for each of them.
    queue = cp.PRINTING
    silent = []
    try:
        for n in range(300):
            silent.append(announce_control_file(s.port, queue, LARGEST_CONTROL_FILE,
                                                f"cfA{n:03d}vxtest"))
        if not vorlix.windows:  # the figure is the Linux process's own
            assert resident_bytes(s.proc.pid) < 200 * MIB
        # A real sender still gets through while they wait.
        body = b"printed beside 300 silent senders\n"
        assert send_job(s.port, cp.PRINTING, body, 1)
        assert sink.wait_for_jobs(1) == [body]
    finally:
        for sock in silent:
            sock.close()
    assert s.proc.poll() is None
    assert s.stop() == 0


def test_a_control_file_of_unknown_lines_writes_little_trace(vorlix, cups, server):
    s = server({"LogLevel": "1"})
    sink = cups.sink(cp.PRINTING)
    head = b"Hvxtest\nPtester\nJflood\nldfA001vxtest\n"
    lines = (LARGEST_CONTROL_FILE - len(head)) // 6
    control = head + b"zjunk\n" * lines
    control += b"C" + b"x" * (LARGEST_CONTROL_FILE - len(control) - 2) + b"\n"
    assert len(control) == LARGEST_CONTROL_FILE
    body = b"one page\n"
    with connect(s.port, timeout=120) as job:
        for step in (b"\x02" + cp.PRINTING.encode() + b"\n",
                     f"\x02{len(control)} cfA001vxtest\n".encode(), control + b"\x00",
                     f"\x03{len(body)} dfA001vxtest\n".encode(), body + b"\x00"):
            job.sendall(step)
            assert ack(job) == b"\x00"
    assert sink.wait_for_jobs(1) == [body]  # its one print line names the data file
    assert trace_bytes(vorlix) < 1_000_000
    texts = s.lines()
    assert texts.count("Unknown file format in control file 'z'.") == 3
    # Both passes of the analysis see every line; all but the three written are counted.
    assert f"Unknown file format in control file 'z'. ... ({2 * lines - 3} more lines of this " \
           "kind not traced)" in texts
    assert s.proc.poll() is None
    assert s.stop() == 0


def test_a_job_asking_for_2000_copies_prints_999_and_max_copies_0_sets_no_cap(vorlix, cups,
                                                                            server):
    s = server({"LogLevel": "1"})
    sink = cups.sink(cp.PRINTING)
    body = b"0123456789"
    assert send_job(s.port, cp.PRINTING, body, 1, copies=2000)
    assert sink.wait_for_jobs(1, timeout=120) == [body * 999]
    assert "Copy count 2000 of job dfA001vxtest cut to 999." in s.lines()
    assert s.stop() == 0

    vorlix.set_values({"MaxCopies": "0"})
    s.start()
    assert send_job(s.port, cp.PRINTING, b"free\n", 2, copies=5)
    assert sink.wait_for_jobs(2)[1:] == [b"free\n" * 5]
    assert not [t for t in s.lines() if t.startswith("Copy count ")]


STAMP = "{:02d}_{:02d}_{:04d}_{:02d}_{:02d}_{:02d}"


def test_logs_moved_aside_beyond_max_log_files_are_deleted_at_start(vorlix, cups, server):
    vorlix.log_dir.mkdir(parents=True, exist_ok=True)
    # Newest last; the names alone would sort them otherwise.
    stamps = [STAMP.format(31, 12, 2023, 8, 0, 0), STAMP.format(1, 1, 2024, 8, 0, 0),
              STAMP.format(2, 1, 2024, 8, 0, 0), STAMP.format(1, 2, 2024, 8, 0, 0)]
    for stamp in stamps:
        (vorlix.log_dir / f"vorlix.dbg.{stamp}").write_text("old\n")
    foreign = ["vorlix.dbg.keep", "vorlixwinapi.dbg." + stamps[0], "vorlix.nit." + stamps[0],
               "notes.txt"]
    for name in foreign:
        (vorlix.log_dir / name).write_text("foreign\n")
    s = server({"MaxLogFiles": "2", "KeepFile": "1"})
    names = {p.name for p in vorlix.log_dir.iterdir()}
    moved = sorted(n for n in names if re.fullmatch(r"vorlix\.dbg\.[\d_]{19}", n))
    assert moved == sorted(f"vorlix.dbg.{stamp}" for stamp in stamps[2:])
    assert set(foreign) <= names
    assert s.stop() == 0
