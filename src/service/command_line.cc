// The program's entry: InitVorlix, then one administrative action chosen by the first argument,
// or the service path when there is no argument or an unknown one.
#include "service/command_line.h"

#include <cstdio>
#include <cstring>

#include "base/process.h"
#include "config/option_globals.h"
#include "config/option_table.h"
#include "printserver/zelprsrv.h"
#include "service/init_vorlix.h"
#include "service/main_thread.h"
#include "service/print_options.h"
#include "service/service_path.h"
#include "service/usage_text.h"

namespace vx {

namespace {

constexpr const char* kWrongParameters =
    "Wrong command parameters: see usage by calling vorlix -?\n";

struct InitArgs {
    int loadLibraries;
    int pendingJobsMode;
    int userMode;
};

// Only the runs that print bind the optional libraries; "-l" counts pending jobs; "-u" uses the
// current user's settings. An unknown argument runs without the libraries: intended.
InitArgs ChooseInitArgs(int argc, char** argv) {
    if (argc < 2) return {1, 0, 0};
    const char* option = argv[1];
    for (const char* printing : {"-s", "-re", "-x", "-f"}) {
        if (strcmp(option, printing) == 0) return {1, 0, 0};
    }
    if (strcmp(option, "-u") == 0) return {1, 0, 1};
    if (strcmp(option, "-l") == 0) return {0, 1, 0};
    return {0, 0, 0};
}

void WrongParameters(const char* errorText) {
    TraceError("%s", errorText);
    fputs(kWrongParameters, stdout);
    fflush(stdout);
}

// An option whose work is not part of this build says so plainly.
void NotInThisBuild(const char* option, const char* what) {
    printf("Option %s (%s) is not available in this build.\n", option, what);
    fflush(stdout);
    Trace(kTraceNormal, "Option %s is not available in this build.\n", option);
}

bool Arg(int argc, char** argv, int index) {
    return index < argc && argv[index] != nullptr;
}

void DoVersion(int, char**) {
    PrintVersion();
}
void DoUsage(int, char**) {
    PrintUsage();
}
void DoHistory(int, char**) {
    PrintHistory();
}

void DoEnvironment(int, char**) {
    if (g_prsrv == nullptr) return;
    g_prsrv->WriteEnvironmentReport(0);
    g_prsrv->ReportDefaultPrinterFonts();
}

// "-oi" and "-os": a known name and a value, written as an integer or as text.
void SetOption(int argc, char** argv, bool asInteger) {
    if (!Arg(argc, argv, 2) || !Arg(argc, argv, 3)) return WrongParameters(kWrongParameters);
    if (!IsKnownOption(argv[2])) {
        TraceError("Unknown option: value not set\n");
        fputs("Unknown option: value not set\n", stdout);
        return;
    }
    if (g_prsrv == nullptr) return;
    if (asInteger)
        g_prsrv->SetGlobalInt(argv[2], ParseDecimalInt(argv[3]));
    else
        g_prsrv->SetGlobalString(argv[2], argv[3]);
}

void DoSetInteger(int argc, char** argv) {
    SetOption(argc, argv, true);
}
void DoSetString(int argc, char** argv) {
    SetOption(argc, argv, false);
}

void DoDeleteKey(int argc, char** argv) {
    if (!Arg(argc, argv, 2)) return WrongParameters(kWrongParameters);
    if (!IsKnownOption(argv[2])) {
        TraceError("Unknown key not deleted\n");
        fputs("Unknown key not deleted\n", stdout);
        return;
    }
    // Deletes through the write handle, which no write of this run has opened: the value stays.
    if (g_prsrv != nullptr) g_prsrv->DeleteGlobalValue(argv[2]);
}

void DoReset(int, char**) {
    if (g_prsrv != nullptr) ResetOptions(*g_prsrv);
}

void DoPrintFile(int argc, char** argv) {
    if (!Arg(argc, argv, 4) || strcmp(argv[3], "-p") != 0) return WrongParameters(kWrongParameters);
    const char* copies = Arg(argc, argv, 6) && strcmp(argv[5], "-c") == 0 ? argv[6] : nullptr;
    PrintFileOption(argv[2], argv[4], copies);
}

void DoPrintDirectory(int argc, char** argv) {
    if (!Arg(argc, argv, 4) || strcmp(argv[3], "-p") != 0)
        return WrongParameters("Wrong command parameters: see usage with vorlix -?\n");
    PrintDirectoryOption(argv[2], argv[4]);
}

void DoPrinterSettings(int argc, char** argv) {
    if (!Arg(argc, argv, 3) || strcmp(argv[2], "-p") != 0) return WrongParameters(kWrongParameters);
    PrinterSettingsOption(argv[3]);
}

void DoFontMetrics(int argc, char** argv) {
    if (!Arg(argc, argv, 2)) return WrongParameters(kWrongParameters);
    FontMetricsOption(argv[2], strcmp(argv[1], "-M") == 0 ? 2 : 1,
                      Arg(argc, argv, 3) ? argv[3] : nullptr);
}

void DoPendingJobs(int, char**) {
    PendingJobsOption();
}
void DoAnalysis(int, char**) {
    AnalysisOption();
}
void DoInstall(int, char**) {
    NotInThisBuild("-r", "register the service");
}
void DoRemove(int, char**) {
    NotInThisBuild("-d", "delete the service");
}
void DoStart(int, char**) {
    NotInThisBuild("-s", "start the service");
}
void DoStop(int, char**) {
    NotInThisBuild("-p", "stop the service");
}
void DoRestart(int, char**) {
    NotInThisBuild("-re", "restart the service");
}
void DoRecovery(int, char**) {
    NotInThisBuild("-co", "configure service recovery");
}
// "-x" and "-u": the server in the console; "-u" took its settings from the current user at
// InitVorlix.
void DoConsole(int, char**) {
    MainThread();
}
void DoUserConsole(int, char**) {
    MainThread();
}

enum CommandFlags {
    kCleanUp = 0,
    kNoCleanUp = 1,  // returns straight after its action: no asterisk line, no ExitVorlix
};

struct CommandOption {
    const char* name;
    void (*action)(int argc, char** argv);
    int flags;
};

constexpr CommandOption kCommandOptions[] = {
    {"-r", DoInstall, kCleanUp},        {"-d", DoRemove, kCleanUp},
    {"-s", DoStart, kNoCleanUp},        {"-p", DoStop, kCleanUp},
    {"-re", DoRestart, kNoCleanUp},     {"-co", DoRecovery, kCleanUp},
    {"-x", DoConsole, kNoCleanUp},      {"-u", DoUserConsole, kNoCleanUp},
    {"-dk", DoDeleteKey, kCleanUp},     {"-oi", DoSetInteger, kCleanUp},
    {"-os", DoSetString, kCleanUp},     {"-f", DoPrintFile, kCleanUp},
    {"-c", DoPrintDirectory, kCleanUp}, {"-a", DoAnalysis, kCleanUp},
    {"-l", DoPendingJobs, kCleanUp},    {"-o", DoPrinterSettings, kCleanUp},
    {"-m", DoFontMetrics, kCleanUp},    {"-M", DoFontMetrics, kCleanUp},
    {"-h", DoHistory, kCleanUp},        {"-t", DoReset, kCleanUp},
    {"-e", DoEnvironment, kCleanUp},    {"-?", DoUsage, kCleanUp},
    {"-v", DoVersion, kCleanUp},
};

const CommandOption* FindCommandOption(const char* name) {
    for (const CommandOption& option : kCommandOptions) {
        if (strcmp(option.name, name) == 0) return &option;
    }
    return nullptr;
}

void TraceCall(int argc, char** argv) {
    if (strcmp(argv[1], "-f") == 0 && argc >= 7 && strcmp(argv[5], "-c") == 0) {
        Trace(kTraceNormal, "Vorlix called with command option %s %s %s -c %s.\n", argv[1], argv[2],
              argv[4], argv[6]);
    } else if (argc >= 5) {
        Trace(kTraceNormal, "Vorlix called with command option %s %s %s %s.\n", argv[1], argv[2],
              argv[3], argv[4]);
    } else if (argc == 4) {
        Trace(kTraceNormal, "Vorlix called with command option %s %s %s.\n", argv[1], argv[2],
              argv[3]);
    } else if (argc == 3) {
        Trace(kTraceNormal, "Vorlix called with command option %s %s.\n", argv[1], argv[2]);
    } else {
        Trace(kTraceNormal, "Vorlix called with command option %s.\n", argv[1]);
    }
}

}  // namespace

int VorlixMain(int argc, char** argv) {
    LimitHeapGrowth();
    InitArgs init = ChooseInitArgs(argc, argv);
    uint32_t pendingJobs = 0;
    // A failed start does not end the run: the action goes on with what was created.
    if (InitVorlix(init.loadLibraries, init.pendingJobsMode, &pendingJobs, init.userMode) != 0)
        StopService("InitVorlix failed.\n");
    SetPendingJobCount(pendingJobs);

    const CommandOption* option = argc >= 2 ? FindCommandOption(argv[1]) : nullptr;
    if (option == nullptr) {
        RunServicePath();
        return 0;
    }
    TraceCall(argc, argv);
    option->action(argc, argv);
    if (option->flags & kNoCleanUp) return 0;
    Trace(kTraceNormal, "*****************************************\n");
    // An administrative run must not save (and so empty) the service's restart files.
    g_Options.NoJobRestore = 1;
    ExitVorlix();
    return 0;
}

}  // namespace vx
