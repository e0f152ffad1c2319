// One settings hive in the text form of a Windows ".reg" file: reading it, looking keys and
// values up, editing them and writing the file back.
//
// What is read: the "Windows Registry Editor Version 5.00" (or "REGEDIT4") first line, keys in
// brackets, "Name"="text" with the \\ and \" escapes, @ for the unnamed value,
// "Name"=dword:0000001f, "Name"=hex:.. and hex(N):.. (also continued over several lines with a
// trailing backslash), comment lines starting with ";", LF or CRLF line ends, a UTF-8 BOM and
// UTF-16LE with its BOM. Lines that cannot be read are skipped, but kept: comments, unreadable
// lines, values of types this layer does not edit and keys of another hive are written back as
// they were. A text with a line break cannot stand in quotes: it is written as hex(1) (UTF-16LE
// with terminator, the registry's own form of a text), and hex(1) values read as text. The file
// is always written as UTF-8 without BOM, with the line ends of its first line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vx::regfile {

enum class ValueKind { kText, kDword, kHex };

struct Value {
    std::string name;  // "" for the unnamed value
    ValueKind kind = ValueKind::kText;
    std::string data;      // kText: the text (UTF-8); kHex: the bytes
    uint32_t dword = 0;    // kDword
    uint32_t hexType = 3;  // kHex: the N of hex(N): (3, binary, for plain hex:)
};

// One entry of a key's section: a value, or a line that is only carried along.
struct Entry {
    bool isValue = false;
    Value value;
    // The lines as they stood in the file; written back unchanged. Empty for a value set here.
    std::vector<std::string> raw;
};

struct Section {
    // False for a header naming another hive or a deletion ("[-...]"): kept, never looked up.
    bool inHive = false;
    std::string path;  // below the hive root, backslash-separated, in the case it was written
    std::string header;
    std::vector<Entry> entries;
};

struct Document {
    std::vector<Entry> preamble;  // comments before the first key
    std::vector<Section> sections;
    bool crlf = false;
};

// Parses file content for the hive named hiveName ("HKEY_CURRENT_USER"). Never fails: whatever
// cannot be read is carried along as described above.
void Parse(const std::string& content, const char* hiveName, Document* doc);
std::string Serialize(const Document& doc);

// A key path in the form the file uses: no leading, trailing or doubled backslashes.
std::string NormalizeKeyPath(const char* path);

// The section of a key; null when the key is not listed.
Section* FindSection(Document* doc, const std::string& path);
const Section* FindSection(const Document& doc, const std::string& path);
// True for a listed key, the hive root, and any parent of a listed key.
bool KeyExists(const Document& doc, const std::string& path);
Section* AddSection(Document* doc, const std::string& path, const char* hiveName);

const Value* FindValue(const Section& section, const char* name);
// The index-th value of the section in file order; null past the last.
const Value* ValueAt(const Section& section, size_t index);
// Sets a text value; an existing value of that name (in any case) keeps its name and place.
void SetText(Section* section, const char* name, const std::string& text);
// False when there is no value of that name.
bool RemoveValue(Section* section, const char* name);

// The value as callers see it: text as it is (also hex(1)), a dword in decimal, anything else
// as hex bytes.
std::string ValueText(const Value& value);

}  // namespace vx::regfile
