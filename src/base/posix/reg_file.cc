#include "base/posix/reg_file.h"

#include <cstring>

#include "base/reg_text.h"
#include "base/text.h"

namespace vx::regfile {

namespace {

constexpr char kHeaderLine[] = "Windows Registry Editor Version 5.00";
constexpr uint32_t kReplacementChar = 0xFFFD;

char LowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualsNoCaseN(const char* a, const char* b, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (LowerAscii(a[i]) != LowerAscii(b[i])) return false;
    return true;
}

bool StartsWithNoCase(const std::string& text, size_t pos, const char* prefix) {
    size_t n = strlen(prefix);
    return pos <= text.size() && text.size() - pos >= n &&
           EqualsNoCaseN(text.c_str() + pos, prefix, n);
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = LowerAscii(c);
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

void SkipBlanks(const std::string& s, size_t* pos) {
    while (*pos < s.size() && IsBlank(s[*pos])) ++*pos;
}

std::string Trim(const std::string& s) {
    size_t begin = 0;
    size_t end = s.size();
    while (begin < end && IsBlank(s[begin])) ++begin;
    while (end > begin && IsBlank(s[end - 1])) --end;
    return s.substr(begin, end - begin);
}

// --- Text encodings ---------------------------------------------------------------------------

void AppendUtf8(uint32_t cp, std::string* out) {
    if (cp < 0x80) {
        out->push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// UTF-16LE units (len bytes) to UTF-8; unpaired surrogates become U+FFFD. Stops at a zero unit
// when stopAtZero (a stored text's terminator).
std::string Utf16LeToUtf8(const uint8_t* p, size_t len, bool stopAtZero) {
    std::string out;
    size_t units = len / 2;
    for (size_t i = 0; i < units; ++i) {
        uint32_t u = p[2 * i] | (p[2 * i + 1] << 8);
        if (u == 0 && stopAtZero) break;
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < units) {
            uint32_t low = p[2 * i + 2] | (p[2 * i + 3] << 8);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                AppendUtf8(0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00), &out);
                ++i;
                continue;
            }
        }
        AppendUtf8((u >= 0xD800 && u <= 0xDFFF) ? kReplacementChar : u, &out);
    }
    return out;
}

// UTF-8 to UTF-16LE bytes with a terminating zero unit, as a stored text. A byte that does not
// start a valid sequence stands for itself (Latin-1), so that no text is refused.
std::string Utf8ToUtf16Le(const std::string& text) {
    std::string out;
    auto put = [&out](uint32_t unit) {
        out.push_back(static_cast<char>(unit & 0xFF));
        out.push_back(static_cast<char>(unit >> 8));
    };
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    size_t n = text.size();
    for (size_t i = 0; i < n;) {
        uint32_t cp = s[i];
        size_t extra = cp >= 0xF5 ? 0 : cp >= 0xF0 ? 3 : cp >= 0xE0 ? 2 : cp >= 0xC2 ? 1 : 0;
        bool valid = extra > 0 && i + extra < n;
        for (size_t k = 1; valid && k <= extra; ++k) valid = (s[i + k] & 0xC0) == 0x80;
        if (valid) {
            cp &= 0xFFu >> (extra + 2);
            for (size_t k = 1; k <= extra; ++k) cp = (cp << 6) | (s[i + k] & 0x3F);
            if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = kReplacementChar;
            i += extra + 1;
        } else {
            ++i;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            put(0xD800 + (cp >> 10));
            put(0xDC00 + (cp & 0x3FF));
        } else {
            put(cp);
        }
    }
    put(0);
    return out;
}

// File bytes to UTF-8 text: a UTF-16LE file (with its BOM) is converted, a UTF-8 BOM dropped.
std::string DecodeFile(const std::string& content) {
    const auto* p = reinterpret_cast<const uint8_t*>(content.data());
    if (content.size() >= 2 && p[0] == 0xFF && p[1] == 0xFE)
        return Utf16LeToUtf8(p + 2, content.size() - 2, false);
    if (content.size() >= 3 && p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF)
        return content.substr(3);
    return content;
}

// --- Reading lines ----------------------------------------------------------------------------

// A quoted string starting at *pos (on the opening quote); \\ and \" are the escapes, any other
// backslash stands for itself. False when the closing quote is missing.
bool ReadQuoted(const std::string& line, size_t* pos, std::string* out) {
    size_t i = *pos + 1;
    out->clear();
    while (i < line.size()) {
        char c = line[i];
        if (c == '"') {
            *pos = i + 1;
            return true;
        }
        if (c == '\\' && i + 1 < line.size() && (line[i + 1] == '\\' || line[i + 1] == '"')) {
            out->push_back(line[i + 1]);
            i += 2;
            continue;
        }
        out->push_back(c);
        ++i;
    }
    return false;
}

// The name part of a value line: @ or a quoted name; *pos ends after the '='.
bool ReadValueName(const std::string& line, size_t* pos, std::string* name) {
    SkipBlanks(line, pos);
    if (*pos < line.size() && line[*pos] == '@') {
        name->clear();
        ++*pos;
    } else if (*pos >= line.size() || line[*pos] != '"' || !ReadQuoted(line, pos, name)) {
        return false;
    }
    SkipBlanks(line, pos);
    if (*pos >= line.size() || line[*pos] != '=') return false;
    ++*pos;
    SkipBlanks(line, pos);
    return true;
}

bool ReadHexBytes(const std::string& text, size_t pos, std::string* bytes) {
    bytes->clear();
    while (true) {
        SkipBlanks(text, &pos);
        if (pos >= text.size()) return true;
        int hi = HexDigit(text[pos]);
        if (hi < 0) return false;
        int value = hi;
        ++pos;
        if (pos < text.size() && HexDigit(text[pos]) >= 0)
            value = value * 16 + HexDigit(text[pos++]);
        bytes->push_back(static_cast<char>(value));
        SkipBlanks(text, &pos);
        if (pos >= text.size()) return true;
        if (text[pos] != ',') return false;
        ++pos;
    }
}

// The data part of a value line (from pos on).
bool ReadValueData(const std::string& line, size_t pos, Value* value) {
    if (pos < line.size() && line[pos] == '"') {
        value->kind = ValueKind::kText;
        return ReadQuoted(line, &pos, &value->data);
    }
    if (StartsWithNoCase(line, pos, "dword:")) {
        pos += 6;
        std::string digits = Trim(line.substr(pos));
        if (digits.empty() || digits.size() > 8) return false;
        uint32_t v = 0;
        for (char c : digits) {
            int d = HexDigit(c);
            if (d < 0) return false;
            v = v * 16 + static_cast<uint32_t>(d);
        }
        value->kind = ValueKind::kDword;
        value->dword = v;
        return true;
    }
    if (StartsWithNoCase(line, pos, "hex")) {
        pos += 3;
        uint32_t type = 3;
        if (pos < line.size() && line[pos] == '(') {
            size_t close = line.find(')', pos);
            if (close == std::string::npos || close == pos + 1 || close - pos > 9) return false;
            type = 0;
            for (size_t i = pos + 1; i < close; ++i) {
                int d = HexDigit(line[i]);
                if (d < 0) return false;
                type = type * 16 + static_cast<uint32_t>(d);
            }
            pos = close + 1;
        }
        if (pos >= line.size() || line[pos] != ':') return false;
        value->kind = ValueKind::kHex;
        value->hexType = type;
        return ReadHexBytes(line, pos + 1, &value->data);
    }
    return false;
}

// "[HKEY_CURRENT_USER\Software\Zel]": fills the section's hive flag and path.
bool ReadHeader(const std::string& line, const char* hiveName, Section* section) {
    size_t close = line.rfind(']');
    if (line.empty() || line[0] != '[' || close == std::string::npos) return false;
    std::string inside = line.substr(1, close - 1);
    size_t root = inside.find('\\');
    std::string rootName = inside.substr(0, root);
    section->header = line;
    section->inHive = EqualsNoCase(rootName.c_str(), hiveName);
    section->path = root == std::string::npos ? "" : NormalizeKeyPath(inside.c_str() + root + 1);
    return true;
}

// The lines without their line ends; crlf tells whether the first line ends in CRLF.
std::vector<std::string> SplitLines(const std::string& text, bool* crlf) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        size_t stop = end;
        if (stop > start && text[stop - 1] == '\r') {
            --stop;
            if (lines.empty()) *crlf = true;
        }
        lines.push_back(text.substr(start, stop - start));
        start = end + 1;
    }
    return lines;
}

