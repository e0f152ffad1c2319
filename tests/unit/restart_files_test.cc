// Restart files: the queues and statuses written at the end are exactly what the next start
// restores; damaged files stop the reading and stay for inspection.
#include "jobs/restart_files.h"

#include <algorithm>
#include <filesystem>

#include "jobs_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace vx;
using Ids = std::vector<std::string>;

std::string Pad5(unsigned value) {
    std::string digits = std::to_string(value);
    return std::string(5 - std::min<size_t>(5, digits.size()), '0') + digits;
}

// A record: the 5-digit length, then the bytes.
std::string Rec(const std::string& body) {
    return Pad5(static_cast<unsigned>(body.size())) + body;
}

std::string Job(const std::string& printer, const std::string& title, std::string file,
                const std::string& jobId, char protocol, int copies = 1, int setupAgain = 0) {
    std::replace(file.begin(), file.end(), ' ', '?');
    return Rec(printer + '\0' + '\0' + title + '\0' + file + '\0' + jobId + '\0' + protocol + " " +
               Pad5(copies) + " " + Pad5(setupAgain) + "\n");
}

std::string Status(const std::string& jobId, const std::string& owner, const std::string& printer,
                   const std::string& text, int status, int copies = 1) {
    return Rec(jobId + '\0' + owner + '\0' + printer + '\0' + text + '\0' + " 00000 " +
               Pad5(status) + " " + Pad5(copies) + "\n");
}

class RestartFilesTest : public vxtest::JobsFixture {
  protected:
    std::string Base() { return g_prsrv->TempDirectory(); }
    std::string StatusFile() { return Base() + "stal.dbd"; }
    std::string QueueFile(const std::string& printer) {
        PrinterQueue queue;
        EXPECT_EQ(FindPrinterQueue(printer.c_str(), &queue), 0);
        return Base() + "prnl" + Pad5(queue.JobListId) + ".dbd";
    }
    std::string Text(const std::string& path) { return vxtest::ReadTextFile(path); }
    size_t NamesStartingWith(const std::string& prefix) {
        size_t n = 0;
        for (const auto& entry : fs::directory_iterator(dir_.Path()))
            n += entry.path().filename().string().rfind(prefix, 0) == 0;
        return n;
    }
};

TEST_F(RestartFilesTest, QueuesAndStatusesSurviveARestartExactly) {
    // P1 prints "first" until the gate opens; P2's job meets a device error and is kept.
    auto gate = std::make_shared<vxtest::Gate>();
    fake().Set([gate](const vxtest::PrintCall& call) {
        if (call.printer == "P2") return ZEL_RC_DEVICE;
        EXPECT_TRUE(gate->Pass());
        return ZEL_RC_OK;
    });
    const std::string blank = DataFile("my data.prn");
    ASSERT_EQ(ReceiveS("P1", "first"), 0);
    ASSERT_TRUE(fake().WaitStarted(1));
    auto r = Receive("P1", "blank", blank);
    ASSERT_EQ(EnterReceivedJob(&r->record), 0);
    ASSERT_EQ(ProcessJob(&r->record, 'S'), 0);
    ASSERT_EQ(ReceiveS("P1", "quiet", 1), 0);
    ASSERT_EQ(QueueU("P1", "plain", 2), 0);
    ASSERT_EQ(ReceiveS("P2", "kept"), 0);
    ASSERT_TRUE(Eventually([] { return g_StopReason == kStopDeviceContext; }));
    gate->Open();
    WaitForPrinterWorkers();
    PutStatus("P1", "old", kJobError, "See_logfile_for_details.");

    SaveQueuesForRestart();
    const std::string p1 = Job("P1", "title", blank, "blank", 'S') +
                           Job("P1", "title", dir_.File("quiet.prn"), "quiet", 'N') +
                           Job("P1", "", dir_.File("plain.prn"), "plain", 'U', 2);
    const std::string p2 = Job("P2", "title", dir_.File("kept.prn"), "kept", 'S', 1, 1);
    // "blank" is still printing (3): its printer file brings that status back.
    const std::string statuses = Status("first", "owner", "P1", "Done", 4) +
                                 Status("kept", "owner", "P2", "Printing", 6) +
                                 Status("old", "", "P1", "See_logfile_for_details.", 5, 0);
    const std::string p1File = QueueFile("P1"), p2File = QueueFile("P2");
    EXPECT_EQ(Text(p1File), p1);
    EXPECT_EQ(Text(p2File), p2);
    EXPECT_EQ(Text(StatusFile()), statuses);
    if (kPathSeparator == '\\') {  // Windows text files end their lines in CR LF
        EXPECT_NE(vxtest::ReadWholeFile(StatusFile()).find("\r\n"), std::string::npos);
    }
    EXPECT_EQ(NamesStartingWith("prnl") + NamesStartingWith("stal"), 3u);  // no temporary files

    // The next start: empty lists, printing held so that the restored queues can be looked at.
    DismantlePrinterQueues();
    ClearList(g_JobStatusList, 1);
    g_StopReason = kStopNone;
    BlockPrinting();
    RestoreQueues();
    EXPECT_FALSE(fs::exists(p1File) || fs::exists(p2File) || fs::exists(StatusFile()));
    EXPECT_EQ(QueuedIds("P1"), (Ids{"blank", "quiet", "plain"}));
    EXPECT_EQ(QueuedIds("P2"), (Ids{"kept"}));
    EXPECT_EQ(StatusOf("P1", "blank"), kJobPrinting);
    EXPECT_EQ(Count(g_JobStatusList), 4);  // "kept" came back once, from the status file

    // Saved again, the same bytes come out: every field and status came back as it was.
    SaveQueuesForRestart();
    EXPECT_EQ(Text(QueueFile("P1")), p1);
    EXPECT_EQ(Text(QueueFile("P2")), p2);
    EXPECT_EQ(Text(StatusFile()), statuses);
}

