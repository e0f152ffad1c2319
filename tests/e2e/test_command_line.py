"""The administrative command line: texts, option checks, settings written and read."""
import re

import pytest

from conftest import read_text
from cups_printer import LPADMIN, free_port

ASTERISKS = "*" * 41
WRONG = "Wrong command parameters: see usage by calling vorlix -?\n"


def texts(vorlix):
    return vorlix.trace_texts(vorlix.trace())


def test_usage_version_and_change_history(vorlix):
    r = vorlix.run("-?")
    assert r.rc == 0
    usage = r.stdout.split("\n")
    assert usage[:3] == ["", "Usage Vorlix:", ""], usage
    assert usage[-2].startswith("Vorlix -f <fn> -p <pn>"), usage
    lines = texts(vorlix)
    assert lines.index(ASTERISKS) > lines.index("Vorlix called with command option -?.")

    r = vorlix.run("-v")
    assert r.rc == 0
    assert r.stdout == ("This is Vorlix Version 750 Final Release.7500.1.0.47 (64Bit)\n"
                        "Protocol Version 231\n")
    r = vorlix.run("-h")
    assert r.rc == 0
    assert r.stdout.startswith("Vorlix change history\n")
    assert "750 Final Release (7500.1.0.47)" in r.stdout


def test_options_are_written_for_the_next_runs(vorlix, tmp_path):
    logs = tmp_path / "custom logs"
    logs.mkdir()
    vorlix.run("-os", "LogPath", vorlix.native_path(logs))
    # The next run traces into the new log directory.
    vorlix.run("-v")
    assert "Vorlix called with command option -v." in vorlix.trace_texts(
        read_text(logs / "vorlix.dbg"))
    assert vorlix.run("-oi", "LogLevel", "abc").stdout == ""
    vorlix.run("-oi", "NiTrace", "12")
    vorlix.run("-oi", "LPDPort", "0x10")  # decimal conversion only
    vorlix.run("-oi", "MyCOLORS", "-3")   # a name the rules know (option_table_test: the rules)
    values = vorlix.values()
    assert [values[n] for n in ("LogPath", "LogLevel", "NiTrace", "LPDPort", "MyCOLORS")] == \
        [vorlix.native_path(logs), "0", "12", "0", "-3"]


# Arguments the command line refuses: what it prints, the error it traces (or, for refusals
# after the start-up, the clean-up's line of asterisks).
REFUSALS = [(args, WRONG, "Error: " + WRONG.rstrip("\n"))
            for args in (["-oi", "LogLevel"], ["-os"], ["-dk"], ["-f", "file", "-p"],
                         ["-f", "file", "-x", "printer"], ["-o", "printer"], ["-m"])] + [
    (["-c", "dir", "-p"], WRONG, "Error: Wrong command parameters: see usage with vorlix -?"),
    (["-os", "Bogus", "1"], "Unknown option: value not set\n",
     "Error: Unknown option: value not set"),
    (["-oi", "PropertyChangeAllowed", "1"], "Unknown option: value not set\n",
     "Error: Unknown option: value not set"),
    (["-dk", "Bogus"], "Unknown key not deleted\n", "Error: Unknown key not deleted"),
    (["-l"], "Wrong command parameter: -l only usable with UseEnhancedSW option set\n", ASTERISKS),
    (["-r"], "Option -r (register the service) is not available in this build.\n", ASTERISKS),
    (["-d"], "Option -d (delete the service) is not available in this build.\n", ASTERISKS),
]


def test_refused_arguments_print_and_trace_why(vorlix):
    for args, stdout, traced in REFUSALS:
        r = vorlix.run(*args)
        assert (r.rc, r.stdout) == (0, stdout), args
        assert traced in texts(vorlix), args
    # Which names are known: option_table_test. Refused names are not written.
    assert not {"Bogus", "PropertyChangeAllowed"} & set(vorlix.values())

    # Starting the service returns without the clean-up.
    r = vorlix.run("-s")
    assert r.rc == 0
    assert "Option -s (start the service) is not available in this build." in r.stdout
    lines = texts(vorlix)
    assert "Vorlix called with command option -s." in lines
    assert ASTERISKS not in lines


