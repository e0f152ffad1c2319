#include "snc/profile.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/text.h"
#include "snc/trace.h"

namespace vx::snc {

namespace {

constexpr const char* kSection = "vorlixsnc";
constexpr size_t kLineSize = 1024;

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
using FileHandle = std::unique_ptr<FILE, FileCloser>;

bool IsAbsolutePath(const char* path) {
    if (IsPathSeparator(path[0])) return true;
    // A drive letter ("C:\...") on Windows.
    return kPathSeparator == '\\' && isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':';
}

// The path a profile value names: as it stands when absolute, else below the base directory.
// false when the result does not fit (a cut path could name another file).
bool ResolvePath(const char* baseDirectory, const char* value, char* out) {
    if (IsAbsolutePath(value) || baseDirectory[0] == '\0')
        return strlen(value) < kMaxPath && CopyText(out, kMaxPath, value) == strlen(value);
    size_t base = strlen(baseDirectory);
    bool endsWithSeparator = IsPathSeparator(baseDirectory[base - 1]);
    size_t needed = base + (endsWithSeparator ? 0 : 1) + strlen(value);
    if (needed >= kMaxPath) return false;
    CopyText(out, kMaxPath, baseDirectory);
    if (!endsWithSeparator) {
        const char separator[] = {kPathSeparator, '\0'};
        AppendText(out, kMaxPath, separator);
    }
    AppendText(out, kMaxPath, value);
    return true;
}

// Cuts blanks at both ends; returns the first character kept.
char* Trim(char* text) {
    while (*text == ' ' || *text == '\t') ++text;
    TrimTrailing(text, " \t\r\n");
    return text;
}

// Reads one line into line (cut to its size); the rest of a longer line is skipped.
bool ReadLine(FILE* file, char* line, size_t size) {
    if (fgets(line, static_cast<int>(size), file) == nullptr) return false;
    if (strchr(line, '\n') == nullptr && !feof(file)) {
        int c;
        while ((c = fgetc(file)) != EOF && c != '\n') {
        }
    }
    return true;
}

}  // namespace

int ReadProfile(const char* baseDirectory, const char* profileName, Profile* profile) {
    *profile = Profile{};
    if (baseDirectory == nullptr) baseDirectory = "";
    if (!ResolvePath(baseDirectory, profileName, profile->file)) {
        TraceLine("profile name %s in %s is too long", profileName, baseDirectory);
        return -1;
    }
    FileHandle file(fopen(profile->file, "r"));
    if (!file) {
        TraceLine("profile %s cannot be read: no certificates, sessions cannot be secured",
                  profile->file);
        return -1;
    }

    char values[3][kMaxPath] = {};
    bool present[3] = {};
    const char* const keys[3] = {"certificate", "key", "ca"};
    constexpr int kKeyIndex = 1;
    bool inSection = false;
    bool sectionSeen = false;
    char buffer[kLineSize];
    while (ReadLine(file.get(), buffer, sizeof buffer)) {
        char* line = Trim(buffer);
        if (line[0] == ';' || line[0] == '#' || line[0] == '\0') continue;
        if (line[0] == '[') {
            char* end = strchr(line, ']');
            if (end != nullptr) *end = '\0';
            inSection = EqualsNoCase(Trim(line + 1), kSection);
            sectionSeen = sectionSeen || inSection;
            continue;
        }
        char* equals = strchr(line, '=');
        if (!inSection || equals == nullptr) continue;
        *equals = '\0';
        const char* name = Trim(line);
        const char* value = Trim(equals + 1);
        for (int i = 0; i < 3; ++i)
            if (EqualsNoCase(name, keys[i])) {
                CopyText(values[i], value);
                present[i] = true;
            }
    }
    if (!sectionSeen) {
        TraceLine("profile %s has no [%s] section: no certificates, sessions cannot be secured",
                  profile->file, kSection);
        return -1;
    }
    char* const targets[3] = {profile->certificate, profile->key, profile->ca};
    CopyText(profile->keyText, values[kKeyIndex]);
    for (int i = 0; i < 3; ++i) {
        // An empty key is a choice (the key in the certificate file, a PFX without password).
        if (i == kKeyIndex && present[i] && values[i][0] == '\0') continue;
        if (values[i][0] == '\0') {
            TraceLine("profile %s: [%s] names no %s: sessions cannot be secured", profile->file,
                      kSection, keys[i]);
            return -1;
        }
        if (!ResolvePath(baseDirectory, values[i], targets[i])) {
            TraceLine("profile %s: the %s path is too long", profile->file, keys[i]);
            return -1;
        }
    }
    return 0;
}

}  // namespace vx::snc
