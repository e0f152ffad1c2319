"""vorlix-send, the command-line sender, end to end: plain LPD and the extended protocol through the
server in the console to the fake printer behind a CUPS raw queue, byte for byte; the exit codes a
script tests (refused, network, usage, unreadable input); and, against a loopback stand-in of the
server, what the sender puts on the wire in the extended protocol: one command per packet and
each answered before the next, blocks within the announced packet size, C1 / C2 / K1 and
checksums as the server decodes them, and what it does when the server refuses or offers less."""
import socket
import subprocess
import tempfile
import threading
import time
import zlib

import pytest

import cups_printer as cp
from lpd_clients import random_bytes
from lpd_clients import server  # noqa: F401 (a fixture)

REFUSED, NETWORK, NOT_FINISHED, USAGE, NO_INPUT = 1, 2, 3, 64, 66


class Result:
    def __init__(self, rc, stdout, stderr):
        self.rc, self.stdout, self.stderr = rc, stdout, stderr

    def __repr__(self):
        return f"Result(rc={self.rc}, stdout={self.stdout!r}, stderr={self.stderr!r})"


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
    ways = [[], ["--compress=c1", "--checksum"], ["--compress=c2", "--scramble", "--checksum"]]
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
    assert sink.wait_for_jobs(4)[-1] == piped
    assert not [line for line in s.lines() if line.startswith("Error: ")
                and "icon DLL" not in line]

    # The status of a printed job is "done" once: the answer removes it, and a second query
    # finds no such job. Until the worker has recorded the outcome the job is still printing.
    result = wait_for_status(sender, s.port, job_id)
    assert result.rc == 0 and "Status: done" in result.stdout and "\x00" not in result.stdout, \
        result
    again = sender.run("-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING, f"--status={job_id}")
    assert again.rc == REFUSED and "Status: unknown" in again.stdout, again
    one_line_error(again, job_id)


def test_title_options_are_understood_by_the_server(vorlix, cups, server, sender, tmp_path):
    """FILE: sends the job into a file of the output directory instead of to the printer."""
    s = server()
    sink = cups.sink(cp.PRINTING)
    data = random_bytes(20_000, 4)
    (tmp_path / "job.prn").write_bytes(data)
    result = sender.run("-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING, "--job-id=filed",
                        "--option=SUM", "--option=FILE:archive.bin", "-T", "monthly",
                        sender.path(tmp_path / "job.prn"))
    assert result.rc == 0 and result.stdout == "filed\n", result
    status = wait_for_status(sender, s.port, "filed")
    assert status.rc == 0 and "Status: done" in status.stdout, status
    assert (vorlix.home / "Output" / "archive.bin").read_bytes() == data
    assert sink.jobs == []
    assert not [line for line in s.lines() if "Unknown Option" in line]


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
    with FakeServer() as fake:
        for args in (["--lpd", "--compress=c2"], ["-#", "0"], ["--tray=x"], ["--no-such"],
                     ["--status=1", "file"]):
            result = sender.run("-H", f"127.0.0.1:{fake.port}", *args)
            assert result.rc == USAGE and result.stdout == "", (args, result)
            assert result.stderr.startswith("vorlix-send: ") and "--help" in result.stderr, result
        assert fake.sessions == []
    helped = sender.run("--help")
    assert helped.rc == 0 and "Exit codes:" in helped.stdout and "64" in helped.stdout
    version = sender.run("--version")
    assert version.rc == 0 and version.stdout.startswith("vorlix-send 7500."), version


# ---- the extended protocol on the wire, against a stand-in server ----

def unscramble(key, block):
    k, k2 = key & 0xFF, (key >> 8) & 0xFF
    out = bytearray(len(block))
    for i, b in enumerate(block):
        out[i] = b ^ k
        k = k ^ out[i] ^ k2
    return bytes(out)


def decode_c1(block):
    out = bytearray()
    i = 0
    while i < len(block):
        code = block[i]
        if code == 0:
            out += bytes([block[i + 2]]) * block[i + 1]
            i += 3
        elif code == 1:
            out.append(block[i + 1])
            i += 2
        elif code == 2:
            out += bytes(block[i + 2:i + 4]) * block[i + 1]
            i += 4
        elif code <= 9:
            out += bytes([block[i + 1]]) * code
            i += 2
        else:
            out.append(code)
            i += 1
    return bytes(out)


class Session:
    """What one connection carried: the commands, and the data blocks decoded."""

    def __init__(self):
        self.commands = []  # (command, argument)
        self.blocks = []    # (length on the wire, checksum given, decoded bytes)
        self.data = b""
        self.compression = None
        self.key = None

    def names(self):
        return [c for c, _ in self.commands]

    def argument(self, command):
        return next(a for c, a in self.commands if c == command)


class FakeServer:
    """The extended protocol's server side on a loopback port: greets with a packet size, answers
    every command ("OK", the K1 key, the job identifier, Y per option asked, or a reply set by
    the test), decodes the blocks as the service does and notes every breach of the protocol."""

    KEY = 0x5A17C3E9

    def __init__(self, packet_size=15000, replies=None, greet=True):
        self.packet_size = packet_size
        self.replies = replies or {}
        self.greet = greet
        self.sessions = []
        self.faults = []
        self.listener = socket.socket()
        self.listener.bind(("127.0.0.1", 0))
        self.listener.listen(4)
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.listener.close()

    def _accept(self):
        while True:
            try:
                conn, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(conn,), daemon=True).start()

    def _serve(self, conn):
        session = Session()
        self.sessions.append(session)
        stream = Stream(conn)
        with conn:
            try:
                first = stream.line()
                if not first.startswith(b"SC"):
                    self.faults.append(f"first packet {first!r}")
                    return
                if not self.greet:
                    return
                conn.sendall(b"OK ZELLPD 231 %d N N\n" % self.packet_size)
                while (line := stream.line()) is not None:
                    command, argument = line[:2].decode(), line[2:].strip().decode("latin-1")
                    session.commands.append((command, argument))
                    if command == "DB":
                        self._block(session, stream, argument)
                    if stream.pending():
                        self.faults.append(f"{command}: the next packet came before the reply")
                    reply = self._reply(session, conn, stream, command, argument)
                    conn.sendall(reply)
                    if command in ("EX", "BY") or reply.startswith(b"ER"):
                        return
            except (OSError, ValueError) as e:
                self.faults.append(f"connection: {e!r}")

    def _block(self, session, stream, argument):
        fields = argument.split()
        length = int(fields[0])
        checksum = int(fields[1]) if len(fields) > 1 else 0
        block = stream.exact(length)
        if length > self.packet_size:
            self.faults.append(f"block of {length} bytes over the packet size")
        if session.key is not None:
            block = unscramble(session.key, block)
        if session.compression == "C1":
            block = decode_c1(block)
        elif session.compression == "C2":
            inflater = zlib.decompressobj(-15)
            decoded = inflater.decompress(block)
            if not inflater.eof or inflater.unused_data:
                self.faults.append("a C2 block that is not one whole deflate stream")
            block = decoded
        if checksum and checksum != sum(block) & 0x7FFF:
            self.faults.append(f"checksum {checksum} for a block that sums to {sum(block)}")
        session.blocks.append((length, checksum, block))
        session.data += block

    def _reply(self, session, conn, stream, command, argument):
        if command in self.replies:
            return self.replies[command]
        if command in ("C1", "C2"):
            session.compression = command
        if command == "K1":
            session.key = self.KEY
            return b"OK %08x\n" % self.KEY
        if command == "DE":
            return b"OK " + session.argument("DS").encode() + b"\n"
        if command == "OM":
            return b"OK " + b"Y" * len([r for r in argument.split(",") if r]) + b"\n"
        if command == "QP":
            for text in (b"2\n", b"laser", b"floor 2", b"generic", b"plotter", b" ", b" ",
                         b"QP finished"):
                conn.sendall(text + b"\x00")
                if b"OK" not in stream.line():
                    self.faults.append(f"QP text {text!r} not acknowledged")
        return b"OK\n"


