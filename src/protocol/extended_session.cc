// The command loop of the extended protocol. Each packet is one read; its first two bytes are the
// command, the rest its argument. Every command is answered ("OK" or an error reply) before the
// next packet is read, except under the HANG test switch.
#include "protocol/extended_session.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/text.h"
#include "config/option_globals.h"
#include "config/process_state.h"
#include "net/security_layer.h"
#include "net/security_state.h"
#include "printserver/global_setting.h"
#include "printserver/trace.h"
#include "printserver/zelprsrv.h"
#include "protocol/extended_job.h"
#include "protocol/k1_scrambler.h"
#include "protocol/option_query.h"
#include "protocol/status_query.h"

namespace vx {

namespace {

constexpr int32_t kGreetingVersion = 231;
constexpr int32_t kDefaultPacketSize = 15000;
constexpr int32_t kMinPacketSize = 20;
constexpr size_t kOwnerWidth = 12;
constexpr size_t kTitleWidth = 100;
constexpr size_t kPrinterWidth = 256;
constexpr size_t kDataTypeWidth = 8;
constexpr size_t kFaxWidth = 40;
constexpr size_t kMultiAnswers = 101;

std::atomic<bool> g_testHang{false};
std::atomic<bool> g_testDisconnect{false};
// Sessions that ended before their second packet without the sender asking for security.
std::atomic<int32_t> g_unexpectedCloses{0};

// The working buffers of a session, from the tracked allocator.
class SessionBuffer {
  public:
    explicit SessionBuffer(const char* tag) : tag_(tag) {
        if (g_prsrv != nullptr)
            block_ = static_cast<uint8_t*>(
                g_prsrv->TrackedAlloc(kSessionBufferSize, __FILE__, __LINE__, tag_, 0));
    }
    ~SessionBuffer() {
        if (block_ != nullptr) g_prsrv->TrackedFree(block_, __FILE__, __LINE__, tag_, 0);
    }
    SessionBuffer(const SessionBuffer&) = delete;
    SessionBuffer& operator=(const SessionBuffer&) = delete;
    uint8_t* get() const { return block_; }

