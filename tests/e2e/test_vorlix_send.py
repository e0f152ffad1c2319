"""vorlix-send end to end: LPD and the extended protocol through the server to the fake printer,
byte for byte; the exit codes a script tests; a server that offers less than was asked for, or
does not serve the extended protocol. (Its wire bytes are vorlix_send_test's.)"""
import socket
import subprocess
import tempfile
import threading
import time

import pytest

import cups_printer as cp
from conftest import Result
from lpd_clients import random_bytes
from lpd_clients import server  # noqa: F401 (a fixture)

REFUSED, NETWORK, NOT_FINISHED, USAGE, NO_INPUT = 1, 2, 3, 64, 66


class Sender:
    """The built vorlix-send beside the server's executable (under Wine for the Windows build)."""

    def __init__(self, vorlix):
        self.windows = vorlix.windows
        self.exe = vorlix.exe.parent / ("vorlix-send.exe" if self.windows else "vorlix-send")
        if not self.exe.exists():
            pytest.fail(f"{self.exe} is not built")
        self.env = vorlix.env()
        self.cwd = vorlix.workdir

    def path(self, path):
        return "Z:" + str(path).replace("/", "\\") if self.windows else str(path)

    def run(self, *args, stdin=b"", timeout=180):
        """Runs the sender once; output through files (Wine keeps pipes open)."""
        command = (["wine", str(self.exe)] if self.windows else [str(self.exe)]) + list(args)
        with tempfile.TemporaryFile() as inp, tempfile.TemporaryFile() as out, \
                tempfile.TemporaryFile() as err:
            inp.write(stdin)
            inp.seek(0)
            proc = subprocess.run(command, stdin=inp, stdout=out, stderr=err, env=self.env,
                                  cwd=self.cwd, timeout=timeout)
            out.seek(0)
            err.seek(0)
            stdout = out.read().decode("latin-1").replace("\r\n", "\n")
            stderr = err.read().decode("latin-1").replace("\r\n", "\n")
        return Result(proc.returncode, stdout, stderr)


@pytest.fixture
def sender(vorlix):
    return Sender(vorlix)


def one_line_error(result, *words):
    """The failure is one line on standard error that names its reason."""
    lines = result.stderr.strip("\n").split("\n")
    assert len(lines) == 1 and lines[0].startswith("vorlix-send: "), result
    for word in words:
        assert word in lines[0], (word, result)


# ---- through the real server to the fake printer ----

def wait_for_status(sender, port, job_id):
    """The answer to the job's status query once the job has a final status."""
    for _ in range(300):
        result = sender.run("-H", f"127.0.0.1:{port}", "-P", cp.PRINTING, f"--status={job_id}")
        if result.rc != NOT_FINISHED:
            return result
        time.sleep(0.2)
    return result


