// Names in the temporary directory. The service keeps its own files there beside the received
// data files: the restart files ("prnl*.dbd", "stal.dbd"), the trace logs ("vorlix.dbg",
// "vorlixwinapi.dbg", "vorlix.nit", the compression trace "cstrace.trc") and their time-stamped
// copies, the journal beside each data file ("*.job"), files being written under a temporary
// name ("*.tmp", "*.part") and the emptied files kept for the next jobs ("vxspare.*"). A name that
// a sender gives never becomes one of them and never leaves the directory.
#pragma once

#include <cstddef>

namespace vx {

// The start of a spare file's name.
constexpr const char* kSparePrefix = "vxspare.";

// True for a name the service keeps for its own files (compared without regard to case, as the
// Windows file system does).
bool IsReservedTempName(const char* name);

// A name given by a sender, made safe for the temporary directory: path separators, drive colons
// and leading dots become "_", and so do the dots of a reserved name. Cut at cap; an empty name
// stays empty.
void SafeTempName(const char* name, char* out, size_t cap);

}  // namespace vx
