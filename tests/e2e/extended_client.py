"""A sender of the extended protocol, written from the protocol's description: one command per
packet, each answered before the next is sent."""
import socket
import zlib

ERROR_TEXTS = {
    817: b"817 Vorlix: Unbekanntes Kommando.\n",
    818: b"818 Vorlix: Protokollfehler zum Vorlix festgestellt.\n",
    819: b"819 Vorlix: Sicherung der Daten\xfcbertragung nicht erfolgt.\n",
}


def error_reply(number):
    return b"ER " + ERROR_TEXTS[number] + b"\n"


def deflate(data):
    z = zlib.compressobj(9, zlib.DEFLATED, -15)
    return z.compress(data) + z.flush()


def encode_c1(data):
    """Runs of one byte as code 0, bytes below 10 escaped with code 1, the rest as they are."""
    out = bytearray()
    i = 0
    while i < len(data):
        run = 1
        while i + run < len(data) and data[i + run] == data[i] and run < 255:
            run += 1
        if run >= 4:
            out += bytes([0, run, data[i]])
            i += run
            continue
        if data[i] < 10:
            out.append(1)
        out.append(data[i])
        i += 1
    return bytes(out)


def scramble(key, block):
    """The inverse of the service's unscrambling: k from the key's low byte, k2 from the next."""
    k, k2 = key & 0xFF, (key >> 8) & 0xFF
    out = bytearray(len(block))
    for i, plain in enumerate(block):
        out[i] = plain ^ k
        k = k ^ plain ^ k2
    return bytes(out)


class ExtendedSession:
    def __init__(self, port, timeout=60):
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=timeout)
        self.pending = bytearray()
        self.sock.sendall(b"SC")
        self.greeting = self.reply()
        self.packet_size = int(self.greeting.split()[3]) if self.greeting.startswith(b"OK") else 0
        self.key = None
        self.compression = None

    def _take(self, end_of, keep):
        """Receives until end_of(pending) finds where the next answer ends, then returns it with
        keep bytes of its terminator; the rest, or b"" when the server closed."""
        while (end := end_of(self.pending)) < 0:
            chunk = self.sock.recv(65536)
            if not chunk:
                got = bytes(self.pending)
                self.pending.clear()
                return got
            self.pending += chunk
        got = bytes(self.pending[:end + keep])
        del self.pending[:end + 1]
        return got

    def reply(self):
        """One reply line, or an error reply with its two line feeds; b"" when the server closed.
        Reads what has arrived at once, as a real sender does, and keeps what follows the reply."""
        def end_of(pending):
            if not pending.startswith(b"ER"):
                return pending.find(b"\n")
            end = pending.find(b"\n\n")
            return end + 1 if end >= 0 else -1
        return self._take(end_of, 1)

    def say(self, packet):
        self.sock.sendall(packet)
        return self.reply()

    def negotiate(self, c1=False, c2=False, k1=False):
        if c1:
            assert self.say(b"C1") == b"OK\n"
            self.compression = "c1"
        if c2:
            assert self.say(b"C2") == b"OK\n"
            self.compression = "c2"
        if k1:
            answer = self.say(b"K1")
            assert answer.startswith(b"OK ") and len(answer) == 12, answer
            self.key = int(answer[3:11], 16)

    def block(self, data, checksum=False):
        encoded = data
        if self.compression == "c1":
            encoded = encode_c1(data)
        elif self.compression == "c2":
            encoded = deflate(data)
        if self.key is not None:
            encoded = scramble(self.key, encoded)
        header = b"DB %d" % len(encoded)
        if checksum:
            header += b" %d" % (sum(data) & 0x7FFF)
        return self.say(header + b"\n" + encoded)

    def job(self, printer, data, job_id, owner=b"tester", title=b"e2e", checksum=False,
            chunk=None):
        """A whole job; returns the answer to DE."""
        for packet in (b"DP " + printer, b"DO " + owner, b"AT " + title, b"DT 0", b"PT RAW",
                       b"DS " + job_id):
            assert self.say(packet) == b"OK\n", packet
        # A compressed block may be larger than its data: its data is kept small enough.
        chunk = chunk or (self.packet_size // 2 if self.compression else self.packet_size)
        for at in range(0, len(data), chunk):
            assert self.block(data[at:at + chunk], checksum) == b"OK\n"
        return self.say(b"DE")

    def text(self):
        """One NUL-terminated text of the printer list."""
        return self._take(lambda pending: pending.find(b"\0"), 0)

    def list_printers(self):
        """QP: the count, then name, location and driver of each printer, then "QP finished",
        every text answered "OK"; returns the names and the reply to QP itself."""
        self.sock.sendall(b"QP")
        count = int(self.text())
        self.sock.sendall(b"OK")
        names = []
        for _ in range(count):
            texts = []
            for _ in range(3):
                texts.append(self.text())
                self.sock.sendall(b"OK")
            names.append(texts[0].decode())
        assert self.text() == b"QP finished"
        return names, self.say(b"OK")

    def close(self):
        self.sock.close()
