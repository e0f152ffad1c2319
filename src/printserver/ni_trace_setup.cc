// The network layer's trace file "vorlix.nit": where it goes and how much it shows follow the
// print-server object's settings.
#include <cstring>

#include "base/fileops.h"
#include "base/ni.h"
#include "printserver/zelprsrv.h"

namespace vx {

int Czelprsrv::OpenNiTrace() {
    char path[kMaxPath] = {};
    // Read with the built-in default, as the other readers of "LogPath" do: the string cache keeps
    // the default of whoever asked first, so that default is what stands for no value.
    const char* unset = BuiltInText("LogPath");
    GetGlobalString("LogPath", unset, path, sizeof path);
    if (path[0] == '\0' || strcmp(path, unset) == 0) CopyText(path, tempDir_);
    AppendSeparator(path, sizeof path);
    AppendText(path, "vorlix.nit");

    if (GetSetting("NiTrace") == 0) {
        NiSetTraceLevel(1);
        return 1;
    }
    // The network layer knows three levels; other log levels keep the one it has.
    switch (logLevel_) {
        case kTraceNormal:
            NiSetTraceLevel(1);
            break;
        case kTraceNotable:
            NiSetTraceLevel(2);
            break;
        case kTraceDetail:
            NiSetTraceLevel(3);
            break;
        default:
            break;
    }
    return NiTraceOpen(path, kNiTraceAppend, NiGetTraceLevel()) == 0 ? 1 : 0;
}

}  // namespace vx