def test_delete_and_reset_change_nothing_without_a_write(vorlix):
    vorlix.set_values({"KeepFile": "1", "LogLevel": "5"})
    # The store deletes through its write handle, which a "-dk" run never opens.
    r = vorlix.run("-dk", "KeepFile")
    assert r.stdout == ""
    assert vorlix.values()["KeepFile"] == "1"
    vorlix.run("-t")
    assert vorlix.values() == {"KeepFile": "1", "LogLevel": "5"}


# A PostScript printer's PPD naming its resident fonts, out of order and one of them twice.
FONTS_PPD = """*PPD-Adobe: "4.3"
*FormatVersion: "4.3"
*FileVersion: "1.0"
*LanguageVersion: English
*LanguageEncoding: ISOLatin1
*PCFileName: "VXFONTS.PPD"
*Manufacturer: "Vorlix"
*Product: "(Vorlix Font Printer)"
*ModelName: "Vorlix Font Printer"
*ShortNickName: "Vorlix Font Printer"
*NickName: "Vorlix Font Printer"
*PSVersion: "(3010.000) 0"
*TTRasterizer: Type42
*OpenUI *PageSize: PickOne
*OrderDependency: 10 AnySetup *PageSize
*DefaultPageSize: A4
*PageSize A4/A4: "<</PageSize[595 842]/ImagingBBox null>>setpagedevice"
*CloseUI: *PageSize
*DefaultFont: Courier
*Font Times-Roman: Standard "(001.007S)" Standard ROM
*Font Courier: Standard "(002.004S)" Standard ROM
*Font Helvetica: Standard "(001.006S)" Standard ROM
*Font Courier: Standard "(002.004S)" Standard ROM
"""


def listed_fonts(text, header):
    """The indented font names under the header line."""
    lines = text.split("\n")
    start = lines.index(header) + 1
    end = next(i for i in range(start, len(lines)) if not lines[i].startswith("  "))
    return [line[2:] for line in lines[start:end]]


def test_environment_lists_the_settings_and_the_fonts_of_the_default_printer(vorlix, cups,
                                                                            tmp_path):
    # Written by hand, as an administrator would, and read by the program.
    vorlix.set_values({"LogLevel": "9", "LPDPort": "0x203"})
    ppd = tmp_path / "fonts.ppd"
    ppd.write_text(FONTS_PPD)
    printer = "vx_fonts"
    # Made before the program's first run: under Wine the spooler reads the printers then.
    cups.run(LPADMIN, "-h", cups.server, "-p", printer, "-E",
             "-v", f"socket://127.0.0.1:{free_port()}", "-P", str(ppd))
    try:
        cups.run(LPADMIN, "-h", cups.server, "-d", printer)
        r = vorlix.run("-e")
    finally:
        cups.run(LPADMIN, "-h", cups.server, "-x", printer)
    assert r.rc == 0
    # The report's lines are unit-tested (trace_log_test); here the real hive and OS.
    assert "Settings from HKEY_LOCAL_MACHINE:\n" in r.stdout
    assert "LogLevel = 9, Default = 1\n" in r.stdout
    assert "LPDPort = 0x203, Default = 515\n" in r.stdout
    assert re.search(r"^OS-Info: version = \d+\.\d+, build = ", r.stdout, re.M)
    # LogLevel 9 from the hand-written hive took effect for the run's own trace.
    assert "Module name: " in vorlix.trace()
    assert "not available" not in r.stdout
    header = f"Fonts of the default printer {printer}:"
    fonts = listed_fonts(r.stdout, header)
    if vorlix.windows:
        # The spooler's generic PostScript driver answers for the printer under Wine.
        assert fonts
    else:
        assert fonts == ["Courier", "Helvetica", "Times-Roman"]
    assert fonts == sorted(set(fonts), key=lambda name: (name.lower(), name))
    # The same lines at level 1 in the trace, after the settings.
    lines = texts(vorlix)
    at = lines.index(header)
    assert lines[at + 1:at + 1 + len(fonts)] == ["  " + font for font in fonts]


def test_unknown_argument_takes_the_service_path(vorlix):
    if not vorlix.windows:
        pytest.skip("on Linux the service path serves in the foreground until it is stopped: "
                    "test_lpd.py runs it")
    r = vorlix.run("-foo")
    assert r.rc == 0
    lines = texts(vorlix)
    assert "Vorlix started from SCM." in lines
    assert not any(line.startswith("Vorlix called with command option") for line in lines)
    assert ASTERISKS not in lines
    # Started from a console, not by the service control manager.
    assert any(line.startswith("Error: StartServiceCtrlDispatcher failed: ") for line in lines)
