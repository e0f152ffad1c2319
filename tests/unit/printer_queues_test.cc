// Printer queues and their workers: queue creation on a printer's first job, order within a
// printer and parallel printers, unknown printers, device errors and the stop they cause, the
// own-thread mode, the library's queue and the end of the workers.
#include "jobs_fixture.h"

namespace {

using namespace vx;
using Ids = std::vector<std::string>;

class PrinterQueuesTest : public vxtest::JobsFixture {
  protected:
    // Waits until a device error has stopped the workers and they have ended.
    void WaitForStop() {
        ASSERT_TRUE(Eventually([] { return g_StopReason != kStopNone; }));
        WaitForPrinterWorkers();
    }
};

TEST_F(PrinterQueuesTest, FirstJobCreatesQueueAndWorkerSecondOnlyAppends) {
    vxtest::Gate* gate = BlockPrinting();
    ASSERT_EQ(QueueU("P1", "a"), 0);
    ASSERT_TRUE(fake().WaitStarted(1));
    ASSERT_EQ(QueueU("P1", "b"), 0);
    EXPECT_EQ(Count(g_JobQueueList), 1);
    EXPECT_EQ(QueuedIds("P1"), (Ids{"a", "b"}));  // "a" stays first while it prints
    gate->Open();
    ASSERT_TRUE(fake().WaitPrinted(2));
    EXPECT_EQ(fake().PrintedIds(), (Ids{"a", "b"}));
    EXPECT_TRUE(Eventually([] { return Queued("P1").empty(); }));
}

TEST_F(PrinterQueuesTest, TwoPrintersPrintInParallel) {
    // P1's job can only finish once P2's job has printed: one shared worker would never get there.
    auto p2Printed = std::make_shared<vxtest::Gate>();
    auto released = std::make_shared<std::atomic<bool>>(false);
    fake().Set([p2Printed, released](const vxtest::PrintCall& call) {
        if (call.printer == "P1") *released = p2Printed->Pass();
        if (call.printer == "P2") p2Printed->Open();
        return ZEL_RC_OK;
    });
    ASSERT_EQ(QueueU("P1", "slow"), 0);
    ASSERT_TRUE(fake().WaitStarted(1));
    ASSERT_EQ(QueueU("P2", "fast"), 0);
    ASSERT_TRUE(fake().WaitPrinted(2));
    EXPECT_TRUE(*released);
}

TEST_F(PrinterQueuesTest, UnknownPrinterGetsNoQueueButOnePrintFile) {
    spooler().anyNameIsAPrinter = false;
    EXPECT_EQ(QueueU("Nowhere", "lost"), -1);
    EXPECT_EQ(fake().PrintedIds(), (Ids{"lost"}));
    EXPECT_EQ(Count(g_JobQueueList), 0);
    EXPECT_EQ(LogCount("Error: Invalid printer name Nowhere. Job not queued.\n"), 1);
}

TEST_F(PrinterQueuesTest, DeviceErrorKeepsAnExtendedJobFirstAndStops) {
    vxtest::Gate* gate = BlockPrinting(ZEL_RC_DEVICE);
    ASSERT_EQ(ReceiveS("P1", "s1"), 0);
    ASSERT_TRUE(fake().WaitStarted(1));
    ASSERT_EQ(ReceiveS("P1", "s2"), 0);
    gate->Open();
    WaitForStop();
    EXPECT_EQ(g_StopReason, kStopDeviceContext);
    std::vector<JobInfo> queued = Queued("P1");
    ASSERT_EQ(queued.size(), 2u);  // the worker stopped after the failed job
    EXPECT_STREQ(queued[0].JobId, "s1");
    EXPECT_EQ(queued[0].SetupAgain, 1);
    EXPECT_EQ(queued[1].SetupAgain, 0);
    EXPECT_EQ(StatusOf("P1", "s1"), kJobSetupAgain1);
}

TEST_F(PrinterQueuesTest, DeviceErrorDeletesAnLpdJobButStopsToo) {
    FailJobs({"u1"}, ZEL_RC_DEVICE);
    ASSERT_EQ(QueueU("P1", "u1"), 0);
    WaitForStop();
    EXPECT_EQ(g_StopReason, kStopDeviceContext);
    EXPECT_TRUE(Queued("P1").empty());
    // The restart will not bring it back: the trace says so, naming the job.
    EXPECT_EQ(LogCount("Error: Job u1 for printer P1 dropped: the print system refused it (rc = "
                       "11)\n"),
              1);
}

TEST_F(PrinterQueuesTest, LastRetryOrIgnoreDCErrorDeletesWithoutStop) {
    FailJobs({"tired", "s1", "u1"}, ZEL_RC_DEVICE);
    auto settled = [](const char* printer) {
        return Eventually([printer] { return Queued(printer).empty() || g_StopReason != 0; });
    };
    PutStatus("P2", "tired", kJobSetupAgain3);  // its third device error is behind it
    auto r = Receive("P2", "tired", DataFile("tired.prn"));
    ASSERT_EQ(ProcessJob(&r->record, 'S'), 0);
    ASSERT_TRUE(fake().WaitPrinted(1));
    ASSERT_TRUE(settled("P2"));
    EXPECT_TRUE(Queued("P2").empty());
    EXPECT_EQ(StatusOf("P2", "tired"), kJobError);
    EXPECT_EQ(LogCount("Error: Job tired for printer P2 dropped: the print system refused it four "
                       "times\n"),
              1);

    g_Options.IgnoreDCError = 1;
    ASSERT_EQ(ReceiveS("P1", "s1"), 0);
    ASSERT_EQ(QueueU("P1", "u1"), 0);
    ASSERT_EQ(QueueU("P1", "after"), 0);
    ASSERT_TRUE(fake().WaitPrinted(4));
    ASSERT_TRUE(settled("P1"));
    EXPECT_TRUE(Queued("P1").empty());
    EXPECT_EQ(g_StopReason, kStopNone);
    EXPECT_EQ(StatusOf("P1", "s1"), kJobError);
}

TEST_F(PrinterQueuesTest, ProcessJobFillsFromTheContext) {
    auto r = Receive("P1", "ctx", DataFile("ctx.prn", std::string("%\0P\0D\0F\0", 8)));
    ASSERT_EQ(ProcessJob(&r->record, 'U'), 0);
    EXPECT_EQ(r->context.WideData, 1);
    g_Options.ZELUserAsOwner = 1;
    // A received data file is gone once its job has printed: the second job has a file of its own.
    r = Receive("P1", "ctx", DataFile("ctx2.prn"));
    ASSERT_EQ(ProcessJob(&r->record, 'U'), 0);
    ASSERT_TRUE(fake().WaitPrinted(2));
    EXPECT_EQ(fake().Printed()[0].owner, "");  // the owner is taken over only with ZELUserAsOwner
    EXPECT_EQ(fake().Printed()[1].owner, "owner");
    EXPECT_EQ(fake().Printed()[1].title, "title");
    CopyText(r->context.FileName, dir_.File("nofile").c_str());
    EXPECT_EQ(ProcessJob(&r->record, 'S'), -1);
    EXPECT_EQ(LogCount("Error: Cannot fill job info for job ctx on printer P1\n"), 1);
}

TEST_F(PrinterQueuesTest, OwnThreadsPrintWithoutQueues) {
    ASSERT_EQ(ProcessFile("P1", DataFile("f.prn").c_str(), "f", 3, 1), 0);
    // The own-thread file comes back only after it has printed.
    ASSERT_EQ(fake().Printed().size(), 1u);
    EXPECT_NE(fake().Printed()[0].thread, std::this_thread::get_id());
    g_Options.ProcessingMode = 0;
    auto r = Receive("P1", "own", DataFile("own.prn"));
    ASSERT_EQ(ProcessJob(&r->record, 'U'), 0);
    ASSERT_TRUE(fake().WaitPrinted(2));
    EXPECT_NE(fake().Printed()[1].thread, std::this_thread::get_id());
    EXPECT_EQ(Count(g_JobQueueList), 0);
}

TEST_F(PrinterQueuesTest, EnhancedModeHandsJobsToTheLibraryQueue) {
    g_Options.UseEnhancedSW = 1;
    auto r = Receive("P1", "lib", DataFile("lib.prn"), 1);
    r->record.Copies = 2;
    ASSERT_EQ(ProcessJob(&r->record, 'S'), 0);
    EXPECT_EQ(fake().queuedEx, (Ids{"P1|" + dir_.File("lib.prn") + "|title||2|1|lib"}));
    EXPECT_EQ(Count(g_JobQueueList), 0);
    EXPECT_TRUE(fake().Printed().empty());
}

TEST_F(PrinterQueuesTest, WorkersEndAfterTheirCurrentJobWhenTheServiceEnds) {
    vxtest::Gate* gate = BlockPrinting();
    for (const char* id : {"w1", "w2", "w3"}) ASSERT_EQ(QueueU("P1", id), 0);
    ASSERT_TRUE(fake().WaitStarted(1));
    std::thread ender([] { WaitForPrinterWorkers(); });
    // Only once the end has begun may the current job finish.
    EXPECT_TRUE(Eventually([this] { return LogCount("Waiting for event ") == 1; }));
    gate->Open();
    ender.join();
    EXPECT_EQ(fake().PrintedIds(), (Ids{"w1"}));
    EXPECT_EQ(QueuedIds("P1"), (Ids{"w2", "w3"}));
    DismantlePrinterQueues();
    EXPECT_EQ(Count(g_JobQueueList), 0);
}

}  // namespace
