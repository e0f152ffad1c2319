#include <openssl/err.h>

#include "snc/posix/openssl_tls.h"
#include "snc/trace.h"

namespace vx::snc {

namespace {

// One queue entry as a line: OpenSSL's text plus the detail it attached, if any.
bool NextErrorText(char* out, size_t cap) {
    const char* data = nullptr;
    int flags = 0;
    unsigned long code = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags);
    if (code == 0) return false;
    ERR_error_string_n(code, out, cap);
    if ((flags & ERR_TXT_STRING) != 0 && data != nullptr && data[0] != '\0')
        AppendFormat(out, cap, " (%s)", data);
    return true;
}

}  // namespace

void TakeErrorQueue(ErrorLines* errors) {
    char text[SNC_ERROR_LINE_MAX];
    while (NextErrorText(text, sizeof text)) AddErrorLine(errors, "%s", text);
}

void TraceErrorQueue(const char* prefix) {
    char text[SNC_ERROR_LINE_MAX];
    while (NextErrorText(text, sizeof text)) TraceLine("%s%s", prefix, text);
}

}  // namespace vx::snc
