// What became of one thing vorlix-send was asked to do: the exit code a script tests, and the
// one-line reason shown on standard error when it failed.
#pragma once

#include <cstddef>

namespace vx {

// Exit codes (the --help text lists them).
enum SendExit : int {
    kExitDelivered = 0,    // the job was delivered (or the query answered)
    kExitRefused = 1,      // the server refused: an error reply, a negative acknowledgement,
                           // an extension it does not offer, a job that failed or is unknown
    kExitNetwork = 2,      // no connection, connection lost, host unknown, time-out
    kExitNotFinished = 3,  // --status: the job has no final status yet
    kExitUsage = 64,       // the command line is wrong
    kExitNoInput = 66,     // an input file could not be read
};

constexpr size_t kReasonSize = 512;

struct SendResult {
    int exitCode = kExitDelivered;
    char reason[kReasonSize] = {};
};

// Records a failure (the first one wins: later failures are consequences of it). Returns -1, so
// that a caller can write "return Fail(...)".
int Fail(SendResult* result, int exitCode, const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

}  // namespace vx
