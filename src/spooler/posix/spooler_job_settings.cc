// A job's device settings on Linux: CUPS takes its settings as options with each job, so the
// record carries what the service sets there, the copy count. The handed-over block is plain
// memory.
#include <cstdlib>
#include <cstring>

#include "spooler/spooler.h"

namespace vx {

namespace {

constexpr char kSettingsMark[8] = "VXJOBS1";

struct CupsJobSettings {
    char mark[8];
    int32_t copies;
};

const CupsJobSettings* Settings(const void* block, size_t size) {
    if (block == nullptr || size < sizeof(CupsJobSettings)) return nullptr;
    const auto* settings = static_cast<const CupsJobSettings*>(block);
    return memcmp(settings->mark, kSettingsMark, sizeof kSettingsMark) == 0 ? settings : nullptr;
}

}  // namespace

size_t SpoolerJobSettingsSize(const char* printer) {
    return SpoolerCanOpenPrinter(printer) ? sizeof(CupsJobSettings) : 0;
}

int SpoolerReadJobSettings(const char* printer, void* block, size_t size) {
    if (block == nullptr || size < sizeof(CupsJobSettings) || !SpoolerCanOpenPrinter(printer))
        return kSpoolerFailed;
    CupsJobSettings settings = {};
    memcpy(settings.mark, kSettingsMark, sizeof kSettingsMark);
    settings.copies = 1;  // CUPS prints one copy unless a job asks for more
    memcpy(block, &settings, sizeof settings);
    return kSpoolerOk;
}

int SpoolerSetJobCopies(void* block, size_t size, int copies) {
    if (Settings(block, size) == nullptr || copies < 1 || copies > 0x7FFF) return kSpoolerFailed;
    static_cast<CupsJobSettings*>(block)->copies = copies;
    return kSpoolerOk;
}

int SpoolerJobCopies(const void* block, size_t size) {
    const CupsJobSettings* settings = Settings(block, size);
    return settings != nullptr ? settings->copies : -1;
}

JobSettingsHandle SpoolerPublishJobSettings(const void* block, size_t size) {
    if (Settings(block, size) == nullptr) return nullptr;
    void* copy = malloc(sizeof(CupsJobSettings));
    if (copy != nullptr) memcpy(copy, block, sizeof(CupsJobSettings));
    return copy;
}

void SpoolerReleaseJobSettings(JobSettingsHandle handle) {
    free(handle);
}

int SpoolerPublishedJobCopies(JobSettingsHandle handle) {
    return SpoolerJobCopies(handle, sizeof(CupsJobSettings));
}

}  // namespace vx
