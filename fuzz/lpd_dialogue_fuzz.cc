// Feeds a sender's whole side of one LPD connection to the connection handler: the command line
// that the dispatch reads first, then, for a receive-job command, the subcommand lines and the
// file contents of the dialogue, in segments separated by "~~~~" (fuzz_connection.h).
#include <cstddef>
#include <cstdint>

#include "fuzz_connection.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vxfuzz::PlayDialogue(data, size);
    return 0;
}
