// The fonts a printer's PPD file names: its "*Font NAME: ..." lines, the fonts resident in the
// printer. Neutral code over stdio: a PPD is a text file, wherever it comes from.
#pragma once

#include <cstdio>

#include "spooler/font_files.h"

namespace vx {

// Visits the name of each "*Font" line in file order (a name listed twice is visited twice;
// visit may be null to count them).
// Lines inside a quoted value that spans lines are not keywords and are passed over. Returns
// the number of names visited, or -1 when there is no file.
int ReadPpdFontNames(FILE* ppd, FontNameVisitor visit, void* context);

}  // namespace vx
