"""The security layer of the running server when no security library is installed: required
security turns every connection away before it is read; offered security leaves connections
plain, and LPD jobs print. (The states with a security product: security_layer_test.)"""
import time

import cups_printer as cp
from lpd_clients import connect, random_bytes, send_job
from lpd_clients import server  # noqa: F401 (a fixture)


def answer_of(port, line):
    """What the server answers to one line before it closes; a reset counts as no answer."""
    answer = bytearray()
    try:
        with connect(port) as s:
            s.sendall(line)
            while chunk := s.recv(65536):
                answer += chunk
    except ConnectionResetError:
        pass
    return bytes(answer)


def wait_for_line(s, text, timeout=30):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        if text in s.lines():
            return True
        time.sleep(0.2)
    return False


def test_required_security_without_a_library_turns_connections_away(vorlix, server):
    s = server({"snc_mode": "2"})
    assert answer_of(s.port, f"3{cp.PRINTING}\n".encode()) == b""
    assert not send_job(s.port, cp.PRINTING, b"never printed", 1)
    assert answer_of(s.port, b"SC\n") == b""
    assert wait_for_line(s, "Error: Connection rejected. Insufficient security.")
    assert "Error: Cannot accept jobs without Zel Security." in s.lines()


def test_offered_security_without_a_library_prints_plain_jobs(vorlix, cups, server):
    s = server({"snc_mode": "1"})
    sink = cups.sink(cp.PRINTING)
    body = random_bytes(20_000, 11)
    assert send_job(s.port, cp.PRINTING, body, 1)
    assert sink.wait_for_jobs(1) == [body]
    lines = s.lines()
    assert "No Zel Security Library installed." in lines
    assert not [line for line in lines if "Insufficient security" in line]
