#!/usr/bin/env python3
"""Runs a command beside a private cupsd of its own and returns the command's exit code.

The unit tests that print through CUPS read CUPS_SERVER: it names this cupsd (127.0.0.1 and a
free port), so they never see the host's printers. The cupsd starts with no queue: each test
makes the queues it needs and removes them. Usage: tests/with_cupsd.py COMMAND [ARG...]
"""
import contextlib
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent / "e2e"))
from cups_printer import CUPSD, Cups  # noqa: E402


@contextlib.contextmanager
def private_cupsd(prefix="vorlix-unit-cups-"):
    """A started cupsd (a Cups) in a temporary directory of its own; stopped and removed on leaving.
    Other scripts (the benchmarks) import it to get the same private cupsd."""
    # The backends run as an unprivileged user and must reach the spool below this directory.
    root = Path(tempfile.mkdtemp(prefix=prefix))
    root.chmod(0o755)
    cups = Cups(root)
    try:
        cups.start()
        yield cups
    finally:
        cups.stop()
        shutil.rmtree(root, ignore_errors=True)


def main(command):
    if not command:
        print(__doc__.strip().splitlines()[-1], file=sys.stderr)
        return 2
    if not os.path.exists(CUPSD):
        print("with_cupsd: cupsd is not installed; running without it", file=sys.stderr)
        return subprocess.call(command)
    with private_cupsd() as cups:
        return subprocess.call(command, env=cups.env())


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
