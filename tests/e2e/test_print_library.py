"""The print library driven directly (tests/tools/printfile_driver): what reaches the fake network
printers behind the private cupsd, the return codes and the trace lines, on both targets."""
import random
import re
import subprocess
import tempfile
import time
from pathlib import Path

import pytest

import cups_printer as cp
from conftest import REPO

OK, NOT_SUPPORTED, DEVICE = 0, 4, 11
WAITING, PRINTING, DONE, ERROR = 20, 21, 22, 23


class Driver:
    """printfile_driver of the build under test, natively or under Wine."""

    def __init__(self, target, build_dir, workdir):
        self.target = target
        self.windows = target == "windows"
        self.exe = build_dir / "bin" / ("printfile_driver.exe" if self.windows else "printfile_driver")
        if not self.exe.exists():
            pytest.fail(f"{self.exe} is not built")
        self.workdir = workdir
        self.output = workdir / "out"

    def path(self, path):
        path = str(path)
        return "Z:" + path.replace("/", "\\") if self.windows else path

    def run(self, *args, options=None, timeout=300):
        """Runs one command sequence; returns the lines it printed (output through a file)."""
        command = ["--output", self.path(self.output) + ("\\" if self.windows else "/")]
        for name, value in (options or {}).items():
            command += ["--option", f"{name}={value}"]
        command += [str(a) for a in args]
        command = (["wine", str(self.exe)] if self.windows else [str(self.exe)]) + command
        with tempfile.TemporaryFile() as out:
            proc = subprocess.run(command, stdout=out, stderr=subprocess.STDOUT,
                                  stdin=subprocess.DEVNULL, cwd=self.workdir, timeout=timeout)
            out.seek(0)
            text = out.read().decode("latin-1").replace("\r\n", "\n")
        if self.target == "linux-asan":
            assert "ERROR: AddressSanitizer" not in text, text
            assert "runtime error:" not in text, text
        assert proc.returncode == 0, text
        return text.splitlines()

    def print_file(self, printer, path, job_id="job1", copies=1, stream=2, options=None):
        lines = self.run("print", printer, self.path(path), job_id, copies, stream, options=options)
        rc = [int(m.group(1)) for m in map(re.compile(r"^PrintFile rc=(-?\d+)$").match, lines) if m]
        assert len(rc) == 1, lines
        return rc[0], lines


@pytest.fixture
def driver(request, tmp_path, cups):
    target = request.config.getoption("--target")
    build_dir = request.config.getoption("--build-dir")
    build_dir = Path(build_dir).resolve() if build_dir else REPO / "build" / target
    return Driver(target, build_dir, tmp_path)


def random_file(path, size=301 * 1024, prefix=b""):
    data = prefix + random.randbytes(size - len(prefix))
    path.write_bytes(data)
    return data


def errors(lines):
    return [line[len("trace -1: "):] for line in lines if line.startswith("trace -1: ")]


# ---- PrintFile ----

@pytest.mark.parametrize("queue", [cp.UNKNOWN, cp.REJECTING])
def test_job_the_print_system_refuses_is_a_device_error(driver, cups, tmp_path, queue):
    random_file(tmp_path / "job.bin", 10 * 1024)
    rc, lines = driver.print_file(queue, tmp_path / "job.bin", "dev-1")
    assert rc == DEVICE, lines
    (failure,) = errors(lines)
    assert failure.startswith("Error: ") and queue in failure
    if not driver.windows:
        # Nothing is left behind in CUPS to print later: the service will send it again.
        assert cups.active_jobs(queue) == []


def test_job_that_cannot_be_read_or_rendered_fails_and_prints_nothing(driver, cups, tmp_path):
    sink = cups.sink(cp.PRINTING)
    random_file(tmp_path / "zel.bin", 2048, prefix=b"\x1b%ZELWIN")
    rc, lines = driver.print_file(cp.PRINTING, tmp_path / "zel.bin", "zel-1", stream=1)
    assert rc == NOT_SUPPORTED, lines
    (failure,) = errors(lines)
    assert "cannot be rendered" in failure and "zel-1" in failure
    rc, lines = driver.print_file(cp.PRINTING, tmp_path / "missing.bin", "miss-1")
    assert rc not in (OK, DEVICE)
    assert len(errors(lines)) == 1
    time.sleep(1)
    assert sink.jobs == []


# ---- enhanced mode ----

def statuses(lines):
    found = {}
    for line in lines:
        m = re.match(r"^JobStatusQueryEx (\S+) rc=(\d+) state=(\d+) text=(.*)$", line)
        if m:
            found.setdefault(m.group(1), []).append((int(m.group(2)), int(m.group(3)), m.group(4)))
    return found


