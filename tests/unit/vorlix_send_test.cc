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
    Parsed p = Parse({"-Hprint.example:5515",
                      "-P",
                      "laser",
                      "-Uanna",
                      "-T",
                      "Q3 report",
                      "-#3",
                      "--tray=2",
                      "--duplex",
                      "1",
                      "--job-id=J42",
                      "--option",
                      "NO_PAPER",
                      "--option=FILE:out.pdf",
                      "--compress=C2",
                      "--scramble",
                      "--checksum",
                      "--no-status",
                      "--timeout=5",
                      "a.txt",
                      "-",
                      "--",
                      "-odd-name"});
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
        {"server", "server", "515"},   {"10.0.0.7:1515", "10.0.0.7", "1515"},
        {"[::1]:6000", "::1", "6000"}, {"[fe80::1]", "fe80::1", "515"},
        {"fe80::2", "fe80::2", "515"},  // several colons and no brackets: an address, no port
    };
    for (const Case& c : cases) {
        Parsed p = Parse({"-H", c.arg});
        ASSERT_EQ(p.rc, 0) << c.arg << ": " << p.error;
        EXPECT_STREQ(p.options.host, c.host) << c.arg;
        EXPECT_STREQ(p.options.port, c.port) << c.arg;
    }
}

TEST(SendArguments, MistakesAreUsageErrorsNamingTheOption) {
    struct Case {
        std::vector<std::string> words;
        const char* named;  // the error names this
    } cases[] = {
        {{"--colour"}, "--colour"},
        {{"-P"}, "-P"},  // value missing at the end
        {{"-#1000"}, "-#"},
        {{"-#", "2x"}, "-#"},
        {{"-H", "host:70000"}, "port"},
        {{"-H", "host:"}, "port"},
        {{"-H", "[::1"}, "]"},
        {{"--tray=100"}, "--tray"},
        {{"--compress=c3"}, "c3"},
        {{"--quiet=yes"}, "--quiet"},  // a switch takes no value
        {{"--option=COLOR"}, "COLOR"},
        {{"--option=FILE:"}, "FILE"},
        {{"--job-id", "has blank"}, "--job-id"},
        {{"--job-id", std::string(41, 'j')}, "--job-id"},
        {{"--lpd", "--tray=1", "f"}, "--tray"},  // extended-only options with --lpd
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
}

TEST(SendArguments, QueriesAndHelp) {
    Parsed p = Parse({"-P", "lp", "--status", "dfA001host"});
    ASSERT_EQ(p.rc, 0) << p.error;
    EXPECT_EQ(p.options.action, vx::kActionStatus);
    EXPECT_STREQ(p.options.statusJob, "dfA001host");
    EXPECT_EQ(Parse({"--lpd", "--status=x"}).rc, 0);  // the status query is LPD anyway
    EXPECT_STREQ(Parse({"-P", "HP LaserJet 4", "job.prn"}).options.printer, "HP LaserJet 4");
    EXPECT_EQ(Parse({"--help", "--lpd", "--tray=1"}).rc, 0);  // help never fails
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

// ---- data blocks ----

Bytes Sample(size_t size, unsigned seed) {
    // Text, runs (short, long, of code bytes 0 to 9), repeated pairs and random noise.
    std::mt19937 random(seed);
    Bytes out;
    while (out.size() < size) {
        switch (random() % 5) {
            case 0: {
                const char* text = "Invoice 2024-117, line total 1,240.00 EUR\r\n";
                out.insert(out.end(), text, text + strlen(text));
                break;
            }
            case 1:
                out.insert(out.end(), 1 + random() % 700, static_cast<uint8_t>(random() % 12));
                break;
            case 2:
                for (unsigned n = 2 + random() % 300; n > 0; --n) {
                    out.push_back(0x1B);
                    out.push_back(static_cast<uint8_t>(random() % 3));
                }
                break;
            default:
                for (unsigned n = random() % 400; n > 0; --n)
                    out.push_back(static_cast<uint8_t>(random()));
        }
    }
    out.resize(size);
    return out;
}

// Decodes one block as the session does: unscramble, then decode into a buffer of outSize bytes.
// *calls counts the decoder calls (1: the checksum can be checked).
int DecodeBlock(const vx::BlockCoding& coding, Bytes block, size_t outSize, Bytes* out,
                int* calls) {
    if (coding.scramble) vx::UnscrambleBlock(coding.key, block.data(), block.size());
    Bytes buffer(outSize);
    *calls = 0;
    if (coding.compression == vx::kCompressNone) {
        *calls = 1;
        out->insert(out->end(), block.begin(), block.end());
        return vx::kBlockDone;
    }
    if (coding.compression == vx::kCompressC1) {
        size_t offset = 0;
        for (;;) {
            size_t consumed = 0;
            size_t produced = 0;
            int rc = vx::DecodeC1(block.data() + offset, block.size() - offset, buffer.data(),
                                  outSize, &consumed, &produced);
            ++*calls;
            out->insert(out->end(), buffer.begin(), buffer.begin() + produced);
            offset += consumed;
            if (rc != vx::kBlockOutputFull) return rc;
        }
    }
    vx::C2BlockPtr c2 = vx::BeginC2Block(block.data(), block.size());
    if (!c2) return vx::kBlockNoDecoder;
    for (;;) {
        size_t produced = 0;
        int rc = vx::InflateC2Block(*c2, buffer.data(), outSize, &produced);
        ++*calls;
        out->insert(out->end(), buffer.begin(), buffer.begin() + produced);
        if (rc != vx::kBlockOutputFull) return rc;
    }
}

// Sends data through the encoder the way the sender does (offering what is left, keeping what a
// block did not take) and decodes every block; the decoded bytes in order.
Bytes RoundTrip(const vx::BlockCoding& coding, size_t packetSize, const Bytes& data) {
    vx::BlockEncoder encoder;
    EXPECT_EQ(encoder.Open(coding, packetSize), 0);
    Bytes decoded;
    Bytes block(packetSize);
    size_t at = 0;
    while (at < data.size()) {
        size_t offer = std::min(encoder.InputPerBlock(), data.size() - at);
        vx::EncodedBlock encoded;
        EXPECT_EQ(encoder.Encode(data.data() + at, offer, block.data(), block.size(), &encoded), 0);
        EXPECT_GT(encoded.consumed, 0u);
        EXPECT_LE(encoded.length, packetSize);
        if (encoded.consumed == 0 || encoded.length > packetSize) break;
        Bytes out;
        int calls = 0;
        EXPECT_EQ(DecodeBlock(coding, Bytes(block.begin(), block.begin() + encoded.length),
                              packetSize, &out, &calls),
                  vx::kBlockDone);
        // Every block decodes in one pass through a buffer of the packet size, so the server
        // always checks its checksum.
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(out.size(), encoded.consumed);
        uint32_t expected =
            coding.checksum ? vx::BlockChecksum(vx::AddToBlockSum(0, out.data(), out.size())) : 0;
        EXPECT_EQ(encoded.checksum, expected);
        decoded.insert(decoded.end(), out.begin(), out.end());
        at += encoded.consumed;
    }
    return decoded;
}

// Besides the sample: random code bytes, which grow under both codes (C1 doubles the bytes 0 to
// 9, deflate adds its framing), and a long run, which shrinks to almost nothing and must not
// stand for more than a packet's bytes.
TEST(SendBlocks, EveryCodingRoundTripsThroughTheServersDecoders) {
    Bytes data = Sample(200000, 7);
    std::mt19937 random(3);
    for (int i = 0; i < 50000; ++i) data.push_back(static_cast<uint8_t>(random() % 10));
    data.insert(data.end(), 100000, 0);
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

TEST(SendBlocks, C1UsesEveryCode) {
    // Runs of 3 to 9 ("count value"), longer runs ("0 count value", at most 255 a code), pairs
    // ("2 count a b"), code bytes escaped ("1 byte"), other bytes as themselves.
    Bytes in = {'a', 'a', 'a', 'a', 'b'};
    in.insert(in.end(), 300, 'z');
    for (int i = 0; i < 4; ++i) in.insert(in.end(), {'x', 'y'});
    in.insert(in.end(), {5, 200});
    Bytes out(64);
    size_t consumed = 0;
    size_t produced = 0;
    vx::EncodeC1(in.data(), in.size(), out.data(), out.size(), &consumed, &produced);
    Bytes expected = {4, 'a', 'b', 0, 255, 'z', 0, 45, 'z', 2, 4, 'x', 'y', 1, 5, 200};
    EXPECT_EQ(consumed, in.size());
    EXPECT_EQ(Bytes(out.begin(), out.begin() + produced), expected);
}

// ---- protocol texts ----

TEST(SendProtocol, LpdControlFilePrintsOneLinePerCopyUnderNamesTheServerKeeps) {
    vx::SendOptions o;
    vx::CopyText(o.owner, "anna");
    o.copies = 3;
    vx::LpdJobNames names;
    vx::MakeLpdJobNames(1042, "app-01.example", &names);
    EXPECT_STREQ(names.data, "dfA042app01example");
    EXPECT_STREQ(names.control, "cfA042app01example");
    std::string control = vx::MakeLpdControlFile(o, "app-01.example", names, "Q3", "q3.pdf");
    EXPECT_EQ(control,
              "Happ-01.example\nPanna\nJQ3\nNq3.pdf\nldfA042app01example\nldfA042app01example\n"
              "ldfA042app01example\nUdfA042app01example\n");
}

TEST(SendProtocol, JobStatusAnswersBecomeExitCodes) {
    // "done" and "unknown" go through the real server in test_vorlix_send.py.
    EXPECT_EQ(vx::JobStatusExit("Printer lp, Job 7:\nStatus: error\n&&ERRORPROT&&\n"),
              vx::kExitRefused);
    EXPECT_EQ(vx::JobStatusExit("&&ERRORPROT&&\n&&1SPO801 x\nDevice unknown\n"), vx::kExitRefused);
    EXPECT_EQ(vx::JobStatusExit("Printer lp, Job 7:\n"), vx::kExitNotFinished);  // still printing
}

TEST(SendProtocol, GreetingAndTitleArgument) {
    EXPECT_EQ(vx::GreetingPacketSize("OK ZELLPD 231 20 N N"), 20u);
    EXPECT_EQ(vx::GreetingPacketSize("OK ZELLPD 231 19 N N"), 0u);
    EXPECT_EQ(vx::GreetingPacketSize("OK 231 15000"), 0u);
    EXPECT_EQ(vx::GreetingPacketSize("ER 815 Vorlix: Nicht genug Hauptspeicher."), 0u);

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