bool SameName(const std::string& a, const char* b) {
    return EqualsNoCase(a.c_str(), b ? b : "");
}

Entry* FindValueEntry(std::vector<Entry>& entries, const char* name) {
    for (Entry& e : entries)
        if (e.isValue && SameName(e.value.name, name)) return &e;
    return nullptr;
}

// --- Writing ----------------------------------------------------------------------------------

void AppendQuoted(const std::string& text, std::string* out) {
    out->push_back('"');
    for (char c : text) {
        if (c == '\\' || c == '"') out->push_back('\\');
        out->push_back(c);
    }
    out->push_back('"');
}

std::string FormatValue(const Value& v) {
    std::string line;
    if (v.name.empty())
        line = "@";
    else
        AppendQuoted(v.name, &line);
    line.push_back('=');
    char prefix[24];
    switch (v.kind) {
        case ValueKind::kText:
            AppendQuoted(v.data, &line);
            break;
        case ValueKind::kDword:
            FormatText(prefix, sizeof prefix, "dword:%08x", static_cast<unsigned>(v.dword));
            line += prefix;
            break;
        case ValueKind::kHex:
            if (v.hexType == 3)
                CopyText(prefix, "hex:");
            else
                FormatText(prefix, sizeof prefix, "hex(%x):", static_cast<unsigned>(v.hexType));
            line += prefix;
            RegAppendHexText(reinterpret_cast<const uint8_t*>(v.data.data()), v.data.size(), &line);
            break;
    }
    return line;
}

