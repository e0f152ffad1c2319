// The TrueType / OpenType font files under a directory, found by walking it. Neutral code over
// the file operations, for hosts where no font service lists the installed fonts.
#pragma once

#include <cstddef>

#include "spooler/truetype_names.h"

namespace vx {

// Called once per font file (".ttf" or ".otf", any case) whose 'name' table could be read, with
// its path, its file name and its names; a nonzero return ends the walk.
using FontFileVisitor = int (*)(void* context, const char* path, const char* fileName,
                                const TrueTypeNames& names);

// Walks the directory and its subdirectories (at most eight levels below it). A directory that
// cannot be read is passed over.
void WalkFontFiles(const char* directory, FontFileVisitor visit, void* context);

// Called once per font name; a nonzero return ends the listing early.
using FontNameVisitor = int (*)(void* context, const char* name);

// Visits the family name of every font file under the directory (a family with several styles
// is visited once per file; visit may be null to count them). Returns the number of names
// visited.
int ListFontFamilies(const char* directory, FontNameVisitor visit, void* context);

}  // namespace vx
