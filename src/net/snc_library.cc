#include "net/snc_library.h"

#include <atomic>

#include "base/dynlib.h"
#include "printserver/library_names.h"
#include "printserver/trace.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr const char* kSncLibraryName = "vorlixsnc.dll";

DynLibrary g_library;
SncFunctions g_loaded{};
std::atomic<const SncFunctions*> g_functions{nullptr};

// Resolves one export into its slot; false (and the reason traced) when the library lacks it.
template <typename Function>
bool Resolve(const char* path, const char* name, Function* slot) {
    *slot = reinterpret_cast<Function>(g_library.Symbol(name));
    if (*slot != nullptr) return true;
    Trace(kTraceNotable, "Security library %s has no export %s: not used.\n", path, name);
    return false;
}

bool ResolveAll(const char* path, SncFunctions* f) {
    return Resolve(path, "SncInit", &f->SncInit) && Resolve(path, "SncDone", &f->SncDone) &&
           Resolve(path, "SncSetTrace", &f->SncSetTrace) &&
           Resolve(path, "SncGetAdapterName", &f->SncGetAdapterName) &&
           Resolve(path, "SncNiRawSessionInit", &f->SncNiRawSessionInit) &&
           Resolve(path, "SncSetQOP", &f->SncSetQOP) &&
           Resolve(path, "SncNiSessionAccept", &f->SncNiSessionAccept) &&
           Resolve(path, "SncGetPeerName", &f->SncGetPeerName) &&
           Resolve(path, "SncNiRawRead", &f->SncNiRawRead) &&
           Resolve(path, "SncNiRawWrite", &f->SncNiRawWrite) &&
           Resolve(path, "SncNiErrorOf", &f->SncNiErrorOf) &&
           Resolve(path, "SncSessionDone", &f->SncSessionDone) &&
           Resolve(path, "SncErrorName", &f->SncErrorName) &&
           Resolve(path, "SncErrorDescription", &f->SncErrorDescription) &&
           Resolve(path, "SncErrorLine", &f->SncErrorLine);
}

}  // namespace

int LoadSncLibrary() {
    UnloadSncLibrary();
    const char* name = LibraryFileName(kSncLibraryName);
    if (g_prsrv != nullptr) g_library.Adopt(g_prsrv->LoadOptionalLibrary(kSncLibraryName, false));
    if (!g_library.Loaded()) {
        Trace(kTraceNotable, "Security library %s not found or not loadable.\n", name);
        return -1;
    }
    SncFunctions table{};
    if (!ResolveAll(name, &table)) {
        g_library.Free();
        return -1;
    }
    g_loaded = table;
    g_functions = &g_loaded;
    return 0;
}

void UnloadSncLibrary() {
    g_functions = nullptr;
    g_library.Free();
}

const SncFunctions* Snc() {
    return g_functions;
}

void UseSncFunctions(const SncFunctions* functions) {
    g_functions = functions;
}

}  // namespace vx
