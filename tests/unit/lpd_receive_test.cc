// LPD job reception over loopback: the subcommand dialogue as a sender sees it (acknowledgements,
// refusals), the files it leaves in the temporary directory, the job record it makes, and the
// control-file analysis on its own.
#include "protocol/lpd_receive.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/fileops.h"
#include "base/ni.h"
#include "base/sync.h"
#include "jobs/job_context.h"
#include "loopback_pair.h"
#include "net/listener.h"
#include "printserver/zelprsrv.h"
#include "protocol/control_file_memory.h"
#include "prsrv_fixture.h"
#include "test_support.h"

#if !defined(_WIN32)
#include <sys/resource.h>

#include <csignal>
#endif

namespace {

using vxtest::LoopbackPair;

constexpr int kNoAck = -2;

// A job as the dialogue handed it over.
struct HandedJob {
    vx::JobRecord record;
    vx::JobContext context;
};

// What the dialogue hands over, from its own thread.
struct HandOvers {
    std::mutex mutex;
    std::vector<HandedJob> jobs;
    int result = 0;  // what the next hand-overs answer

    static int Take(void* context, vx::JobRecord* const* jobs, int count) {
        auto* self = static_cast<HandOvers*>(context);
        std::lock_guard<std::mutex> hold(self->mutex);
        if (self->result != 0) return self->result;
        for (int i = 0; i < count; ++i) self->jobs.push_back({*jobs[i], *jobs[i]->Context});
        return 0;
    }
    size_t Count() {
        std::lock_guard<std::mutex> hold(mutex);
        return jobs.size();
    }
};

// The next acknowledgement byte a sender gets on its end of a connection, or kNoAck.
int AckOn(vx::NiHandle client) {
    unsigned char byte = 0;
    int32_t count = 0;
    if (vx::NiRawRead(client, &byte, 1, 10000, &count) != vx::kNiOk || count != 1) return kNoAck;
    return byte;
}

class LpdReceiveFixture : public vxtest::PrsrvFixture {
  protected:
    void SetUp() override {
        PrsrvFixture::SetUp();
        ASSERT_EQ(vx::NiInit(vx::kNiMaxHandles), vx::kNiOk);
        Seed("LogLevel", "9");
        vxtest::UseDefaultListenerParams();
        prsrv_ = Make();
        vx::g_prsrv = prsrv_.get();
        temp_ = prsrv_->TempDirectory();
        ASSERT_EQ(pair_.Open(), vx::kNiOk);
        socket_.niHandle = pair_.server;
    }

    void TearDown() override {
        if (server_.joinable()) server_.join();
        vx::g_prsrv = nullptr;
    }

    // The service side: the dialogue for a queue on its own thread.
    void StartReceiving(const char* queue = "PRINTER") {
        if (server_.joinable()) server_.join();
        handed_.jobs.clear();
        server_ = std::thread(
            [this, queue] { made_ = vx::ReceiveJob(queue, &socket_, HandOvers::Take, &handed_); });
    }

    // The sender closes; the dialogue ends and the jobs it handed over are returned.
    const std::vector<HandedJob>& CloseAndFinish() {
        LoopbackPair::Close(pair_.client);
        return Finish();
    }

    // A new sender on the same listener, for the next dialogue after one that closed.
    void Reconnect() {
        LoopbackPair::Close(pair_.server);
        ASSERT_EQ(pair_.Connect("127.0.0.1"), vx::kNiOk);
        socket_.niHandle = pair_.server;
    }

    // Waits for the dialogue to end on its own (a refusal), the sender still connected.
    const std::vector<HandedJob>& Finish() {
        server_.join();
        EXPECT_EQ(static_cast<size_t>(made_), handed_.jobs.size());
        return handed_.jobs;
    }

    bool Exists(const std::string& name) { return vx::FsExists((temp_ + name).c_str()); }

    int Ack() { return AckOn(pair_.client); }

    int Send(const std::string& bytes) { return pair_.Send(bytes) ? Ack() : kNoAck; }

    // A whole file subcommand as a sender runs it: the acknowledgements of the announcement and of
    // the content.
    std::pair<int, int> SendFile(char subcommand, const std::string& name,
                                 const std::string& content) {
        int first =
            Send(std::string(1, subcommand) + std::to_string(content.size()) + " " + name + "\n");
        if (first != 0) return {first, kNoAck};
        return {first, Send(content + std::string(1, '\0'))};
    }

