// The enhanced mode's pending-jobs file: what ExitEx writes, InitEx reads back. Where the file
// lies, and that it goes once no job waits, are checked end to end (test_print_library).
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

TEST(PendingJobsFile, MissingForeignAndDamagedFilesGiveNoJobs) {
    vxtest::ScratchDir dir;
    std::string path = dir.File("pending.txt");
    std::vector<zel::QueuedJob> read = {Job(u"stale", u"")};
    EXPECT_EQ(zel::LoadPendingJobs(path.c_str(), &read), 0);  // no file yet: no jobs
    EXPECT_TRUE(read.empty());
    ASSERT_TRUE(vxtest::WriteWholeFile(path, "printer\tfile\t1\t\t\t1\t0\n"));
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

}  // namespace
