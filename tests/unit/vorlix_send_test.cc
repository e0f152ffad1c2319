// vorlix-send's own logic: its command line, and the data blocks it makes, decoded by the
// service's own block decoders as a session decodes them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/text.h"
#include "protocol/block_checksum.h"
#include "protocol/block_result.h"
#include "protocol/c1_decoder.h"
#include "protocol/c2_inflater.h"
#include "protocol/k1_scrambler.h"
#include "tools/block_encoder.h"
#include "tools/extended_sender.h"
#include "tools/lpd_sender.h"
#include "tools/progress_bar.h"
#include "tools/send_options.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Parsed {
    int rc;
    vx::SendOptions options;  // its files point into words
    std::string error;
    std::unique_ptr<std::vector<std::string>> words;
};

Parsed Parse(std::vector<std::string> words) {
    Parsed p;
    p.words = std::make_unique<std::vector<std::string>>(std::move(words));
    p.words->insert(p.words->begin(), "vorlix-send");
    std::vector<char*> argv;
    for (std::string& w : *p.words) argv.push_back(w.data());
    char error[300] = {};
    p.rc = vx::ParseSendArguments(static_cast<int>(argv.size()), argv.data(), &p.options, error,
                                  sizeof error);
    p.error = error;
    return p;
}

TEST(SendArguments, LprOptionsGluedOrSeparateAndLongOptionsWithOrWithoutEquals) {
    // clang-format off
    Parsed p = Parse({"-Hprint.example:5515", "-P", "laser", "-Uanna", "-T", "Q3 report", "-#3",
                      "--tray=2", "--duplex", "1", "--job-id=J42", "--option", "NO_PAPER",
                      "--option=FILE:out.pdf", "--compress=C2", "--scramble", "--checksum",
                      "--no-status", "--timeout=5", "a.txt", "-", "--", "-odd-name"});
    // clang-format on
    ASSERT_EQ(p.rc, 0) << p.error;
    const vx::SendOptions& o = p.options;
    EXPECT_STREQ(o.host, "print.example");
    EXPECT_STREQ(o.port, "5515");
    EXPECT_STREQ(o.printer, "laser");
    EXPECT_STREQ(o.owner, "anna");
    EXPECT_STREQ(o.title, "Q3 report");
    EXPECT_EQ(o.copies, 3);
    EXPECT_EQ(o.tray, 2);
    EXPECT_EQ(o.duplex, 1);
    EXPECT_STREQ(o.jobId, "J42");
    ASSERT_EQ(o.titleOptionCount, 2u);
    EXPECT_STREQ(o.titleOptions[1], "FILE:out.pdf");
    EXPECT_EQ(o.compression, vx::kCompressC2);
    EXPECT_TRUE(o.scramble && o.checksum && o.noStatus);
    EXPECT_EQ(o.timeoutSeconds, 5);
    ASSERT_EQ(o.files.size(), 3u);
    EXPECT_STREQ(o.files[1], "-");
    EXPECT_STREQ(o.files[2], "-odd-name");  // after "--" a word is a file
    EXPECT_EQ(o.action, vx::kActionSend);
}

TEST(SendArguments, HostsWithAndWithoutPortsIncludingIpv6) {
    struct Case {
        const char* arg;
        const char* host;
        const char* port;
    } cases[] = {
        {"server", "server", "515"},
        {"[::1]:6000", "::1", "6000"},
        {"[fe80::1]", "fe80::1", "515"},
        {"fe80::2", "fe80::2", "515"},  // several colons and no brackets: an address, no port
    };
    for (const Case& c : cases) {
        Parsed p = Parse({"-H", c.arg});
        ASSERT_EQ(p.rc, 0) << c.arg << ": " << p.error;
        EXPECT_STREQ(p.options.host, c.host) << c.arg;
        EXPECT_STREQ(p.options.port, c.port) << c.arg;
    }
}

