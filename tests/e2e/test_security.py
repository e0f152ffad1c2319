"""The security layer of the running server. Without a security library, required security turns
every connection away before it is read. With the library beside the executable, senders go on
inside TLS with a certificate of the test's own CA, checked against "Auth1".."AuthN"; a sender
that fails or stalls its hand-shake harms no other."""
import ssl
import time

import pytest

import cups_printer as cp
from extended_client import ExtendedSession, error_reply
from lpd_clients import connect, random_bytes, send_job
from lpd_clients import server  # noqa: F401 (a fixture)
from secured_client import (OPENSSL, Certificates, SecuredSession, client_context, client_hello,
                            secured_job)


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


def wait_for_line(s, text, timeout=30, count=1):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        if s.lines().count(text) >= count:
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


# ---- with the security library ----

APP1 = "CN=app1,O=Example"
APP3 = "CN=app3,O=Example"
INTRUDER = "CN=intruder,O=Example"


@pytest.fixture(scope="module")
def certs(tmp_path_factory):
    """The test CA with the service's certificate and three senders; a second CA that signs a
    sender bearing an authorized name."""
    if OPENSSL is None:
        pytest.skip("the openssl command is not installed")
    c = Certificates(tmp_path_factory.mktemp("certs"))
    c.make("ca", "/O=Example/CN=Vorlix Test CA", "ca")
    c.make("server", "/O=Example/CN=localhost", "server", "ca")
    for name in ("app1", "app3", "intruder"):
        c.make(name, f"/O=Example/CN={name}", "client", "ca")
    c.make("other-ca", "/O=Elsewhere/CN=Other CA", "ca")
    c.make("forged", "/O=Example/CN=app1", "client", "other-ca")
    return c


@pytest.fixture
def secured_server(vorlix, certs, server):
    """Makes servers (as `server` does) with the profile and the certificates in the base
    directory; skips when the build has no security library beside the executable, and on
    Windows, where the service runs under Wine, whose Schannel cannot act as a TLS server."""
    if vorlix.windows:
        pytest.skip("Wine's Schannel cannot act as a TLS server; the library's checks run as "
                    "unit tests there")
    library = vorlix.exe.parent / "libvorlixsnc.so"
    if not library.exists():
        build = vorlix.exe.parent.parent / "build.ninja"
        built_here = build.exists() and library.name in build.read_text(errors="replace")
        assert not built_here, f"the build makes {library.name} but it is missing"
        pytest.skip(f"{library.name} is not in this build")
    certs.install(vorlix.home)
    return server


def refused_job(session, printer=cp.PRINTING):
    """Opens a job as far as DS; the answer to DS."""
    for packet in (b"DP " + printer.encode(), b"DO tester", b"DT 0", b"PT RAW"):
        assert session.say(packet) == b"OK\n", packet
    return session.say(b"DS refused")


def test_required_security_lists_the_senders_and_prints_their_secured_jobs(vorlix, cups, certs,
                                                                           secured_server):
    s = secured_server({"snc_mode": "2", "NumAuth": "3", "Auth1": APP1, "Auth2": "",
                        "Auth3": APP3})
    sink = cups.sink(cp.PRINTING)
    # The list is read from the last value to the first; the empty one adds nobody.
    assert wait_for_line(s, f"Adding authorization for sender '{APP1}'")
    lines = s.lines()
    adding = [line for line in lines if line.startswith("Adding authorization")]
    assert adding == [f"Adding authorization for sender '{APP3}'",
                      f"Adding authorization for sender '{APP1}'"], adding
    assert "Zel Security Library initialized." in lines

    # Several records each way, with bytes of every value.
    body = random_bytes(70_000, 21)
    app3 = client_context(certs, "app3")
    assert secured_job(s.port, app3, cp.PRINTING, body, "a3", mode=b"A") == b"OK a3\n"
    assert sink.wait_for_jobs(1) == [body]
    assert wait_for_line(s, f"Sender: {APP3}")


