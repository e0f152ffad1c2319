#include "fuzz_service.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "base/ni.h"
#include "base/registry.h"
#include "config/option_globals.h"
#include "fake_spooler.h"
#include "jobs/job_lists.h"
#include "jobs/job_record.h"
#include "jobs/print_backend.h"
#include "jobs/printer_queue.h"
#include "lists/zlplist.h"
#include "net/listener.h"
#include "printserver/zelprsrv.h"

namespace vxfuzz {

namespace {

constexpr const char* kSettingsKey = "Software\\Zel\\VorlixFuzz";

std::string& Root() {
    static std::string root;
    return root;
}

void RemoveRoot() {
    std::error_code ec;
    if (!Root().empty()) std::filesystem::remove_all(Root(), ec);
}

std::string MakeRoot() {
    std::error_code ec;
    std::filesystem::path base = std::filesystem::temp_directory_path(ec);
    if (ec) base = "/tmp";
    std::string pattern = (base / "vorlix_fuzz_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        perror("mkdtemp");
        abort();
    }
    std::filesystem::create_directories(pattern + "/registry");
    std::filesystem::create_directories(pattern + "/home");
    std::filesystem::create_directories(pattern + "/temp");
    return pattern;
}

void Seed(const char* name, const char* text) {
    vx::RegKey key;
    if (vx::RegCreate(vx::kHiveCurrentUser, kSettingsKey, key.Receive()) != vx::kRegOk ||
        vx::RegSetText(key.Get(), name, text, static_cast<uint32_t>(strlen(text))) != vx::kRegOk) {
        fprintf(stderr, "cannot seed the setting %s\n", name);
        abort();
    }
}

// The print library's entry point for a received job: printed at once, nothing leaves.
int PrintNothing(const char*, const char*, const char*, const ZelWide*, const char*, const char*,
                 const char*, int, int, int, void*, void*, int, const char*, int, int,
                 const ZelHost*) {
    return ZEL_RC_OK;
}

void ResetOptionGlobals() {
    int count = 0;
    const vx::OptionGlobalEntry* table = vx::OptionGlobalTable(&count);
    for (int i = 0; i < count; ++i)
        (vx::g_Options.*(table[i].field)) = table[i].setting->defaultValue;
}

}  // namespace

const std::string& StartService() {
    if (!Root().empty()) return Root();
    Root() = MakeRoot();
    atexit(RemoveRoot);
    setenv("VORLIX_REGISTRY_DIR", (Root() + "/registry").c_str(), 1);
    setenv("VORLIX_HOME", (Root() + "/home").c_str(), 1);

    // Level 1, as the service runs by default: the trace lines fed from the input are formatted.
    Seed("LogLevel", "1");
    Seed("KeepFile", "0");
    ResetOptionGlobals();

    static vx::PrintBackend backend;
    backend = vx::Backend();
    backend.PrintFile = &PrintNothing;
    vx::SetPrintBackendForTest(&backend);
    vxtest::FakeSpooler::Install().printers[kFuzzPrinter];

    vx::PrsrvConfig config;
    config.runMode = vx::kRunModeTool;
    config.hive = vx::kHiveCurrentUser;
    config.settingsKey = kSettingsKey;
    static std::string logDirectory = Root() + "/temp/";
    config.logDirectory = logDirectory.c_str();
    // Never destroyed: when the fuzzer exits, printer workers may still be running and tracing
    // through it. The static pointer keeps it reachable, so the leak check does not count it.
    static vx::Czelprsrv* prsrv = new vx::Czelprsrv(config);
    vx::g_prsrv = prsrv;

    if (vx::NiInit(vx::kNiMaxHandles) != vx::kNiOk) abort();
    // The far end always holds everything it will send, or has ended: reads never wait long.
    vx::ListenerParams& p = vx::g_ListenerParams;
    p.NiReadTimeout = 1000;
    p.NiReadLoopBreak = 10;
    p.NiWriteTimeout = 1000;
    p.NiSpinReadTime = 1000;
    p.send_with_null = 1;

    if (vx::InitList(vx::kJobStatusListCapacity, vx::kJobStatusElementSize, &vx::g_JobStatusList,
                     0) != 0 ||
        vx::InitList(vx::kJobQueueListCapacity, sizeof(vx::PrinterQueue), &vx::g_JobQueueList, 0) !=
            0)
        abort();
    return Root();
}

}  // namespace vxfuzz
