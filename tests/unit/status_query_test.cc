// Status queries over a loopback connection: job status answers from the status list and from the
// print library, printer answers from a fake spooler and the service's own queue, the default
// printer names and the installed-printers dialogue; on Linux also against a private cupsd.
#include "protocol/status_query.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/codepage.h"
#include "base/ni.h"
#include "fake_spooler.h"
#include "jobs_fixture.h"
#include "loopback_pair.h"
#include "net/listener.h"
#include "spooler/spool_job.h"

using namespace std::string_literals;

namespace {

// ---- the print library's job states and queue lines ----

struct FakeLibrary {
    std::map<std::string, int> states;  // job id -> ZEL_JOB_*
    std::string errorText;
    std::vector<std::string> lines;  // queue entries of every printer
    std::vector<std::string> calls;

    static FakeLibrary& Get() {
        static FakeLibrary fake;
        return fake;
    }
    static void ToWide(const std::string& text, ZelWide* out, int size) {
        int i = 0;
        for (; i + 1 < size && i < int(text.size()); ++i) out[i] = ZelWide(text[size_t(i)]);
        out[i] = 0;
    }
    static int StatusQuery(const ZelWide* jobId, const ZelWide*, int* state, ZelWide* error,
                           int size) {
        auto it = Get().states.find(vxtest::Narrow(jobId));
        if (it == Get().states.end()) return 7;
        *state = it->second;
        ToWide(Get().errorText, error, size);
        return 0;
    }
    static int Lock(const ZelWide* printer) {
        Get().calls.push_back("lock " + vxtest::Narrow(printer));
        return 0;
    }
    static int Unlock(const ZelWide* printer) {
        Get().calls.push_back("unlock " + vxtest::Narrow(printer));
        return 0;
    }
    static int Count(const ZelWide*, int* count) {
        *count = int(Get().lines.size());
        return 0;
    }
    static int Entry(const ZelWide*, int index, char* line, int size) {
        vx::CopyText(line, size_t(size), Get().lines[size_t(index)].c_str());
        return 0;
    }
};

class StatusQueryTest : public vxtest::JobsFixture {
  protected:
    void SetUp() override {
        JobsFixture::SetUp();
        ASSERT_EQ(vx::NiInit(vx::kNiMaxHandles), vx::kNiOk);
        vxtest::UseDefaultListenerParams();
        spooler().anyNameIsAPrinter = false;
        spooler().printers["lp"];
        ASSERT_EQ(pair_.Open(), vx::kNiOk);
        socket_.niHandle = pair_.server;
    }

    std::string Job(const char* queue, const char* job) {
        vx::QueryJob(&socket_, queue, 257, job);
        return pair_.ReceiveAll();
    }
    std::string Printer(const char* queue) {
        vx::QueryPrinter(&socket_, queue, 257);
        return pair_.ReceiveAll();
    }

    // The print library as the fake above; jobs are still printed by the recording backend.
    void UseLibrary() {
        static vx::PrintBackend table;
        table = vx::Backend();
        table.JobStatusQueryEx = FakeLibrary::StatusQuery;
        table.LockPrinterListEx = FakeLibrary::Lock;
        table.UnlockPrinterListEx = FakeLibrary::Unlock;
        table.GetNumberOfEntriesEx = FakeLibrary::Count;
        table.GetNextQueueEntryEx = FakeLibrary::Entry;
        vx::SetPrintBackendForTest(&table);
        FakeLibrary::Get() = FakeLibrary{};
        vx::g_Options.UseEnhancedSW = 1;
    }

