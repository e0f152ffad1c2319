"""Senders that hold connections cannot take the service down: a full handle table (sized below
the limit of open files) is traced and makes room for a real sender by closing the connection idle
the longest, and a stop ends within its grace period however many connections stay open.

Times measured here are generous upper bounds on waits, never asserted speeds.
"""
import resource
import socket
import time

import pytest

import cups_printer as cp
from lpd_clients import RawSender, job_files, random_bytes, send_job
from lpd_clients import server  # noqa: F401 (a fixture)


def open_files_for(count):
    """Lets this process hold count sockets more than it does, or skips the test."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    wanted = count + 512
    if soft != resource.RLIM_INFINITY and soft < wanted:
        if hard != resource.RLIM_INFINITY and hard < wanted:
            pytest.skip(f"the hard limit of open files ({hard}) is below {wanted}")
        resource.setrlimit(resource.RLIMIT_NOFILE, (wanted, hard))


def idle_connections(port, count):
    """count connections that send nothing. The service accepts each (the system does, when its
    handles are all taken), so every connect succeeds."""
    return [socket.create_connection(("127.0.0.1", port), timeout=30) for _ in range(count)]


def close_all(conns):
    for c in conns:
        c.close()


def wait_for_line(server, wanted, timeout=60):
    """The trace lines once one of them is wanted (fails after timeout seconds)."""
    end = time.monotonic() + timeout
    while True:
        lines = server.lines()
        if any(wanted(line) for line in lines):
            return lines
        if time.monotonic() > end:
            pytest.fail("no such trace line: " + "\n".join(lines[-20:]))
        time.sleep(0.2)


def test_a_low_limit_of_open_files_makes_a_smaller_table_that_makes_room(vorlix, cups, server,
                                                                      monkeypatch):
    if vorlix.windows:
        pytest.skip("the limit of open files is a Linux one")
    open_files_for(600)
    # The service may open 300 files at most, far fewer than its 2048 handles.
    command = vorlix.command
    monkeypatch.setattr(vorlix, "command",
                        lambda args: ["prlimit", "--nofile=300:300", "--"] + command(args))
    s = server({"LogLevel": "1"})
    sink = cups.sink(cp.PRINTING)
    conns = idle_connections(s.port, 400)
    try:
        time.sleep(3)
        body = random_bytes(20_000, 42)
        assert send_job(s.port, cp.PRINTING, body, 42, timeout=120)
        assert sink.wait_for_jobs(1) == [body]
    finally:
        close_all(conns)
    lines = wait_for_line(s, lambda line: "idle connections closed to make room: " in line
                          and not line.endswith("closed to make room: 0."))
    # The table is made smaller than the limit of open files, so that the jobs' files still open.
    assert "The limit of open files leaves 172 network handles." in lines
    assert any(line.startswith("Error: All 172 network handles are in use") for line in lines)
    assert s.stop() == 0


def test_idle_connections_end_at_the_read_time_out_and_a_real_sender_is_served(vorlix, cups,
                                                                             server):
    # The default idle limit is minutes long; a set read time-out ends silence the same way.
    open_files_for(60)
    s = server({"NiReadTimeout": "50", "NiReadLoopBreak": "0"})
    sink = cups.sink(cp.PRINTING)
    conns = idle_connections(s.port, 50)
    try:
        for c in conns:
            c.settimeout(60)
            assert c.recv(1) == b""  # closed by the service, nothing sent
        body = random_bytes(10_000, 43)
        assert send_job(s.port, cp.PRINTING, body, 43)
        assert sink.wait_for_jobs(1) == [body]
    finally:
        close_all(conns)
    assert s.stop() == 0


def test_sigterm_with_idle_connections_ends_after_the_grace_period(vorlix, cups, server):
    open_files_for(60)
    s = server()
    conns = idle_connections(s.port, 50)
    # A job cut off by the stop: the control file and part of its data file came.
    cut = RawSender(s.port, cp.PRINTING)
    cut.control(cp.PRINTING, ["dfA077vxcut"], name="cfA077vxcut")
    cut.data_header("dfA077vxcut", 100_000)
    cut.sock.sendall(random_bytes(20_000, 77))
    try:
        time.sleep(1)
        s.proc.send_signal(s.stop_signal)
        # Only a bound against a hang: the grace period is 10 s, the accept wait a fraction.
        assert s.wait(timeout=60) == 0
        # The cut job was never acknowledged: the service closed the connection.
        cut.sock.settimeout(30)
        assert cut.sock.recv(1) == b""
    finally:
        close_all(conns)
        cut.close()
    lines = s.lines()
    assert any(line.startswith("Stopping: ") and "connections still open after 10000 ms closed."
               in line for line in lines), lines[-20:]
    # The queues were saved; the half-received data file is gone.
    files = job_files(vorlix)
    assert "stal.dbd" in files
    assert [name for name in files if not name.endswith(".dbd")] == []
