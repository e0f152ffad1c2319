#include "printserver/zel_host.h"

#include "base/text.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

Czelprsrv* Server(void* context) {
    return static_cast<Czelprsrv*>(context);
}

int32_t HostGetOptionValue(void* context, const char* printer, const char* name, int32_t def) {
    return Server(context)->GetOptionValue(printer, name, def);
}

void HostGetString(void* context, const char* name, const char* def, char* buffer, size_t size) {
    Server(context)->GetGlobalString(name, def, buffer, size);
}

void HostGetOutputDirectory(void* context, char* buffer, size_t size) {
    Czelprsrv* server = Server(context);
    // A user-mode run keeps no output directory of its own: its temporary directory serves.
    const char* dir =
        server->OutputDirectory()[0] != '\0' ? server->OutputDirectory() : server->TempDirectory();
    CopyText(buffer, size, dir);
}

void HostTrace(void* context, int level, const char* text) {
    Server(context)->Trace(level, "%s", text);
}

}  // namespace

void FillZelHost(ZelHost* host, Czelprsrv* server) {
    host->context = server;
    host->GetOptionValue = HostGetOptionValue;
    host->GetString = HostGetString;
    host->GetOutputDirectory = HostGetOutputDirectory;
    host->Trace = HostTrace;
    // Job processing lends each print call a host of its own that hears of spooled jobs.
    host->JobSpooled = nullptr;
    host->Ending = nullptr;
}

const ZelHost* HostOf(Czelprsrv* server) {
    return server != nullptr ? server->Host() : nullptr;
}

}  // namespace vx
