#include "jobs/temp_names.h"

#include <cctype>
#include <cstring>

#include "base/text.h"

namespace vx {

namespace {

// Extensions of the service's own files: anywhere in the name for those that get time-stamped
// copies ("vorlix.dbg.20261123_101500"), at the end for the others.
constexpr const char* kOwnExtensions[] = {".dbd", ".dbg", ".nit", ".trc"};
constexpr const char* kOwnEndings[] = {".job", ".tmp", ".part"};

bool ContainsNoCase(const char* text, const char* part) {
    size_t n = strlen(part);
    for (const char* at = text; *at != '\0'; ++at) {
        size_t i = 0;
        while (i < n && at[i] != '\0' &&
               tolower(static_cast<unsigned char>(at[i])) == static_cast<unsigned char>(part[i]))
            ++i;
        if (i == n) return true;
    }
    return false;
}

bool EndsWithNoCase(const char* text, const char* ending) {
    size_t len = strlen(text), n = strlen(ending);
    return len >= n && EqualsNoCase(text + len - n, ending);
}

bool StartsWithNoCase(const char* text, const char* start) {
    for (; *start != '\0'; ++text, ++start)
        if (tolower(static_cast<unsigned char>(*text)) != static_cast<unsigned char>(*start))
            return false;
    return true;
}

bool IsSeparatorOrColon(char c) {
    return c == '/' || c == '\\' || c == ':';
}

}  // namespace

bool IsReservedTempName(const char* name) {
    if (name == nullptr) return false;
    if (StartsWithNoCase(name, kSparePrefix)) return true;
    for (const char* extension : kOwnExtensions)
        if (ContainsNoCase(name, extension)) return true;
    for (const char* ending : kOwnEndings)
        if (EndsWithNoCase(name, ending)) return true;
    return false;
}

void SafeTempName(const char* name, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return;
    out[0] = '\0';
    if (name == nullptr || name[0] == '\0') return;
    char safe[1024];
    size_t n = 0;
    bool leading = true;
    for (const char* c = name; *c != '\0' && n + 1 < sizeof safe; ++c) {
        bool dot = *c == '.';
        safe[n++] = IsSeparatorOrColon(*c) || (leading && dot) ? '_' : *c;
        leading = leading && dot;
    }
    safe[n] = '\0';
    // A reserved name loses its dots: a prefix or a suffix alone could still match the searches
    // for journals, restart files or trace copies.
    if (IsReservedTempName(safe))
        for (char* c = safe; *c != '\0'; ++c)
            if (*c == '.') *c = '_';
    CopyText(out, cap, safe);
}

}  // namespace vx