    vxtest::LoopbackPair pair_;
    vx::NetSocket socket_;
};

const std::string kUnknownAnswer =
    "Status: unknown\n\0&&ERRORPROT&&\n\0&&1SPO813 Vorlix: Auftrag eventuell nicht gedruckt.\n\0"s;
const std::string kProblem =
    "&&ERRORPROT&&\n\0&&1SPO801 Der verarbeitende Vorlix meldet Probleme.\n\0"s;

// ---- job queries from the status list ----

// An error answer carries its text (that a final status is answered once: job_status_list_test).
TEST_F(StatusQueryTest, ErrorStatusCarriesItsText) {
    PutStatus("lp", "43", vx::kJobError, "See_logfile_for_details.");
    EXPECT_EQ(Job("lp", "43"), "Printer lp, Job 43:\n\0Status: error\n\0"s + kProblem +
                                   "See_logfile_for_details.\0"s);
    EXPECT_EQ(LogCount("Error: Found job error for job 43 on printer lp"), 1);
}

TEST_F(StatusQueryTest, QueueNamesLoseOneCarriageReturnAndResolveTheDefaultPrinter) {
    PutStatus("lp", "5", vx::kJobDone, "Done");
    spooler().defaultPrinter = "lp";
    EXPECT_EQ(Job("__DEFAULT\r", "5"), "Printer lp, Job 5:\n\0Status: done\n\0"s);

    char name[vx::kQueueNameSize] = "__default";
    spooler().defaultPrinter = "";
    EXPECT_EQ(vx::ResolveDefaultPrinter(name, sizeof name), -1);
    EXPECT_STREQ(name, "__default");
    EXPECT_EQ(LogCount("Error: Cannot determine default printer."), 1);

    // Only the exact spellings are default names.
    char other[vx::kQueueNameSize] = "__DeFault";
    EXPECT_EQ(vx::ResolveDefaultPrinter(other, sizeof other), 0);
    EXPECT_STREQ(other, "__DeFault");
    char cut[vx::kQueueNameSize];
    vx::ResolveQueueName("lp\r\r", 257, cut, sizeof cut);
    EXPECT_STREQ(cut, "lp\r");
}

// ---- job queries answered by the print library ----

TEST_F(StatusQueryTest, LibraryStatesMapToTheStatusWords) {
    UseLibrary();
    FakeLibrary::Get().states = {
        {"d", ZEL_JOB_DONE}, {"e", ZEL_JOB_ERROR}, {"p", ZEL_JOB_PRINTING}};
    FakeLibrary::Get().errorText = std::string(100, 'x');
    EXPECT_EQ(Job("lp", "d"), "Printer lp, Job d:\n\0Status: done\n\0"s);
    EXPECT_EQ(Job("lp", "e"),
              "Printer lp, Job e:\n\0Status: error\n\0"s + kProblem + std::string(80, 'x') + "\0"s);
    EXPECT_EQ(Job("lp", "p"), "Printer lp, Job p:\n\0"s + kUnknownAnswer);
    EXPECT_EQ(LogCount("Error: Unexpected status 3 for job p"), 1);
    EXPECT_EQ(Job("lp", "gone"), "Printer lp, Job gone:\n\0"s + kUnknownAnswer);
    EXPECT_EQ(LogCount("Error: JobStatusQueryEx returns 7 for job gone."), 1);
}

// ---- printer queries: lines without NUL bytes, although send_with_null is 1 here ----

TEST_F(StatusQueryTest, PrinterAnswerListsSpoolerJobsThenTheServiceQueueWithRanks) {
    vx::g_Options.ZELUserAsOwner = 1;
    spooler().printers["lp"].jobs = {
        vxtest::SpoolJob(7, "alice", "report.txt", vx::kSpoolJobPrinting),
        vxtest::SpoolJob(8, "bob", "printed already", vx::kSpoolJobPrinted),
        vxtest::SpoolJob(9, "carol", "a", vx::kSpoolJobPaused, "Paper Error"),
        vxtest::SpoolJob(10, "dave-with-a-long-name", "b",
                         vx::kSpoolJobOffline | vx::kSpoolJobPaused),
    };
    BlockPrinting();
    ASSERT_EQ(ReceiveS("lp", "j1"), 0);
    ASSERT_TRUE(fake().WaitStarted(1));
    ASSERT_EQ(ReceiveS("lp", "j2"), 0);
    EXPECT_EQ(Printer("lp"),
              "Rank   Owner      Job  Files\n"
              "active alice         7  report.txt\n"
              "Warning: Paper Error\n"
              "1st    carol         9  a\n"
              "Warning: Device offline\n"
              "2nd    dave-with-a- 10  b\n"
              "3rd    owner         3  j1\n"
              "4th    owner         4  j2\n");
    EXPECT_EQ(spooler().closed, 1);
}

TEST_F(StatusQueryTest, PrinterWarningReplacesAllJobLines) {
    spooler().printers["lp"].status = vx::kPrinterPaperOut | vx::kPrinterUserIntervention;
    spooler().printers["lp"].jobs = {vxtest::SpoolJob(1, "u", "d")};
    BlockPrinting();
    ASSERT_EQ(ReceiveS("lp", "own"), 0);
    EXPECT_EQ(Printer("lp"), "Rank   Owner      Job  Files\nWarning: Device out of paper\n");
}

TEST_F(StatusQueryTest, EmptyUnknownAndFailingPrinters) {
    EXPECT_EQ(Printer("lp"), "no entries\n");

    EXPECT_EQ(Printer("nope"), "Warning: Device unknown\n");
    EXPECT_EQ(Job("nope", "1"), kProblem + "Device unknown\n\0"s);
    EXPECT_EQ(LogCount("Error: Printer nope not found."), 1);

    spooler().enumJobsFails = true;
    spooler().closeFails = true;
    EXPECT_EQ(Printer("lp"), "no entries\n");
    EXPECT_EQ(LogCount("Error: ClosePrinter failed."), 1);
}

// ---- a sender that reads slowly holds up no queue ----

// A secured channel standing for a slow reader: every write lets another thread look at the job
// list first, and notes whether the print library's printer list is locked.
struct SlowReader {
    std::string written;
    int writesWithJobListHeld = 0;
    int writesWithLibraryListLocked = 0;
    std::vector<std::thread> lookups;  // joined after the answer

