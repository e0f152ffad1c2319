"""The server in the console ("-x") against real LPD clients (CUPS's lpd backend, rlpr) and raw
senders: bytes reach the fake network printer unchanged, queries are framed as lpq expects; a
second instance on the same port, the scheduled restart and an orderly stop lose no job. (Data
files before their control file and refused queues: lpd_receive_test, connection_handler_test.)"""
import hashlib
import signal
import subprocess
import time

import pytest

import cups_printer as cp
from conftest import read_text
from lpd_clients import RLPR, RawSender, ack, ask, cups_lpd, random_bytes, rlpr
from lpd_clients import server  # noqa: F401 (a fixture)


def test_real_clients_print_unchanged(vorlix, cups, server, tmp_path):
    s = server()
    sink = cups.sink(cp.PRINTING)
    data = random_bytes(200 * 1024 * 1024, 7)
    (tmp_path / "big.bin").write_bytes(data)
    cups_lpd(s.port, cp.PRINTING, tmp_path / "big.bin")
    jobs = sink.wait_for_jobs(1, timeout=600)
    assert len(jobs) == 1
    assert hashlib.sha256(jobs[0]).digest() == hashlib.sha256(data).digest()

    if RLPR is not None:
        second = cups.sink(cp.SECOND)
        text = random_bytes(50_000, 2)
        (tmp_path / "b.txt").write_bytes(text)
        rlpr(s.port, cp.SECOND, tmp_path / "b.txt")
        assert second.wait_for_jobs(1) == [text]

    lines = s.lines()
    assert f"Receive job for printer {cp.PRINTING} (Berkley protocol)." in lines
    assert "Command received, closing socket." in lines
    assert not [line for line in lines if line.startswith("Error: ")
                and "icon DLL" not in line]


def test_queries_are_framed_as_lpq_expects(vorlix, server):
    """The answers' texts per command are unit-tested; here the real server's framing."""
    s = server()
    version = ask(s.port, b"4 x 1")
    assert version.startswith(b"This is Vorlix Version ") and version.endswith(b" (64Bit)\n")
    assert b"\x00" not in version

    # Queue-state answers carry no NUL (lpq would stop at the first one); the job query keeps
    # the NUL of every line, as send_with_null (default 1) says.
    for line in (f"3{cp.PRINTING}\n", f"4{cp.PRINTING}\n"):
        answer = ask(s.port, line.encode())
        assert answer and b"\x00" not in answer, (line, answer)
    answer = ask(s.port, f"3{cp.PRINTING} JOB 42\n".encode())
    assert answer.startswith(f"Printer {cp.PRINTING}, Job 42:\n\x00".encode()), answer



def test_second_instance_on_the_same_port(vorlix, cups, server, tmp_path):
    s = server()
    home = tmp_path / "second"
    home.mkdir()
    env = vorlix.env()
    env["VORLIX_HOME"] = vorlix.native_path(home)
    with open(tmp_path / "second.out", "wb") as out:
        rc = subprocess.run(vorlix.command(["-x"]), stdout=out, stderr=subprocess.STDOUT,
                            stdin=subprocess.DEVNULL, env=env, cwd=tmp_path, timeout=120).returncode
    assert rc == 0
    lines = vorlix.trace_texts(read_text(home / "Logs" / "vorlix.dbg"))
    assert f"Error: The TCP port ({s.port}) for Vorlix is in use." in lines
    assert "Error: TCP/IP communication could not be started - aborting." in lines
    # The first server still answers.
    assert ask(s.port, b"4 x 1").startswith(b"This is Vorlix Version ")


def test_scheduled_restart_loses_no_job(vorlix, cups, server, tmp_path):
    s = server({"RestartAfterJobs": "3"})
    sink = cups.sink(cp.PRINTING)
    jobs = [random_bytes(40_000 + n, 10 + n) for n in range(4)]
    for n, data in enumerate(jobs):
        (tmp_path / f"job{n}.bin").write_bytes(data)
        cups_lpd(s.port, cp.PRINTING, tmp_path / f"job{n}.bin")
    # The fourth job passes the limit: the queues are saved and the process ends for a restart.
    assert s.wait() == 1
    first_run = s.lines()
    assert "Scheduled restart after 4 processed jobs." in first_run
    assert "Save printer queues for restart." in first_run

    vorlix.set_values({"RestartAfterJobs": "0"})
    s.start()
    printed = sink.wait_for_jobs(4)
    assert sorted(printed) == sorted(jobs)
    restored = [line for line in s.lines() if line.startswith("Restoring job ")]
    assert len(set(restored)) == len(restored)
    assert s.stop() == 0
    assert sorted(sink.jobs) == sorted(jobs)


def test_stop_lets_open_connections_finish(vorlix, cups, server):
    s = server()
    sink = cups.sink(cp.PRINTING)
    bodies = [random_bytes(30_000, 20), random_bytes(40_000, 21)]
    senders = []
    for n, body in enumerate(bodies):
        sender = RawSender(s.port, cp.PRINTING)
        sender.control(cp.PRINTING, [f"dfA10{n}vxtest"])
        sender.data_header(f"dfA10{n}vxtest", len(body))
        sender.sock.sendall(body[:1000])
        senders.append(sender)

    s.proc.send_signal(s.stop_signal)
    # The server waits for both connections; each completes its job.
    time.sleep(0.5)
    assert s.proc.poll() is None
    for sender, body in zip(senders, bodies):
        sender.sock.sendall(body[1000:] + b"\x00")
        assert ack(sender.sock) == b"\x00"
        sender.close()
    assert s.wait() == 0
    lines = s.lines()
    assert "Stop service from SCM." in lines
    assert "Finish connection loop." in lines
    # A job still queued at the stop is saved and printed by the next start.
    s.start()
    assert sorted(sink.wait_for_jobs(2)) == sorted(bodies)
    assert s.stop() == 0


def test_unknown_argument_serves_in_the_foreground_until_stopped(vorlix, cups):
    if vorlix.windows:
        pytest.skip("on Windows the service path needs the service control manager")
    port = cp.free_port()
    vorlix.set_values({"LPDPort": str(port), "NiAcceptTimeout": "200"})
    with open(vorlix.workdir / "service.out", "wb") as out:
        proc = subprocess.Popen(vorlix.command(["-foo"]), stdout=out, stderr=subprocess.STDOUT,
                                stdin=subprocess.DEVNULL, env=vorlix.env(), cwd=vorlix.workdir)
    try:
        assert cp.wait_for_port(port)
        assert ask(port, b"4 x 1").startswith(b"This is Vorlix Version ")
        proc.send_signal(signal.SIGTERM)
        assert proc.wait(timeout=60) == 0
    finally:
        if proc.poll() is None:
            proc.kill()
            proc.wait()
    lines = vorlix.trace_texts(vorlix.trace())
    assert "Vorlix started from SCM." in lines
    assert not any(line.startswith("Vorlix called with command option") for line in lines)
    assert "Stop service from SCM." in lines
