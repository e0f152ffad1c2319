"""Black-box tests of the built vorlix executable, natively or (--target windows) under Wine.

Each test gets its own base directory (VORLIX_HOME) and settings hive: on Linux a registry
directory of its own (VORLIX_REGISTRY_DIR); under Wine the prefix's registry, whose Vorlix keys are
removed before each test. The Windows run expects WINEPREFIX to name a booted prefix with a
persistent wineserver (scripts/test-all.sh prepares one).
"""
import os
import re
import subprocess
import tempfile
from pathlib import Path

import pytest

# The private cupsd and its queues (session-wide, made before any test starts a Wine process).
from cups_printer import cups, cups_server  # noqa: F401

REPO = Path(__file__).resolve().parents[2]
SETTINGS_KEY = r"Software\Zel\Zellpd\ZELLPD"
HIVE_NAMES = {"HKLM": "HKEY_LOCAL_MACHINE", "HKCU": "HKEY_CURRENT_USER"}


def pytest_addoption(parser):
    parser.addoption("--target", default="linux", choices=["linux", "linux-asan", "windows"],
                     help="which build to test")
    parser.addoption("--build-dir", default=None, help="build tree (default build/<target>)")


class Result:
    def __init__(self, rc, stdout, stderr):
        self.rc = rc
        self.stdout = stdout
        self.stderr = stderr

    def __repr__(self):
        return f"Result(rc={self.rc}, stdout={self.stdout!r}, stderr={self.stderr[-400:]!r})"


def read_text(path):
    """A text file as the program wrote it, with CR LF read as LF."""
    return Path(path).read_bytes().decode("latin-1").replace("\r\n", "\n")


class Vorlix:
    """The program under test with a base directory and settings of its own."""

    def __init__(self, target, build_dir, workdir):
        self.target = target
        self.windows = target == "windows"
        self.exe = build_dir / "bin" / ("vorlix.exe" if self.windows else "vorlix")
        if not self.exe.exists():
            pytest.fail(f"{self.exe} is not built")
        self.home = workdir / "home"
        self.registry_dir = workdir / "registry"
        self.home.mkdir()
        self.registry_dir.mkdir()
        self.workdir = workdir
        if self.windows:
            self.wine_reg("delete", r"HKLM\Software\Zel", "/f")
            self.wine_reg("delete", r"HKCU\Software\Zel", "/f")

    # ---- paths as the program sees them ----
    def native_path(self, path):
        path = str(path)
        return "Z:" + path.replace("/", "\\") if self.windows else path

    @property
    def log_dir(self):
        return self.home / "Logs"

    # ---- running ----
    def env(self):
        env = dict(os.environ)
        env["VORLIX_HOME"] = self.native_path(self.home)
        if not self.windows:
            env["VORLIX_REGISTRY_DIR"] = str(self.registry_dir)
        if self.target == "linux-asan":
            env.setdefault("ASAN_OPTIONS", "detect_leaks=1")
        return env

    def command(self, args):
        return (["wine", str(self.exe)] if self.windows else [str(self.exe)]) + list(args)

    def run(self, *args, timeout=120, keep_logs=False):
        """Runs the program once; its output goes through files (Wine keeps pipes open)."""
        if not keep_logs and self.log_dir.exists():
            for f in self.log_dir.iterdir():
                f.unlink()
        with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
            proc = subprocess.run(self.command(args), stdout=out, stderr=err, stdin=subprocess.DEVNULL,
                                  env=self.env(), cwd=self.workdir, timeout=timeout)
            out.seek(0)
            err.seek(0)
            stdout = out.read().decode("latin-1").replace("\r\n", "\n")
            stderr = err.read().decode("latin-1", "replace")
        if self.target == "linux-asan":
            assert "ERROR: AddressSanitizer" not in stderr, stderr
            assert "runtime error:" not in stderr, stderr
        return Result(proc.returncode, stdout, stderr)

    def trace(self):
        """The main trace log of the last run ("" when there is none)."""
        log = self.log_dir / "vorlix.dbg"
        return read_text(log) if log.exists() else ""

    @staticmethod
    def trace_texts(trace):
        """The trace lines without their "Th nnnnn: (date time) " prefix."""
        return [re.sub(r"^Th \d{5,}: \(\S* \S*\) ", "", line) for line in trace.splitlines()]

    # ---- settings ----
    def wine_reg(self, *args):
        with tempfile.TemporaryFile() as out:
            proc = subprocess.run(["wine", "reg"] + list(args), stdout=out, stderr=subprocess.DEVNULL,
                                  stdin=subprocess.DEVNULL, timeout=60)
            out.seek(0)
            return proc.returncode, out.read().decode("latin-1").replace("\r\n", "\n")

    def hive_file(self, hive):
        return self.registry_dir / f"{hive}.reg"

    def set_values(self, values, hive="HKLM", key=SETTINGS_KEY):
        """Writes text values the way an administrator would: a .reg file by hand on Linux,
        "reg add" under Wine."""
        if self.windows:
            for name, value in values.items():
                self.wine_reg("add", f"{hive}\\{key}", "/v", name, "/t", "REG_SZ", "/d", value, "/f")
            return
        path = self.hive_file(hive)
        text = path.read_text() if path.exists() else "Windows Registry Editor Version 5.00\n\n"
        lines = [f"[{HIVE_NAMES[hive]}\\{key}]"]
        for name, value in values.items():
            escaped = value.replace("\\", "\\\\").replace('"', '\\"')
            lines.append(f'"{name}"="{escaped}"')
        path.write_text(text + "\n".join(lines) + "\n\n")

    def values(self, hive="HKLM", key=SETTINGS_KEY):
        """The text values under a key, as a dict (empty when the key is missing)."""
        if self.windows:
            # "reg query" under a loaded wineserver now and then fails on a key that is there:
            # asked again before the key counts as missing.
            for _ in range(3):
                rc, out = self.wine_reg("query", f"{hive}\\{key}")
                if rc == 0:
                    break
            if rc != 0:
                return {}
            found = {}
            for line in out.splitlines():
                m = re.match(r"^\s{4}(.*?)\s{4}(REG_\w+)\s{4}(.*)$", line) or \
                    re.match(r"^\s{4}(.*?)\s{4}(REG_\w+)$", line)
                if m:
                    found[m.group(1)] = m.group(3) if m.lastindex >= 3 else ""
            return found
        return parse_reg_file(self.hive_file(hive), f"{HIVE_NAMES[hive]}\\{key}")


def parse_reg_file(path, key):
    """Values of one key in a .reg file written by the Linux build (text values only)."""
    if not path.exists():
        return {}
    found = {}
    current = None
    for line in read_text(path).splitlines():
        if line.startswith("["):
            current = line[1:-1]
            continue
        if current is None or current.lower() != key.lower():
            continue
        m = re.match(r'^"((?:[^"\\]|\\.)*)"="((?:[^"\\]|\\.)*)"$', line)
        if m:
            unescape = lambda s: re.sub(r"\\(.)", r"\1", s)
            found[unescape(m.group(1))] = unescape(m.group(2))
    return found


@pytest.fixture
def vorlix(request, tmp_path):
    target = request.config.getoption("--target")
    build_dir = request.config.getoption("--build-dir")
    build_dir = Path(build_dir).resolve() if build_dir else REPO / "build" / target
    return Vorlix(target, build_dir, tmp_path)
