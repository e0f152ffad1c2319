// The job status list: its key (job id and printer) and the rules of the status query (a final
// status is reported once, anything else is answered as unknown and stays).
#include "jobs_fixture.h"

namespace {

using namespace vx;

class JobStatusListTest : public vxtest::JobsFixture {
  protected:
    JobStatusAnswer Ask(const std::string& printer, const std::string& jobId) {
        JobStatusAnswer answer;
        AnswerJobStatusQuery(printer.c_str(), jobId.c_str(), &answer);
        return answer;
    }
    std::string List() { return std::to_string(g_JobStatusList); }
};

TEST_F(JobStatusListTest, ReceivedJobIsEnteredAsPrintingUnlessTheLibraryKeepsStatuses) {
    auto r = Receive("P1", "r1", "f");
    ASSERT_EQ(EnterReceivedJob(&r->record), 0);
    JobRecord stored;
    ASSERT_EQ(FindJobStatus("P1", "r1", &stored), 0);
    EXPECT_EQ(stored.Status, kJobPrinting);
    EXPECT_STREQ(stored.StatusText, "Printing");
    EXPECT_STREQ(stored.Owner, "owner");
    EXPECT_EQ(LogCount("Insert job r1 in status list " + List() + ", status = 3\n"), 1);
    g_Options.UseEnhancedSW = 1;
    CopyText(r->record.JobId, "r2");
    EXPECT_EQ(EnterReceivedJob(&r->record), 1);
    EXPECT_EQ(StatusOf("P1", "r2"), -1);
}

TEST_F(JobStatusListTest, SameJobIdOnTwoPrintersIsTwoJobs) {
    PutStatus("P1", "same", kJobPrinting);
    PutStatus("P2", "same", kJobPrinting);
    EXPECT_EQ(RecordPrintOutcome("P2", "same", ZEL_RC_OK), ZEL_RC_OK);
    EXPECT_EQ(StatusOf("P1", "same"), kJobPrinting);
    EXPECT_EQ(Ask("P2", "same").outcome, kStatusFinal);
    EXPECT_EQ(StatusOf("P1", "same"), kJobPrinting);
}

TEST_F(JobStatusListTest, JobsInProgressAreAnsweredAsUnknownAndStay) {
    for (int32_t status : {1, 2, 3, 6, 7, 8}) {
        std::string id = "s" + std::to_string(status);
        PutStatus("P1", id, status);
        JobStatusAnswer answer = Ask("P1", id);
        EXPECT_EQ(answer.outcome, kStatusUnknown) << id;
        EXPECT_EQ(StatusOf("P1", id), status);
        EXPECT_EQ(LogCount("Error: Unexpected status " + std::to_string(status) + " for job " + id +
                           "\n"),
                  1);
    }
    g_prsrv->ChangeTraceOption("report_unknown_status", "0");  // a run-time change
    JobStatusAnswer asDone = Ask("P1", "s3");
    EXPECT_EQ(asDone.outcome, kStatusUnknownAsDone);
    EXPECT_STREQ(asDone.word, "done");
    EXPECT_EQ(LogCount("Job s3 not in joblist. ZEL status changed to 'done'.\n"), 1);
}

}  // namespace
