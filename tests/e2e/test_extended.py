"""The extended protocol against the server in the console: every block encoding delivers a file's
bytes unchanged at the fake printer behind a CUPS raw queue; the greeting, error replies and
queries as a sender sees them; job files stay in the temporary directory; a finished job's status
is asked over LPD."""
import pytest

import cups_printer as cp
from extended_client import ExtendedSession, error_reply
from lpd_clients import ask, random_bytes
from lpd_clients import server  # noqa: F401 (a fixture)

ENCODINGS = {
    "plain": {},
    "c1": {"c1": True},
    "c2": {"c2": True},
    "k1": {"k1": True},
    "c2-k1-checksum": {"c2": True, "k1": True},
}


def test_every_encoding_delivers_the_bytes_unchanged(vorlix, cups, server):
    s = server()
    sink = cups.sink(cp.PRINTING)
    # Text with runs (what compression is for) and random bytes (what it must not damage); past a
    # megabyte, where the server writes a job's file on a thread of its own.
    data = (b"Invoice line\n" + b" " * 40 + b"\x00\x01\x02" * 5) * 20000 + random_bytes(40_000, 3)
    for number, (name, ways) in enumerate(ENCODINGS.items()):
        session = ExtendedSession(s.port)
        session.negotiate(**ways)
        answer = session.job(cp.PRINTING.encode(), data, name.encode(),
                             checksum="checksum" in name)
        assert answer == b"OK " + name.encode() + b"\n"
        assert session.say(b"EX") == b"OK\n"
        session.close()
        assert sink.wait_for_jobs(number + 1)[-1] == data, name

    lines = s.lines()
    assert not [line for line in lines if line.startswith("Error: ") and "icon DLL" not in line]
    # Each job was entered into the status list; its final status is reported once.
    answer = ask(s.port, f"3{cp.PRINTING} JOB plain\n".encode())
    assert b"Status: done" in answer, answer


@pytest.mark.parametrize("setting, announced", [("10", b"15000"), ("30000", b"15000")])
def test_greeting_announces_a_packet_size_within_limits(vorlix, cups, server, setting, announced):
    s = server({"s_packet_size": setting})
    session = ExtendedSession(s.port)
    assert session.greeting == b"OK ZELLPD 231 " + announced + b" N N\n"
    assert session.say(b"BY") == b"OK\n"
    session.close()


def test_queries_and_error_replies(vorlix, cups, server):
    s = server()
    session = ExtendedSession(s.port)
    assert session.say(b"EQ FX") == b"OK N\n"
    assert session.say(b"oi") == b"OK Ask me\n"
    assert session.say(b"Xa") == b"OK\n"
    # The installed printers, each text acknowledged by the sender; then QP itself is answered.
    names, reply = session.list_printers()
    assert cp.PRINTING in names and reply == b"OK\n", (names, reply)
    session.close()

    # Each refusal ends its session; the server stays up for the next sender.
    for packets, reply in [([b"QQ"], error_reply(817)),
                           ([b"DS x"], error_reply(818)),
                           ([b"DP x", b"DT 0", b"PT RAW", b"DS x", b"DB 30001\n"],
                            error_reply(818)),
                           ([b"DP x", b"DT 0", b"PT RAW", b"C2", b"DS x", b"DB 4\nnope"],
                            error_reply(818))]:
        session = ExtendedSession(s.port)
        for packet in packets[:-1]:
            assert session.say(packet) == b"OK\n", packet
        assert session.say(packets[-1]) == reply, packets[-1]
        assert session.reply() == b""  # the session has ended
        session.close()
    assert "Error: Unknown Vorlix command QQ!" in s.lines()
    assert s.proc.poll() is None


def test_job_identifiers_never_leave_the_temporary_directory(vorlix, cups, server, tmp_path):
    s = server({"KeepFile": "1"})
    sink = cups.sink(cp.PRINTING)
    session = ExtendedSession(s.port)
    assert session.job(cp.PRINTING.encode(), b"kept inside\n", b"../../x") == b"OK ../../x\n"
    session.say(b"EX")
    session.close()
    assert sink.wait_for_jobs(1) == [b"kept inside\n"]
    # Nothing was written above the temporary directory; the file lies inside it.
    assert not (vorlix.home / "x").exists() and not (vorlix.workdir / "x").exists()
    kept = [p.name for p in vorlix.log_dir.iterdir() if "x" in p.name and ".dbg" not in p.name]
    assert kept, list(vorlix.log_dir.iterdir())


def test_file_option_writes_into_the_output_directory(vorlix, cups, server):
    s = server()
    sink = cups.sink(cp.PRINTING)
    for number, data in enumerate([b"first copy\n", b"second copy\n"]):
        session = ExtendedSession(s.port)
        job_id = b"filed%d" % number
        answer = session.job(cp.PRINTING.encode(), data, job_id,
                             title=b"OPT:FILE:../archive.txt,OPT:SUM monthly")
        assert answer == b"OK " + job_id + b"\n"
        session.say(b"EX")
        session.close()
    output = vorlix.home / "Output"
    files = sorted(p.name for p in output.iterdir())
    assert len(files) == 2 and all("archive" in name for name in files), files
    assert sorted((output / name).read_bytes() for name in files) == [b"first copy\n",
                                                                      b"second copy\n"]
    assert not (vorlix.home / "archive.txt").exists()
    # The job went to the file, not to the printer, and its status is final at once.
    assert sink.jobs == []
    assert b"Status: done" in ask(s.port, f"3{cp.PRINTING} JOB filed0\n".encode())