TEST_F(RestartFilesTest, DamagedFilesStopTheReadingAndStay) {
    const std::string good = DataFile("good.prn");
    const std::string tooLong = Base() + "prnl00001.dbd", cut = Base() + "prnl00002.dbd",
                      missing = Base() + "prnl00003.dbd";
    ASSERT_TRUE(vxtest::WriteWholeFile(
        tooLong, Job("P1", "", good, "g1", 'U') + "02001" + std::string(2001, 'x')));
    ASSERT_TRUE(vxtest::WriteWholeFile(cut, Job("P2", "", good, "g2", 'U') + "00100abc"));
    ASSERT_TRUE(vxtest::WriteWholeFile(
        missing, Job("P3", "", dir_.File("gone"), "m1", 'S') + Job("P3", "", good, "g3", 'U')));
    ASSERT_TRUE(vxtest::WriteWholeFile(StatusFile(), Status("s1", "o", "P1", "Done", 4) + "02001"));
    fs::create_directory(Base() + "prnl00009.dbd");  // a directory is no printer file

    RestoreQueues();
    ASSERT_TRUE(fake().WaitPrinted(3));
    Ids printed = fake().PrintedIds();
    std::sort(printed.begin(), printed.end());
    EXPECT_EQ(printed, (Ids{"g1", "g2", "g3"}));
    EXPECT_EQ(StatusOf("P1", "s1"), kJobDone);
    EXPECT_EQ(StatusOf("P3", "m1"), -1);
    for (const std::string& line : {"Error: Invalid printer file " + tooLong + ".\n",
                                    "Error: Invalid line size 100 in printer file " + cut + ".\n",
                                    std::string("Error: Restoring job m1 for printer P3 failed.\n"),
                                    "Error: File " + dir_.File("gone") + " missing.\n",
                                    "Error: Invalid status file " + StatusFile() + ".\n"})
        EXPECT_EQ(LogCount(line), 1) << line;
    EXPECT_TRUE(fs::exists(tooLong) && fs::exists(cut) && fs::exists(StatusFile()));
    EXPECT_FALSE(fs::exists(missing));  // read to its end: done with
}

TEST_F(RestartFilesTest, KeepRestoreFileMovesTheFilesAsideWithATimeStamp) {
    Seed("KeepRestoreFile", "1");
    ASSERT_TRUE(vxtest::WriteWholeFile(Base() + "prnl00042.dbd",
                                       Job("P1", "", DataFile("k.prn"), "k", 'U')));
    ASSERT_TRUE(vxtest::WriteWholeFile(StatusFile(), Status("s", "o", "P1", "Done", 4)));
    RestoreQueues();
    ASSERT_TRUE(fake().WaitPrinted(1));
    EXPECT_FALSE(fs::exists(Base() + "prnl00042.dbd") || fs::exists(StatusFile()));
    EXPECT_EQ(NamesStartingWith("prnl00042.dbd."), 1u);
    EXPECT_EQ(NamesStartingWith("stal.dbd."), 1u);
}

TEST_F(RestartFilesTest, WithNoStatusNoStatusFileIsReadOrWritten) {
    g_Options.NoStatus = 1;
    ASSERT_TRUE(vxtest::WriteWholeFile(StatusFile(), Status("s", "o", "P1", "Done", 4)));
    RestoreQueues();
    EXPECT_FALSE(fs::exists(StatusFile()));
    EXPECT_EQ(Count(g_JobStatusList), 0);
    PutStatus("P1", "done", kJobDone);
    SaveQueuesForRestart();
    EXPECT_FALSE(fs::exists(StatusFile()));
}

}  // namespace
