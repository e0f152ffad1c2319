// The names and descriptions of the library's return codes (SncErrorName, SncErrorDescription).
#pragma once

namespace vx::snc {

// The code's name ("SNC_ERR_HANDSHAKE"), or null for a code the library never returns.
const char* ErrorName(int code);
// What the code means, in one line; a fixed text for an unknown code.
const char* ErrorDescription(int code);

}  // namespace vx::snc