def test_enhanced_mode_prints_in_order_and_reports_final_states_once(driver, cups, tmp_path):
    sink = cups.sink(cp.PRINTING)
    data = {name: random_file(tmp_path / f"{name}.bin", 20 * 1024) for name in ("a", "b", "c", "d")}
    args = ["init", "lock", cp.PRINTING]
    for name in ("a", "b", "c"):
        args += ["queue", cp.PRINTING, driver.path(tmp_path / f"{name}.bin"), name, 1, 0]
    args += ["queue", cp.PRINTING, driver.path(tmp_path / "d.bin"), "d", 2, 1]
    args += ["entries", cp.PRINTING, "status", "a", cp.PRINTING, "unlock", cp.PRINTING]
    for name in ("a", "b", "c"):
        args += ["wait", name, cp.PRINTING, "status", name, cp.PRINTING]
    args += ["sleep", 500, "status", "d", cp.PRINTING, "exit"]
    lines = driver.run(*args)

    assert "InitEx rc=0 pending=0" in lines
    entries = [l for l in lines if l.startswith("entry rc=0: ")]
    assert [e[len("entry rc=0: "):].split()[:2] for e in entries] == \
        [["1st", "tester"], ["2nd", "tester"], ["3rd", "tester"], ["4th", "tester"]]
    assert entries[0].endswith("  a.bin")
    found = statuses(lines)
    # Waiting while held, then done once; asked again, the job is no longer known.
    assert found["a"][0][:2] == (0, WAITING)
    for name in ("a", "b", "c"):
        assert found[name][-2][:2] == (0, DONE)
        assert found[name][-1][0] != 0
    # A job queued without status keeps none.
    assert found["d"][0][0] != 0
    assert "ExitEx rc=0" in lines
    jobs = sink.wait_for_jobs(4)
    assert jobs == [data["a"], data["b"], data["c"], data["d"] * 2]


def test_enhanced_mode_keeps_waiting_jobs_for_the_next_start(driver, cups, tmp_path):
    for name in ("p1", "p2"):
        random_file(tmp_path / f"{name}.bin", 1024)
    pending_file = tmp_path / "zelwin_pending_jobs.txt"
    queue = cp.UNKNOWN
    # A device error keeps the job at the head of its queue; the end keeps both jobs.
    lines = driver.run("init",
                       "queue", queue, driver.path(tmp_path / "p1.bin"), "p1", 1, 0,
                       "queue", queue, driver.path(tmp_path / "p2.bin"), "p2", 1, 0,
                       "sleep", 300, "exit")
    assert "ExitEx rc=0" in lines and pending_file.exists(), lines

    # A normal start queues them again; without retries they end as errors.
    lines = driver.run("init", "wait", "p1", queue, "wait", "p2", queue, "exit",
                       options={"IgnoreDCError": 1})
    assert "InitEx rc=0 pending=2" in lines
    found = statuses(lines)
    for name in ("p1", "p2"):
        rc, state, text = found[name][-1]
        assert (rc, state) == (0, ERROR) and "Device error" in text
    assert not pending_file.exists()


# ---- diagnostics ----

def test_print_environment_lists_the_printers(driver, cups, tmp_path):
    tmp_path.joinpath("env").mkdir()
    lines = driver.run("environment", driver.path(tmp_path / "env"))
    assert "LogPrintEnvironment rc=0" in lines
    report = (tmp_path / "env" / "zelwin_environment.txt").read_text(errors="replace")
    assert "version" in report
    assert f"Printer: {cp.PRINTING}" in report
    if not driver.windows:
        sink_port = cups.sinks[cp.PRINTING].port
        assert f"socket://127.0.0.1:{sink_port}" in report


def test_font_metrics_are_written_as_afm(driver, cups, tmp_path):
    if not Path("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf").exists():
        pytest.skip("fonts-dejavu-core is not installed")
    out = tmp_path / "afm"
    out.mkdir()
    lines = driver.run("fontmetrics", "DejaVu Sans", driver.path(out), 2, 0, 0,
                       "fontmetrics", "DejaVu Sans", driver.path(out), 1, 1, 0,
                       "fontmetrics", "No Such Font Family", driver.path(out), 1, 0, 0)
    assert lines == ["WriteFontMetricFile rc=0", "WriteFontMetricFile rc=0",
                     "WriteFontMetricFile rc=1"]
    afm = (out / "DejaVu Sans.afm").read_text()
    assert afm.startswith("StartFontMetrics 4.1\n") and afm.endswith("EndFontMetrics\n")
    widths = dict(re.findall(r"^C (\d+) ; WX (\d+) ;$", afm, re.M))
    # DejaVu Sans: 2048 units per em; "A" is 1401 units wide, the space 651.
    assert widths["65"] == "684" and widths["32"] == "318"
    assert "233" in widths  # é: the Windows-1252 half in mode 2
    bold = (out / "DejaVu Sans-Bold.afm").read_text()
    assert "Weight Bold" in bold
    assert "233" not in dict(re.findall(r"^C (\d+) ; WX (\d+) ;$", bold, re.M))