// A line as it was read. One that kept a carriage return of its own stood before a CR LF: the
// reader takes one CR off every line, so only a CR LF brings it back as it was.
void AppendLine(const std::string& line, const char* eol, std::string* out) {
    *out += line;
    *out += !line.empty() && line.back() == '\r' ? "\r\n" : eol;
}

void AppendEntry(const Entry& e, const char* eol, std::string* out) {
    if (!e.raw.empty()) {
        for (const std::string& line : e.raw) AppendLine(line, eol, out);
        // Lines that end in a backslash but were not continued stood before a blank line, which
        // ended them: without it the next line would be read as their continuation.
        std::string last = Trim(e.raw.back());
        if (!last.empty() && last.back() == '\\') *out += eol;
    } else if (e.isValue) {
        *out += FormatValue(e.value) + eol;
    }
}

}  // namespace

// --- Public -----------------------------------------------------------------------------------

std::string NormalizeKeyPath(const char* path) {
    std::string out;
    if (path == nullptr) return out;
    for (const char* p = path; *p != '\0'; ++p) {
        if (*p == '\\' && (out.empty() || out.back() == '\\')) continue;
        out.push_back(*p);
    }
    while (!out.empty() && out.back() == '\\') out.pop_back();
    return out;
}

void Parse(const std::string& content, const char* hiveName, Document* doc) {
    *doc = Document();
    std::vector<std::string> lines = SplitLines(DecodeFile(content), &doc->crlf);
    bool seenFirst = false;
    // Where entries go: the preamble (-1) or a section, which may be one only carried along.
    long target = -1;
    auto entries = [doc, &target]() -> std::vector<Entry>& {
        return target < 0 ? doc->preamble : doc->sections[static_cast<size_t>(target)].entries;
    };
    for (size_t i = 0; i < lines.size(); ++i) {
        std::string line = Trim(lines[i]);
        if (line.empty()) continue;
        if (!seenFirst) {
            seenFirst = true;
            if (line == kHeaderLine || line == "REGEDIT4") continue;
        }
        Section header;
        if (line[0] == '[' && ReadHeader(line, hiveName, &header)) {
            // A key listed twice: its values go together, as an import would put them.
            Section* known = header.inHive ? FindSection(doc, header.path) : nullptr;
            if (known == nullptr) {
                doc->sections.push_back(header);
                known = &doc->sections.back();
            }
            target = known - doc->sections.data();
            continue;
        }
        Entry entry;
        entry.raw.push_back(lines[i]);
        size_t pos = 0;
        std::string name;
        bool isValueLine = line[0] != ';' && ReadValueName(line, &pos, &name);
        if (isValueLine && StartsWithNoCase(line, pos, "hex")) {
            // hex data may go on over following lines, each ending in a backslash but the last;
            // a blank line ends it in any case.
            while (line.back() == '\\' && i + 1 < lines.size() && !Trim(lines[i + 1]).empty()) {
                line.pop_back();
                line += Trim(lines[++i]);
                entry.raw.push_back(lines[i]);
            }
        }
        if (isValueLine && target >= 0 && doc->sections[static_cast<size_t>(target)].inHive) {
            entry.value.name = name;
            entry.isValue = ReadValueData(line, pos, &entry.value);
        }
        Entry* earlier = entry.isValue ? FindValueEntry(entries(), name.c_str()) : nullptr;
        if (earlier != nullptr) {
            // The same name twice: the later line holds, in the earlier one's place and name.
            entry.value.name = earlier->value.name;
            *earlier = entry;
        } else {
            entries().push_back(entry);
        }
    }
}

