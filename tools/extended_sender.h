// The extended protocol towards the server. A session opens with the packet "SC", which the
// server answers with its greeting "OK ZELLPD <version> <packet size> N N"; then every command is
// one packet (two letters, an argument, a line feed) written at once, and the next one waits for
// its reply: "OK[ value]" or "ER <message>". The server reads one packet per command, so two
// commands must never travel together.
//
// A job: DP printer, DO owner, AT title (job options in front, each as "OPT:<option>"), PT data
// type, DT field, then DC copies, TI tray, MD duplex, NQ, C1 / C2 and K1 as asked for, DS job
// identifier, the data blocks ("DB <length>[ <checksum>]" and the block's bytes in one packet),
// DE (answered with the identifier the server took), EX.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/job_input.h"
#include "tools/send_options.h"
#include "tools/send_result.h"

namespace vx {

// The packet size of a greeting line ("OK ZELLPD 231 15000 N N"), or 0 when it is none.
size_t GreetingPacketSize(const char* line);

// The title argument of AT: each job option as "OPT:<option> ", then the title.
void MakeTitleArgument(const SendOptions& options, const char* title, char* out, size_t cap);

// Sends one job under identifier jobId. warnings (null: none) hears of a compression the server
// does not offer, progressOut (null: none) gets the progress display of a large job. The
// identifier the server answered goes to acceptedId. 0 or -1.
int SendExtendedJob(const SendOptions& options, const char* jobId, JobInput& input, FILE* warnings,
                    FILE* progressOut, char* acceptedId, size_t cap, SendResult* result);

struct InstalledPrinter {
    std::string name;
    std::string location;  // empty when the server has none
    std::string driver;
};

// The server's installed printers (QP). 0 or -1.
int ListInstalledPrinters(const SendOptions& options, std::vector<InstalledPrinter>* printers,
                          SendResult* result);

// A query in a session of its own: the value of the server's "OK" answer to command, e.g. "YN"
// for "OM C1,K1" or "N" for "EQ FX". 0 or -1.
int AskServer(const SendOptions& options, const char* command, std::string* answer,
              SendResult* result);

}  // namespace vx
