// Filling a job's record (stream detection, the title rule) and printing it (the print library's
// arguments, test mode, the status walk after device errors, the no-status rules).
#include "jobs/job_info.h"
#include "jobs_fixture.h"

namespace {

using namespace vx;
using Ids = std::vector<std::string>;

std::string Utf16(const std::string& ascii) {
    std::string out;
    for (char c : ascii) out += std::string{c, '\0'};
    return out;
}

class PrintJobTest : public vxtest::JobsFixture {
  protected:
    JobInfo Fill(const std::string& content, const char* title = nullptr, char protocol = 'U',
                 const std::string& jobId = "job1", int32_t noStatus = 0) {
        JobInfo job{};
        std::string path = DataFile(jobId + std::to_string(++files_) + ".prn", content);
        EXPECT_EQ(FillJobInfo("P1", path.c_str(), jobId.c_str(), "owner", title, 2, 7, 9, noStatus,
                              protocol, 0, 0, &job),
                  1);
        return job;
    }
    int files_ = 0;
};

TEST_F(PrintJobTest, DetectsTheDataStreamInTheFirstBytes) {
    struct Case {
        std::string content;
        int32_t streamType, wideData;
    } cases[] = {
        {"text \x1b%ZELWIN rest", ZEL_STREAM_ZELWIN, 0},
        {Utf16("ab\x1b%ZELWIN"), ZEL_STREAM_ZELWIN, 1},
        {"%PDF-1.7\n", ZEL_STREAM_PDF, 0},
        {Utf16("xx%PDF-1.4"), ZEL_STREAM_PDF, 1},
        {"XTG header", ZEL_STREAM_PDF, 0},
        {"aXTG later", ZEL_STREAM_RAW, 0},
        {"%PDF-1.4 then \x1b%ZELWIN", ZEL_STREAM_ZELWIN, 0},  // the marker wins
        {std::string("abc\0%PDF", 8), ZEL_STREAM_RAW, 0},     // single-byte search ends at NUL
        {std::string(999, 'a') + "%PDF", ZEL_STREAM_RAW, 0},  // beyond the first 999 bytes
        {std::string(995, 'a') + "%PDF", ZEL_STREAM_PDF, 0},
    };
    for (const Case& c : cases) {
        JobInfo job = Fill(c.content);
        EXPECT_EQ(job.StreamType, c.streamType) << c.content;
        EXPECT_EQ(job.WideData, c.wideData) << c.content;
    }
}

TEST_F(PrintJobTest, TitleLosesTrailingBlanksButABlankTitleKeepsOne) {
    const std::pair<std::string, std::string> cases[] = {
        {"Report  ", "Report"},
        {"a  b   ", "a  b"},
        {" lead", " lead"},
        {"   ", " "},
        {"", ""},
        {std::string(120, 't'), std::string(100, 't')},
    };
    for (const auto& [given, kept] : cases) EXPECT_EQ(Fill("x", given.c_str()).Title, kept);
    g_Options.UseOldTitle = 0;
    EXPECT_STREQ(Fill("x", "Report").Title, "");
}

TEST_F(PrintJobTest, HandsEveryValueToPrintFileInItsPlace) {
    JobInfo job = Fill(Utf16("%PDF"), "Title  ");
    ASSERT_EQ(PrintJob(job), ZEL_RC_OK);
    ASSERT_EQ(fake().Printed().size(), 1u);
    const vxtest::PrintCall c = fake().Printed()[0];
    EXPECT_EQ(c.file, job.FileName);
    EXPECT_EQ(c.baseDir, g_prsrv->TempDirectory());
    EXPECT_EQ(c.workDir, g_prsrv->TempDirectory());
    EXPECT_EQ(c.printer + c.jobId + "|" + c.title + "|" + c.owner, "P1job1|Title|owner");
    EXPECT_EQ(c.copies, 2);
    EXPECT_EQ(c.wideData, 1);
    EXPECT_EQ(c.streamType, ZEL_STREAM_PDF);
    EXPECT_EQ(c.registryRoot, ZEL_ROOT_CURRENT_USER);  // the fixture's settings are in HKCU
    EXPECT_EQ(c.printParam1, 7);
    EXPECT_EQ(c.printParam2, 9);
    EXPECT_EQ(c.host, g_prsrv->Host());
    EXPECT_EQ(LogCount("Time needed for job processing: "), 0);
    g_Options.LogTimeCheck = 1;
    PrintJob(job);
    EXPECT_EQ(LogCount("Time needed for job processing: "), 1);
}

// A negative test mode prints every job.
TEST_F(PrintJobTest, TestModeFailsEveryNthJobWithoutPrintingIt) {
    std::vector<int> rcs;
    for (int i = 1; i <= 9; ++i) {
        g_Options.TestMode = i <= 6 ? 3 : -2;
        rcs.push_back(PrintJob(Fill("x", nullptr, 'U', std::to_string(i))));
    }
    EXPECT_EQ(rcs, (std::vector<int>{0, 0, 11, 0, 0, 11, 0, 0, 0}));
    EXPECT_EQ(fake().PrintedIds(), (Ids{"1", "2", "4", "5", "7", "8", "9"}));
}

TEST_F(PrintJobTest, DeviceErrorsWalkTheStatusUntilTheLastRetryEndsTheJob) {
    PutStatus("P1", "walk", kJobPrinting);
    JobInfo job = Fill("x", nullptr, 'S', "walk");
    FailJobs({"walk"}, ZEL_RC_DEVICE);
    std::vector<int> rcs, statuses;
    for (int i = 0; i < 4; ++i) {
        rcs.push_back(PrintJob(job));
        statuses.push_back(StatusOf("P1", "walk"));
    }
    EXPECT_EQ(rcs, (std::vector<int>{11, 11, 11, kPrintRetriesExhausted}));
    EXPECT_EQ(statuses, (std::vector<int>{6, 7, 8, 5}));
    JobRecord record;
    ASSERT_EQ(FindJobStatus("P1", "walk", &record), 0);
    EXPECT_STREQ(record.StatusText, "See_logfile_for_details.");
}

TEST_F(PrintJobTest, NoStatusSettingsKeepJobsOutOfTheList) {
    Seed("NoStatus", "1", "NP");
    // Each case: printer, job flag, global NoStatus. The record exists as if received before the
    // setting changed; printing must not touch it, and a new job is not entered.
    const struct {
        const char* printer;
        int32_t flag, global;
    } cases[] = {{"NP", 0, 0}, {"P1", 1, 0}, {"P1", 0, 1}};
    for (const auto& c : cases) {
        std::string id = std::string(c.printer) + std::to_string(c.flag) + std::to_string(c.global);
        PutStatus(c.printer, id, kJobPrinting);
        g_Options.NoStatus = c.global;
        JobInfo job{};
        std::string path = DataFile(id);
        ASSERT_EQ(FillJobInfo(c.printer, path.c_str(), id.c_str(), nullptr, nullptr, 1, 0, 0,
                              c.flag, 'S', 0, 0, &job),
                  1);
        PrintJob(job);
        EXPECT_EQ(StatusOf(c.printer, id), kJobPrinting) << id;
        JobRecord fresh{};
        CopyText(fresh.PrinterName, c.printer);
        CopyText(fresh.JobId, "new");
        fresh.NoStatusFlag = c.flag;
        EXPECT_EQ(EnterReceivedJob(&fresh), 1) << id;
        EXPECT_EQ(StatusOf(c.printer, "new"), -1);
    }
}

}  // namespace
