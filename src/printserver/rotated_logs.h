// Trace logs moved aside by a switch ("<log>.dd_MM_yyyy_hh_mm_ss", beside the log) are kept up
// to a number; the oldest beyond it are deleted, so that a flood of trace cannot fill the disk
// with old logs. Only names of exactly that pattern for exactly that log are ever touched.
#pragma once

#include <cstdint>

namespace vx {

// True when name is baseName + "." + a date-and-time stamp; *order is then the stamp's time as
// the number yyyyMMddhhmmss, which sorts as the switches happened.
bool RotatedLogOrder(const char* name, const char* baseName, int64_t* order);

// Deletes the oldest logs moved aside from logPath until at most keep are left; keep 0 or less
// keeps all. Returns the number deleted.
int PruneRotatedLogs(const char* logPath, int32_t keep);

}  // namespace vx
