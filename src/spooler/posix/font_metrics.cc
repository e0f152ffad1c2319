// Installed fonts on Linux: the font files under the usual font directories are searched by the
// names in their 'name' tables. No font service (fontconfig) is assumed.
#include "spooler/font_metrics.h"

#include <strings.h>

#include <cstring>
#include <string>

#include "base/fileops.h"
#include "base/text.h"
#include "spooler/font_files.h"
#include "spooler/posix/font_directories.h"
#include "spooler/truetype_names.h"

namespace vx {

namespace {

struct Search {
    const char* name;
    bool bold;
    bool italic;
    int bestScore = 0;
    std::string bestPath;
};

bool ContainsNoCase(const char* text, const char* part) {
    size_t n = strlen(part);
    for (; *text != '\0'; ++text) {
        if (strncasecmp(text, part, n) == 0) return true;
    }
    return false;
}

// How well a font file answers the request: 4 the family in the asked style, 3 the full or
// PostScript name, 2 the family in another style, 1 the file name only.
int Score(const Search& search, const TrueTypeNames& names, const char* fileName) {
    bool bold = ContainsNoCase(names.subfamily, "bold");
    bool italic =
        ContainsNoCase(names.subfamily, "italic") || ContainsNoCase(names.subfamily, "oblique");
    bool plainStyle =
        !bold && !italic &&
        (names.subfamily[0] == '\0' || EqualsNoCase(names.subfamily, "regular") ||
         EqualsNoCase(names.subfamily, "book") || EqualsNoCase(names.subfamily, "normal") ||
         EqualsNoCase(names.subfamily, "roman"));
    bool styleMatches =
        bold == search.bold && italic == search.italic && (bold || italic || plainStyle);
    if (EqualsNoCase(names.family, search.name)) return styleMatches ? 4 : 2;
    if (EqualsNoCase(names.fullName, search.name) || EqualsNoCase(names.postScript, search.name)) {
        return 3;
    }
    std::string stem(fileName, strlen(fileName) - 4);
    return EqualsNoCase(stem.c_str(), search.name) ? 1 : 0;
}

int Consider(void* context, const char* path, const char* fileName, const TrueTypeNames& names) {
    Search* search = static_cast<Search*>(context);
    int score = Score(*search, names, fileName);
    // Directory order is arbitrary: among equal matches the smallest path wins, every time.
    if (score > search->bestScore ||
        (score > 0 && score == search->bestScore && path < search->bestPath)) {
        search->bestScore = score;
        search->bestPath = path;
    }
    return 0;
}

}  // namespace

int GetSystemFontMetrics(const char*, bool, bool, FontMetrics*, char* error, size_t errorSize) {
    CopyText(error, errorSize, "no font service: fonts are files");
    return kNoFontService;
}

int FindInstalledFontFile(const char* fontName, bool bold, bool italic, char* path, size_t cap,
                          char* error, size_t errorSize) {
    if (path != nullptr && cap > 0) path[0] = '\0';
    Search search{fontName, bold, italic, 0, std::string()};
    for (const std::string& root : HostFontDirectories())
        WalkFontFiles(root.c_str(), Consider, &search);
    if (search.bestScore == 0) {
        FormatText(error, errorSize, "font \"%s\" not found under the font directories", fontName);
        return -1;
    }
    if (CopyText(path, cap, search.bestPath.c_str()) != search.bestPath.size()) {
        FormatText(error, errorSize, "font file path too long: %s", search.bestPath.c_str());
        return -1;
    }
    return 0;
}

}  // namespace vx
