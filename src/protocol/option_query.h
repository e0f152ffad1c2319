// The extended protocol's option queries: a sender asks whether the service offers a protocol
// extension (OI, one code) or several at once (OM, a list), and gets "Y" or "N" per code.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

// What the answers depend on, read once per session.
struct OptionOffer {
    int32_t securityState = 0;   // above 0: a security product is in use
    bool extensionsOff = false;  // the service offers no compression or scrambling at all
    bool compress1 = true;       // settings "compress1", "compress2", "crypt1"
    bool compress2 = true;
    bool crypt1 = true;
    bool securityAsked = false;  // set when a sender asked for K9
};

// The answer, 'Y' or 'N', to the two-letter code at code (a shorter code is 'N'); traced as
// "Query option '%c%c': OK" or "Not avaible".
char AnswerOptionQuery(const char* code, OptionOffer* offer);

// The answers to a list of codes (runs of letters and digits, separated by commas, line feeds or
// any other character), one letter per code, at most 100, NUL-terminated in answers. -1 after an
// "Error: " line when a run is shorter than 2 or 50 characters or longer: the list is not one a
// sender may send.
int AnswerMultiOptionQuery(const char* list, OptionOffer* offer, char* answers, size_t cap);

}  // namespace vx