@pytest.mark.parametrize("conn_aa", ["0", "1"])
def test_a_sender_not_in_the_list_is_refused_unless_validation_is_off(vorlix, cups, certs,
                                                                      secured_server, conn_aa):
    s = secured_server({"snc_mode": "1", "NumAuth": "1", "Auth1": APP1, "conn_aa": conn_aa})
    sink = cups.sink(cp.PRINTING)
    session = SecuredSession(s.port, client_context(certs, "intruder"))
    if conn_aa == "0":
        # The secured session stands (commands are answered inside it); the job is not taken.
        assert refused_job(session) == error_reply(819)
        assert session.reply() == b""
        session.close()
        assert wait_for_line(s, f"Error: Sender: {INTRUDER}")
        assert "Error: Incoming connection from unauthorized sender." in s.lines()
    else:
        body = random_bytes(30_000, 23)
        assert session.job(cp.PRINTING.encode(), body, b"aa") == b"OK aa\n"
        session.close()
        assert sink.wait_for_jobs(1) == [body]
        assert wait_for_line(s, "Validation of sender is switched off.")
        lines = s.lines()
        at = lines.index("Incoming secured call.")
        assert lines[at:at + 3] == ["Incoming secured call.", f"Sender: {INTRUDER}",
                                    "Validation of sender is switched off."], lines[at:at + 3]
        assert not [line for line in lines if "unauthorized" in line]


def handshake_refused(port, context):
    """True when the service ends a secured session at its hand-shake. Under TLS 1.3 the
    sender's side is done before the service has judged its certificate: the refusal then
    arrives instead of the first answer."""
    try:
        session = SecuredSession(port, context)
        answer = session.say(b"DP " + cp.PRINTING.encode())
        session.close()
        return answer == b""
    except OSError:  # ssl.SSLError is one
        return True


def test_a_failed_handshake_closes_only_its_own_connection(vorlix, cups, certs, secured_server):
    s = secured_server({"snc_mode": "1", "NumAuth": "1", "Auth1": APP1})
    sink = cups.sink(cp.PRINTING)
    # An authorized name signed by another CA, and a sender without any certificate.
    anonymous = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    anonymous.check_hostname = False
    anonymous.load_verify_locations(certs.cert("ca"))
    assert handshake_refused(s.port, client_context(certs, "forged"))
    assert handshake_refused(s.port, anonymous)
    failed = "Error: SncNiSessionAccept failed with returncode -21"
    assert wait_for_line(s, failed, count=2), [line for line in s.lines() if "Snc" in line]
    assert not [line for line in s.lines() if line.startswith("Incoming secured call")]

    body = random_bytes(20_000, 24)
    app1 = client_context(certs, "app1")
    assert secured_job(s.port, app1, cp.PRINTING, body, "ok") == b"OK ok\n"
    assert sink.wait_for_jobs(1) == [body]
    plain = ExtendedSession(s.port)
    assert plain.job(cp.PRINTING.encode(), b"plain after", b"plain") == b"OK plain\n"
    plain.close()
    assert sink.wait_for_jobs(2) == [body, b"plain after"]
    assert s.proc.poll() is None


def test_a_stalled_handshake_holds_up_no_other_sender(vorlix, cups, certs, secured_server):
    s = secured_server({"snc_mode": "1", "NumAuth": "1", "Auth1": APP1})
    sink = cups.sink(cp.PRINTING)
    stalled = ExtendedSession(s.port)
    assert stalled.say(b"KS") == b"OK\n"
    hello = client_hello(client_context(certs, "app1"))
    stalled.sock.sendall(hello[:len(hello) // 2])

    body = random_bytes(20_000, 25)
    assert secured_job(s.port, client_context(certs, "app1"), cp.PRINTING, body,
                       "meanwhile") == b"OK meanwhile\n"
    assert sink.wait_for_jobs(1) == [body]
    stalled.close()
    # Its hand-shake ends with the connection.
    assert wait_for_line(s, "Error: SncNiSessionAccept failed with returncode -8")
    assert s.proc.poll() is None
