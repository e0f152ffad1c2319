#include <cstring>
#include <thread>

#include "fuzz_connection.h"
#include "fuzz_service.h"
#include "protocol/connection_handler.h"

namespace vxfuzz {

namespace {

constexpr char kSegmentSeparator[] = "~~~~";
constexpr size_t kSeparatorLength = sizeof kSegmentSeparator - 1;
// How long the sender waits for an answer before it sends on regardless.
constexpr int kAnswerWaitMs = 50;

const uint8_t* FindSeparator(const uint8_t* from, const uint8_t* end) {
    for (const uint8_t* p = from; p + kSeparatorLength <= end; ++p)
        if (memcmp(p, kSegmentSeparator, kSeparatorLength) == 0) return p;
    return end;
}

}  // namespace

void PlayDialogue(const uint8_t* data, size_t size) {
    StartService();
    FuzzConnection connection;
    const uint8_t* end = data + size;
    const uint8_t* segmentEnd = FindSeparator(data, end);
    connection.Send(data, static_cast<size_t>(segmentEnd - data));

    int32_t state = 0;
    std::thread handler(
        [&connection, &state] { vx::ConnectionHandler(&connection.Socket(), 1, &state); });
    while (segmentEnd < end) {
        if (!connection.AwaitAnswer(kAnswerWaitMs)) break;
        const uint8_t* next = segmentEnd + kSeparatorLength;
        segmentEnd = FindSeparator(next, end);
        connection.Send(next, static_cast<size_t>(segmentEnd - next));
    }
    connection.EndSending();
    connection.DrainUntilClosed();
    handler.join();
    if (state != -1) __builtin_trap();  // the handler always ends with its socket closed
}

}  // namespace vxfuzz
