// Text arguments of the extended protocol's commands, and the options a sender puts in front of a
// job's title.
#pragma once

#include <cstddef>

#include "base/fileops.h"

namespace vx {

// A free text (owner, division, receiver, title, job identifier, fax number): leading characters
// up to the blank are skipped, other control characters become blanks unless keepControl is set,
// the copy stops at width characters (and at cap - 1), and trailing blanks and line feeds are
// removed. It never fails; the result may be empty.
void CopyFreeText(char* out, size_t cap, size_t width, const char* arg, bool keepControl);

// A name (printer, data type, DT field): leading blanks and trailing blanks, line feeds and
// carriage returns are removed, the rest is copied up to width characters (and cap - 1). False
// when nothing is left.
bool CopyNameText(char* out, size_t cap, size_t width, const char* arg);

// The options in front of a title: "OPT:NO_PAPER", "OPT:SUM" and "OPT:FILE:name", each after an
// "OPT:" of its own and followed by blanks or commas.
struct TitleOptions {
    bool noPaper = false;
    bool sum = false;
    bool file = false;
    char fileName[kMaxPath] = {};
};

// Takes the options from the front of title (at least 5 characters beginning with "OPT:") into
// *options and leaves the rest of the title in place. An unknown option is an "Error: " line and
// is skipped up to the next blank.
void TakeTitleOptions(char* title, TitleOptions* options);

}  // namespace vx