    std::string Log() { return vxtest::ReadTextFile(prsrv_->MainLogPath()); }
    bool Logged(const std::string& text) { return Log().find(text) != std::string::npos; }

    std::unique_ptr<vx::Czelprsrv> prsrv_;
    std::string temp_;
    LoopbackPair pair_;
    vx::NetSocket socket_;
    std::thread server_;
    HandOvers handed_;
    int made_ = 0;
};

// A subcommand line: its byte, then the text.
std::string Line(char subcommand, const std::string& text) {
    return std::string(1, subcommand) + text;
}

const std::string kControl = "Hhost\nPuser\nJSP12345B\nldfA001host\n";

// Pads a control text with a line that the analysis ignores to exactly size bytes.
std::string PaddedControl(const std::string& text, size_t size) {
    return text + "C" + std::string(size - text.size() - 2, 'x') + "\n";
}

// ---- the dialogue ----

// Control file first: each data file becomes its job as it arrives, described by the control file
// that names it; one it does not name waits for the end and takes the last control file.
TEST_F(LpdReceiveFixture, EveryDataFileIsAJobOfItsOwnInTheOrderReceived) {
    StartReceiving("LASER");
    const std::string control = "Puser\nJjob\nldfA\nldfA\nldfB\n";
    EXPECT_EQ(SendFile('\x02', "cfA001host", control), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "dfA", "one"), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "dfC", "three"), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "dfB", "two"), std::make_pair(0, 0));
    EXPECT_EQ(handed_.Count(), 2u);  // dfC waits: no control file names it
    // A second control file describes what it names; a name taken already gets a suffix.
    EXPECT_EQ(SendFile('\x02', "cfB001host", "Pother\nJsecond\nldfA\n"), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "dfA", "four"), std::make_pair(0, 0));
    const auto& jobs = CloseAndFinish();
    ASSERT_EQ(jobs.size(), 4u);
    EXPECT_STREQ(jobs[0].record.PrinterName, "LASER");
    EXPECT_STREQ(jobs[0].context.Title, "user:job");
    EXPECT_EQ(std::string(jobs[0].context.FileName), temp_ + "dfA");
    struct Expected {
        const char* id;
        const char* content;
        int copies;
        const char* owner;
    };
    const Expected expected[] = {{"dfA", "one", 2, "user"},
                                 {"dfB", "two", 1, "user"},
                                 {"dfA.001", "four", 1, "other"},
                                 // described by the last control file as a whole: its print lines
                                 {"dfC", "three", 1, "other"}};
    for (size_t i = 0; i < jobs.size(); ++i) {
        EXPECT_STREQ(jobs[i].record.JobId, expected[i].id);
        EXPECT_EQ(vxtest::ReadWholeFile(jobs[i].context.FileName), expected[i].content);
        EXPECT_EQ(jobs[i].record.Copies, expected[i].copies) << expected[i].id;
        EXPECT_STREQ(jobs[i].record.Owner, expected[i].owner);
    }
}

// A job that cannot be taken over is refused on the acknowledgement that would complete it (data
// file or control file), and its data file goes: the sender sends it again.
TEST_F(LpdReceiveFixture, JobsThatCannotBeTakenOverAreRefusedAndLeaveNoFile) {
    handed_.result = -1;
    StartReceiving();
    EXPECT_EQ(SendFile('\x02', "cfA001host", kControl), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "dfA001host", "x"), std::make_pair(0, 0xff));
    EXPECT_TRUE(CloseAndFinish().empty());
    EXPECT_FALSE(Exists("dfA001host"));

    // Data file first: the control file that would complete its job is the one refused.
    Reconnect();
    StartReceiving();
    EXPECT_EQ(SendFile('\x03', "dfA001host", "x"), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x02', "cfA001host", kControl), std::make_pair(0, 0xff));
    EXPECT_TRUE(CloseAndFinish().empty());
    EXPECT_FALSE(Exists("dfA001host"));
    EXPECT_TRUE(Logged("Error: Job for printer 'PRINTER' refused"));
}

