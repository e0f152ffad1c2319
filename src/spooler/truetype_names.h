// Reading TrueType / OpenType font files (the sfnt container): the table directory, tables by
// tag, and the names of the 'name' table. Neutral code over stdio, so that fonts are found the
// same way wherever there is no system font service to ask.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace vx {

using SfntBytes = std::vector<uint8_t>;

// Big-endian reads that give 0 beyond the end: a damaged table yields zeros, never a crash.
uint16_t SfntU16(const SfntBytes& bytes, size_t at);
int16_t SfntS16(const SfntBytes& bytes, size_t at);
uint32_t SfntU32(const SfntBytes& bytes, size_t at);

struct SfntTable {
    char tag[5];
    uint32_t offset;
    uint32_t length;
};

// The font's table directory; -1 when the file is no sfnt font.
int ReadSfntDirectory(FILE* file, std::vector<SfntTable>* tables);

// Reads the table with the tag; false when it is missing or too large to be a real one.
bool ReadSfntTable(FILE* file, const std::vector<SfntTable>& tables, const char* tag,
                   SfntBytes* out);

struct TrueTypeNames {
    char family[128];      // name id 1
    char subfamily[64];    // name id 2 ("Regular", "Bold Italic", ...)
    char fullName[128];    // name id 4
    char postScript[128];  // name id 6
};

// The names of a 'name' table: for each name id the Windows English record, else any Windows
// Unicode record, else a Macintosh Roman one. -1 when it has neither family nor full name.
int ParseTrueTypeNames(const SfntBytes& nameTable, TrueTypeNames* out);

// 0 and the font's names, or -1 when the file is no sfnt font or has no names.
int ReadTrueTypeNames(FILE* file, TrueTypeNames* out);

}  // namespace vx
