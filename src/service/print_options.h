// The command-line options that print or report on the print side.
#pragma once

#include <cstdint>

namespace vx {

// "-f": prints a file (copies in decimal, octal or hexadecimal; null: 1 copy).
void PrintFileOption(const char* file, const char* printer, const char* copiesText);
// "-c": prints every file of a directory, one copy each; subdirectories are skipped.
void PrintDirectoryOption(const char* directory, const char* printer);
// "-o -p": the printer settings report, or "Invalid printer name".
void PrinterSettingsOption(const char* printer);
// "-a": the print library's report of the print environment.
void AnalysisOption();
// "-l": the print library's pending jobs (only with UseEnhancedSW).
void PendingJobsOption();
// "-m" (mode 1) and "-M" (mode 2): a font metric file; flags "-i01", "-i10", "-i11" or null.
void FontMetricsOption(const char* font, int mode, const char* flags);

// The number of pending jobs the print library counted at start-up ("-l").
void SetPendingJobCount(uint32_t count);

}  // namespace vx