// Without a control file there is no job: one announced above 16 MiB is refused at once (the
// failed subcommand ends the dialogue), data files alone are not kept, and a control file cut
// short does not count.
TEST_F(LpdReceiveFixture, WithoutAControlFileThereIsNoJobAndNoFile) {
    const std::string missing =
        "Error: Controlfile is missing (protocol or network problem). No printout.\n";
    StartReceiving();
    EXPECT_EQ(Send(Line('\x02', "16777217 cfA001host\n")), 0xff);
    EXPECT_TRUE(Finish().empty());
    EXPECT_EQ(vxtest::CountOccurrences(Log(), missing), 1);

    StartReceiving();
    EXPECT_EQ(SendFile('\x03', "dfA001host", "data"), std::make_pair(0, 0));
    EXPECT_TRUE(CloseAndFinish().empty());
    EXPECT_EQ(vxtest::CountOccurrences(Log(), missing), 2);
    EXPECT_FALSE(Exists("dfA001host"));

    Reconnect();
    StartReceiving();
    EXPECT_EQ(Send(Line('\x02', "100 cfA001host\n")), 0);
    ASSERT_TRUE(pair_.Send("Puser\n"));
    EXPECT_TRUE(CloseAndFinish().empty());
    EXPECT_EQ(vxtest::CountOccurrences(Log(), missing), 3);
}

// A refused subcommand ends the dialogue; a data file that waited for its control file goes, since
// the refused sender sends its job again.
TEST_F(LpdReceiveFixture, MalformedSubcommandsAreRefusedAndEndTheDialogue) {
    struct Case {
        std::string line, error;
    };
    const Case cases[] = {
        {Line('\x02', "100\n"), "Error: Format error in 'receive control file' (WSP)\n"},
        {Line('\x03', "10 dfA001host\t\fx\n"), "Error: Format error in 'receive data file (NL)'\n"},
        {Line('\x02', "10 " + std::string(49, 'c') + "\n"), "Error: Controlfile name too long\n"},
        {Line('\x07', "whatever\n"), "Error: Unknown receive job command, buff[0] = 7\n"},
    };
    for (const Case& c : cases) {
        StartReceiving();
        EXPECT_EQ(SendFile('\x02', "cfA001host", kControl), std::make_pair(0, 0));
        EXPECT_EQ(SendFile('\x03', "dfWaiting", "w"), std::make_pair(0, 0));
        EXPECT_EQ(Send(c.line), 0xff) << c.error;
        EXPECT_TRUE(Finish().empty()) << c.error;  // without waiting for the sender to close
        EXPECT_TRUE(Logged(c.error)) << c.error;
        EXPECT_FALSE(Exists("dfWaiting")) << c.error;
    }
    // Blanks, TABs and form feeds may stand before the line feed; a 48-character name is fine.
    StartReceiving();
    EXPECT_EQ(SendFile('\x02', std::string(48, 'c') + " \t\f", kControl), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "dfA001host", "x"), std::make_pair(0, 0));
    EXPECT_EQ(CloseAndFinish().size(), 1u);
}

TEST_F(LpdReceiveFixture, SenderNamesNeverLeaveTheTemporaryDirectory) {
    StartReceiving();
    EXPECT_EQ(SendFile('\x02', "cfA001host", kControl), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "../../..", "dots"), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "/../", "slash"), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "..\\..\\C:\\evil", "evil"), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "stal.dbd", "status"), std::make_pair(0, 0));
    const auto& jobs = CloseAndFinish();
    ASSERT_EQ(jobs.size(), 4u);
    // Nothing is left of the first two names: the directory itself is taken, the suffixes are not.
    EXPECT_EQ(vxtest::ReadWholeFile(temp_ + ".001"), "dots");
    EXPECT_EQ(vxtest::ReadWholeFile(temp_ + ".002"), "slash");
    EXPECT_EQ(std::string(jobs[2].context.FileName), temp_ + "Cevil");
    EXPECT_EQ(vxtest::ReadWholeFile(temp_ + "Cevil"), "evil");
    // The service's own names are never taken.
    EXPECT_EQ(std::string(jobs[3].context.FileName), temp_ + "staldbd");
    EXPECT_FALSE(Exists("stal.dbd"));
}

