// The command line of vorlix-send, after lpr's conventions: -H host[:port], -P printer, -U owner,
// -T title, -# copies, long options for the rest, files to send (one job each; "-" is standard
// input, and no file at all means standard input too).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vx {

enum SendAction {
    kActionSend,            // send the files as jobs
    kActionStatus,          // the LPD "JOB" query for one job
    kActionQueueState,      // the LPD queue-state query for the printer
    kActionListPrinters,    // the installed printers (extended protocol, QP)
    kActionQueryOptions,    // which extensions the server offers (extended protocol, OM)
    kActionQueryEquipment,  // whether the server has an equipment (extended protocol, EQ)
    kActionHelp,
    kActionVersion,
};

enum SendCompression { kCompressNone = 0, kCompressC1 = 1, kCompressC2 = 2 };

constexpr size_t kMaxTitleOptions = 8;
constexpr size_t kTitleOptionSize = 272;  // "FILE:" and a path

struct SendOptions {
    SendAction action = kActionSend;
    char host[256] = "localhost";
    char port[8] = "515";
    char printer[256] = {};  // empty: $PRINTER, else the server's default printer
    char owner[32] = {};     // empty: the user running the tool
    char title[256] = {};    // empty: the file's name
    int copies = 1;
    int tray = -1;        // -1: not sent
    int duplex = -1;      // -1: not sent
    char jobId[41] = {};  // empty: made up per job
    bool noStatus = false;
    char titleOptions[kMaxTitleOptions][kTitleOptionSize] = {};  // "NO_PAPER", "SUM", "FILE:name"
    size_t titleOptionCount = 0;
    SendCompression compression = kCompressNone;
    bool scramble = false;
    bool checksum = false;
    bool lpd = false;
    char dataType[9] = "RAW";  // PT
    char dtField[13] = "RAW";  // DT
    char statusJob[50] = {};
    char optionList[256] = {};
    char equipment[8] = {};
    int timeoutSeconds = 60;
    // --secure: every extended-protocol session is secured with TLS after its greeting ("K"
    // and the mode letter, then the hand-shake).
    bool secure = false;
    char secureMode = 'S';       // 'S' or 'A'
    char certificate[260] = {};  // PEM (Linux) or PFX with its key (Windows)
    char key[260] = {};          // PEM key (empty: in the certificate file); PFX password
    char ca[260] = {};           // PEM: the CA the server's certificate must come from
    bool quiet = false;
    std::vector<const char*> files;  // from argv; "-" is standard input
};

// Parses argv[1..argc) into *options. 0, or -1 with a one-line reason in error (a usage error).
int ParseSendArguments(int argc, char** argv, SendOptions* options, char* error, size_t cap);

// Fills what the command line left open from the environment: the printer from PRINTER (else the
// server's default printer, "%DEFAULT%"), the owner from USER, LOGNAME or USERNAME.
void ApplySendDefaults(SendOptions* options);

// The job identifier of the index-th file (0 on): the --job-id as given for the first file and
// with "-2", "-3", ... for the others; else one made from the host name, the time and the index.
void MakeJobId(const SendOptions& options, const char* hostName, uint64_t stamp, size_t index,
               char* out, size_t cap);

}  // namespace vx