    static SlowReader& Get() {
        static SlowReader reader;
        return reader;
    }
    static int32_t Write(vx::NetSocket&, const void* data, int32_t length) {
        SlowReader& r = Get();
        r.written.append(static_cast<const char*>(data), size_t(length));
        const auto& calls = FakeLibrary::Get().calls;
        if (std::count(calls.begin(), calls.end(), "lock lp") >
            std::count(calls.begin(), calls.end(), "unlock lp"))
            ++r.writesWithLibraryListLocked;
        auto looked = std::make_shared<std::atomic<bool>>(false);
        r.lookups.emplace_back([looked] {
            vx::VisitQueuedJobs(
                "lp", [](void*, int32_t, const vx::JobInfo&) { return 0; }, nullptr);
            *looked = true;
        });
        // Only a guard: a job list held by this write never becomes free while it waits.
        auto end = std::chrono::steady_clock::now() + vxtest::kHangGuard;
        while (!*looked && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (!*looked) ++r.writesWithJobListHeld;
        return length;
    }
    static int32_t Read(vx::NetSocket&, void*, int32_t) { return 0; }
    static void Done(vx::NetSocket&) {}

    // The printer answer on a socket through this channel.
    static std::string Answer(vx::NetSocket& socket) {
        static const vx::SecuredChannel channel = {Read, Write, Done};
        Get() = SlowReader{};
        int session = 0;
        vx::NetSocket secured = socket;
        secured.sncSession = reinterpret_cast<vx::SncSession*>(&session);
        secured.secured = true;
        vx::InstallSecuredChannel(&channel);
        vx::QueryPrinter(&secured, "lp", 257);
        vx::InstallSecuredChannel(nullptr);
        for (std::thread& lookup : Get().lookups) lookup.join();
        return Get().written;
    }
};

// The service queue alone starts at the first rank.
TEST_F(StatusQueryTest, ServiceQueueIsNotHeldWhileItsLinesAreSent) {
    BlockPrinting();
    for (const char* id : {"a", "b", "c"}) ASSERT_EQ(ReceiveS("lp", id), 0);
    EXPECT_EQ(SlowReader::Answer(socket_),
              "Rank   Owner      Job  Files\n"
              "1st                  1  a\n"
              "2nd                  2  b\n"
              "3rd                  3  c\n");
    EXPECT_EQ(SlowReader::Get().writesWithJobListHeld, 0);
}

TEST_F(StatusQueryTest, LibraryQueueLinesAreReadUnderItsLockAndSentAfterIt) {
    UseLibrary();
    FakeLibrary::Get().lines = {"first line\n", "second line\n"};
    spooler().printers["lp"].jobs = {vxtest::SpoolJob(3, "u", "doc")};
    EXPECT_EQ(SlowReader::Answer(socket_),
              "Rank   Owner      Job  Files\n"
              "active u             3  doc\n"
              "first line\nsecond line\n");
    EXPECT_EQ(FakeLibrary::Get().calls, (std::vector<std::string>{"lock lp", "unlock lp"}));
    EXPECT_EQ(SlowReader::Get().writesWithLibraryListLocked, 0);
}

// ---- installed printers ----

// The sender's side of the dialogue: every text read is answered with reply (or "NO" for the
// text numbered failAt). Returns the texts.
std::vector<std::string> AnswerTexts(vxtest::LoopbackPair& pair, int failAt = -1) {
    std::vector<std::string> texts;
    vx::NiSetSingleRead(pair.client, true);
    for (;;) {
        char buffer[4096];
        int32_t count = 0;
        int rc = vx::NiRawRead(pair.client, buffer, sizeof buffer, 2000, &count);
        if (rc != vx::kNiOk || count == 0) return texts;
        texts.emplace_back(buffer, size_t(count));
        std::string reply = int(texts.size()) - 1 == failAt ? "NO" : "OK";
        int32_t written = 0;
        vx::NiRawWrite(pair.client, reply.data(), int32_t(reply.size()), 2000, &written);
        if (texts.back() == "QP finished\0"s || reply == "NO") return texts;
    }
}

TEST_F(StatusQueryTest, InstalledPrintersAreSentTextByTextWithAcknowledgements) {
    // Only a guard against a hang: a sender that stops answering is given up.
    vx::g_ListenerParams.NiReadTimeout = 5000;
    vx::g_ListenerParams.NiReadLoopBreak = 0;
    spooler().printers["lp"].location = "Raum 101";
    spooler().printers["lp"].driver = "Raw";
    // A name beyond ASCII, in the host's code page; it goes out in UTF-8.
    spooler().printers[vx::kCodePageNarrowApi == vx::kCodePageUtf8 ? "B\xC3\xBCro" : "B\xFCro"];
    bool answered = false;
    std::thread service([&] { answered = vx::GetInstalledPrinters(&socket_); });
    std::vector<std::string> texts = AnswerTexts(pair_);
    service.join();
    EXPECT_TRUE(answered);
    EXPECT_EQ(texts, (std::vector<std::string>{"2\n\0"s, "B\xC3\xBCro\0"s, " \0"s, " \0"s, "lp\0"s,
                                               "Raum 101\0"s, "Raw\0"s, "QP finished\0"s}));

    answered = true;
    std::thread refused([&] { answered = vx::GetInstalledPrinters(&socket_); });
    texts = AnswerTexts(pair_, 2);
    refused.join();
    EXPECT_FALSE(answered);
    EXPECT_EQ(texts.size(), 3u);
    EXPECT_EQ(LogCount("Error: GetInstalledPrinters: Protocol error: NO"), 1);
}

// ---- against a private cupsd (Linux, CUPS_SERVER set) ----

TEST_F(StatusQueryTest, StoppedCupsQueueReportsPausedWithItsJob) {
    const char* server = getenv("CUPS_SERVER");
    if (vx::BuiltInPrinterName() == nullptr || server == nullptr || server[0] == '\0')
        GTEST_SKIP() << "needs a private cupsd named by CUPS_SERVER (Linux)";
    vxtest::FakeSpooler::Remove();
    std::string queue = vxtest::UniqueName("sq_");
    std::string file = DataFile("cups.txt", "held\n");
    std::string add = "lpadmin -p " + queue +
                      " -E -v socket://127.0.0.1:9/ -m raw && cupsdisable " + queue + " && lp -d " +
                      queue + " " + file + " >/dev/null";
    ASSERT_EQ(std::system(add.c_str()), 0);

    std::string answer = Printer(queue.c_str());
    std::system(("lpadmin -x " + queue).c_str());
    EXPECT_EQ(answer, "Rank   Owner      Job  Files\nWarning: Device paused\n");
}

}  // namespace
