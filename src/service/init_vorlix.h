// Start-up and orderly end of the process: InitVorlix makes the print-server object, the locks,
// the option globals and the lists; ExitVorlix releases them again; StopService ends a run.
#pragma once

#include <cstdint>

#include "base/sync.h"

namespace vx {

constexpr const char* kServiceName = "Vorlix";

// Returns 0, 1 when the print-server object cannot be made, or the failing list creation's code.
int InitVorlix(int loadLibraries, int pendingJobsMode, uint32_t* pendingJobs, int userMode);

// Runs once per orderly end: waits for connections and workers, saves the queues unless
// NoJobRestore, destroys the lists and the print-server object.
void ExitVorlix();

// Writes the message (or "Stop service.\n") at level 0, runs ExitVorlix and signals StopEvent.
void StopService(const char* message);

// Signalled by StopService; waited for by the service path. Null outside the service path.
extern EventHandle g_StopEvent;

}  // namespace vx
