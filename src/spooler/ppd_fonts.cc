#include "spooler/ppd_fonts.h"

#include <cstring>

#include "base/text.h"

namespace vx {

namespace {

// PPD lines are at most 255 characters; a longer line is cut, its quotes still counted.
constexpr size_t kPpdLineSize = 256;
constexpr const char* kFontKeyword = "*Font ";

struct PpdLine {
    char text[kPpdLineSize];
    size_t length;
    int quotes;            // quotes on the whole line
    int quotesAfterColon;  // quotes after the first colon: those of the keyword's value
    bool colonSeen;
};

// Reads one line ended by LF, CR or CR LF (all three occur in PPD files). False at the end of
// the file with nothing read.
bool ReadLine(FILE* file, PpdLine* line) {
    *line = PpdLine{};
    int c = getc(file);
    if (c == EOF) return false;
    for (; c != EOF && c != '\n' && c != '\r'; c = getc(file)) {
        if (c == '"') {
            ++line->quotes;
            if (line->colonSeen) ++line->quotesAfterColon;
        } else if (c == ':') {
            line->colonSeen = true;
        }
        if (line->length + 1 < sizeof line->text) line->text[line->length++] = static_cast<char>(c);
    }
    if (c == '\r') {
        int next = getc(file);
        if (next != '\n' && next != EOF) ungetc(next, file);
    }
    return true;
}

bool IsNameEnd(char c) {
    return c == '\0' || c == ':' || c == '/' || c == ' ' || c == '\t';
}

// The font name of a "*Font NAME: ..." line, cut to its buffer; false when the line has none.
bool FontName(const char* text, char* name, size_t cap) {
    if (!StartsWith(text, kFontKeyword)) return false;
    const char* start = text + strlen(kFontKeyword);
    while (*start == ' ' || *start == '\t') ++start;
    size_t length = 0;
    while (!IsNameEnd(start[length])) ++length;
    if (length == 0) return false;
    CopyTextN(name, cap, start, length);
    return true;
}

}  // namespace

int ReadPpdFontNames(FILE* ppd, FontNameVisitor visit, void* context) {
    if (ppd == nullptr) return -1;
    int visited = 0;
    bool inQuotedValue = false;
    PpdLine line;
    while (ReadLine(ppd, &line)) {
        if (inQuotedValue) {
            // Every quote of a continuation line counts: the value may end and a new one begin.
            if (line.quotes % 2 != 0) inQuotedValue = false;
            continue;
        }
        // Comments may hold unbalanced quotes; they open no value.
        if (StartsWith(line.text, "*%")) continue;
        if (line.quotesAfterColon % 2 != 0) inQuotedValue = true;
        char name[kPpdLineSize];
        if (!FontName(line.text, name, sizeof name)) continue;
        ++visited;
        if (visit != nullptr && visit(context, name) != 0) break;
    }
    return visited;
}

}  // namespace vx