// Unknown options, numbers out of range or not numbers, extended-only options with --lpd and
// queries with files are refused through the built sender in test_vorlix_send.py.
TEST(SendArguments, MistakesAreUsageErrorsNamingTheOption) {
    struct Case {
        std::vector<std::string> words;
        const char* named;  // the error names this
    } cases[] = {
        {{"-P"}, "-P"},  // value missing at the end
        {{"-H", "host:70000"}, "port"},
        {{"-H", "[::1"}, "]"},
        {{"--compress=c3"}, "c3"},
        {{"--quiet=yes"}, "--quiet"},  // a switch takes no value
        {{"--option=COLOR"}, "COLOR"},
        {{"--option=FILE:"}, "FILE"},
        {{"--job-id", "has blank"}, "--job-id"},
        {{"--job-id", std::string(41, 'j')}, "--job-id"},
        {{"--lpd", "--list-printers"}, "--lpd"},
        {{"--status=J1", "--list-printers"}, "--list-printers"},
        {{"-P", "HP LaserJet", "--status=J1"}, "blanks"},
    };
    for (const Case& c : cases) {
        Parsed p = Parse(c.words);
        EXPECT_EQ(p.rc, -1) << c.words[0];
        EXPECT_NE(p.error.find(c.named), std::string::npos) << c.words[0] << ": " << p.error;
    }
    // Job options travel in front of the title, whose 100 characters must still hold them.
    std::vector<std::string> many;
    for (int i = 0; i < 4; ++i) many.push_back("--option=FILE:" + std::string(30, 'a' + i));
    EXPECT_EQ(Parse(many).rc, -1);
    // Not mistakes: the status query is LPD anyway, a job may go to a printer name with blanks,
    // and help never fails.
    EXPECT_EQ(Parse({"--lpd", "--status=x"}).rc, 0);
    EXPECT_STREQ(Parse({"-P", "HP LaserJet 4", "job.prn"}).options.printer, "HP LaserJet 4");
    EXPECT_EQ(Parse({"--help", "--lpd", "--tray=1"}).rc, 0);
}

// --secure: its files and mode letter, and the combinations it refuses.
TEST(SendArguments, SecureNeedsItsFilesAndTheExtendedProtocol) {
    Parsed p = Parse(
        {"--secure", "--cert=me.pfx", "--key", "", "--ca", "ca.pem", "--secure-mode=a", "job.prn"});
    ASSERT_EQ(p.rc, 0) << p.error;
    EXPECT_TRUE(p.options.secure);
    EXPECT_EQ(p.options.secureMode, 'A');
    EXPECT_STREQ(p.options.certificate, "me.pfx");
    EXPECT_STREQ(p.options.key, "");  // a PFX without a password
    EXPECT_STREQ(p.options.ca, "ca.pem");
    Parsed plain = Parse({"--secure", "--cert=c.pem", "--ca=ca.pem", "--list-printers"});
    ASSERT_EQ(plain.rc, 0) << plain.error;
    EXPECT_EQ(plain.options.secureMode, 'S');

    struct Case {
        std::vector<std::string> words;
        const char* named;
    } cases[] = {
        {{"--secure", "--ca=ca.pem"}, "--cert"},
        {{"--secure", "--cert=c.pem"}, "--ca"},
        {{"--secure", "--cert=c.pem", "--ca=ca.pem", "--lpd"}, "LPD"},
        {{"--secure", "--cert=c.pem", "--ca=ca.pem", "--status=J1"}, "--status"},
        {{"--secure", "--cert=c.pem", "--ca=ca.pem", "--secure-mode=X"}, "S or A"},
        {{"--secure", "--cert=c.pem", "--ca=ca.pem", "--secure-mode=SA"}, "S or A"},
        {{"--secure", "--ca=ca.pem", "--cert="}, "--cert"},
        {{"--cert=c.pem", "--ca=ca.pem"}, "need --secure"},
    };
    for (const Case& c : cases) {
        Parsed failed = Parse(c.words);
        EXPECT_EQ(failed.rc, -1) << c.words.back();
        EXPECT_NE(failed.error.find(c.named), std::string::npos)
            << c.words.back() << ": " << failed.error;
    }
}

