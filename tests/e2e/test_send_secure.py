"""vorlix-send --secure end to end: the job travels inside TLS (KS or KA) to the fake printer, byte
for byte; a service of another CA is refused by the sender, a sender the service does not list is
refused by the service."""
import cups_printer as cp
from lpd_clients import random_bytes
from lpd_clients import server  # noqa: F401 (a fixture)
from test_security import APP1, certs, secured_server  # noqa: F401 (fixtures)
from test_vorlix_send import REFUSED, sender  # noqa: F401 (a fixture)


def credentials(certs, name, ca="ca"):
    # The service runs secured only on Linux (see secured_server): PEM files, no PFX.
    return ["--cert", str(certs.cert(name)), "--key", str(certs.key(name)),
            "--ca", str(certs.cert(ca))]


def test_secured_jobs_arrive_whole_and_each_side_refuses_the_other_ca(vorlix, cups, certs,
                                                                      secured_server, sender,
                                                                      tmp_path):
    s = secured_server({"snc_mode": "2", "NumAuth": "1", "Auth1": APP1})
    sink = cups.sink(cp.PRINTING)
    body = random_bytes(70_000, 31)
    (tmp_path / "job.prn").write_bytes(body)
    job = str(tmp_path / "job.prn")
    target = ["-H", f"127.0.0.1:{s.port}", "-P", cp.PRINTING]

    for mode, job_id in (("S", "sec-s"), ("A", "sec-a")):
        result = sender.run(*target, "--secure", "--secure-mode", mode,
                            *credentials(certs, "app1"), "--job-id", job_id, job)
        assert result.rc == 0, result
        assert result.stdout == f"{job_id}\n", result
    assert sink.wait_for_jobs(2) == [body, body]

    # The service's certificate does not come from the CA the sender names.
    result = sender.run(*target, "--secure", *credentials(certs, "app1", ca="other-ca"), job)
    assert result.rc == REFUSED and "refused" in result.stderr, result
    # A sender of the right CA that the service does not list: its job is refused.
    result = sender.run(*target, "--secure", *credentials(certs, "intruder"), job)
    assert result.rc == REFUSED and "819" in result.stderr, result
    # Without --secure the service, which requires security, refuses the job.
    result = sender.run(*target, job)
    assert result.rc == REFUSED and "819" in result.stderr, result
