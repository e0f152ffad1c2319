#include "tools/send_options.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "base/process.h"
#include "base/text.h"

namespace vx {

namespace {

// The state of one parse: where it is in argv and where a usage error goes.
struct Parser {
    int argc;
    char** argv;
    int next;
    char* error;
    size_t cap;
};

int Usage(Parser& p, const char* fmt, const char* what) {
    FormatText(p.error, p.cap, fmt, what);
    return -1;
}

// The argument of an option: glued on ("-Pname", "--tray=2") or the next word.
int TakeValue(Parser& p, const char* name, const char* glued, const char** value) {
    if (glued != nullptr && glued[0] != '\0') {
        *value = glued;
        return 0;
    }
    if (p.next >= p.argc) return Usage(p, "option %s needs a value", name);
    *value = p.argv[p.next++];
    return 0;
}

// A decimal number in [low, high].
int TakeNumber(Parser& p, const char* name, const char* text, int low, int high, int* out) {
    if (text[0] == '\0') return Usage(p, "option %s needs a number", name);
    long value = 0;
    for (const char* c = text; *c != '\0'; ++c) {
        if (!isdigit(static_cast<unsigned char>(*c)) || value > 1000000)
            return Usage(p, "option %s needs a number", name);
        value = value * 10 + (*c - '0');
    }
    if (value < low || value > high) {
        FormatText(p.error, p.cap, "option %s must lie between %d and %d", name, low, high);
        return -1;
    }
    *out = static_cast<int>(value);
    return 0;
}

// A text that must fit its field whole: a name cut short would address something else.
int TakeText(Parser& p, const char* name, const char* text, char* out, size_t cap) {
    if (strlen(text) >= cap) {
        FormatText(p.error, p.cap, "option %s takes at most %d characters", name,
                   static_cast<int>(cap - 1));
        return -1;
    }
    for (const char* c = text; *c != '\0'; ++c)
        if (static_cast<unsigned char>(*c) < 32)
            return Usage(p, "option %s: no control characters", name);
    CopyText(out, cap, text);
    return 0;
}

// A word the server reads up to the next blank: no blanks, nothing empty.
int TakeWord(Parser& p, const char* name, const char* text, char* out, size_t cap) {
    if (text[0] == '\0') return Usage(p, "option %s needs a value", name);
    if (strchr(text, ' ') != nullptr) return Usage(p, "option %s: no blanks", name);
    return TakeText(p, name, text, out, cap);
}

int TakeHost(Parser& p, const char* text, SendOptions* o) {
    const char* portText = nullptr;
    char host[sizeof o->host] = {};
    if (text[0] == '[') {  // [IPv6]:port
        const char* close = strchr(text, ']');
        if (close == nullptr) return Usage(p, "-H %s: missing ]", text);
        CopyTextN(host, sizeof host, text + 1, static_cast<size_t>(close - text - 1));
        if (close[1] == ':')
            portText = close + 2;
        else if (close[1] != '\0')
            return Usage(p, "-H %s: text after ]", text);
    } else {
        const char* colon = strchr(text, ':');
        if (colon != nullptr && strchr(colon + 1, ':') == nullptr) {  // host:port
            CopyTextN(host, sizeof host, text, static_cast<size_t>(colon - text));
            portText = colon + 1;
        } else {  // a name, or an IPv6 address without a port
            if (TakeText(p, "-H", text, host, sizeof host) != 0) return -1;
        }
    }
    if (host[0] == '\0') return Usage(p, "-H %s: no host name", text);
    CopyText(o->host, host);
    if (portText != nullptr) {
        int port = 0;
        if (TakeNumber(p, "-H port", portText, 1, 65535, &port) != 0) return -1;
        FormatText(o->port, sizeof o->port, "%d", port);
    }
    return 0;
}

int TakeTitleOption(Parser& p, const char* text, SendOptions* o) {
    char checked[kTitleOptionSize] = {};
    if (TakeWord(p, "--option", text, checked, sizeof checked) != 0) return -1;
    bool known = strcmp(text, "NO_PAPER") == 0 || strcmp(text, "SUM") == 0 ||
                 (StartsWith(text, "FILE:") && text[5] != '\0' && text[5] != ',');
    if (!known) return Usage(p, "--option %s: known are NO_PAPER, SUM and FILE:name", text);
    if (o->titleOptionCount == kMaxTitleOptions) return Usage(p, "%s", "too many --option");
    CopyText(o->titleOptions[o->titleOptionCount++], text);
    return 0;
}

int SetAction(Parser& p, SendOptions* o, SendAction action, const char* name) {
    if (o->action != kActionSend && o->action != action)
        return Usage(p, "%s cannot be combined with another query", name);
    o->action = action;
    return 0;
}

enum LongId {
    kLongTray,
    kLongDuplex,
    kLongJobId,
    kLongOption,
    kLongDataType,
    kLongDt,
    kLongTimeout,
    kLongCompress,
    kLongStatus,
    kLongQueryOptions,
    kLongQueryEquipment,
    kLongNoStatus,
    kLongScramble,
    kLongChecksum,
    kLongLpd,
    kLongQuiet,
    kLongListPrinters,
    kLongQueueState,
    kLongSecure,
    kLongSecureMode,
    kLongCert,
    kLongKey,
    kLongCa,
    kLongHelp,
    kLongVersion,
};

struct LongOption {
    const char* name;
    bool takesValue;
    LongId id;
};

constexpr LongOption kLongOptions[] = {
    {"tray", true, kLongTray},
    {"duplex", true, kLongDuplex},
    {"job-id", true, kLongJobId},
    {"option", true, kLongOption},
    {"data-type", true, kLongDataType},
    {"dt", true, kLongDt},
    {"timeout", true, kLongTimeout},
    {"compress", true, kLongCompress},
    {"status", true, kLongStatus},
    {"query-options", true, kLongQueryOptions},
    {"query-equipment", true, kLongQueryEquipment},
    {"no-status", false, kLongNoStatus},
    {"scramble", false, kLongScramble},
    {"checksum", false, kLongChecksum},
    {"lpd", false, kLongLpd},
    {"quiet", false, kLongQuiet},
    {"list-printers", false, kLongListPrinters},
    {"queue-state", false, kLongQueueState},
    {"secure", false, kLongSecure},
    {"secure-mode", true, kLongSecureMode},
    {"cert", true, kLongCert},
    {"key", true, kLongKey},
    {"ca", true, kLongCa},
    {"help", false, kLongHelp},
    {"version", false, kLongVersion},
};

// The mode letter of the security command: S (sealed, the default) or A.
int TakeSecureMode(Parser& p, const char* v, SendOptions* o) {
    char letter = static_cast<char>(toupper(static_cast<unsigned char>(v[0])));
    if (v[0] == '\0' || v[1] != '\0' || (letter != 'S' && letter != 'A'))
        return Usage(p, "--secure-mode=%s: use S or A", v);
    o->secureMode = letter;
    return 0;
}

// A file name the option needs whole.
int TakePath(Parser& p, const char* name, const char* v, char* out, size_t cap) {
    if (v[0] == '\0') return Usage(p, "option %s needs a file name", name);
    return TakeText(p, name, v, out, cap);
}

int TakeCompression(Parser& p, const char* v, SendOptions* o) {
    if (EqualsNoCase(v, "c1"))
        o->compression = kCompressC1;
    else if (EqualsNoCase(v, "c2"))
        o->compression = kCompressC2;
    else if (EqualsNoCase(v, "none"))
        o->compression = kCompressNone;
    else
        return Usage(p, "--compress=%s: use c1, c2 or none", v);
    return 0;
}

// A long option: word is "--name" or "--name=value"; a value may also be the next word.
int TakeLong(Parser& p, const char* word, SendOptions* o) {
    const char* equals = strchr(word, '=');
    const char* glued = equals != nullptr ? equals + 1 : nullptr;
    char name[64] = {};
    CopyTextN(name, sizeof name, word,
              equals != nullptr ? static_cast<size_t>(equals - word) : strlen(word));
    const LongOption* option = nullptr;
    for (const LongOption& candidate : kLongOptions)
        if (strcmp(name + 2, candidate.name) == 0) option = &candidate;
    if (option == nullptr) return Usage(p, "unknown option %s", name);
    const char* v = "";
    if (option->takesValue) {
        if (TakeValue(p, name, glued, &v) != 0) return -1;
    } else if (glued != nullptr) {
        return Usage(p, "option %s takes no value", name);
    }
    switch (option->id) {
        case kLongTray:
            return TakeNumber(p, name, v, 0, 99, &o->tray);
        case kLongDuplex:
            return TakeNumber(p, name, v, 0, 9, &o->duplex);
        case kLongJobId:
            return TakeWord(p, name, v, o->jobId, sizeof o->jobId);
        case kLongOption:
            return TakeTitleOption(p, v, o);
        case kLongDataType:
            return TakeWord(p, name, v, o->dataType, sizeof o->dataType);
        case kLongDt:
            return TakeWord(p, name, v, o->dtField, sizeof o->dtField);
        case kLongTimeout:
            return TakeNumber(p, name, v, 1, 86400, &o->timeoutSeconds);
        case kLongCompress:
            return TakeCompression(p, v, o);
        case kLongStatus:
            if (SetAction(p, o, kActionStatus, name) != 0) return -1;
            return TakeWord(p, name, v, o->statusJob, sizeof o->statusJob);
        case kLongQueryOptions:
            if (SetAction(p, o, kActionQueryOptions, name) != 0) return -1;
            return TakeWord(p, name, v, o->optionList, sizeof o->optionList);
        case kLongQueryEquipment:
            if (SetAction(p, o, kActionQueryEquipment, name) != 0) return -1;
            return TakeWord(p, name, v, o->equipment, sizeof o->equipment);
        case kLongNoStatus:
            o->noStatus = true;
            return 0;
        case kLongScramble:
            o->scramble = true;
            return 0;
        case kLongChecksum:
            o->checksum = true;
            return 0;
        case kLongLpd:
            o->lpd = true;
            return 0;
        case kLongQuiet:
            o->quiet = true;
            return 0;
        case kLongListPrinters:
            return SetAction(p, o, kActionListPrinters, name);
        case kLongQueueState:
            return SetAction(p, o, kActionQueueState, name);
        case kLongSecure:
            o->secure = true;
            return 0;
        case kLongSecureMode:
            return TakeSecureMode(p, v, o);
        case kLongCert:
            return TakePath(p, name, v, o->certificate, sizeof o->certificate);
        case kLongKey:
            // On Windows the PFX password: it may be empty.
            return TakeText(p, name, v, o->key, sizeof o->key);
        case kLongCa:
            return TakePath(p, name, v, o->ca, sizeof o->ca);
        case kLongHelp:
            o->action = kActionHelp;
            return 0;
        case kLongVersion:
            o->action = kActionVersion;
            return 0;
    }
    return -1;
}

// Short options after lpr: -H -P -U -T -# with a value, glued on or in the next word.
int TakeShort(Parser& p, const char* word, SendOptions* o) {
    char name[3] = {'-', word[1], '\0'};
    const char* v = nullptr;
    switch (word[1]) {
        case 'H':
            return TakeValue(p, name, word + 2, &v) == 0 ? TakeHost(p, v, o) : -1;
        case 'P':
            if (TakeValue(p, name, word + 2, &v) != 0) return -1;
            if (v[0] == '\0') return Usage(p, "%s", "-P needs a printer name");
            // Printer names may hold blanks ("HP LaserJet 4"); a job can name such a printer.
            return TakeText(p, name, v, o->printer, sizeof o->printer);
        case 'U':
            return TakeValue(p, name, word + 2, &v) == 0
                       ? TakeWord(p, name, v, o->owner, sizeof o->owner)
                       : -1;
        case 'T':
            return TakeValue(p, name, word + 2, &v) == 0
                       ? TakeText(p, name, v, o->title, sizeof o->title)
                       : -1;
        case '#':
            return TakeValue(p, name, word + 2, &v) == 0
                       ? TakeNumber(p, name, v, 1, 999, &o->copies)
                       : -1;
        case 'h':
        case '?':
            if (word[2] != '\0') break;
            o->action = kActionHelp;
            return 0;
        default:
            break;
    }
    return Usage(p, "unknown option %s", word);
}

// --secure needs its certificate and CA, works in the extended protocol only, and its files
// mean nothing without it.
int CheckSecure(Parser& p, const SendOptions& o) {
    if (!o.secure) {
        if (o.certificate[0] != '\0' || o.key[0] != '\0' || o.ca[0] != '\0' || o.secureMode != 'S')
            return Usage(p, "%s", "--cert, --key, --ca and --secure-mode need --secure");
        return 0;
    }
    if (o.lpd)
        return Usage(p, "%s",
                     "--secure needs the extended protocol: LPD cannot be secured, drop --lpd");
    if (o.action == kActionStatus || o.action == kActionQueueState)
        return Usage(p, "%s",
                     "--secure needs the extended protocol: --status and --queue-state are LPD "
                     "queries");
    if (o.certificate[0] == '\0')
        return Usage(p, "%s", "--secure needs --cert (the sender's certificate)");
    if (o.ca[0] == '\0')
        return Usage(p, "%s", "--secure needs --ca (the CA of the server's certificate)");
    return 0;
}

// Options that only the extended protocol carries make no sense with --lpd, and queries take
// no files: both are mistakes the caller should hear about rather than have ignored.
int CheckCombination(Parser& p, const SendOptions& o) {
    if (o.action == kActionHelp || o.action == kActionVersion) return 0;
    if (CheckSecure(p, o) != 0) return -1;
    if (o.action != kActionSend && !o.files.empty())
        return Usage(p, "%s", "a query takes no files");
    // An LPD queue-state query ends the printer name at its first blank.
    if ((o.action == kActionStatus || o.action == kActionQueueState) &&
        strpbrk(o.printer, " \t\f") != nullptr)
        return Usage(p, "%s", "a printer name with blanks cannot be queried over LPD");
    // The options travel in front of the title, in the 100 characters the server keeps of it.
    size_t optionsLength = 0;
    for (size_t i = 0; i < o.titleOptionCount; ++i) optionsLength += 5 + strlen(o.titleOptions[i]);
    if (optionsLength > 99)
        return Usage(p, "%s", "the --option texts take more than the 99 characters of a title");
    if (!o.lpd) return 0;
    if (o.action == kActionListPrinters || o.action == kActionQueryOptions ||
        o.action == kActionQueryEquipment)
        return Usage(p, "%s",
                     "--list-printers and the option and equipment queries need the "
                     "extended protocol, not --lpd");
    const char* extendedOnly = o.tray >= 0                      ? "--tray"
                               : o.duplex >= 0                  ? "--duplex"
                               : o.jobId[0] != '\0'             ? "--job-id"
                               : o.noStatus                     ? "--no-status"
                               : o.titleOptionCount > 0         ? "--option"
                               : o.compression != kCompressNone ? "--compress"
                               : o.scramble                     ? "--scramble"
                               : o.checksum                     ? "--checksum"
                                                                : nullptr;
    if (extendedOnly != nullptr)
        return Usage(p, "%s needs the extended protocol: it cannot be used with --lpd",
                     extendedOnly);
    return 0;
}

}  // namespace

int ParseSendArguments(int argc, char** argv, SendOptions* options, char* error, size_t cap) {
    Parser p{argc, argv, 1, error, cap};
    if (cap > 0) error[0] = '\0';
    bool optionsEnd = false;
    while (p.next < argc) {
        const char* word = argv[p.next++];
        if (optionsEnd || word[0] != '-' || word[1] == '\0') {
            options->files.push_back(word);
        } else if (word[1] == '-' && word[2] == '\0') {
            optionsEnd = true;
        } else if (word[1] == '-') {
            if (TakeLong(p, word, options) != 0) return -1;
        } else if (TakeShort(p, word, options) != 0) {
            return -1;
        }
    }
    return CheckCombination(p, *options);
}

void ApplySendDefaults(SendOptions* options) {
    if (options->printer[0] == '\0' &&
        (GetEnvironmentText("PRINTER", options->printer, sizeof options->printer) != 0 ||
         options->printer[0] == '\0'))
        CopyText(options->printer, "%DEFAULT%");
    if (options->owner[0] == '\0') {
        for (const char* name : {"USER", "LOGNAME", "USERNAME"})
            if (GetEnvironmentText(name, options->owner, sizeof options->owner) == 0 &&
                options->owner[0] != '\0')
                break;
    }
    // The server reads the owner up to the first blank; a control-file line ends at a line end.
    for (char* c = options->owner; *c != '\0'; ++c)
        if (static_cast<unsigned char>(*c) <= ' ') *c = '_';
    if (options->owner[0] == '\0') CopyText(options->owner, "unknown");
}

void MakeJobId(const SendOptions& options, const char* hostName, uint64_t stamp, size_t index,
               char* out, size_t cap) {
    if (options.jobId[0] != '\0') {
        if (index == 0) {
            CopyText(out, cap, options.jobId);
            return;
        }
        // The suffix stays whole: the server keeps 40 characters, and a cut one would repeat.
        char suffix[24];
        size_t suffixLength =
            FormatText(suffix, sizeof suffix, "-%llu", static_cast<unsigned long long>(index + 1));
        size_t keep = sizeof options.jobId - 1 - suffixLength;
        CopyTextN(out, cap, options.jobId, keep);
        AppendText(out, cap, suffix);
        return;
    }
    // Letters and digits of the host name: the server makes a file name of the identifier.
    char host[17] = {};
    size_t n = 0;
    for (const char* c = hostName; *c != '\0' && n + 1 < sizeof host; ++c)
        if (isalnum(static_cast<unsigned char>(*c))) host[n++] = *c;
    FormatText(out, cap, "vs-%s-%llx-%llu", host[0] != '\0' ? host : "host",
               static_cast<unsigned long long>(stamp), static_cast<unsigned long long>(index + 1));
}

}  // namespace vx
