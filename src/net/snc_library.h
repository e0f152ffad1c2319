// The binding to the security library ("vorlixsnc.dll" / "libvorlixsnc.so"), loaded at run time:
// every export the service uses, resolved into one table. A library that is missing, or lacks
// one of them, counts as no library at all.
#pragma once

#include "snc/vorlixsnc.h"

namespace vx {

struct SncFunctions {
    decltype(&::SncInit) SncInit;
    decltype(&::SncDone) SncDone;
    decltype(&::SncSetTrace) SncSetTrace;
    decltype(&::SncGetAdapterName) SncGetAdapterName;
    decltype(&::SncNiRawSessionInit) SncNiRawSessionInit;
    decltype(&::SncSetQOP) SncSetQOP;
    decltype(&::SncNiSessionAccept) SncNiSessionAccept;
    decltype(&::SncGetPeerName) SncGetPeerName;
    decltype(&::SncNiRawRead) SncNiRawRead;
    decltype(&::SncNiRawWrite) SncNiRawWrite;
    decltype(&::SncNiErrorOf) SncNiErrorOf;
    decltype(&::SncSessionDone) SncSessionDone;
    decltype(&::SncErrorName) SncErrorName;
    decltype(&::SncErrorDescription) SncErrorDescription;
    decltype(&::SncErrorLine) SncErrorLine;
};

// Looks for the library where the service looks for every library it binds, and loads it. 0, or -1
// (the reason traced at level 5) when there is no usable library.
int LoadSncLibrary();
// Releases the loaded library and forgets the table.
void UnloadSncLibrary();

// The table in use, or null when there is no library.
const SncFunctions* Snc();

// Puts a table of the caller's in place of the loaded library (tests); null removes it. The
// table must outlive its use.
void UseSncFunctions(const SncFunctions* functions);

}  // namespace vx