class Stream:
    """Buffered reads of one connection: command lines and exact byte counts."""

    def __init__(self, conn):
        self.conn = conn
        self.buffer = b""

    def _more(self):
        chunk = self.conn.recv(65536)
        if not chunk:
            raise ValueError("closed")
        self.buffer += chunk

    def line(self):
        try:
            while b"\n" not in self.buffer:
                self._more()
        except ValueError:
            return None
        line, self.buffer = self.buffer.split(b"\n", 1)
        return line

    def exact(self, count):
        while len(self.buffer) < count:
            self._more()
        data, self.buffer = self.buffer[:count], self.buffer[count:]
        return data

    def pending(self):
        return bool(self.buffer)


WIRE_DATA = (b"\x1b%-12345X@PJL\r\n" + b"\x00" * 700 + b"ab" * 300 + bytes(range(256)) * 8) * 30


@pytest.mark.parametrize("way, compression, scrambled", [
    ([], None, False),
    (["--compress=c1", "--checksum"], "C1", False),
    (["--compress=c2", "--checksum"], "C2", False),
    (["--scramble"], None, True),
    (["--compress=c1", "--scramble", "--checksum"], "C1", True),
    (["--compress=c2", "--scramble", "--checksum"], "C2", True),
])
def test_blocks_on_the_wire_decode_to_the_file(sender, tmp_path, way, compression, scrambled):
    (tmp_path / "job.prn").write_bytes(WIRE_DATA)
    with FakeServer(packet_size=1000) as fake:
        result = sender.run("-H", f"127.0.0.1:{fake.port}", "-P", "laser", *way,
                            sender.path(tmp_path / "job.prn"))
    assert result.rc == 0 and result.stderr == "", result
    assert fake.faults == []
    session, = fake.sessions
    assert session.data == WIRE_DATA
    assert session.compression == compression and (session.key is not None) == scrambled
    if compression or scrambled:
        assert session.commands[0][0] == "OM"
    assert all(0 < length <= 1000 and len(decoded) <= 1000
               for length, _, decoded in session.blocks)
    # With --checksum every block carries the sum of its bytes (0, "none", only where that is
    # what the sum comes to); without it none does.
    expected = [sum(d) & 0x7FFF if "--checksum" in way else 0 for _, _, d in session.blocks]
    assert [checksum for _, checksum, _ in session.blocks] == expected
    if compression:
        assert sum(length for length, _, _ in session.blocks) < len(WIRE_DATA)
    names = session.names()
    assert names.index("DS") > max(names.index("DP"), names.index("PT"), names.index("DT"))
    assert names[-2:] == ["DE", "EX"]
    assert result.stdout == session.argument("DS") + "\n"


