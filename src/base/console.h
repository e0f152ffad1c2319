// The standard streams of a command-line program: whether one is a terminal (a progress display
// only makes sense there), and binary standard input (job data read from a pipe must arrive as
// sent: no line-end translation, no end-of-file byte).
#pragma once

namespace vx {

enum StdStream { kStdIn = 0, kStdOut = 1, kStdErr = 2 };

// True when the stream is a terminal (a console on Windows).
bool StdStreamIsTerminal(StdStream stream);

// Switches standard input to binary reads; 0 or -1.
int SetStdInBinary();

}  // namespace vx
