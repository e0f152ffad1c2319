// The control-file analysis: owner, copy count and title of an LPD job. A job name in the sending
// system's compact form carries the spool request number, which the title shows decoded.
#include <cmath>
#include <cstring>

#include "base/text.h"
#include "printserver/repeated_trace.h"
#include "printserver/trace.h"
#include "protocol/lpd_receive.h"

namespace vx {

namespace {

constexpr size_t kJobNameLength = 50;
constexpr size_t kOwnerLength = 12;
constexpr size_t kTitleLength = 100;
// Owner and job name together from this length on: the title is the job name alone.
constexpr size_t kLongTitle = 101;
constexpr int kPartsPerRequest = 32768;

// One line of the control text without its line feed.
struct Line {
    const char* text;
    size_t length;
};

// The next complete line from *cursor; false when no line feed follows any more.
bool NextLine(const char** cursor, Line* line) {
    const char* end = strchr(*cursor, '\n');
    if (end == nullptr) return false;
    line->text = *cursor;
    line->length = static_cast<size_t>(end - *cursor);
    *cursor = end + 1;
    return true;
}

// The last occurrence of c among the first length characters, or null.
const char* LastOf(const char* text, size_t length, char c) {
    for (size_t i = length; i > 0; --i)
        if (text[i - 1] == c) return text + i - 1;
    return nullptr;
}

// Copies the value up to its first blank, at most max characters.
void CopyUpToBlank(const char* value, size_t length, char* out, size_t cap, size_t max) {
    size_t n = 0;
    while (n < length && n < max && value[n] != ' ') ++n;
    CopyTextN(out, cap, value, n);
}

// The job name of a "J" or "N" line: the value's last path component up to the first blank.
void JobNameOf(const Line& line, char* jobName, size_t cap) {
    const char* value = line.text + 1;
    size_t length = line.length - 1;
    const char* start = value;
    const char* slash = LastOf(value, length, '/');
    if (slash == nullptr) slash = LastOf(value, length, '\\');
    if (slash != nullptr) start = slash + 1;
    CopyUpToBlank(start, length - static_cast<size_t>(start - value), jobName, cap, kJobNameLength);
}

void OwnerOf(const Line& line, char* owner, size_t cap) {
    CopyUpToBlank(line.text + 1, line.length - 1, owner, cap, kOwnerLength);
}

bool IsLowerCase(char c) {
    return c >= 'a' && c <= 'z';
}
bool IsPrintFormat(char c) {
    return c == 'f' || c == 'l' || c == 'x';
}

void TraceUnknownFormat(RepeatedTrace& lines, char letter) {
    lines.Trace(kTraceNormal, "Unknown file format in control file '%c'.\n", letter);
}

// The first character of a compact job name: "S" has no value here, unlike in later places.
double LeadingDigit62(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'R') return c - 'A' + 10;
    if (c >= 'T' && c <= 'Z') return c - 'T' + 28;
    if (c >= 'a' && c <= 'z') return c - 'a' + 35;
    return 0;
}

double FollowingDigit62(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
    return static_cast<unsigned char>(c) - 61;
}

// The title for the current owner and job name.
void MakeTitle(const char* owner, const char* jobName, char* title, size_t cap) {
    size_t nameLength = strlen(jobName);
    if (nameLength == 8 && jobName[0] == 'S') {
        long long request = 0;
        for (const char* d = jobName + 2; *d >= '0' && *d <= '9'; ++d)
            request = request * 10 + (*d - '0');
        int part = (jobName[1] - 'P') * 26 + (jobName[7] - 'A');
        FormatText(title, cap, "%s/%s: Spool-ID %lld-%d", owner, jobName, request, part);
        return;
    }
    const char* dot = strrchr(jobName, '.');
    size_t stemLength = dot != nullptr ? static_cast<size_t>(dot - jobName) : nameLength;
    if (stemLength == 8) {
        double value = LeadingDigit62(jobName[0]);
        for (size_t i = 1; i < stemLength; ++i) value = value * 62 + FollowingDigit62(jobName[i]);
        double request = std::floor(value / kPartsPerRequest);
        int part = static_cast<int>(value - request * kPartsPerRequest);
        FormatText(title, cap, "%s/%s: Spool-ID %lld-%d", owner, jobName,
                   static_cast<long long>(request), part);
        return;
    }
    if (strlen(owner) + nameLength >= kLongTitle) {
        CopyTextN(title, cap, jobName, kTitleLength);
        return;
    }
    FormatText(title, cap, "%s:%s", owner, jobName);
}

}  // namespace

void AnalyseControlFile(const char* control, char* owner, size_t ownerSize, char* title,
                        size_t titleSize, int32_t* printLines, RepeatedTrace* repeats) {
    // Without a caller's count, the lines of this control file are counted on their own.
    RepeatedTrace own;
    RepeatedTrace& lines = repeats != nullptr ? *repeats : own;
    char jobName[kJobNameLength + 1] = "";
    char name[kOwnerLength + 1] = "";
    char made[kTitleLength + 1] = "";
    bool jobNameSet = false;
    int32_t count = 0;
    Line line{};

    // First pass: job name ("J", or "N" when no "J" came first), owner and the print lines.
    for (const char* cursor = control; NextLine(&cursor, &line);) {
        char letter = line.length > 0 ? line.text[0] : '\0';
        if (letter == 'J' || (letter == 'N' && !jobNameSet)) {
            JobNameOf(line, jobName, sizeof jobName);
            jobNameSet = true;
        } else if (letter == 'P') {
            OwnerOf(line, name, sizeof name);
        } else if (IsLowerCase(letter)) {
            ++count;
            if (!IsPrintFormat(letter)) TraceUnknownFormat(lines, letter);
        }
    }

    // Second pass: each print line takes the title from the owner and job name in force there.
    for (const char* cursor = control; NextLine(&cursor, &line);) {
        char letter = line.length > 0 ? line.text[0] : '\0';
        if (letter == 'J') {
            JobNameOf(line, jobName, sizeof jobName);
        } else if (letter == 'P') {
            OwnerOf(line, name, sizeof name);
        } else if (IsLowerCase(letter)) {
            if (!IsPrintFormat(letter)) TraceUnknownFormat(lines, letter);
            MakeTitle(name, jobName, made, sizeof made);
        }
    }

    CopyTextN(title, titleSize, made, kTitleLength - 1);
    CopyText(owner, ownerSize, name);
    *printLines = count;
}

int32_t CountPrintLinesNaming(const char* control, const char* dataFileName) {
    if (control == nullptr || dataFileName == nullptr) return 0;
    size_t nameLength = strlen(dataFileName);
    int32_t count = 0;
    Line line{};
    for (const char* cursor = control; NextLine(&cursor, &line);) {
        if (line.length == 0 || !IsLowerCase(line.text[0])) continue;
        if (line.length - 1 == nameLength && memcmp(line.text + 1, dataFileName, nameLength) == 0)
            ++count;
    }
    return count;
}

}  // namespace vx