TEST(SendArguments, JobIdentifiersStayWithinFortyCharactersAndDifferPerFile) {
    vx::SendOptions o;
    char first[64];
    char second[64];
    vx::MakeJobId(o, "build-host.example.com", 0x1234567890abcdefULL, 0, first, sizeof first);
    vx::MakeJobId(o, "build-host.example.com", 0x1234567890abcdefULL, 1, second, sizeof second);
    EXPECT_STRNE(first, second);
    EXPECT_LE(strlen(first), 40u);
    // The server makes a file name of it: no dots or path characters from the host name.
    EXPECT_EQ(strpbrk(first, "./\\:"), nullptr) << first;

    memset(o.jobId, 'j', 40);
    vx::MakeJobId(o, "h", 1, 0, first, sizeof first);
    vx::MakeJobId(o, "h", 1, 11, second, sizeof second);
    EXPECT_EQ(std::string(first), std::string(40, 'j'));
    EXPECT_EQ(strlen(second), 40u);  // cut before the suffix, not through it
    EXPECT_EQ(std::string(second).substr(37), "-12");
}

// Runs of code bytes, repeated pairs and random noise; then random code bytes, which grow under
// both codes (C1 doubles the bytes 0 to 9, deflate adds its framing), and a long run, which
// shrinks to almost nothing and must not stand for more than a packet's bytes.
Bytes Sample() {
    std::mt19937 random(7);
    Bytes out;
    while (out.size() < 200000) {
        out.insert(out.end(), 1 + random() % 700, static_cast<uint8_t>(random() % 12));
        for (unsigned n = 2 + random() % 300; n > 0; --n)
            out.insert(out.end(), {0x1B, static_cast<uint8_t>(random() % 3)});
        for (unsigned n = random() % 400; n > 0; --n) out.push_back(static_cast<uint8_t>(random()));
    }
    for (int i = 0; i < 50000; ++i) out.push_back(static_cast<uint8_t>(random() % 10));
    out.insert(out.end(), 100000, 0);
    return out;
}

// Decodes one block as the session does, into a buffer of the packet size: it must come whole
// out of one decoder call, so that the server always checks its checksum.
Bytes DecodeBlock(const vx::BlockCoding& coding, Bytes block, size_t packetSize) {
    if (coding.scramble) vx::UnscrambleBlock(coding.key, block.data(), block.size());
    if (coding.compression == vx::kCompressNone) return block;
    Bytes out(packetSize);
    size_t consumed = block.size();
    size_t produced = 0;
    int rc = vx::kBlockNoDecoder;
    if (coding.compression == vx::kCompressC1) {
        rc = vx::DecodeC1(block.data(), block.size(), out.data(), out.size(), &consumed, &produced);
    } else if (vx::C2BlockPtr c2 = vx::BeginC2Block(block.data(), block.size())) {
        rc = vx::InflateC2Block(*c2, out.data(), out.size(), &produced);
    }
    EXPECT_EQ(rc, vx::kBlockDone);
    EXPECT_EQ(consumed, block.size());
    out.resize(produced);
    return out;
}

// Sends data through the encoder the way the sender does (offering what is left, keeping what a
// block did not take) and decodes every block; the decoded bytes in order.
Bytes RoundTrip(const vx::BlockCoding& coding, size_t packetSize, const Bytes& data) {
    vx::BlockEncoder encoder;
    EXPECT_EQ(encoder.Open(coding, packetSize), 0);
    Bytes decoded;
    Bytes block(packetSize);
    for (size_t at = 0; at < data.size();) {
        size_t offer = std::min(encoder.InputPerBlock(), data.size() - at);
        vx::EncodedBlock encoded;
        EXPECT_EQ(encoder.Encode(data.data() + at, offer, block.data(), block.size(), &encoded), 0);
        EXPECT_GT(encoded.consumed, 0u);
        EXPECT_LE(encoded.length, packetSize);
        if (encoded.consumed == 0 || encoded.length > packetSize) break;
        Bytes out =
            DecodeBlock(coding, Bytes(block.begin(), block.begin() + encoded.length), packetSize);
        EXPECT_EQ(out.size(), encoded.consumed);
        EXPECT_EQ(encoded.checksum,
                  vx::BlockChecksum(vx::AddToBlockSum(0, out.data(), out.size())));
        decoded.insert(decoded.end(), out.begin(), out.end());
        at += encoded.consumed;
    }
    return decoded;
}

