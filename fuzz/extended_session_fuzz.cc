// Feeds a sender's side of an extended-protocol session to the connection handler: the opening
// "SC" is the target's own, the input is the command packets that follow, one packet per segment
// (segments separated by "~~~~", fuzz_connection.h).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_connection.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const uint8_t kOpening[] = {'S', 'C', '~', '~', '~', '~'};
    std::vector<uint8_t> dialogue(kOpening, kOpening + sizeof kOpening);
    dialogue.insert(dialogue.end(), data, data + size);
    vxfuzz::PlayDialogue(dialogue.data(), dialogue.size());
    return 0;
}
