"""Secured senders of the extended protocol: certificates made with the `openssl` command, the
library's profile in the service's base directory, and a session that goes on inside TLS."""
import shutil
import ssl
import subprocess
from pathlib import Path

from extended_client import ExtendedSession

OPENSSL = shutil.which("openssl")
EXTENSIONS = {
    "ca": "basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign,cRLSign\n",
    "server": "basicConstraints=CA:FALSE\nkeyUsage=digitalSignature\n"
              "extendedKeyUsage=serverAuth\nsubjectAltName=IP:127.0.0.1,DNS:localhost\n",
    "client": "basicConstraints=CA:FALSE\nkeyUsage=digitalSignature\n"
              "extendedKeyUsage=clientAuth\n",
}


def openssl(*args, cwd):
    proc = subprocess.run([OPENSSL, *args], cwd=cwd, stdin=subprocess.DEVNULL,
                          capture_output=True, timeout=60)
    assert proc.returncode == 0, proc.stderr.decode(errors="replace")


class Certificates:
    """A directory of PEM files: "<name>.pem" and "<name>.key" for each certificate made."""

    def __init__(self, directory):
        self.dir = Path(directory)
        self.dir.mkdir(parents=True, exist_ok=True)

    def cert(self, name):
        return self.dir / f"{name}.pem"

    def key(self, name):
        return self.dir / f"{name}.key"

    def make(self, name, subject, kind, issuer=None):
        """A key and a certificate; issuer None makes a self-signed CA. The subject is given in
        openssl's "/O=.../CN=..." form (the RFC 4514 name reads it backwards)."""
        (self.dir / f"{name}.ext").write_text(EXTENSIONS[kind])
        openssl("req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                "-nodes", "-keyout", self.key(name).name, "-subj", subject,
                "-out", f"{name}.csr", cwd=self.dir)
        signer = (["-signkey", self.key(name).name] if issuer is None else
                  ["-CA", self.cert(issuer).name, "-CAkey", self.key(issuer).name,
                   "-CAcreateserial"])
        openssl("x509", "-req", "-in", f"{name}.csr", "-days", "2", "-sha256", *signer,
                "-extfile", f"{name}.ext", "-out", self.cert(name).name, cwd=self.dir)
        return self

    def install(self, home, server="server", ca="ca"):
        """The server's certificate, its key and the CA beside a ZELLPD.INI that names them
        relative to the base directory."""
        snc = Path(home) / "snc"
        snc.mkdir(exist_ok=True)
        for source, target in ((self.cert(server), "server.pem"), (self.key(server), "server.key"),
                               (self.cert(ca), "ca.pem")):
            shutil.copyfile(source, snc / target)
        # Windows line ends, as an administrator's editor there writes them.
        (Path(home) / "ZELLPD.INI").write_bytes(
            b"[vorlixsnc]\r\ncertificate=snc/server.pem\r\nkey=snc/server.key\r\nca=snc/ca.pem\r\n")


def client_context(certs, sender, ca="ca"):
    """TLS as a sender: its own certificate, and the service's checked against the CA."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    context.check_hostname = False
    context.load_verify_locations(certs.cert(ca))
    context.load_cert_chain(certs.cert(sender), certs.key(sender))
    return context


class SecuredSession(ExtendedSession):
    """Asks for security ("KS" / "KA") right after the greeting; the hand-shake's failure raises
    ssl.SSLError or OSError."""

    def __init__(self, port, context, mode=b"S", timeout=60):
        super().__init__(port, timeout)
        assert self.greeting.startswith(b"OK ZELLPD"), self.greeting
        assert self.say(b"K" + mode) == b"OK\n"
        assert not self.pending, self.pending
        self.sock = context.wrap_socket(self.sock)


def secured_job(port, context, printer, data, job_id, mode=b"S"):
    """One job over a secured session of its own; the answer to DE (or the refusal)."""
    session = SecuredSession(port, context, mode)
    try:
        return session.job(printer.encode(), data, job_id.encode())
    finally:
        session.close()


def client_hello(context):
    """The first flight a sender makes with this context, as bytes on the wire."""
    incoming, outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
    tls = context.wrap_bio(incoming, outgoing)
    try:
        tls.do_handshake()
    except ssl.SSLWantReadError:
        pass
    return outgoing.read()