  private:
    const char* tag_;
    uint8_t* block_ = nullptr;
};

struct Session {
    SessionIo io;
    ExtendedJob job;
    OptionOffer offer;
    int32_t packets = 0;
    bool senderAuthorized = true;  // false after a secured session with an unknown sender
    const char* arg = "";          // the packet from byte 2 on, NUL-terminated
    int32_t length = 0;            // the packet's length
};

int32_t PacketSize() {
    int32_t size = GlobalSetting("s_packet_size");
    return size > kDefaultPacketSize || size < kMinPacketSize ? kDefaultPacketSize : size;
}

SessionStep Reply(Session& s, const char* text = nullptr) {
    SendOK(text, s.io.socket);
    return kStepGoOn;
}

SessionStep Refuse(Session& s, const char* why) {
    TraceError("%s\n", why);
    SendSessionError(s.io.socket, kSessionProtocol);
    return kStepEnd;
}

// A digit at byte 2 or 3 of the packet and the number it starts; false when there is none.
bool TakeDigitValue(const Session& s, int32_t* value) {
    for (int at = 0; at < 2 && s.arg[at] != '\0'; ++at) {
        if (s.arg[at] >= '0' && s.arg[at] <= '9') {
            *value = ParseDecimalInt(s.arg + at);
            return true;
        }
    }
    return false;
}

// A name argument (printer, data type, DT field): an empty one ends the session with 818.
bool TakeName(Session& s, char* out, size_t cap, size_t width) {
    if (CopyNameText(out, cap, width, s.arg)) return true;
    SendSessionError(s.io.socket, kSessionProtocol);
    return false;
}

// The two letters after the blanks, or an empty code.
void TakeCode(const char* arg, char code[3]) {
    while (*arg == ' ') ++arg;
    code[0] = code[1] = code[2] = '\0';
    if (arg[0] != '\0') {
        code[0] = arg[0];
        code[1] = arg[1];
    }
}

bool IsLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// EQ: which equipment the service drives.
char EquipmentAnswer(const char* arg) {
    while (*arg == ' ') ++arg;
    size_t n = 0;
    while (IsLetter(arg[n])) ++n;
    if (n != 2) return 'U';
    if (arg[0] == 'F' && arg[1] == 'X') return 'N';
    if (arg[0] == 'B' && arg[1] == 'C')
        return g_prsrv != nullptr && g_prsrv->Libraries().barcode.module.Loaded() ? 'Y' : 'N';
    return 'U';
}

SessionStep TitleCommand(Session& s) {
    ExtendedJob& job = s.job;
    CopyFreeText(job.title, sizeof job.title, kTitleWidth, s.arg, g_Options.UseNonASCII != 0);
    job.titleGiven = true;
    if (strlen(job.title) >= 5 && strncmp(job.title, "OPT:", 4) == 0)
        TakeTitleOptions(job.title, &job.options);
    if (g_testHang) {
        Trace(kTraceBanner, "Test option HANG: The communication to ZEL will hang now.\n");
        return kStepNoReply;
    }
    Reply(s);
    if (!g_testDisconnect) return kStepGoOn;
    Trace(kTraceBanner, "Test option DISC: The communication to ZEL will be closed now.\n");
    return kStepEnd;
}

SessionStep PrinterCommand(Session& s) {
    ExtendedJob& job = s.job;
    if (!TakeName(s, job.printer, sizeof job.printer, kPrinterWidth)) return kStepEnd;
    Trace(kTraceBanner, "Receive job for printer %s.\n", job.printer);
    ResolveDefaultPrinter(job.printer, sizeof job.printer);
    job.printerGiven = true;
    return Reply(s);
}

SessionStep DataTypeCommand(Session& s) {
    ExtendedJob& job = s.job;
    if (!TakeName(s, job.dataType, sizeof job.dataType, kDataTypeWidth)) return kStepEnd;
    if (strncmp(job.dataType, "ZELWIN", 6) == 0 || strncmp(job.dataType, "ZZELWI", 6) == 0) {
        job.dataKind = 1;
        Trace(kTraceNormal, "Datatype defined: \"%s\", data is for ZELWIN printer.\n",
              job.dataType);
    } else {
        job.dataKind = 3;
    }
    job.typeGiven = true;
    return Reply(s);
}

SessionStep NumberCommand(Session& s, int32_t* field, const char* missing, const char* traced) {
    int32_t value = 0;
    if (!TakeDigitValue(s, &value)) return Refuse(s, missing);
    *field = value;
    Trace(kTraceNormal, traced, value);
    return Reply(s);
}

SessionStep ScrambleCommand(Session& s) {
    s.job.key = MakeScrambleKey(static_cast<uint32_t>(time(nullptr)));
    s.job.scramble = true;
    char key[16];
    FormatText(key, sizeof key, "%08lx", static_cast<unsigned long>(s.job.key));
    return Reply(s, key);
}

// KA / KS: the secured session the sender asks for, with the command's second letter as the
// mode; everything after that passes through it. A hand-shake that fails ends the session.
SessionStep SecurityCommand(Session& s) {
    Reply(s);
    char mode = static_cast<char>(s.io.data[1]);
    constexpr int32_t kDataStart = 3;
    const uint8_t* data = s.io.data + (s.length > kDataStart ? kDataStart : s.length);
    int32_t length = s.length > kDataStart ? s.length - kDataStart : 0;
    int authorized = 1;
    if (!AcceptSecuredSession(s.io.socket, data, length, mode, &authorized)) return kStepEnd;
    s.senderAuthorized = authorized != 0;
    return kStepGoOn;
}

// DS from a sender whose identity is not among the authorized senders: the job is refused.
SessionStep RefuseUnauthorizedJob(Session& s) {
    SendSessionError(s.io.socket, kSessionInsecure);
    TraceError("Job of unauthorized sender refused.\n");
    return kStepEnd;
}

SessionStep OptionCommand(Session& s) {
    char code[3];
    TakeCode(s.arg, code);
    char answer[2] = {AnswerOptionQuery(code, &s.offer), '\0'};
    return Reply(s, answer);
}

// OM: a list no sender may send ends the session (the service itself stays up).
SessionStep MultiOptionCommand(Session& s) {
    char answers[kMultiAnswers];
    if (AnswerMultiOptionQuery(s.arg, &s.offer, answers, sizeof answers) != 0) {
        SendSessionError(s.io.socket, kSessionProtocol);
        return kStepEnd;
    }
    return Reply(s, answers);
}

SessionStep EndCommand(Session& s) {
    Reply(s);
    if (s.length > 3) {
        char message[128];
        CopyText(message, s.arg);
        TrimLineEnd(message);
        Trace(kTraceNormal, "Remote site closed connection with message: \"%s\"\n", message);
    }
    return kStepEnd;
}

SessionStep Ignored(Session& s, char a, char b) {
    Trace(kTraceNormal, "Command currently ignored: %c%c\n", a, b);
    return Reply(s);
}

// One command packet.
SessionStep Dispatch(Session& s) {
    ExtendedJob& job = s.job;
    char a = static_cast<char>(s.io.data[0]);
    char b = s.length > 1 ? static_cast<char>(s.io.data[1]) : '\0';
    switch ((static_cast<unsigned>(static_cast<uint8_t>(a)) << 8) | static_cast<uint8_t>(b)) {
        case 'A' << 8 | 'D':
            CopyFreeText(job.division, sizeof job.division, kOwnerWidth, s.arg, false);
            return Reply(s);
        case 'A' << 8 | 'P':
        case 'A' << 8 | 'S':
        case 'D' << 8 | 'M':
            return Ignored(s, a, b);
        case 'A' << 8 | 'R':
            CopyFreeText(job.receiver, sizeof job.receiver, kOwnerWidth, s.arg, false);
            return Reply(s);
        case 'A' << 8 | 'T':
            return TitleCommand(s);
        case 'B' << 8 | 'Y':
            Reply(s);
            return kStepEnd;
        case 'C' << 8 | '1':
            job.compression = 1;
            return Reply(s);
        case 'C' << 8 | '2':
            job.compression = -2;
            return Reply(s);
        case 'D' << 8 | 'B':
            return ReceiveDataBlock(s.io, job, s.length);
        case 'D' << 8 | 'C':
            if (job.open) return Refuse(s, "Command DC after DS!");
            return NumberCommand(s, &job.copies, "Command DC: number of copies missing!",
                                 "Number of copies: %d\n");
        case 'D' << 8 | 'E':
            return CloseExtendedJob(s.io, job);
        case 'D' << 8 | 'O':
            CopyFreeText(job.owner, sizeof job.owner, kOwnerWidth, s.arg, false);
            for (char* c = job.owner; *c != '\0'; ++c)
                if (*c == ' ') *c = '_';
            job.ownerGiven = true;
            return Reply(s);
        case 'D' << 8 | 'P':
            return PrinterCommand(s);
        case 'D' << 8 | 'S':
            if (!s.senderAuthorized) return RefuseUnauthorizedJob(s);
            return OpenExtendedJob(s.io, job, s.arg);
        case 'D' << 8 | 'T':
            if (!TakeName(s, job.dtField, sizeof job.dtField, 12)) return kStepEnd;
            job.dtGiven = true;
            return Reply(s);
        case 'E' << 8 | 'Q': {
            char answer[2] = {EquipmentAnswer(s.arg), '\0'};
            return Reply(s, answer);
        }
        case 'E' << 8 | 'X':
            return EndCommand(s);
        case 'K' << 8 | '1':
            return ScrambleCommand(s);
        case 'K' << 8 | 'A':
        case 'K' << 8 | 'S':
            return SecurityCommand(s);
        case 'M' << 8 | 'D':
            return NumberCommand(s, &job.duplex, "Command MD: duplex mode missing!",
                                 "POSS duplex mode: %d\n");
        case 'N' << 8 | 'Q':
            job.noStatus = 1;
            Trace(kTraceNormal, "Command NQ: No status info will be kept\n");
            return Reply(s);
        case 'O' << 8 | 'I':
            return OptionCommand(s);
        case 'O' << 8 | 'M':
            return MultiOptionCommand(s);
        case 'O' << 8 | 'T':
            job.otFlag = true;
            return Reply(s);
        case 'P' << 8 | 'T':
            return DataTypeCommand(s);
        case 'Q' << 8 | 'P':
            if (GetInstalledPrinters(&s.io.socket)) return Reply(s);
            SendSessionError(s.io.socket, kSessionProtocol);
            return kStepEnd;
        case 'T' << 8 | 'I':
            return NumberCommand(s, &job.tray, "Command TI: tray info missing!",
                                 "POSS tray info: %d\n");
        case 'T' << 8 | 'N':
            CopyFreeText(job.faxNumber, sizeof job.faxNumber, kFaxWidth, s.arg, false);
            job.faxJob = true;
            Trace(kTraceNormal, "FAX number received: '%s'\n", job.faxNumber);
            return Reply(s);
        case 'X' << 8 | 'X':
            Reply(s);
            Trace(kTraceNormal, "Job was aborted due to error in ZEL spool.\n");
            return kStepEnd;
        case 'o' << 8 | 'i':
            return Reply(s, "Ask me");
        default:
            break;
    }
    if (a == 'X' || a == 'Y' || a == 'Z' || (a >= 'a' && a <= 'z')) return Ignored(s, a, b);
    TraceError("Unknown Vorlix command %c%c!\n", a, b);
    SendSessionError(s.io.socket, kSessionUnknown);
    return kStepEnd;
}

// Reads the next packet into the data buffer, NUL-terminated. False when the session ends.
bool ReadPacket(Session& s) {
    int32_t got = SocketRead(s.io.socket, s.io.data, kPacketRead);
    if (got >= 1) {
        s.io.data[got] = '\0';
        s.length = got;
        s.arg = reinterpret_cast<const char*>(s.io.data) + (got >= 2 ? 2 : got);
        return true;
    }
    if (s.packets < 2) {
        if (s.offer.securityAsked) {
            Trace(kTraceBanner, "Connection closed.\n");
        } else {
            TraceError("Connection closed unexpectedly.\n");
            ++g_unexpectedCloses;
        }
    }
    TraceError("Error from SocketRead\n");
    SendSessionError(s.io.socket, kSessionNetwork);
    return false;
}

// Without a secured session, a service that requires one takes only a few packets.
bool SecurityAllows(Session& s) {
    int32_t state = g_SecurityState;
    bool over =
        (state == kSecurityRequired && !IsSecured(s.io.socket) && s.packets > g_SncCmdMax) ||
        state == kSecurityRequiredMissing;
    if (!over) return true;
    SendSessionError(s.io.socket, kSessionInsecure);
    TraceError("Required security handshake not made.\n");
    TraceError("Vorlix only accepts secured connections in current mode.\n");
    return false;
}

bool SendGreeting(Session& s) {
    char greeting[64];
    FormatText(greeting, sizeof greeting, "OK ZELLPD %d %d %c %c\n", kGreetingVersion,
               s.io.packetSize, 'N', 'N');
    if (SocketWrite(s.io.socket, greeting, static_cast<int32_t>(strlen(greeting))) >= 1)
        return true;
    TraceError("Error from SocketWrite\n");
    SendSessionError(s.io.socket, kSessionTempFile);
    return false;
}

}  // namespace

void SetExtendedTestSwitches(bool hang, bool disconnect) {
    g_testHang = hang;
    g_testDisconnect = disconnect;
}

void ExtendedSession(NetSocket& socket, ExtendedJobHandOver handOver, void* context) {
    SessionBuffer data("char data buffer");
    SessionBuffer aux("aux data buffer");
    if (data.get() == nullptr || aux.get() == nullptr) {
        SendSessionError(socket, kSessionNoMemory);
        return;
    }
    if (g_SecurityState == kSecurityRequiredMissing) {
        TraceError("Connection rejected. Insufficient security.\n");
        TraceError("%s failed.\n", "SocketSecurity()");
        return;
    }
    Session s{SessionIo{socket, data.get(), aux.get(), PacketSize(), handOver, context}, {}, {}};
    s.offer.securityState = g_SecurityState;
    s.offer.compress1 = GlobalSetting("compress1") != 0;
    s.offer.compress2 = GlobalSetting("compress2") != 0;
    s.offer.crypt1 = GlobalSetting("crypt1") != 0;
    if (!SendGreeting(s)) return;

    SessionStep step = kStepGoOn;
    while (step != kStepEnd) {
        if (!ReadPacket(s)) break;
        ++s.packets;
        if (!SecurityAllows(s)) break;
        step = Dispatch(s);
    }
    DropOpenJob(s.job);
}

}  // namespace vx
