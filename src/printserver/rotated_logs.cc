#include "printserver/rotated_logs.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "base/fileops.h"
#include "base/text.h"
#include "printserver/trace.h"

namespace vx {

namespace {

// "dd_MM_yyyy_hh_mm_ss": the fields as they stand in the stamp, and where each goes in the
// sortable number (a power of ten).
struct StampField {
    size_t at;
    size_t digits;
    int64_t weight;
};
constexpr StampField kStampFields[] = {
    {0, 2, 1'000'000},       // day
    {3, 2, 100'000'000},     // month
    {6, 4, 10'000'000'000},  // year
    {11, 2, 10'000},         // hour
    {14, 2, 100},            // minute
    {17, 2, 1},              // second
};
constexpr size_t kStampLength = 19;
constexpr size_t kStampSeparators[] = {2, 5, 10, 13, 16};

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool StampOrder(const char* stamp, int64_t* order) {
    if (strlen(stamp) != kStampLength) return false;
    for (size_t at : kStampSeparators)
        if (stamp[at] != '_') return false;
    int64_t value = 0;
    for (const StampField& field : kStampFields) {
        int64_t number = 0;
        for (size_t i = field.at; i < field.at + field.digits; ++i) {
            if (!IsDigit(stamp[i])) return false;
            number = number * 10 + (stamp[i] - '0');
        }
        value += number * field.weight;
    }
    *order = value;
    return true;
}

struct RotatedLog {
    int64_t order;
    std::string name;
};

struct Search {
    const char* baseName;
    std::vector<RotatedLog> found;
};

int Collect(void* context, const char* name) {
    auto* search = static_cast<Search*>(context);
    int64_t order = 0;
    if (RotatedLogOrder(name, search->baseName, &order)) search->found.push_back({order, name});
    return 0;
}

}  // namespace

bool RotatedLogOrder(const char* name, const char* baseName, int64_t* order) {
    if (name == nullptr || baseName == nullptr || baseName[0] == '\0') return false;
    size_t baseLength = strlen(baseName);
    if (strncmp(name, baseName, baseLength) != 0 || name[baseLength] != '.') return false;
    return StampOrder(name + baseLength + 1, order);
}

int PruneRotatedLogs(const char* logPath, int32_t keep) {
    if (logPath == nullptr || logPath[0] == '\0' || keep <= 0) return 0;
    const char* baseName = logPath + strlen(logPath);
    while (baseName > logPath && !IsPathSeparator(baseName[-1])) --baseName;
    char dir[kMaxPath];
    if (baseName == logPath)
        FormatText(dir, sizeof dir, ".%c", kPathSeparator);
    else
        CopyTextN(dir, sizeof dir, logPath, static_cast<size_t>(baseName - logPath));

    Search search{baseName, {}};
    if (FsListDirectory(dir, Collect, &search) != 0) return 0;
    if (search.found.size() <= static_cast<size_t>(keep)) return 0;
    std::sort(search.found.begin(), search.found.end(),
              [](const RotatedLog& a, const RotatedLog& b) { return a.order < b.order; });
    size_t surplus = search.found.size() - static_cast<size_t>(keep);
    int deleted = 0;
    for (size_t i = 0; i < surplus; ++i) {
        char path[kMaxPath];
        const std::string& name = search.found[i].name;
        // A path cut by the buffer would name another file: such a log is left alone.
        if (FormatText(path, sizeof path, "%s%s", dir, name.c_str()) != strlen(dir) + name.size())
            continue;
        if (FsRemove(path) == 0) {
            ++deleted;
            Trace(kTraceNotable, "Old trace log %s deleted.\n", path);
        }
    }
    return deleted;
}

}  // namespace vx
