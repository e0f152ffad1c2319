#include "spooler/font_files.h"

#include <cstring>
#include <string>
#include <vector>

#include "base/fileops.h"
#include "base/text.h"

namespace vx {

namespace {

// Font directories are shallow; the limit also ends a walk caught in a loop of links.
constexpr int kMaxDepth = 8;

bool HasFontExtension(const char* name) {
    size_t length = strlen(name);
    return length > 4 &&
           (EqualsNoCase(name + length - 4, ".ttf") || EqualsNoCase(name + length - 4, ".otf"));
}

struct Walk {
    FontFileVisitor visit;
    void* context;
    bool stopped;
};

struct Level {
    Walk* walk;
    std::string directory;
    std::vector<std::string> subdirectories;
};

int VisitEntry(void* context, const char* name) {
    Level* level = static_cast<Level*>(context);
    std::string path = level->directory + kPathSeparator + name;
    if (FsIsDirectory(path.c_str())) {
        level->subdirectories.push_back(path);
        return 0;
    }
    if (!HasFontExtension(name)) return 0;
    StreamPtr file(fopen(path.c_str(), "rb"));
    TrueTypeNames names;
    if (file == nullptr || ReadTrueTypeNames(file.get(), &names) != 0) return 0;
    Walk* walk = level->walk;
    walk->stopped = walk->visit(walk->context, path.c_str(), name, names) != 0;
    return walk->stopped ? 1 : 0;
}

void WalkDirectory(Walk* walk, const std::string& directory, int depth) {
    if (depth > kMaxDepth) return;
    Level level{walk, directory, {}};
    if (FsListDirectory(directory.c_str(), VisitEntry, &level) != 0) return;
    for (const std::string& sub : level.subdirectories) {
        if (walk->stopped) return;
        WalkDirectory(walk, sub, depth + 1);
    }
}

struct FamilyListing {
    FontNameVisitor visit;
    void* context;
    int visited;
};

int VisitFamily(void* context, const char*, const char*, const TrueTypeNames& names) {
    auto* listing = static_cast<FamilyListing*>(context);
    // A font without a family name has a full name: ReadTrueTypeNames takes no font with neither.
    const char* name = names.family[0] != '\0' ? names.family : names.fullName;
    ++listing->visited;
    return listing->visit != nullptr ? listing->visit(listing->context, name) : 0;
}

}  // namespace

void WalkFontFiles(const char* directory, FontFileVisitor visit, void* context) {
    if (directory == nullptr || directory[0] == '\0' || visit == nullptr) return;
    Walk walk{visit, context, false};
    WalkDirectory(&walk, directory, 0);
}

int ListFontFamilies(const char* directory, FontNameVisitor visit, void* context) {
    FamilyListing listing{visit, context, 0};
    WalkFontFiles(directory, VisitFamily, &listing);
    return listing.visited;
}

}  // namespace vx
