// The last system error is GetLastError(); its text comes from the system's message table.
#include "base/syserror.h"

#include <windows.h>

#include <cstring>

#include "base/text.h"

namespace vx {

namespace {

// Frees the text that FormatMessageA allocated.
class LocalText {
  public:
    LocalText() = default;
    ~LocalText() {
        if (text_ != nullptr) LocalFree(text_);
    }
    LocalText(const LocalText&) = delete;
    LocalText& operator=(const LocalText&) = delete;
    char** Receive() { return &text_; }
    const char* Get() const { return text_; }

  private:
    char* text_ = nullptr;
};

}  // namespace

uint32_t LastSystemError() {
    return GetLastError();
}

void SetLastSystemError(uint32_t code) {
    SetLastError(code);
}

int SystemErrorText(uint32_t code, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return -1;
    DWORD saved = GetLastError();
    LocalText message;
    // With ALLOCATE_BUFFER the "buffer" argument receives a pointer to the system's text.
    DWORD len = FormatMessageA(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
        reinterpret_cast<char*>(message.Receive()), 0, nullptr);
    SetLastError(saved);
    if (len == 0 || message.Get() == nullptr) {
        FormatText(out, cap, "Unknown error %lu", static_cast<unsigned long>(code));
        return -1;
    }
    CopyText(out, cap, message.Get());
    TrimLineEnd(out);
    return 0;
}

}  // namespace vx
