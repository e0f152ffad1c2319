// Feeds a sender's whole side of one LPD connection to the connection handler: the command line
// that the dispatch reads first, then, for a receive-job command, the subcommand lines and the
// file contents of the dialogue. The input is the sender's bytes in segments separated by "~~~~";
// each segment is sent after the service has answered the previous one (or has stayed silent for
// a moment), as a sender that waits for its acknowledgements does, and the connection ends
// after the last one. Jobs for the printer "lp" are received, journaled and queued; the fake
// print library prints them without output.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <thread>

#include "fuzz_connection.h"
#include "fuzz_service.h"
#include "protocol/connection_handler.h"

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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vxfuzz::StartService();
    vxfuzz::FuzzConnection connection;
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
    return 0;
}