TEST(SendBlocks, EveryCodingRoundTripsThroughTheServersDecoders) {
    const Bytes data = Sample();
    for (vx::SendCompression compression : {vx::kCompressNone, vx::kCompressC1, vx::kCompressC2}) {
        for (bool scramble : {false, true}) {
            vx::BlockCoding coding;
            coding.compression = compression;
            coding.scramble = scramble;
            coding.key = 0x5a17c3e9u;
            coding.checksum = true;
            for (size_t packetSize : {size_t{15000}, size_t{20}, size_t{1021}}) {
                EXPECT_EQ(RoundTrip(coding, packetSize, data), data)
                    << "compression " << compression << " scramble " << scramble << " packet "
                    << packetSize;
            }
        }
    }
}

TEST(SendProtocol, LpdControlFilePrintsOneLinePerCopyUnderNamesTheServerKeeps) {
    vx::SendOptions o;
    vx::CopyText(o.owner, "anna");
    o.copies = 3;
    vx::LpdJobNames names;
    vx::MakeLpdJobNames(1042, "app-01.example", &names);
    std::string control = vx::MakeLpdControlFile(o, "app-01.example", names, "Q3", "q3.pdf");
    EXPECT_EQ(control,
              "Happ-01.example\nPanna\nJQ3\nNq3.pdf\nldfA042app01example\nldfA042app01example\n"
              "ldfA042app01example\nUdfA042app01example\n");
}

TEST(SendProtocol, JobStatusAnswersBecomeExitCodes) {
    // "done" and "unknown" (any other status) go through the real server in test_vorlix_send.py.
    EXPECT_EQ(vx::JobStatusExit("&&ERRORPROT&&\n&&1SPO801 x\nDevice unknown\n"), vx::kExitRefused);
    EXPECT_EQ(vx::JobStatusExit("Printer lp, Job 7:\n"), vx::kExitNotFinished);  // still printing
}

TEST(SendProtocol, GreetingAndTitleArgument) {
    EXPECT_EQ(vx::GreetingPacketSize("OK ZELLPD 231 20 N N"), 20u);
    EXPECT_EQ(vx::GreetingPacketSize("OK ZELLPD 231 19 N N"), 0u);
    EXPECT_EQ(vx::GreetingPacketSize("OK 231 15000"), 0u);

    vx::SendOptions o;
    vx::CopyText(o.titleOptions[0], "SUM");
    vx::CopyText(o.titleOptions[1], "FILE:x.pdf");
    o.titleOptionCount = 2;
    char title[128];
    vx::MakeTitleArgument(o, "Q3 report", title, sizeof title);
    EXPECT_STREQ(title, "OPT:SUM OPT:FILE:x.pdf Q3 report");
}

TEST(SendProgress, ALongFileNameNeverPushesTheFiguresOut) {
    char line[100];
    vx::FormatProgress(std::string(300, 'n').c_str(), 5 << 20, 10 << 20, line, sizeof line);
    EXPECT_NE(strstr(line, " 50%  5.0/10.0 MB"), nullptr) << line;
    // A file that grew while it was sent stops at 100%.
    vx::FormatProgress("f", 11 << 20, 10 << 20, line, sizeof line);
    EXPECT_NE(strstr(line, "[##############################] 100%"), nullptr) << line;
}

}  // namespace