def test_job_description_and_options_reach_the_server(sender, tmp_path):
    (tmp_path / "a.txt").write_bytes(b"first")
    (tmp_path / "b.txt").write_bytes(b"")
    with FakeServer() as fake:
        result = sender.run("-H", f"127.0.0.1:{fake.port}", "-P", "laser", "-U", "anna",
                            "-T", "Q3 report", "-#", "3", "--tray=2", "--duplex=1",
                            "--no-status", "--option=NO_PAPER", "--option=FILE:out.pdf",
                            "--job-id=J42", sender.path(tmp_path / "a.txt"),
                            sender.path(tmp_path / "b.txt"))
    assert result.rc == 0 and result.stdout == "J42\nJ42-2\n", result
    assert fake.faults == []
    first, second = fake.sessions
    assert first.commands[:10] == [
        ("DP", "laser"), ("DO", "anna"), ("AT", "OPT:NO_PAPER OPT:FILE:out.pdf Q3 report"),
        ("PT", "RAW"), ("DT", "RAW"), ("DC", "3"), ("TI", "2"), ("MD", "1"), ("NQ", ""),
        ("DS", "J42")]
    assert first.data == b"first"
    # An empty file is a job without blocks.
    assert second.argument("DS") == "J42-2" and "DB" not in second.names()


def test_what_the_server_refuses_or_does_not_offer(sender, tmp_path):
    (tmp_path / "a.txt").write_bytes(b"data " * 100)
    path = sender.path(tmp_path / "a.txt")

    # A refusal ends the job with the server's own words on standard error.
    with FakeServer(replies={"DS": b"ER 818 Vorlix: Protokollfehler zum Vorlix festgestellt.\n\n"}) \
            as fake:
        result = sender.run("-H", f"127.0.0.1:{fake.port}", "-P", "laser", path)
    assert result.rc == REFUSED and result.stdout == "", result
    one_line_error(result, "DS", "818 Vorlix: Protokollfehler")

    # A compression not offered is left out with a warning; the job goes through uncompressed.
    with FakeServer(replies={"OM": b"OK NY\n"}) as fake:
        result = sender.run("-H", f"127.0.0.1:{fake.port}", "-P", "laser", "--compress=c2",
                            "--scramble", path)
    assert result.rc == 0 and "C2" in result.stderr, result
    session, = fake.sessions
    assert "C2" not in session.names() and session.data == b"data " * 100
    assert fake.faults == []
    # ... and --quiet keeps the warning to itself.
    with FakeServer(replies={"OM": b"OK N\n"}) as fake:
        result = sender.run("-H", f"127.0.0.1:{fake.port}", "-P", "laser", "--compress=c1",
                            "--quiet", path)
    assert result.rc == 0 and result.stderr == "" and result.stdout == "", result

    # Scrambling not offered refuses the job before it is opened: nothing goes out in the clear.
    with FakeServer(replies={"OM": b"OK N\n"}) as fake:
        result = sender.run("-H", f"127.0.0.1:{fake.port}", "-P", "laser", "--scramble", path)
    assert result.rc == REFUSED, result
    one_line_error(result, "K1")
    assert "DS" not in fake.sessions[0].names()

    # A server that closes without a greeting does not serve the extended protocol.
    with FakeServer(greet=False) as fake:
        result = sender.run("-H", f"127.0.0.1:{fake.port}", "-P", "laser", path)
    assert result.rc == REFUSED, result
    one_line_error(result, "greeting", "--lpd")


def test_a_silent_server_is_a_network_failure(sender, tmp_path):
    (tmp_path / "a.txt").write_bytes(b"a")
    with socket.socket() as silent:
        silent.bind(("127.0.0.1", 0))
        silent.listen(1)
        port = silent.getsockname()[1]
        result = sender.run("-H", f"127.0.0.1:{port}", "--timeout=1", "-P", "laser",
                            sender.path(tmp_path / "a.txt"))
    assert result.rc == NETWORK, result
    one_line_error(result, "timed out")


def test_printer_list_dialogue(sender):
    with FakeServer() as fake:
        result = sender.run("-H", f"127.0.0.1:{fake.port}", "--list-printers")
    assert result.rc == 0, result
    assert result.stdout == "laser\tfloor 2\tgeneric\nplotter\t\t\n"
    assert fake.faults == [] and fake.sessions[0].names() == ["QP", "BY"]
