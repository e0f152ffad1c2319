// The journal beside each received job: written before hand-over, gone once the job is final, and
// at the next start the way back for every job a dead process left, in order and once.
#include "jobs/job_journal.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "jobs/restart_files.h"
#include "jobs/spare_files.h"
#include "jobs/temp_names.h"
#include "jobs_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace vx;
using Ids = std::vector<std::string>;

class JobJournalTest : public vxtest::JobsFixture {
  protected:
    std::string Temp() { return g_prsrv->TempDirectory(); }
    bool Exists(const std::string& name) { return fs::exists(Temp() + name); }

    // An LPD job as reception hands it over, its data file in the temporary directory.
    int ReceiveU(const std::string& printer, const std::string& jobId,
                 const std::string& content = "data\n") {
        auto r = Receive(printer, jobId, DataFile(jobId, content));
        return ProcessJob(&r->record, 'U');
    }

    // What a process that dies now leaves on disk: the journals and their data files.
    std::map<std::string, std::string> Snapshot() {
        std::map<std::string, std::string> files;
        for (const std::string& name : Leftovers())
            files[name] = vxtest::ReadWholeFile(Temp() + name);
        return files;
    }
    // The next start of the dead process: empty lists, its files back as they were.
    void StartAgainWith(const std::map<std::string, std::string>& files) {
        for (auto& gate : gates_) gate->Open();
        WaitForPrinterWorkers();
        DismantlePrinterQueues();
        ClearList(g_JobStatusList, 1);
        g_StopReason = kStopNone;
        for (const auto& [name, content] : files)
            ASSERT_TRUE(vxtest::WriteWholeFile(Temp() + name, content));
    }
    // Names only: a file read while the service deletes it would stay on Windows (a sharing
    // violation), which is the test's doing, not the service's.
    Ids Leftovers() {
        Ids names;
        for (const auto& entry : fs::directory_iterator(Temp())) {
            std::string name = entry.path().filename().string();
            // Empty spares hold nobody's data; one not yet emptied is listed, so waiters wait on.
            if (name.rfind(kSparePrefix, 0) == 0) {
                std::error_code gone;
                if (fs::file_size(entry.path(), gone) == 0 || gone) continue;
            }
            if (name.find(".dbg") == std::string::npos) names.push_back(name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

// A received job's journal beside its data file, and both gone once printed, are checked end to
// end; here the files that are not the service's to delete.
TEST_F(JobJournalTest, LocalFilesAreNotJournaledAndKeepFileKeepsOnlyTheData) {
    vxtest::Gate* gate = BlockPrinting();
    const std::string local = DataFile("local.prn");
    ASSERT_EQ(ProcessFile("P1", local.c_str(), "local", 1, 0), 0);
    EXPECT_FALSE(Exists("local.prn.job"));
    gate->Open();
    ASSERT_TRUE(fake().WaitPrinted(1));
    // With KeepFile the data file stays; the journal goes all the same (the job is final).
    Seed("KeepFile", "1");
    prsrv_->SetGlobalInt("KeepFile", 1);
    ASSERT_EQ(ReceiveU("P1", "dfB"), 0);
    ASSERT_TRUE(fake().WaitPrinted(2));
    ASSERT_TRUE(Eventually([&] { return Leftovers() == (Ids{"dfB", "local.prn"}); }));
}

// What a dead process leaves that cannot be a job goes at the next start, and nothing of it
// prints: a journal whose data file went; a journal whose first record was cut short or never
// left its temporary name. (A file that was arriving, its journal only reserved, and one name
// from two senders are test_lpd_reliability.py's.)
TEST_F(JobJournalTest, WhatCannotBeAJobIsRemovedAtTheNextStart) {
    BlockPrinting();
    ASSERT_EQ(ReceiveU("P1", "gone"), 0);
    std::map<std::string, std::string> onDisk = Snapshot();
    onDisk.erase("gone");
    StartAgainWith(onDisk);
    fs::remove(Temp() + "gone");
    const size_t printed = fake().Printed().size();

    DataFile("dfShort", "whole");
    ASSERT_TRUE(vxtest::WriteWholeFile(Temp() + "dfShort.job", "00090P1"));
    DataFile("dfHalf", "whole");
    ASSERT_TRUE(vxtest::WriteWholeFile(Temp() + "dfHalf.job.tmp", "000"));
    RestoreQueues();
    EXPECT_FALSE(Exists("gone.job"));
    EXPECT_EQ(LogCount("Error: File " + Temp() + "gone missing.\n"), 1);
    EXPECT_FALSE(Exists("dfHalf.job.tmp"));
    EXPECT_FALSE(Exists("dfShort") || Exists("dfShort.job"));
    EXPECT_TRUE(Exists("dfHalf"));  // no journal of ours: not ours to judge
    EXPECT_EQ(fake().Printed().size(), printed);
}

// An extended-protocol job kept after a device error is journaled as such: restored from the
// journal it keeps its place and gets no new status entry.
TEST_F(JobJournalTest, ASetupAgainSurvivesACrash) {
    FailJobs({"kept"}, ZEL_RC_DEVICE);
    ASSERT_EQ(ReceiveS("P1", "kept"), 0);
    ASSERT_TRUE(Eventually([] { return g_StopReason == kStopDeviceContext; }));
    ASSERT_TRUE(Eventually([&] {
        return vxtest::ReadTextFile(Temp() + "kept.prn.job").find(" 00001 ") != std::string::npos;
    }));
    StartAgainWith(Snapshot());
    BlockPrinting();
    RestoreQueues();
    std::vector<JobInfo> queued = Queued("P1");
    ASSERT_EQ(queued.size(), 1u);
    EXPECT_EQ(queued[0].SetupAgain, 1);
    EXPECT_EQ(Count(g_JobStatusList), 0);
}

// The file of a job whose final status waits for its query stays until the query has answered;
// a restart keeps it when the status came back with the status file, and clears it otherwise.
TEST_F(JobJournalTest, AFinishedJobKeepsItsFileUntilItsStatusIsAskedFor) {
    ASSERT_EQ(ReceiveS("P1", "asked"), 0);
    ASSERT_TRUE(Eventually([&] { return StatusOf("P1", "asked") == kJobDone; }));
    ASSERT_TRUE(Eventually([&] {
        return vxtest::ReadTextFile(Temp() + "asked.prn.job").find(" 1 0\n") != std::string::npos;
    }));
    EXPECT_TRUE(Exists("asked.prn"));

    // An orderly restart: the status comes back, and so does the file's claim.
    WaitForPrinterWorkers();
    SaveQueuesForRestart();
    std::map<std::string, std::string> onDisk = Snapshot();
    StartAgainWith(onDisk);
    RestoreQueues();
    EXPECT_TRUE(Exists("asked.prn") && Exists("asked.prn.job"));
    JobStatusAnswer answer;
    AnswerJobStatusQuery("P1", "asked", &answer);
    EXPECT_EQ(answer.outcome, kStatusFinal);
    EXPECT_FALSE(Exists("asked.prn") || Exists("asked.prn.job"));

    // A crash loses the status list: the finished job's files have nobody to wait for.
    StartAgainWith(onDisk);
    fs::remove(Temp() + "stal.dbd");
    RestoreQueues();
    EXPECT_TRUE(Leftovers().empty());
    EXPECT_TRUE(fake().Printed().size() == 1u);  // never printed again
}

// A job that was printing when the process died: the print system's number in its journal lets
// the next start ask whether it has the job whole; only when it has not is the job printed again.
TEST_F(JobJournalTest, AJobThePrintSystemHoldsIsNotPrintedAgain) {
    prsrv_->SetGlobalInt("SyncJobFiles", 1);  // the durable road takes the same turns
    auto gate = std::make_shared<vxtest::Gate>();
    fake().Set([gate](const vxtest::PrintCall& call) {
        if (call.host != nullptr && call.host->JobSpooled != nullptr)
            call.host->JobSpooled(call.host->context, call.file.c_str(), 77);
        EXPECT_TRUE(gate->Pass());
        return ZEL_RC_OK;
    });
    ASSERT_EQ(ReceiveU("P1", "inflight"), 0);
    ASSERT_EQ(ReceiveU("P1", "behind"), 0);
    ASSERT_TRUE(fake().WaitStarted(1));
    ASSERT_TRUE(Eventually([&] {
        return vxtest::ReadTextFile(Temp() + "inflight.job").find(" 0 77\n") != std::string::npos;
    }));
    std::map<std::string, std::string> onDisk = Snapshot();
    onDisk["inflight.job"] +=
        "00090 cut";  // a state being appended at the crash: the last whole one stands
    gate->Open();
    fake().Set(nullptr);

    for (SpooledJobFate fate : {SpooledJobFate::kTaken, SpooledJobFate::kGone}) {
        spooler().printers["P1"].spooled[77] = fate;
        spooler().fatesAsked.clear();
        StartAgainWith(onDisk);
        size_t before = fake().Printed().size();
        RestoreQueues();
        size_t again = fate == SpooledJobFate::kTaken ? 1 : 2;
        ASSERT_TRUE(fake().WaitPrinted(before + again));
        EXPECT_EQ(spooler().fatesAsked, std::vector<std::string>{"P1 77"});
        EXPECT_EQ(fake().Printed().back().jobId, "behind");
        ASSERT_TRUE(Eventually([&] { return Leftovers().empty(); }))
            << ::testing::PrintToString(Leftovers());
    }
    EXPECT_EQ(LogCount("Job inflight was taken by the print system as job 77 before the restart: "
                       "not printed again.\n"),
              1);
}

// The files of finished jobs come back, emptied, as the next jobs' files; a spare never takes a
// name in use, and the next start keeps only the empty spares an earlier run left.
TEST_F(JobJournalTest, SpareFilesAreReusedAndNeverReplaceAFileInUse) {
    DataFile("vxspare.7", "");
    DataFile("vxspare.8", "a job's bytes");  // the process died while emptying it
    DataFile("vxspare.x", "");
    TakeOverSpareFiles();
    EXPECT_EQ(Leftovers(), Ids{});
    EXPECT_TRUE(Exists("vxspare.7"));
    EXPECT_FALSE(Exists("vxspare.8") || Exists("vxspare.x"));

    DataFile("dfBusy", "in use");
    bool taken = false;
    EXPECT_EQ(TakeSpareFile((Temp() + "dfBusy").c_str(), &taken), nullptr);
    EXPECT_TRUE(taken);
    EXPECT_EQ(vxtest::ReadWholeFile(Temp() + "dfBusy"), "in use");
    StreamPtr file(TakeSpareFile((Temp() + "dfNew").c_str(), &taken));
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(taken || Exists("vxspare.7"));
    fputs("new", file.get());
    file.reset();
    EXPECT_EQ(TakeSpareFile((Temp() + "dfNone").c_str(), &taken), nullptr);  // none left
    EXPECT_FALSE(taken || Exists("dfNone"));

    ASSERT_TRUE(KeepAsSpare((Temp() + "dfNew").c_str()));
    EXPECT_FALSE(Exists("dfNew"));
    EXPECT_EQ(Leftovers(), Ids{"dfBusy"});  // the spare is empty
    file.reset(TakeSpareFile((Temp() + "dfAgain").c_str(), &taken));
    ASSERT_NE(file, nullptr);
    file.reset();
    EXPECT_EQ(vxtest::ReadWholeFile(Temp() + "dfAgain"), "");
}

// Several jobs of one acknowledgement are taken all or none.
TEST_F(JobJournalTest, ABatchThatCannotBeTakenWholeLeavesNoJournal) {
    BlockPrinting();
    auto first = Receive("P1", "one", DataFile("one"));
    auto second = Receive("P1", "two", Temp() + "missing");
    JobRecord* both[] = {&first->record, &second->record};
    EXPECT_EQ(ProcessJobs(both, 2, 'U'), -1);
    EXPECT_FALSE(Exists("one.job"));
    EXPECT_TRUE(Queued("P1").empty());
}

// Reserved names are the service's own files; a job's name never becomes one, nor leaves the
// directory.
TEST(TempNames, SafeNamesStayInTheDirectoryAndOffTheReservedOnes) {
    for (const char* name : {"PRNL00001.DBD", "vorlix.dbg.20261123_101500", "vorlix.nit",
                             "dfA001.job", "stal.dbd.tmp", "zelwin_1_2.part", "VXSPARE.12"})
        EXPECT_TRUE(IsReservedTempName(name)) << name;
    for (const char* name : {"dfA001host.001", "report.pdf", "dbd"})
        EXPECT_FALSE(IsReservedTempName(name)) << name;
    const char* cases[][2] = {{"../../etc/passwd", "___.._etc_passwd"},
                              {"C:\\Windows\\x", "C__Windows_x"},
                              {".hidden", "_hidden"},
                              {"stal.dbd", "stal_dbd"},
                              {"x.job", "x_job"},
                              {"report 1.pdf", "report 1.pdf"},
                              {"", ""}};
    for (const auto& c : cases) {
        char out[64];
        SafeTempName(c[0], out, sizeof out);
        EXPECT_STREQ(out, c[1]) << c[0];
        EXPECT_FALSE(IsReservedTempName(out)) << c[0];
    }
}

}  // namespace
