// The enhanced mode's pending-jobs file: what ExitEx writes, InitEx reads back.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/fileops.h"
#include "printlib/pending_jobs_file.h"
#include "test_support.h"

namespace {

zel::QueuedJob Job(const std::u16string& id, const std::u16string& title) {
    zel::QueuedJob job;
    job.printer = u"Queue \u00c4";
    job.fileName = u"C:\\Temp\\data " + id + u".tmp";
    job.jobId = id;
    job.title = title;
    job.owner = u"m\u00fcller";
    job.copies = 3;
    job.noStatus = 1;
    return job;
}

TEST(PendingJobsFile, RoundTripKeepsEveryFieldAndTheOrder) {
    vxtest::ScratchDir dir;
    std::string path = dir.File("pending.txt");
    // Tabs, line breaks and backslashes inside fields must not break the lines apart.
    std::vector<zel::QueuedJob> jobs = {Job(u"1", u"tab\there"), Job(u"2", u"two\nlines\\x"),
                                        Job(u"3", u"")};
    ASSERT_EQ(zel::SavePendingJobs(path.c_str(), jobs), 0);
    std::vector<zel::QueuedJob> read;
    ASSERT_EQ(zel::LoadPendingJobs(path.c_str(), &read), 0);
    ASSERT_EQ(read.size(), 3u);
    for (size_t i = 0; i < jobs.size(); ++i) {
        EXPECT_EQ(read[i].printer, jobs[i].printer);
        EXPECT_EQ(read[i].fileName, jobs[i].fileName);
        EXPECT_EQ(read[i].jobId, jobs[i].jobId);
        EXPECT_EQ(read[i].title, jobs[i].title);
        EXPECT_EQ(read[i].owner, jobs[i].owner);
        EXPECT_EQ(read[i].copies, 3);
        EXPECT_EQ(read[i].noStatus, 1);
    }
    EXPECT_FALSE(vx::FsExists((path + ".new").c_str()));
}

TEST(PendingJobsFile, NoJobsLeaveNoFileAndAMissingFileIsNoJobs) {
    vxtest::ScratchDir dir;
    std::string path = dir.File("pending.txt");
    ASSERT_EQ(zel::SavePendingJobs(path.c_str(), {Job(u"1", u"")}), 0);
    ASSERT_EQ(zel::SavePendingJobs(path.c_str(), {}), 0);
    EXPECT_FALSE(vx::FsExists(path.c_str()));
    std::vector<zel::QueuedJob> read = {Job(u"stale", u"")};
    EXPECT_EQ(zel::LoadPendingJobs(path.c_str(), &read), 0);
    EXPECT_TRUE(read.empty());
}

TEST(PendingJobsFile, ForeignFilesAndDamagedLinesAreNotTakenForJobs) {
    vxtest::ScratchDir dir;
    std::string path = dir.File("pending.txt");
    ASSERT_TRUE(vxtest::WriteWholeFile(path, "printer\tfile\t1\t\t\t1\t0\n"));
    std::vector<zel::QueuedJob> read;
    EXPECT_EQ(zel::LoadPendingJobs(path.c_str(), &read), -1);

    ASSERT_TRUE(vxtest::WriteWholeFile(path,
                                       "# zelwin pending jobs 1\r\n"
                                       "too\tfew\tfields\r\n"
                                       "\tno-printer\t1\t\t\t1\t0\r\n"
                                       "p\tf\t1\tt\to\t2\t0\textra\r\n"
                                       "p\tf\t7\tt\to\t2\t0\r\n"));
    ASSERT_EQ(zel::LoadPendingJobs(path.c_str(), &read), 0);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].jobId, u"7");
    EXPECT_EQ(read[0].copies, 2);
}

TEST(PendingJobsFile, LivesBesideTheOutputDirectory) {
    char path[600];
    std::string sep(1, vx::kPathSeparator);
    std::string base = sep + "srv" + sep + "vorlix" + sep;
    zel::PendingJobsPath((base + "Output" + sep).c_str(), path, sizeof path);
    EXPECT_EQ(std::string(path), base + "zelwin_pending_jobs.txt");
    zel::PendingJobsPath("Output", path, sizeof path);
    EXPECT_STREQ(path, "zelwin_pending_jobs.txt");
}

}  // namespace