def test_lpd_delivers_several_files_and_stdin_byte_for_byte(vorlix, cups, server, sender,
                                                            tmp_path):
    s = server()
    sink = cups.sink(cp.PRINTING)
    # Large enough for the progress display, which must stay off when stderr is no terminal.
    first = random_bytes(5 * 1024 * 1024, 11)
    second = b"second job\r\n\x00\x1a" * 1000
    (tmp_path / "first.bin").write_bytes(first)
    (tmp_path / "second.txt").write_bytes(second)
    piped = b"from a pipe\r\n\x1a and on\x00" * 50
    result = sender.run("--lpd", "-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING, "-U", "anna",
                        sender.path(tmp_path / "first.bin"), "-",
                        sender.path(tmp_path / "second.txt"), stdin=piped)
    assert result.rc == 0 and result.stderr == "", result
    ids = result.stdout.split()
    assert len(ids) == 3 and len(set(ids)) == 3, result
    assert all(i.startswith("dfA") and i.isalnum() for i in ids), ids
    assert sink.wait_for_jobs(3) == [first, piped, second]
    # The queue-state answer comes as the server sends it, without the NULs of its lines.
    queue = sender.run("-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING, "--queue-state")
    assert queue.rc == 0 and queue.stdout.endswith("\n") and "\x00" not in queue.stdout, queue


def test_extended_jobs_print_byte_for_byte_and_report_their_status(vorlix, cups, server, sender,
                                                                   tmp_path):
    s = server()
    sink = cups.sink(cp.PRINTING)
    data = (b"Invoice line\n" + b" " * 40 + b"\x00\x01\x02" * 5) * 2000 + random_bytes(60_000, 5)
    (tmp_path / "job.prn").write_bytes(data)
    # Each coding round-trips through the server's decoders in vorlix_send_test.
    ways = [[], ["--compress=c2", "--scramble", "--checksum"]]
    for number, way in enumerate(ways):
        result = sender.run("-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING, "-T", "report",
                            *way, sender.path(tmp_path / "job.prn"))
        assert result.rc == 0 and result.stderr == "", (way, result)
        assert sink.wait_for_jobs(number + 1)[-1] == data, way
    job_id = result.stdout.strip()
    assert job_id.startswith("vs-"), result
    piped = random_bytes(30_000, 9)
    result = sender.run("-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING, "--job-id=piped-1",
                        "--compress=c2", "-", stdin=piped)
    assert result.rc == 0 and result.stdout == "piped-1\n", result
    assert sink.wait_for_jobs(3)[-1] == piped and len(sink.jobs) == 3
    assert not [line for line in s.lines() if line.startswith("Error: ")
                and "icon DLL" not in line or "Unknown Option" in line]

    # The status of a printed job is "done" once: the answer removes it, and a second query
    # finds no such job. Until the worker has recorded the outcome the job is still printing.
    result = wait_for_status(sender, s.port, job_id)
    assert result.rc == 0 and "Status: done" in result.stdout and "\x00" not in result.stdout, \
        result
    again = sender.run("-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING, f"--status={job_id}")
    assert again.rc == REFUSED and "Status: unknown" in again.stdout, again
    one_line_error(again, job_id)


def test_printer_list_and_option_query_from_the_server(vorlix, cups, server, sender):
    s = server({"compress1": "1", "crypt1": "0"})
    listed = sender.run("-H", f"127.0.0.1:{s.port}", "--list-printers")
    assert listed.rc == 0, listed
    assert cp.PRINTING in [line.split("\t")[0] for line in listed.stdout.splitlines()], listed
    asked = sender.run("-H", f"127.0.0.1:{s.port}", "--query-options=C1,K1")
    assert (asked.rc, asked.stdout) == (0, "C1 Y\nK1 N\n"), asked
    fax = sender.run("-H", f"127.0.0.1:{s.port}", "--query-equipment=FX")
    assert (fax.rc, fax.stdout) == (0, "FX N\n"), fax
    assert not [line for line in s.lines() if line.startswith("Error: ")
                and "icon DLL" not in line]


# ---- exit codes ----

def test_a_refused_queue_a_closed_port_and_unreadable_input(vorlix, cups, server, sender,
                                                            tmp_path):
    s = server()
    sink = cups.sink(cp.PRINTING)
    (tmp_path / "a.txt").write_bytes(b"a")
    refused = sender.run("--lpd", "-H", f"127.0.0.1:{s.port}", "-P", cp.UNKNOWN,
                         sender.path(tmp_path / "a.txt"))
    assert refused.rc == REFUSED and refused.stdout == "", refused
    one_line_error(refused, "refused", cp.UNKNOWN)

    for protocol in (["--lpd"], []):
        closed = sender.run(*protocol, "-H", f"127.0.0.1:{cp.free_port()}", "-P", cp.PRINTING,
                            sender.path(tmp_path / "a.txt"))
        assert closed.rc == NETWORK, closed
        one_line_error(closed, "cannot connect", "refused")

    # A file that cannot be read fails alone: the others of the call are still sent.
    (tmp_path / "c.txt").write_bytes(b"c")
    partly = sender.run("--lpd", "-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING,
                        sender.path(tmp_path / "a.txt"), sender.path(tmp_path / "missing.txt"),
                        sender.path(tmp_path / "c.txt"))
    assert partly.rc == NO_INPUT and len(partly.stdout.split()) == 2, partly
    one_line_error(partly, "missing.txt")
    assert sink.wait_for_jobs(2) == [b"a", b"c"]


def test_usage_errors_send_nothing(sender, tmp_path):
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        listener.listen(1)
        port = listener.getsockname()[1]
        # Which words are mistakes: vorlix_send_test; here the exit code and a silent wire.
        for args in (["--lpd", "--compress=c2"], ["--no-such"]):
            result = sender.run("-H", f"127.0.0.1:{port}", *args)
            assert result.rc == USAGE and result.stdout == "", (args, result)
            assert result.stderr.startswith("vorlix-send: ") and "--help" in result.stderr, result
        listener.settimeout(0)
        with pytest.raises(BlockingIOError):
            listener.accept()


def test_what_the_server_does_not_offer_or_does_not_serve(vorlix, cups, server, sender, tmp_path):
    s = server({"compress2": "0", "crypt1": "0"})
    sink = cups.sink(cp.PRINTING)
    (tmp_path / "a.txt").write_bytes(b"data " * 100)
    path = sender.path(tmp_path / "a.txt")
    # A compression not offered is left out with a warning; the job goes through uncompressed.
    result = sender.run("-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING, "--compress=c2", path)
    assert result.rc == 0 and "C2" in result.stderr, result
    assert sink.wait_for_jobs(1) == [b"data " * 100]
    # Scrambling not offered refuses the job before it is opened: nothing goes out in the clear.
    result = sender.run("-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING, "--scramble", path)
    assert result.rc == REFUSED, result
    one_line_error(result, "K1")
    assert not [line for line in s.lines() if line.startswith("Creating tempfile")][1:]

    # A server that closes without a greeting does not serve the extended protocol; one that
    # says nothing at all is a network failure.
    with socket.socket() as mute:
        mute.bind(("127.0.0.1", 0))
        mute.listen(1)
        port = mute.getsockname()[1]
        closing = threading.Thread(target=lambda: mute.accept()[0].close())
        closing.start()
        result = sender.run("-H", f"127.0.0.1:{port}", "-P", "laser", path)
        closing.join()
        assert result.rc == REFUSED, result
        one_line_error(result, "greeting", "--lpd")
        result = sender.run("-H", f"127.0.0.1:{port}", "--timeout=1", "-P", "laser", path)
    assert result.rc == NETWORK, result
    one_line_error(result, "timed out")
