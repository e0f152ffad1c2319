#include "protocol/session_text.h"

#include <cstring>

#include "base/text.h"
#include "printserver/trace.h"

namespace vx {

namespace {

constexpr char kOptionPrefix[] = "OPT:";
constexpr size_t kOptionPrefixLength = sizeof kOptionPrefix - 1;

size_t Limit(size_t cap, size_t width) {
    return cap == 0 ? 0 : (width < cap - 1 ? width : cap - 1);
}

unsigned char Byte(char c) {
    return static_cast<unsigned char>(c);
}

// Length of the word at text: up to the next blank or the end.
size_t WordLength(const char* text) {
    const char* blank = strchr(text, ' ');
    return blank == nullptr ? strlen(text) : static_cast<size_t>(blank - text);
}

}  // namespace

void CopyFreeText(char* out, size_t cap, size_t width, const char* arg, bool keepControl) {
    if (cap == 0) return;
    size_t limit = Limit(cap, width);
    while (*arg != '\0' && Byte(*arg) < 33) ++arg;
    size_t n = 0;
    for (; n < limit && arg[n] != '\0'; ++n)
        out[n] = !keepControl && Byte(arg[n]) < 32 ? ' ' : arg[n];
    out[n] = '\0';
    TrimTrailing(out, " \n");
}

bool CopyNameText(char* out, size_t cap, size_t width, const char* arg) {
    if (cap == 0) return false;
    while (*arg == ' ') ++arg;
    size_t length = strlen(arg);
    while (length > 0 && strchr(" \n\r", arg[length - 1]) != nullptr) --length;
    size_t limit = Limit(cap, width);
    CopyTextN(out, cap, arg, length < limit ? length : limit);
    return out[0] != '\0';
}

void TakeTitleOptions(char* title, TitleOptions* options) {
    const char* p = title;
    while (strncmp(p, kOptionPrefix, kOptionPrefixLength) == 0) {
        p += kOptionPrefixLength;
        size_t word = WordLength(p);
        if (strncmp(p, "NO_PAPER", 8) == 0) {
            options->noPaper = true;
            p += 8;
        } else if (strncmp(p, "SUM", 3) == 0) {
            options->sum = true;
            p += 3;
        } else if (strncmp(p, "FILE:", 5) == 0) {
            options->file = true;
            p += 5;
            size_t name = WordLength(p);
            CopyTextN(options->fileName, sizeof options->fileName, p, name);
            p += name;
        } else {
            char unknown[104];
            CopyTextN(unknown, sizeof unknown, p, word);
            TraceError("Unknown Option: '%s'\n", unknown);
            p += word;
        }
        while (*p == ' ' || *p == ',') ++p;
    }
    memmove(title, p, strlen(p) + 1);
}

}  // namespace vx
