"""The administrative command line: texts, option checks, settings written and read."""
import re

import pytest

from cups_printer import LPADMIN, free_port

ASTERISKS = "*" * 41
WRONG = "Wrong command parameters: see usage by calling vorlix -?\n"

USAGE = [
    "",
    "Usage Vorlix:",
    "",
    "Vorlix -r : Register service in Service Control Manager Database",
    "Vorlix -d : Delete service from Service Control Manager Database",
    "Vorlix -s : Start service",
    "Vorlix -p : Stop service",
    "Vorlix -re : Restart service",
    "Vorlix -x : Do not run as service",
    "Vorlix -u : Do not run as service in user mode",
    "Vorlix -v : Show version info",
    "Vorlix -h : Show change history",
    "Vorlix -e : Show Vorlix settings",
    "Vorlix -a : Log analysis info",
    "Vorlix -l : Log pending jobs",
    "Vorlix -o -p <pn> : Shows settings of printer <pn>",
    "Vorlix -t : Reset all options to default",
    "",
    "Vorlix -oi <key> <integer value> : Set option <key> to <integer value>",
    "Keys are case sensitive!",
    "",
    "Some valid options:",
    "Vorlix -oi KeepFile n           n = 0 or 1",
    "Vorlix -oi LogLevel n           n = 1, 5 or 9",
    "Use options editor help for details.",
    "",
    "Vorlix -os <key> <string value> : Set option <key> to <string value>",
    "Keys and values are case sensitive!",
    "",
    "Some valid options:",
    "Vorlix -os LogPath <Path>",
    "Use options editor help for details.",
    "",
    "Vorlix -dk <key> : Delete option <key>",
    "Vorlix -c <dn> -p <pn> : Prints all files in directory <dn> on printer <pn>",
    "Vorlix -f <fn> -p <pn> [-c <copies>]: Prints file <fn> on printer <pn> [with copies]",
]


def texts(vorlix):
    return vorlix.trace_texts(vorlix.trace())


def test_usage_is_printed_line_by_line_and_traced(vorlix):
    r = vorlix.run("-?")
    assert r.rc == 0
    assert r.stdout.split("\n")[:-1] == USAGE
    lines = texts(vorlix)
    assert "Vorlix called with command option -?." in lines
    assert lines.index(ASTERISKS) > lines.index("Vorlix called with command option -?.")


def test_version_banner_and_change_history(vorlix):
    r = vorlix.run("-v")
    assert r.rc == 0
    assert r.stdout == ("This is Vorlix Version 750 Final Release.7500.1.0.47 (64Bit)\n"
                        "Protocol Version 231\n")
    r = vorlix.run("-h")
    assert r.rc == 0
    assert r.stdout.startswith("Vorlix change history\n")
    assert "750 Final Release (7500.1.0.47)" in r.stdout


def test_integer_options_are_stored_with_decimal_conversion(vorlix):
    assert vorlix.run("-oi", "LogLevel", "abc").stdout == ""
    vorlix.run("-oi", "NiTrace", "12")
    vorlix.run("-oi", "LPDPort", "0x10")  # decimal conversion only
    vorlix.run("-oi", "MyCOLORS", "-3")   # a name the rules know (option_table_test: the rules)
    values = vorlix.values()
    assert [values[n] for n in ("LogLevel", "NiTrace", "LPDPort", "MyCOLORS")] == \
        ["0", "12", "0", "-3"]


def test_unknown_names_are_refused(vorlix):
    """Which names are known: option_table_test. Here the refusal's texts for both options."""
    for option, name in (("-os", "Bogus"), ("-oi", "PropertyChangeAllowed")):
        r = vorlix.run(option, name, "1")
        assert r.stdout == "Unknown option: value not set\n", name
        assert "Error: Unknown option: value not set" in texts(vorlix)
    assert not {"Bogus", "PropertyChangeAllowed"} & set(vorlix.values())


def test_string_option_moves_the_logs(vorlix, tmp_path):
    logs = tmp_path / "custom logs"
    logs.mkdir()
    vorlix.run("-os", "LogPath", vorlix.native_path(logs))
    assert vorlix.values()["LogPath"] == vorlix.native_path(logs)
    vorlix.run("-v")
    assert "Vorlix called with command option -v." in vorlix.trace_texts(
        (logs / "vorlix.dbg").read_bytes().decode("latin-1").replace("\r\n", "\n"))


def test_missing_parameters(vorlix):
    for args in (["-oi", "LogLevel"], ["-os"], ["-dk"], ["-f", "file", "-p"],
                 ["-f", "file", "-x", "printer"], ["-o", "printer"], ["-m"]):
        r = vorlix.run(*args)
        assert r.rc == 0
        assert r.stdout == WRONG, args
        assert "Error: " + WRONG.rstrip("\n") in texts(vorlix), args
    # "-c" words its trace line differently.
    r = vorlix.run("-c", "dir", "-p")
    assert r.stdout == WRONG
    assert "Error: Wrong command parameters: see usage with vorlix -?" in texts(vorlix)


def test_delete_refuses_unknown_keys_and_deletes_nothing_without_a_write(vorlix):
    vorlix.set_values({"KeepFile": "1", "LogLevel": "5"})
    r = vorlix.run("-dk", "Bogus")
    assert r.stdout == "Unknown key not deleted\n"
    assert "Error: Unknown key not deleted" in texts(vorlix)
    # The store deletes through its write handle, which a "-dk" run never opens.
    r = vorlix.run("-dk", "KeepFile")
    assert r.stdout == ""
    assert vorlix.values()["KeepFile"] == "1"
    vorlix.run("-t")
    assert vorlix.values() == {"KeepFile": "1", "LogLevel": "5"}


def test_environment_lists_every_setting_with_its_default(vorlix):
    # Written by hand, as an administrator would, and read by the program.
    vorlix.set_values({"LogLevel": "9", "LPDPort": "0x203", "EnableCancelButton": "0",
                       "Custom": "some text"})
    r = vorlix.run("-e")
    assert r.rc == 0
    out = r.stdout
    assert "Settings from HKEY_LOCAL_MACHINE:\n" in out
    assert "LogLevel = 9, Default = 1\n" in out
    assert "LPDPort = 0x203, Default = 515\n" in out
    assert "EnableCancelButton = 0, Default = 1\n" in out
    assert "Custom = some text, Default = 0\n" in out
    assert re.search(r"^OS-Info: version = \d+\.\d+, build = ", out, re.M)
    assert "Th " not in out
    # LogLevel 9 from the hand-written hive took effect for the run's own trace.
    assert "Module name: " in vorlix.trace()


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


def test_environment_lists_the_fonts_of_the_default_printer(vorlix, cups, tmp_path):
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


def test_pending_jobs_need_the_enhanced_mode(vorlix):
    r = vorlix.run("-l")
    assert r.stdout == "Wrong command parameter: -l only usable with UseEnhancedSW option set\n"
    assert ASTERISKS in texts(vorlix)


def test_service_control_options_say_they_are_not_available(vorlix):
    r = vorlix.run("-s")
    assert r.rc == 0
    assert "Option -s (start the service) is not available in this build." in r.stdout
    lines = texts(vorlix)
    assert "Vorlix called with command option -s." in lines
    assert ASTERISKS not in lines  # start returns without the clean-up
    for option, what in (("-r", "register the service"), ("-d", "delete the service")):
        r = vorlix.run(option)
        assert r.stdout == f"Option {option} ({what}) is not available in this build.\n"
        assert ASTERISKS in texts(vorlix)
