#include "tools/lpd_sender.h"

#include <cctype>
#include <cstring>
#include <vector>

#include "base/text.h"
#include "tools/progress_bar.h"
#include "tools/send_connection.h"

namespace vx {

namespace {

// Limits a query's answer: a printer with a long queue still fits.
constexpr size_t kAnswerLimit = 4 * 1024 * 1024;
constexpr size_t kDataSlice = 1024 * 1024;

int AwaitAck(SendConnection& connection, const char* what, SendResult* result) {
    uint8_t ack = 0xFF;
    if (connection.ReadByte(&ack, result) != 0) return -1;
    if (ack != 0)
        return Fail(result, kExitRefused, "the server refused %s (LPD answer 0x%02x)", what, ack);
    return 0;
}

// The data file's bytes, as announced: from the buffer when standard input was read into it,
// else from the file. -1 when the file does not hold what was announced.
int SendDataBytes(SendConnection& connection, JobInput& input, const std::vector<uint8_t>& buffered,
                  FILE* progressOut, SendResult* result) {
    ProgressBar progress;
    StartProgress(&progress, progressOut, progressOut != nullptr, input.name, input.size);
    int64_t sent = 0;
    std::vector<uint8_t> chunk(buffered.empty() ? kDataSlice : 0);
    while (sent < input.size) {
        const uint8_t* from = nullptr;
        size_t n = 0;
        if (!buffered.empty()) {
            from = buffered.data() + sent;
            n = static_cast<size_t>(input.size - sent);
            if (n > kDataSlice) n = kDataSlice;
        } else {
            long got = ReadJobInput(input, chunk.data(), chunk.size(), result);
            if (got < 0) return -1;
            if (got == 0) break;
            from = chunk.data();
            n = static_cast<size_t>(got);
            // Never more than announced: a file that grew is sent as it was when announced.
            if (static_cast<int64_t>(n) > input.size - sent)
                n = static_cast<size_t>(input.size - sent);
        }
        if (connection.Write(from, n, result) != 0) return -1;
        sent += static_cast<int64_t>(n);
        AdvanceProgress(&progress, n);
    }
    FinishProgress(&progress);
    // A file that shrank cannot make up its announced size: the connection is dropped without
    // the closing zero byte, and the server keeps nothing of it.
    if (sent != input.size)
        return Fail(result, kExitNoInput, "%s: ended after %lld of %lld bytes", input.name,
                    static_cast<long long>(sent), static_cast<long long>(input.size));
    return 0;
}

}  // namespace

void MakeLpdJobNames(int number, const char* hostName, LpdJobNames* names) {
    char host[32] = {};
    size_t n = 0;
    for (const char* c = hostName; *c != '\0' && n + 1 < sizeof host; ++c)
        if (isalnum(static_cast<unsigned char>(*c))) host[n++] = *c;
    if (n == 0) CopyText(host, "host");
    FormatText(names->control, sizeof names->control, "cfA%03d%s", number % 1000, host);
    FormatText(names->data, sizeof names->data, "dfA%03d%s", number % 1000, host);
}

std::string MakeLpdControlFile(const SendOptions& options, const char* hostName,
                               const LpdJobNames& names, const char* title,
                               const char* sourceName) {
    // RFC 1179 keeps host and user names to 31 characters and the other lines to 99.
    char line[128];
    std::string text;
    FormatText(line, sizeof line, "H%.31s\n", hostName);
    text += line;
    FormatText(line, sizeof line, "P%.31s\n", options.owner);
    text += line;
    FormatText(line, sizeof line, "J%.99s\n", title);
    text += line;
    FormatText(line, sizeof line, "N%.99s\n", sourceName);
    text += line;
    FormatText(line, sizeof line, "l%s\n", names.data);
    for (int copy = 0; copy < options.copies; ++copy) text += line;
    FormatText(line, sizeof line, "U%s\n", names.data);
    text += line;
    return text;
}

int SendLpdJob(const SendOptions& options, const char* hostName, int number, JobInput& input,
               FILE* progressOut, char* jobId, size_t cap, SendResult* result) {
    // LPD announces the size before the bytes: standard input is read whole first.
    std::vector<uint8_t> buffered;
    if (input.size < 0) {
        if (ReadAllJobInput(input, &buffered, result) != 0) return -1;
        input.size = static_cast<int64_t>(buffered.size());
    }
    LpdJobNames names;
    MakeLpdJobNames(number, hostName, &names);
    const char* title = options.title[0] != '\0' ? options.title : input.name;
    std::string control = MakeLpdControlFile(options, hostName, names, title, input.name);

    SendConnection connection;
    if (connection.Open(options.host, options.port, options.timeoutSeconds * 1000, result) != 0)
        return -1;
    char line[320];
    FormatText(line, sizeof line, "\x02%s\n", options.printer);
    if (connection.WriteText(line, result) != 0) return -1;
    char what[300];
    FormatText(what, sizeof what, "the job for printer %s", options.printer);
    if (AwaitAck(connection, what, result) != 0) return -1;

    FormatText(line, sizeof line, "\x02%llu %s\n", static_cast<unsigned long long>(control.size()),
               names.control);
    if (connection.WriteText(line, result) != 0 ||
        AwaitAck(connection, "the control file", result) != 0)
        return -1;
    if (connection.Write(control.c_str(), control.size() + 1, result) != 0 ||  // with its NUL
        AwaitAck(connection, "the control file", result) != 0)
        return -1;

    FormatText(line, sizeof line, "\x03%lld %s\n", static_cast<long long>(input.size), names.data);
    if (connection.WriteText(line, result) != 0 ||
        AwaitAck(connection, "the data file", result) != 0)
        return -1;
    if (SendDataBytes(connection, input, buffered, progressOut, result) != 0) return -1;
    const uint8_t zero = 0;
    if (connection.Write(&zero, 1, result) != 0 ||
        AwaitAck(connection, "the data file", result) != 0)
        return -1;
    CopyText(jobId, cap, names.data);
    return 0;
}

int QueryLpd(const SendOptions& options, const char* jobName, std::string* answer,
             SendResult* result) {
    SendConnection connection;
    if (connection.Open(options.host, options.port, options.timeoutSeconds * 1000, result) != 0)
        return -1;
    char line[400];
    if (jobName != nullptr)
        FormatText(line, sizeof line, "\x03%s JOB %s\n", options.printer, jobName);
    else
        FormatText(line, sizeof line, "\x03%s\n", options.printer);
    if (connection.WriteText(line, result) != 0) return -1;
    std::string raw;
    if (connection.ReadToEnd(&raw, kAnswerLimit, result) != 0) return -1;
    // The server may end every line with a NUL byte.
    for (char c : raw)
        if (c != '\0') answer->push_back(c);
    if (answer->empty())
        return Fail(result, kExitRefused, "the server closed the connection without an answer");
    return 0;
}

int JobStatusExit(const std::string& answer) {
    if (answer.find("Status: done") != std::string::npos) return kExitDelivered;
    if (answer.find("Status: ") != std::string::npos ||
        answer.find("&&ERRORPROT&&") != std::string::npos)
        return kExitRefused;
    return kExitNotFinished;
}

}  // namespace vx
