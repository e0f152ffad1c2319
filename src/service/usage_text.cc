#include "service/usage_text.h"

#include <cstdio>

#include "printserver/version_text.h"
#include "vorlix_version.h"

namespace vx {

void PrintUsage() {
    static const char* const kLines[] = {
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
    };
    for (const char* line : kLines) printf("%s\n", line);
    fflush(stdout);
}

void PrintHistory() {
    static const char* const kHistory =
        "Vorlix change history\n"
        "\n"
        "750 Final Release (7500.1.0.47)\n"
        "  - One code base for two targets: the Windows x64 service and a Linux port that runs\n"
        "    under systemd and prints through CUPS.\n"
        "  - Settings under Software\\Zel\\Zellpd\\ZELLPD with per-printer subkeys; on Linux the\n"
        "    same keys live in .reg text files that can be edited by hand or imported on Windows.\n"
        "  - Settings are read once and cached; a value written behind the service's back is seen\n"
        "    after a restart or when changed through the option pipe.\n"
        "  - Trace log vorlix.dbg with levels 1, 5 and 9, size-driven switching (MaxLogFileSize)\n"
        "    with time-stamped names, and the API log vorlixwinapi.dbg (WinAPILog).\n"
        "  - The environment report at the head of every log lists each setting beside its\n"
        "    built-in default.\n"
        "  - Command line: -oi, -os, -dk, -t, -e, -v, -h and -? for administrators.\n"
        "  - The version banner comes from the executable's version resource.\n";
    fputs(kHistory, stdout);
    fflush(stdout);
}

void PrintVersion() {
    char version[128];
    GetVorlixVersionText(version, sizeof version);
    printf("This is Vorlix Version %s (64Bit)\n", version);
    printf("Protocol Version %i\n", VORLIX_PROTOCOL_VERSION);
    fflush(stdout);
}

}  // namespace vx
