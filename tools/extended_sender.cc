#include "tools/extended_sender.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "base/text.h"
#include "tools/block_encoder.h"
#include "tools/progress_bar.h"
#include "tools/send_connection.h"

namespace vx {

namespace {

// The largest packet this sender makes: the server reads up to 30022 bytes per packet.
constexpr size_t kMaxPacketSize = 30000;
constexpr size_t kDbHeaderSize = 32;
// How long the answer to QP may take after the list.
constexpr int kQpAnswerWaitMs = 2000;
// More installed printers than this is not a list but a broken answer.
constexpr long kMaxPrinters = 100000;

unsigned long long Ull(size_t n) {
    return static_cast<unsigned long long>(n);
}

const char* PrefixAfter(const char* text, const char* prefix) {
    return StartsWith(text, prefix) ? text + strlen(prefix) : nullptr;
}

// One session with the server; it ends (the connection closes) with the record.
struct Session {
    SendConnection connection;
    size_t packetSize = 0;
};

// Reads the reply to a command; an "OK" reply's value (may be empty) goes to value.
int AwaitReply(Session* session, const char* command, char* value, size_t cap, SendResult* result) {
    char line[512];
    if (session->connection.ReadUntil('\n', line, sizeof line, result) != 0) return -1;
    if (const char* message = PrefixAfter(line, "ER "))
        return Fail(result, kExitRefused, "the server refused %.2s: %s", command, message);
    if (!StartsWith(line, "OK"))
        return Fail(result, kExitRefused, "unexpected reply to %.2s: %.200s", command, line);
    const char* rest = line + 2;
    if (*rest == ' ') ++rest;
    if (value != nullptr) CopyText(value, cap, rest);
    return 0;
}

// "K" and the mode letter; after the server's "OK" the TLS hand-shake runs on the same
// connection, and every later packet and reply travels in the secured session.
int SecureSession(const SendOptions& options, Session* session, SendResult* result) {
    char packet[4] = {'K', options.secureMode, '\n', '\0'};
    if (session->connection.WriteText(packet, result) != 0) return -1;
    SendResult reply;
    if (AwaitReply(session, packet, nullptr, 0, &reply) != 0) {
        // A server without a security product ends the session instead of answering.
        if (session->connection.ClosedByServer())
            return Fail(result, kExitRefused,
                        "%s:%s closed the connection when asked for a secured session: it has no "
                        "security product in use",
                        options.host, options.port);
        return Fail(result, reply.exitCode, "%s", reply.reason);
    }
    TlsClientCredentials credentials;
    credentials.certificate = options.certificate;
    credentials.key = options.key;
    credentials.ca = options.ca;
    return session->connection.StartTls(credentials, result);
}

// Connects, opens the session with "SC" and reads the greeting.
int StartSession(const SendOptions& options, Session* session, SendResult* result) {
    if (session->connection.Open(options.host, options.port, options.timeoutSeconds * 1000,
                                 result) != 0)
        return -1;
    if (session->connection.WriteText("SC\n", result) != 0) return -1;
    char line[256];
    SendResult read;
    if (session->connection.ReadUntil('\n', line, sizeof line, &read) != 0) {
        // A server that does not serve the extended protocol closes the connection at once.
        if (session->connection.ClosedByServer())
            return Fail(result, kExitRefused,
                        "%s:%s closed the connection without a greeting: it does not serve the "
                        "extended protocol (--lpd sends plain LPD)",
                        options.host, options.port);
        return Fail(result, read.exitCode, "%s", read.reason);
    }
    if (const char* message = PrefixAfter(line, "ER "))
        return Fail(result, kExitRefused, "the server refused the session: %s", message);
    size_t packetSize = GreetingPacketSize(line);
    if (packetSize == 0)
        return Fail(result, kExitRefused, "unexpected greeting from the server: %.200s", line);
    session->packetSize = packetSize < kMaxPacketSize ? packetSize : kMaxPacketSize;
    return options.secure ? SecureSession(options, session, result) : 0;
}

// One command packet (two letters and an argument, with a line feed), then its reply.
int Command(Session* session, const char* command, char* value, size_t cap, SendResult* result) {
    char packet[600];
    FormatText(packet, sizeof packet, "%s\n", command);
    if (session->connection.WriteText(packet, result) != 0) return -1;
    return AwaitReply(session, command, value, cap, result);
}

int CommandF(Session* session, SendResult* result, const char* fmt, const char* arg) {
    char command[512];
    FormatText(command, sizeof command, fmt, arg);
    return Command(session, command, nullptr, 0, result);
}

int CommandN(Session* session, SendResult* result, const char* letters, int number) {
    char command[32];
    FormatText(command, sizeof command, "%s %d", letters, number);
    return Command(session, command, nullptr, 0, result);
}

// Asks which of the extensions this job wants the server offers. A compression it does not
// offer is dropped (the job goes uncompressed); scrambling it does not offer refuses the job.
int Negotiate(Session* session, SendOptions* job, FILE* warnings, SendResult* result) {
    const char* compression = job->compression == kCompressC1   ? "C1"
                              : job->compression == kCompressC2 ? "C2"
                                                                : nullptr;
    if (compression == nullptr && !job->scramble) return 0;
    char list[16] = {};
    if (compression != nullptr) AppendText(list, compression);
    if (job->scramble) AppendText(list, compression != nullptr ? ",K1" : "K1");
    char command[32];
    FormatText(command, sizeof command, "OM %s", list);
    char answers[16];
    if (Command(session, command, answers, sizeof answers, result) != 0) return -1;
    size_t at = 0;
    if (compression != nullptr) {
        if (answers[at++] != 'Y') {
            if (warnings != nullptr)
                fprintf(warnings,
                        "vorlix-send: the server does not offer %s: sending uncompressed\n",
                        compression);
            job->compression = kCompressNone;
        }
    }
    if (job->scramble && answers[at] != 'Y')
        return Fail(result, kExitRefused, "the server does not offer scrambling (K1)");
    return 0;
}

// The job's description, everything before DS.
int DescribeJob(Session* session, const SendOptions& job, const char* title, SendResult* result) {
    char argument[300];
    if (CommandF(session, result, "DP %s", job.printer) != 0) return -1;
    if (CommandF(session, result, "DO %s", job.owner) != 0) return -1;
    MakeTitleArgument(job, title, argument, sizeof argument);
    if (CommandF(session, result, "AT %s", argument) != 0) return -1;
    if (CommandF(session, result, "PT %s", job.dataType) != 0) return -1;
    if (CommandF(session, result, "DT %s", job.dtField) != 0) return -1;
    if (job.copies != 1 && CommandN(session, result, "DC", job.copies) != 0) return -1;
    if (job.tray >= 0 && CommandN(session, result, "TI", job.tray) != 0) return -1;
    if (job.duplex >= 0 && CommandN(session, result, "MD", job.duplex) != 0) return -1;
    if (job.noStatus && Command(session, "NQ", nullptr, 0, result) != 0) return -1;
    if (job.compression == kCompressC1 && Command(session, "C1", nullptr, 0, result) != 0)
        return -1;
    if (job.compression == kCompressC2 && Command(session, "C2", nullptr, 0, result) != 0)
        return -1;
    return 0;
}

// The job's data as blocks; each packet is the DB line and the block.
int SendBlocks(Session* session, const BlockCoding& coding, JobInput& input, FILE* progressOut,
               SendResult* result) {
    BlockEncoder encoder;
    if (encoder.Open(coding, session->packetSize) != 0)
        return Fail(result, kExitRefused, "the block compressor could not be set up");
    std::vector<uint8_t> in(encoder.InputPerBlock());
    std::vector<uint8_t> packet(kDbHeaderSize + session->packetSize);
    std::vector<uint8_t> block(session->packetSize);
    ProgressBar progress;
    StartProgress(&progress, progressOut, progressOut != nullptr, input.name, input.size);
    size_t have = 0;
    bool ended = false;
    for (;;) {
        while (!ended && have < in.size()) {
            long got = ReadJobInput(input, in.data() + have, in.size() - have, result);
            if (got < 0) return -1;
            if (got == 0) ended = true;
            have += static_cast<size_t>(got);
        }
        if (have == 0) break;
        EncodedBlock encoded;
        if (encoder.Encode(in.data(), have, block.data(), block.size(), &encoded) != 0 ||
            encoded.consumed == 0)
            return Fail(result, kExitRefused, "a data block could not be encoded");
        char header[kDbHeaderSize];
        size_t headerLength =
            encoded.checksum != 0
                ? FormatText(header, sizeof header, "DB %llu %u\n", Ull(encoded.length),
                             encoded.checksum)
                : FormatText(header, sizeof header, "DB %llu\n", Ull(encoded.length));
        memcpy(packet.data(), header, headerLength);
        memcpy(packet.data() + headerLength, block.data(), encoded.length);
        if (session->connection.Write(packet.data(), headerLength + encoded.length, result) != 0 ||
            AwaitReply(session, "DB", nullptr, 0, result) != 0)
            return -1;
        AdvanceProgress(&progress, encoded.consumed);
        memmove(in.data(), in.data() + encoded.consumed, have - encoded.consumed);
        have -= encoded.consumed;
    }
    FinishProgress(&progress);
    return 0;
}

}  // namespace

size_t GreetingPacketSize(const char* line) {
    const char* rest = PrefixAfter(line, "OK ZELLPD ");
    if (rest == nullptr) return 0;
    char* end = nullptr;
    strtol(rest, &end, 10);  // the protocol version
    if (end == rest || *end != ' ') return 0;
    const char* sizeText = end + 1;
    long size = strtol(sizeText, &end, 10);
    if (end == sizeText || size < 20) return 0;
    return static_cast<size_t>(size);
}

void MakeTitleArgument(const SendOptions& options, const char* title, char* out, size_t cap) {
    if (cap > 0) out[0] = '\0';
    for (size_t i = 0; i < options.titleOptionCount; ++i)
        AppendFormat(out, cap, "OPT:%s ", options.titleOptions[i]);
    AppendText(out, cap, title);
}

int SendExtendedJob(const SendOptions& options, const char* jobId, JobInput& input, FILE* warnings,
                    FILE* progressOut, char* acceptedId, size_t cap, SendResult* result) {
    Session session;
    if (StartSession(options, &session, result) != 0) return -1;
    SendOptions job = options;
    if (Negotiate(&session, &job, warnings, result) != 0) return -1;
    const char* title = job.title[0] != '\0' ? job.title : input.name;
    if (DescribeJob(&session, job, title, result) != 0) return -1;
    BlockCoding coding;
    coding.compression = job.compression;
    coding.checksum = job.checksum;
    if (job.scramble) {
        char key[32];
        if (Command(&session, "K1", key, sizeof key, result) != 0) return -1;
        char* end = nullptr;
        coding.key = static_cast<uint32_t>(strtoul(key, &end, 16));
        if (end == key) return Fail(result, kExitRefused, "the server answered K1 without a key");
        coding.scramble = true;
    }
    if (CommandF(&session, result, "DS %s", jobId) != 0) return -1;
    if (SendBlocks(&session, coding, input, progressOut, result) != 0) {
        // When the input failed the session still stands: the server is told that the job is
        // off (a refusal or a lost connection has ended the session already).
        SendResult ignored;
        if (result->exitCode == kExitNoInput) Command(&session, "BY", nullptr, 0, &ignored);
        return -1;
    }
    if (Command(&session, "DE", acceptedId, cap, result) != 0) return -1;
    return Command(&session, "EX", nullptr, 0, result);
}

int ListInstalledPrinters(const SendOptions& options, std::vector<InstalledPrinter>* printers,
                          SendResult* result) {
    Session session;
    if (StartSession(options, &session, result) != 0) return -1;
    if (session.connection.WriteText("QP\n", result) != 0) return -1;
    // Every text comes with its NUL and waits for an acknowledgement containing "OK".
    auto text = [&](char* out, size_t cap) {
        return session.connection.ReadUntil('\0', out, cap, result) == 0 &&
               session.connection.WriteText("OK\n", result) == 0;
    };
    char count[32];
    if (!text(count, sizeof count)) return -1;
    char* end = nullptr;
    long n = strtol(count, &end, 10);
    if (end == count || n < 0 || n > kMaxPrinters)
        return Fail(result, kExitRefused, "unexpected printer count from the server: %.20s", count);
    for (long i = 0; i < n; ++i) {
        char name[512];
        char location[512];
        char driver[512];
        if (!text(name, sizeof name) || !text(location, sizeof location) ||
            !text(driver, sizeof driver))
            return -1;
        // A missing location or driver comes as a single blank.
        printers->push_back({name, strcmp(location, " ") == 0 ? "" : location,
                             strcmp(driver, " ") == 0 ? "" : driver});
    }
    char finished[64];
    if (!text(finished, sizeof finished)) return -1;
    // The list is complete with "QP finished". The session then answers QP itself ("OK", or an
    // error reply); a server that goes straight on to the next command is understood as well:
    // after a short wait without that answer the session is ended.
    char line[512];
    SendResult waited;
    if (session.connection.ReadUntilWithin('\n', line, sizeof line, kQpAnswerWaitMs, &waited) ==
        0) {
        if (const char* message = PrefixAfter(line, "ER "))
            return Fail(result, kExitRefused, "the server refused QP: %s", message);
    } else if (session.connection.ClosedByServer()) {
        return Fail(result, kExitNetwork, "%s", waited.reason);
    }
    return Command(&session, "BY", nullptr, 0, result);
}

int AskServer(const SendOptions& options, const char* command, std::string* answer,
              SendResult* result) {
    Session session;
    if (StartSession(options, &session, result) != 0) return -1;
    char value[256];
    if (Command(&session, command, value, sizeof value, result) != 0) return -1;
    *answer = value;
    return Command(&session, "BY", nullptr, 0, result);
}

}  // namespace vx