#if !defined(_WIN32)
// A file size limit stands for a full disk: writes beyond it fail as they would there.
TEST_F(LpdReceiveFixture, FullDiskRefusesTheJobAndTheDialogueStaysInStep) {
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    auto previous = signal(SIGXFSZ, SIG_IGN);
    rlimit small = saved;
    small.rlim_cur = 1024 * 1024;
    prsrv_->ChangeTraceOption("LogLevel", "1");  // keeps the log itself below the limit
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);

    StartReceiving();
    EXPECT_EQ(SendFile('\x02', "cfA001host", kControl), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "dfA001host", std::string(3 * 1024 * 1024, 'd')),
              std::make_pair(0, 0xff));
    bool none = Finish().empty();  // the refused file ends the dialogue

    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, previous);
    EXPECT_TRUE(none);
    EXPECT_FALSE(Exists("dfA001host"));
    std::string log = Log();
    EXPECT_NE(log.find("Error: Write error on Datafile " + temp_ + "dfA001host: only "),
              std::string::npos)
        << log;
}
#endif

// ---- the control-file analysis ----

struct Analysis {
    std::string owner, title;
    int32_t copies;
};

Analysis Analyse(const std::string& control) {
    char owner[13] = "stale";
    char title[100] = "stale";
    int32_t copies = -7;
    vx::AnalyseControlFile(control.c_str(), owner, sizeof owner, title, sizeof title, &copies);
    return {owner, title, copies};
}

TEST(ControlFileAnalysis, TitleFromOwnerAndJobName) {
    struct Case {
        const char* control;
        const char* title;
    };
    const Case cases[] = {
        // Spool request names: the second character counts the part in steps of 26.
        {"Pu\nJSR00042Z\nldf\n", "u/SR00042Z: Spool-ID 42-77"},
        // Compact names are read in base 62 with two alphabets: "T" is 28 as the first
        // character, 29 after it; "S" first has no value.
        {"Pu\nJ0000001A\nldf\n", "u/0000001A: Spool-ID 0-72"},
        {"Pu\nJT0000000\nldf\n", "u/T0000000: Spool-ID 3009192168-12800"},
        {"Pu\nJTTzaS-9Z\nldf\n", "u/TTzaS-9Z: Spool-ID 3061182814-19729"},
        // Cut at the last dot; with a dot an "S" name is no spool request name.
        {"Pu\nJZ1234567.txt\nldf\n", "u/Z1234567.txt: Spool-ID 3655809766-1951"},
        {"Pu\nJSABCDEFG.x\nldf\n", "u/SABCDEFG.x: Spool-ID 17647103-14946"},
        // Anything else is owner and job name, both cut, the job name to its last path component.
        {"Pu\nJSHORT\nldf\n", "u:SHORT"},
        {"Pu\nJa.b.ABCDEFGHI\nldf\n", "u:a.b.ABCDEFGHI"},
        {"Pverylongusername other\nJ/usr/tmp/report 1\nl\n", "verylonguser:report"},
        {"Pu\nJC:\\spool\\file.txt\nl\n", "u:file.txt"},
        {"Pu\nJa\\b/c\\d\nl\n", "u:c\\d"},  // "/" wins over "\"
        // "N" names the job only while no "J" came before it.
        {"Pu\nNfirst\nJsecond\nNthird\nl\n", "u:second"},
        {"Pu\nNonly\nl\n", "u:only"},
        // Owner and job name change between print lines: the last print line wins.
        {"Pa\nJjob1\nldf\nPb\nJjob2\nldf\nPc\nJjob3\n", "b:job2"},
        // A print line before the names sees what the first pass found.
        {"ldf\nJx\nPu\n", "u:x"},
    };
    for (const Case& c : cases) EXPECT_EQ(Analyse(c.control).title, c.title) << c.control;
    EXPECT_EQ(Analyse("Pverylongusername other\nl\n").owner, "verylonguser");
    EXPECT_EQ(Analyse("Pu\nJ" + std::string(60, 'n') + "\nl\n").title, "u:" + std::string(50, 'n'));
}

