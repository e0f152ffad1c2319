// Many receivers queue jobs for many printers while the workers print: every job prints exactly
// once, each printer gets exactly one queue, and one receiver's jobs for a printer keep their
// order.
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "jobs_fixture.h"

namespace {

using namespace vx;
using vxtest::JobsFixture;

constexpr int kReceivers = 8;
constexpr int kJobsPerReceiver = 250;
constexpr int kPrinters = 20;

class JobStressTest : public JobsFixture {
  protected:
    void SetUp() override {
        JobsFixture::SetUp();
        // Detail lines for 2000 jobs would only slow the run down.
        g_prsrv->ChangeTraceOption("LogLevel", "1");
    }
};

TEST_F(JobStressTest, EveryJobPrintsOnceAndInOrderPerReceiver) {
    const std::string data = DataFile("stress.prn");
    std::vector<std::thread> receivers;
    std::vector<int> failures(kReceivers, 0);
    for (int r = 0; r < kReceivers; ++r) {
        receivers.emplace_back([r, &data, &failures] {
            for (int j = 0; j < kJobsPerReceiver; ++j) {
                // Neighbouring receivers start on the same printers, so queues are created in
                // races.
                std::string printer = "SP" + std::to_string((j + r / 2) % kPrinters);
                std::string jobId = std::to_string(r) + "_" + std::to_string(j);
                if (ProcessFile(printer.c_str(), data.c_str(), jobId.c_str(), 1, 0) != 0)
                    ++failures[r];
            }
        });
    }
    for (std::thread& t : receivers) t.join();
    for (int r = 0; r < kReceivers; ++r) EXPECT_EQ(failures[r], 0) << "receiver " << r;

    const size_t total = static_cast<size_t>(kReceivers) * kJobsPerReceiver;
    ASSERT_TRUE(fake().WaitPrinted(total));
    const std::vector<vxtest::PrintCall> calls = fake().Printed();

    // Prints per job, the last job number per printer and receiver, the threads per printer.
    std::map<std::string, int> times, last;
    std::map<std::string, std::set<std::thread::id>> workers;
    for (const vxtest::PrintCall& call : calls) {
        ++times[call.jobId];
        workers[call.printer].insert(call.thread);
        size_t cut = call.jobId.find('_');
        ASSERT_NE(cut, std::string::npos);
        std::string receiver = call.jobId.substr(0, cut);
        int number = std::stoi(call.jobId.substr(cut + 1));
        std::string lane = call.printer + "/" + receiver;
        if (last.count(lane) != 0) {
            EXPECT_LT(last[lane], number) << lane;
        }
        last[lane] = number;
        int expectedPrinter = (number + std::stoi(receiver) / 2) % kPrinters;
        EXPECT_EQ(call.printer, "SP" + std::to_string(expectedPrinter)) << call.jobId;
    }
    EXPECT_EQ(times.size(), total);
    for (const auto& [jobId, n] : times) EXPECT_EQ(n, 1) << jobId;
    EXPECT_EQ(Count(g_JobQueueList), kPrinters);
    EXPECT_EQ(workers.size(), static_cast<size_t>(kPrinters));
    for (const auto& [printer, threads] : workers) EXPECT_EQ(threads.size(), 1u) << printer;
}

}  // namespace
