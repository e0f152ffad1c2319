// The senders allowed to send over a secured session: their names as the security product tells
// them (the peer's identity), read from the settings "NumAuth" and "Auth1".."Auth<NumAuth>" at
// start. The list is written only at start and at the end, so reading it takes no lock.
#pragma once

#include <cstddef>

namespace vx {

constexpr size_t kSenderNameSize = 512;

// One sender of the list; new ones are put at the head.
struct AuthorizedSender {
    AuthorizedSender* next;
    char* name;
};

// The head of the list (null when it is empty).
const AuthorizedSender* AuthorizedSenders();

// Exact, case-sensitive comparison with every entry.
bool IsAuthorizedSender(const char* name);
// False when the entry could not be allocated.
bool AddAuthorizedSender(const char* name);
// Removes the first entry of exactly that name; false when there is none.
bool DeleteAuthorizedSender(const char* name);
void ClearAuthorizedSenders();
// Reads the list from the settings, and the switch "conn_aa" that turns the validation off.
void LoadAuthorizedSenders();

// "conn_aa": non-zero when senders are not validated.
bool SenderValidationOff();

// The last sender that made a secured session without being in the list ("" when none).
void SetLastUnauthorizedSender(const char* name);
void GetLastUnauthorizedSender(char* out, size_t cap);

}  // namespace vx
