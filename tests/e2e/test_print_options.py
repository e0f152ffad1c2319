"""The options that print: files and directories reach the fake network printers behind the
private cupsd unchanged; printer settings, print environment, pending jobs and font metrics."""
import random

import pytest

import cups_printer as cp

def random_file(path, size, seed):
    data = random.Random(seed).randbytes(size)
    path.write_bytes(data)
    return data


def texts(vorlix):
    return vorlix.trace_texts(vorlix.trace())


def test_file_reaches_the_printer_once_per_copy(vorlix, cups, tmp_path):
    sink = cups.sink(cp.PRINTING)
    data = random_file(tmp_path / "job.bin", 120_000, 1)
    r = vorlix.run("-f", vorlix.native_path(tmp_path / "job.bin"), "-p", cp.PRINTING, "-c", "0x3")
    assert (r.rc, r.stdout) == (0, "")
    assert b"".join(sink.wait_for_jobs(1)) == data * 3


def test_pdf_arrives_as_pdf(vorlix, cups, tmp_path):
    sink = cups.sink(cp.PRINTING)
    pdf = b"%PDF-1.4\n" + random.Random(2).randbytes(5000) + b"\n%%EOF\n"
    (tmp_path / "doc.pdf").write_bytes(pdf)
    vorlix.set_values({"LogLevel": "9"})
    vorlix.run("-f", vorlix.native_path(tmp_path / "doc.pdf"), "-p", cp.PRINTING)
    assert b"".join(sink.wait_for_jobs(1)) == pdf
    assert "PDF datastream detected for job doc.pdf" in texts(vorlix)


def test_directory_prints_each_file_once_and_skips_subdirectories(vorlix, cups, tmp_path):
    sink = cups.sink(cp.SECOND)
    folder = tmp_path / "spool"
    (folder / "sub").mkdir(parents=True)
    a = random_file(folder / "a.txt", 3000, 4)
    b = random_file(folder / "b.txt", 4000, 5)
    random_file(folder / "sub" / "c.txt", 100, 6)
    r = vorlix.run("-c", vorlix.native_path(folder), "-p", cp.SECOND)
    assert r.rc == 0
    assert sorted(sink.wait_for_jobs(2)) == sorted([a, b])

    empty = tmp_path / "empty"
    empty.mkdir()
    sink.clear()
    vorlix.run("-c", vorlix.native_path(empty), "-p", cp.SECOND)
    vorlix.run("-f", vorlix.native_path(folder), "-p", cp.SECOND)  # a directory: nothing
    assert sink.jobs == []
    # Only the missing icon library (which every printing run reports) is an error here.
    errors = [line for line in texts(vorlix) if line.startswith("Error: ")]
    assert errors == ["Error: No icon DLL loaded, please install zelbtmp64.dll."]


def test_printer_settings_report(vorlix, cups):
    r = vorlix.run("-o", "-p", cp.PRINTING)
    assert r.stdout.startswith(f"Printer settings for printer {cp.PRINTING}:\n")
    assert f"Printer name: {cp.PRINTING}\n" in r.stdout
    r = vorlix.run("-o", "-p", cp.UNKNOWN)
    assert r.stdout == "Invalid printer name\n"


def test_pending_jobs_of_the_enhanced_mode_are_listed_not_printed(vorlix, cups, tmp_path):
    sink = cups.sink(cp.PRINTING)
    files = [tmp_path / "a.bin", tmp_path / "b.bin"]
    for seed, path in enumerate(files):
        random_file(path, 500, seed)
    # Two jobs the print library kept for its next start, in the file beside the output
    # directory where it keeps them. A backslash inside a field is written doubled.
    pending = vorlix.home / "zelwin_pending_jobs.txt"
    kept = "# zelwin pending jobs 1\n" + "".join(
        f"{cp.PRINTING}\t{str(vorlix.native_path(path)).replace(chr(92), chr(92) * 2)}"
        f"\tdfA00{n}\tuser:report{n}\tuser\t1\t0\n"
        for n, path in enumerate(files))
    pending.write_text(kept)
    vorlix.set_values({"UseEnhancedSW": "1"})
    r = vorlix.run("-l")
    assert r.rc == 0
    lines = texts(vorlix)
    listed = lines[lines.index("Pending jobs:") + 1:]
    for n, path in enumerate(files):
        assert f"{cp.PRINTING} {vorlix.native_path(path)} dfA00{n} user:report{n} user" in listed
    still = pending.read_text()
    assert all(f"\tdfA00{n}\t" in still for n in range(len(files))), still
    assert sink.wait_for_jobs(1, timeout=3) == []

