#include "protocol/option_query.h"

#include <cctype>
#include <cstring>

#include "printserver/trace.h"

namespace vx {

namespace {

constexpr size_t kMaxRun = 49;
constexpr size_t kMaxAnswers = 100;

bool Is(const char* code, const char* wanted) {
    return code[0] == wanted[0] && code[1] == wanted[1];
}

bool IsRunChar(char c) {
    return isalnum(static_cast<unsigned char>(c)) != 0;
}

bool Offered(const char* code, OptionOffer* offer) {
    bool secured = offer->securityState > 0;
    if (Is(code, "K9")) {
        offer->securityAsked = true;
        if (offer->securityState == 0)
            Trace(kTraceNormal, "Security option currently disabled, requested feature denied.\n");
        else if (offer->securityState < 0)
            Trace(kTraceNormal, "Security not availabe, requested feature denied.\n");
        return secured;
    }
    if (Is(code, "C1")) return !offer->extensionsOff && offer->compress1;
    if (Is(code, "C2")) return !offer->extensionsOff && offer->compress2;
    if (Is(code, "K1")) return !offer->extensionsOff && offer->crypt1;
    if (Is(code, "K2") || Is(code, "RH")) return false;
    if (Is(code, "EQ") || Is(code, "XX")) return true;
    if (Is(code, "KA") || Is(code, "KS") || Is(code, "KX")) return secured;
    Trace(kTraceNormal, "Query for unknown extension: '%c%c' \n", code[0], code[1]);
    return false;
}

}  // namespace

char AnswerOptionQuery(const char* code, OptionOffer* offer) {
    if (code[0] == '\0' || code[1] == '\0') return 'N';
    bool yes = Offered(code, offer);
    Trace(kTraceNormal, "Query option '%c%c': %s\n", code[0], code[1], yes ? "OK" : "Not avaible");
    return yes ? 'Y' : 'N';
}

int AnswerMultiOptionQuery(const char* list, OptionOffer* offer, char* answers, size_t cap) {
    if (cap == 0) return -1;
    size_t count = 0;
    answers[0] = '\0';
    const char* p = list;
    while (*p != '\0') {
        if (!IsRunChar(*p)) {
            ++p;
            continue;
        }
        size_t run = 0;
        while (IsRunChar(p[run])) ++run;
        if (run > kMaxRun) {
            TraceError("CheckMultiOption protocol violation: len > buffer - aborting.\n");
            return -1;
        }
        if (run < 2) {
            TraceError("CheckMultiOption protocol violation: len < 2 - aborting.\n");
            return -1;
        }
        if (count < kMaxAnswers && count + 1 < cap) {
            char code[3] = {p[0], p[1], '\0'};
            answers[count++] = AnswerOptionQuery(code, offer);
            answers[count] = '\0';
        }
        p += run;
    }
    return 0;
}

}  // namespace vx