TEST(ControlFileAnalysis, PrintLinesCountAndNameDataFilesExactly) {
    Analysis none = Analyse("Hhost\nPuser\nJjob\n");
    EXPECT_EQ(none.copies, 0);
    EXPECT_EQ(none.title, "");
    EXPECT_EQ(Analyse("Puser\nldf1\nfdf2\nxdf3\nUdf1\nTtitle\n").copies, 3);
    // A last line without a line feed does not count.
    EXPECT_EQ(Analyse("Puser\nldf1\nldf2").copies, 1);
    const std::string control = "Pu\nldfA\nfdfA\nUdfA\nldfA.x\nldfB\nNdfA\nldfA";
    EXPECT_EQ(vx::CountPrintLinesNaming(control.c_str(), "dfA"), 2);
    EXPECT_EQ(vx::CountPrintLinesNaming(control.c_str(), "dfB"), 1);
    EXPECT_EQ(vx::CountPrintLinesNaming(control.c_str(), "df"), 0);
    EXPECT_EQ(vx::CountPrintLinesNaming(control.c_str(), "u"), 0);
}

// ---- what a sender can make the service hold and trace ----

// One ceiling for the control files of all connections: a control file that would pass it is
// refused and ends its dialogue; the control file another connection holds is not harmed.
TEST_F(LpdReceiveFixture, ControlFilesOfAllConnectionsShareOneCeiling) {
    constexpr int64_t kMiB = 1024 * 1024;
    const int64_t before = vx::ControlFileBytesHeld();
    // All but 4 MiB of the ceiling is held elsewhere.
    const int64_t elsewhere = vx::kControlFileCeiling - before - 4 * kMiB;
    ASSERT_TRUE(vx::TakeControlFileBytes(elsewhere));

    StartReceiving();
    EXPECT_EQ(SendFile('\x02', "cfA001host", PaddedControl(kControl, 2 * kMiB)),
              std::make_pair(0, 0));

    // A second connection: its control file fits alone, but not beside the first.
    LoopbackPair other;
    ASSERT_EQ(other.Open(), vx::kNiOk);
    vx::NetSocket otherSocket;
    otherSocket.niHandle = other.server;
    HandOvers otherHanded;
    int otherMade = -1;
    std::thread second([&] {
        otherMade = vx::ReceiveJob("PRINTER", &otherSocket, HandOvers::Take, &otherHanded);
    });
    ASSERT_TRUE(other.Send(Line('\x02', std::to_string(2 * kMiB) + " cfB002host\n")));
    EXPECT_EQ(AckOn(other.client), 0);
    // The refusal comes once the buffer would pass the ceiling, before the whole file is there.
    ASSERT_TRUE(other.Send(std::string(static_cast<size_t>(kMiB + kMiB / 4), 'x')));
    EXPECT_EQ(AckOn(other.client), 0xff);
    LoopbackPair::Close(other.client);
    second.join();
    EXPECT_EQ(otherMade, 0);
    EXPECT_TRUE(
        Logged("Error: Controlfile cfB002host refused: the control files of all "
               "connections would hold more than 67108864 Bytes.\n"));

    // The first connection goes on as if nothing happened.
    EXPECT_EQ(SendFile('\x03', "dfA001host", "x"), std::make_pair(0, 0));
    const auto& jobs = CloseAndFinish();
    ASSERT_EQ(jobs.size(), 1u);
    EXPECT_STREQ(jobs[0].record.Owner, "user");
    EXPECT_EQ(vx::ControlFileBytesHeld(), before + elsewhere);
    vx::ReturnControlFileBytes(elsewhere);
}

// An abort-job subcommand is refused but, unlike other refusals, does not end the dialogue; print
// lines of unknown kinds still count as copies.
TEST_F(LpdReceiveFixture, AbortJobIsRefusedAndTheDialogueGoesOn) {
    std::string control = "Puser\nJjob\n";
    for (int i = 0; i < 10; ++i) control += "qdfA001host\nzdf\n";
    StartReceiving();
    for (int i = 0; i < 10; ++i) EXPECT_EQ(Send(Line('\x01', "\n")), 0xff);
    EXPECT_EQ(SendFile('\x02', "cfA001host", control), std::make_pair(0, 0));
    EXPECT_EQ(SendFile('\x03', "dfA001host", "x"), std::make_pair(0, 0));
    const auto& jobs = CloseAndFinish();
    ASSERT_EQ(jobs.size(), 1u);
    EXPECT_EQ(jobs[0].record.Copies, 10);
}

}  // namespace
