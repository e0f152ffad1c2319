#!/usr/bin/env python3
"""Throughput of a secured session (TLS) beside a plain one, and raw loopback TCP, in the same run.

Starts "vorlix -x" on a free port with settings and base directory of its own, secured sessions
offered ("snc_mode" 1) with the security library beside the executable and certificates made
with the `openssl` command in the run's temporary directory, and prints to the built-in file
printer ("file"). Measures MB/s for one large extended-protocol job sent by vorlix-send, until
it heard "OK" for its DE (acknowledged, the sender's exit): plain, and with --secure (the session
asks for security with "KS" and every packet after it travels inside TLS). Beside them the same
bytes over raw loopback TCP, the ceiling. The three alternate within each round; min / median /
max of 3 rounds and the ratios of the medians. Prints figures; asserts nothing.

    python3 bench/secured_bench.py [--build build/linux] [--size-mb 200]
"""
import argparse
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests" / "e2e"))
from extended_bench import ask_statuses  # noqa: E402
from lpd_bench import REPO, ROUNDS, Server, TcpSink, send_tcp, spread, wait_for_output  # noqa: E402
from secured_client import Certificates  # noqa: E402

SENDER = "CN=bench-sender,O=Vorlix Bench"


def make_certificates(directory):
    certs = Certificates(directory)
    certs.make("ca", "/O=Vorlix Bench/CN=bench-ca", "ca")
    certs.make("server", "/O=Vorlix Bench/CN=localhost", "server", issuer="ca")
    certs.make("sender", "/O=Vorlix Bench/CN=bench-sender", "client", issuer="ca")
    return certs


def send_job(build, server, job_id, path, certs=None):
    """One job sent by vorlix-send; the seconds until it exited (the DE answered)."""
    command = [str(build / "bin" / "vorlix-send"), "-H", f"127.0.0.1:{server.port}", "-P", "file",
               f"--job-id={job_id}", "-T", "bench"]
    if certs is not None:
        command += ["--secure", f"--cert={certs.cert('sender')}", f"--key={certs.key('sender')}",
                    f"--ca={certs.cert('ca')}"]
    start = time.perf_counter()
    proc = subprocess.run(command + [str(path)], stdin=subprocess.DEVNULL, capture_output=True,
                          timeout=600)
    seconds = time.perf_counter() - start
    if proc.returncode != 0:
        sys.exit(f"vorlix-send failed ({proc.returncode}): {proc.stderr.decode(errors='replace')}")
    return seconds


def measure(build, server, path, data, size_mb, job_id, certs):
    server.clear_output()
    # Each job starts with the disk idle, not still writing out the jobs before it.
    os.sync()
    seconds = send_job(build, server, job_id, path, certs)
    if not wait_for_output(server.output, 1, len(data)):
        sys.exit(f"job {job_id} did not reach the printer")
    ask_statuses(server.port, [job_id])
    return size_mb / seconds


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=str(REPO / "build" / "linux"))
    parser.add_argument("--size-mb", type=int, default=200)
    args = parser.parse_args()
    build = Path(args.build).resolve()

    line = b"%08d Invoice 4711  Widgets, blue      12 pcs     19.99 EUR        239.88 EUR\n"
    data = b"".join(line % n for n in range(args.size_mb * 1024 * 1024 // len(line % 0)))
    size_mb = len(data) / (1024 * 1024)
    sink = TcpSink()
    plain, secured, tcp = [], [], []
    with tempfile.TemporaryDirectory(prefix="vorlix-bench-") as tmp:
        work = Path(tmp)
        certs = make_certificates(work / "certs")
        path = work / "job.txt"
        path.write_bytes(data)
        settings = {"snc_mode": "1", "NumAuth": "1", "Auth1": SENDER}
        (work / "service").mkdir()
        server = Server(build, work / "service", settings, prepare_home=certs.install)
        try:
            # Measured as a running service, not one that has just started (extended_bench.py).
            time.sleep(2.5)
            # Unmeasured: the first job makes the files that later jobs reuse.
            measure(build, server, path, data, size_mb, "warm", certs)
            for r in range(ROUNDS):
                plain.append(measure(build, server, path, data, size_mb, f"plain{r}", None))
                secured.append(measure(build, server, path, data, size_mb, f"tls{r}", certs))
                start = time.perf_counter()
                send_tcp(sink.port, data)
                tcp.append(size_mb / (time.perf_counter() - start))
        finally:
            server.stop()

    med = lambda v: spread(v)[1]
    show = lambda v: " / ".join(f"{x:,.1f}" for x in spread(v)) + " MB/s"
    print("min / median / max of 3; ratios of the medians")
    print(f"{'measure':<52} {'figure':>26} {'/plain':>7} {'/TCP':>5}")
    name = f"one {args.size_mb} MB text job, acknowledged"
    print(f"{name + ', plain session':<52} {show(plain):>26} {'-':>7} "
          f"{med(plain) / med(tcp):>5.2f}")
    print(f"{name + ', secured session':<52} {show(secured):>26} "
          f"{med(secured) / med(plain):>7.2f} {med(secured) / med(tcp):>5.2f}")
    print(f"{'raw loopback TCP, the same bytes':<52} {show(tcp):>26} {'-':>7} {'1.00':>5}")


if __name__ == "__main__":
    main()
