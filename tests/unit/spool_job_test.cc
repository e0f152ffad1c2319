// A document of known length goes to CUPS in one piece: one that keeps to its length is taken
// whole, one that runs past it or ends short of it fails the job instead of leaving CUPS waiting.
#include "spooler/spool_job.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "test_support.h"

namespace {

using namespace vx;

class SpoolJobTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const char* server = getenv("CUPS_SERVER");
        if (server == nullptr || server[0] == '\0')
            GTEST_SKIP() << "needs a private cupsd named by CUPS_SERVER (Linux)";
        queue_ = vxtest::UniqueName("sj_");
        // A stopped queue holds its jobs: what arrived can be read back from its spool.
        std::string add = "lpadmin -p " + queue_ + " -E -v socket://127.0.0.1:9/ -m raw && " +
                          "cupsdisable " + queue_;
        ASSERT_EQ(std::system(add.c_str()), 0);
    }
    void TearDown() override {
        if (!queue_.empty()) std::system(("lpadmin -x " + queue_ + " 2>/dev/null").c_str());
    }

    // Starts a job of announced length, writes the pieces, finishes it: the last result.
    int Send(int64_t announced, const std::string& data, std::string* error) {
        SpoolJobPtr job;
        char text[512] = {};
        int rc = SpoolJobStart(queue_.c_str(), "length test", "", SpoolFormat::kRaw, announced,
                               &job, text, sizeof text);
        if (rc == kSpoolOk)
            rc = SpoolJobWrite(job.get(), data.data(), data.size(), text, sizeof text);
        if (rc == kSpoolOk) rc = SpoolJobFinish(job.get(), text, sizeof text);
        *error = text;
        return rc;
    }

    std::string queue_;
};

TEST_F(SpoolJobTest, ADocumentOfKnownLengthIsTakenWholeAndNeverPastItsLength) {
    std::string error;
    EXPECT_EQ(Send(10, "0123456789", &error), kSpoolOk) << error;
    EXPECT_EQ(Send(-1, "unknown length", &error), kSpoolOk) << error;

    EXPECT_EQ(Send(10, "0123", &error), kSpoolFailed);
    EXPECT_NE(error.find("ended 6 bytes short"), std::string::npos) << error;
    EXPECT_EQ(Send(10, "0123456789AB", &error), kSpoolFailed);
    EXPECT_NE(error.find("longer than announced"), std::string::npos) << error;

    // The kept connections still serve the next job after the failed ones.
    EXPECT_EQ(Send(3, "end", &error), kSpoolOk) << error;
}

}  // namespace