std::string Serialize(const Document& doc) {
    const char* eol = doc.crlf ? "\r\n" : "\n";
    std::string out = std::string(kHeaderLine) + eol + eol;
    for (const Entry& e : doc.preamble) AppendEntry(e, eol, &out);
    if (!doc.preamble.empty()) out += eol;
    for (const Section& s : doc.sections) {
        AppendLine(s.header, eol, &out);
        for (const Entry& e : s.entries) AppendEntry(e, eol, &out);
        out += eol;
    }
    return out;
}

Section* FindSection(Document* doc, const std::string& path) {
    for (Section& s : doc->sections)
        if (s.inHive && EqualsNoCase(s.path.c_str(), path.c_str())) return &s;
    return nullptr;
}

const Section* FindSection(const Document& doc, const std::string& path) {
    return FindSection(const_cast<Document*>(&doc), path);
}

bool KeyExists(const Document& doc, const std::string& path) {
    if (path.empty()) return true;
    for (const Section& s : doc.sections) {
        if (!s.inHive || s.path.size() < path.size()) continue;
        if (!EqualsNoCaseN(s.path.c_str(), path.c_str(), path.size())) continue;
        if (s.path.size() == path.size() || s.path[path.size()] == '\\') return true;
    }
    return false;
}

Section* AddSection(Document* doc, const std::string& path, const char* hiveName) {
    Section section;
    section.inHive = true;
    section.path = path;
    // A key that is already there as the parent of a listed key keeps the case it has there.
    for (const Section& s : doc->sections) {
        if (s.inHive && s.path.size() > path.size() && s.path[path.size()] == '\\' &&
            EqualsNoCaseN(s.path.c_str(), path.c_str(), path.size())) {
            section.path = s.path.substr(0, path.size());
            break;
        }
    }
    section.header = std::string("[") + hiveName + (path.empty() ? "" : "\\") + section.path + "]";
    doc->sections.push_back(section);
    return &doc->sections.back();
}

const Value* FindValue(const Section& section, const char* name) {
    Entry* e = FindValueEntry(const_cast<Section&>(section).entries, name);
    return e == nullptr ? nullptr : &e->value;
}

const Value* ValueAt(const Section& section, size_t index) {
    for (const Entry& e : section.entries) {
        if (!e.isValue) continue;
        if (index == 0) return &e.value;
        --index;
    }
    return nullptr;
}

void SetText(Section* section, const char* name, const std::string& text) {
    Entry* e = FindValueEntry(section->entries, name);
    if (e == nullptr) {
        section->entries.emplace_back();
        e = &section->entries.back();
        e->isValue = true;
        e->value.name = name ? name : "";
    }
    e->raw.clear();
    if (text.find_first_of("\r\n") != std::string::npos) {
        // A line break cannot stand inside a quoted .reg string: such a text is stored the way
        // the registry holds it, UTF-16LE with its terminator, as hex(1).
        e->value.kind = ValueKind::kHex;
        e->value.hexType = 1;
        e->value.data = Utf8ToUtf16Le(text);
    } else {
        e->value.kind = ValueKind::kText;
        e->value.data = text;
    }
}

bool RemoveValue(Section* section, const char* name) {
    for (auto it = section->entries.begin(); it != section->entries.end(); ++it) {
        if (it->isValue && SameName(it->value.name, name)) {
            section->entries.erase(it);
            return true;
        }
    }
    return false;
}

std::string ValueText(const Value& value) {
    std::string text;
    switch (value.kind) {
        case ValueKind::kText:
            return value.data;
        case ValueKind::kDword: {
            char number[16];
            FormatText(number, sizeof number, "%u", static_cast<unsigned>(value.dword));
            return number;
        }
        case ValueKind::kHex:
            if (value.hexType == 1) {
                return Utf16LeToUtf8(reinterpret_cast<const uint8_t*>(value.data.data()),
                                     value.data.size(), true);
            }
            RegAppendHexText(reinterpret_cast<const uint8_t*>(value.data.data()), value.data.size(),
                             &text);
            return text;
    }
    return text;
}

}  // namespace vx::regfile
