// The environment report at the head of every main log (and of "-e" on the console): versions,
// the operating system, every value under the settings key with its built-in default.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/process.h"
#include "printserver/version_text.h"
#include "printserver/zelprsrv.h"
#include "vorlix_version.h"

namespace vx {

// One report line: into the main log at a level (target 1) or plainly to standard output (0).
void Czelprsrv::ReportLine(int target, int level, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    if (target == 0) {
        vprintf(fmt, args);
    } else {
        TraceV(level, fmt, args);
    }
    va_end(args);
}

void Czelprsrv::WriteBanner(int target) {
    if (zelwinVersion_[0] != '\0')
        ReportLine(target, kTraceBanner, "This is ZELWIN Version %s (64bit)\n", zelwinVersion_);
    else
        ReportLine(target, kTraceBanner, "%s not installed\n", "ZELWIN (64bit)");
    char version[128];
    GetVorlixVersionText(version, sizeof version);
    ReportLine(target, kTraceBanner, "This is Vorlix Version %s (64Bit)\n", version);
    ReportLine(target, kTraceBanner, "Protocol Version %i\n", VORLIX_PROTOCOL_VERSION);
    if (tolmapdfVersion_[0] != '\0')
        ReportLine(target, kTraceBanner, "This is TOLMAPDF Version %s (64bit)\n", tolmapdfVersion_);
    else
        ReportLine(target, kTraceBanner, "%s not installed\n", "TOLMAPDF (64bit)");
    ReportLine(target, kTraceBanner,
               "Vorlix prints for application servers over LPD and its extended protocol.\n");
}

void Czelprsrv::WriteEnvironmentReport(int target) {
    LockHold hold(traceLock_);
    WriteBanner(target);

    OsInfo os = {};
    GetOsInfo(&os);
    ReportLine(target, kTraceBanner, "OS-Info: version = %d.%d, build = %X/%d, text = %s\n",
               static_cast<int>(os.major), static_cast<int>(os.minor),
               static_cast<unsigned>(os.build >> 16), static_cast<int>(os.build & 0xFFFFu),
               os.text);
    ReportLine(target, kTraceBanner, "\n");

    ReportLine(target, kTraceNormal, "Settings from %s:\n",
               hive_ == kHiveCurrentUser ? "HKEY_CURRENT_USER" : "HKEY_LOCAL_MACHINE");
    ReportLine(target, kTraceNormal, "\n");

    RegKey key;
    if (RegCreate(hive_, settingsKey_, key.Receive()) == kRegOk) {
        char name[130];
        char data[130];
        for (uint32_t i = 0;; ++i) {
            // Names and data longer than their 130-character buffers are shown cut.
            long rc = RegEnumText(key.Get(), i, name, sizeof name, data, sizeof data);
            if (rc != kRegOk && rc != kRegMoreData) break;
            const char* shown = name[0] != '\0' ? name : "<NO NAME>";
            int32_t def = strcmp(name, "EnableCancelButton") == 0 ? 1 : GetDefaultValue(name);
            ReportLine(target, kTraceBanner, "%s = %s, Default = %i\n", shown, data, def);
        }
    }
    ReportLine(target, kTraceBanner, "\n");

    ReportLine(target, kTraceNormal, "Temp path: %s\n", tempDir_);
    ReportLine(target, kTraceNormal, "\n");
    noPrinterLogging_ = GetGlobalInt("NoPrinterLogging", 0);
}

}  // namespace vx
