// Start-up and end of the process: the lists InitVorlix makes in either job mode, what they count
// in the list memory, and that ExitVorlix releases them again.
#include "service/init_vorlix.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/registry.h"
#include "config/option_globals.h"
#include "jobs/job_lists.h"
#include "jobs/print_backend.h"
#include "lists/zlplist.h"
#include "printserver/zelprsrv.h"
#include "prsrv_fixture.h"

namespace {

// How often InitVorlix and ExitVorlix start and end the print library.
int g_initEx = 0;
int g_exitEx = 0;

class InitVorlixTest : public ::testing::Test {
  protected:
    void SetUp() override {
        vxtest::UseScratchEnvironment();
        g_initEx = g_exitEx = 0;
        backend_ = vx::Backend();
        backend_.InitEx = [](int, int, uint32_t*, const ZelHost*) { return ++g_initEx, 0; };
        backend_.ExitEx = [] { return ++g_exitEx, 0; };
        vx::SetPrintBackendForTest(&backend_);
        Set("NoJobRestore", "1");  // nothing is saved for a restart at the end
    }
    void TearDown() override {
        vx::ExitVorlix();
        vx::SetPrintBackendForTest(nullptr);
        written_.clear();
        int count = 0;
        const vx::OptionGlobalEntry* table = vx::OptionGlobalTable(&count);
        for (int i = 0; i < count; ++i)
            (vx::g_Options.*(table[i].field)) = table[i].setting->defaultValue;
    }

    // A setting of the service, removed again after the test.
    void Set(const std::string& name, const std::string& text) {
        written_.push_back(std::make_unique<vxtest::RegistryValue>(
            vx::kHiveLocalMachine, vx::kDefaultSettingsKey, name, text));
    }

    vx::PrintBackend backend_{};
    std::vector<std::unique_ptr<vxtest::RegistryValue>> written_;
};

TEST_F(InitVorlixTest, ConnectionListIsMadeAlsoWhenThePrintLibraryKeepsTheJobs) {
    Set("UseEnhancedSW", "1");
    uint32_t pending = 0;
    ASSERT_EQ(vx::InitVorlix(0, 0, &pending, 0), 0);
    EXPECT_EQ(g_initEx, 1);
    EXPECT_EQ(vx::g_JobStatusList, vx::kInvalidListId);
    EXPECT_NE(vx::g_ConnThreadList, vx::kInvalidListId);

    vx::ExitVorlix();
    EXPECT_EQ(g_exitEx, 1);
    EXPECT_EQ(vx::g_ConnThreadList, vx::kInvalidListId);
    EXPECT_EQ(vx::g_prsrv, nullptr);
}

TEST_F(InitVorlixTest, StatusAndQueueListsAreNotCountedInTheListMemory) {
    uint32_t before = vx::ListMemoryInUse();
    uint32_t pending = 0;
    ASSERT_EQ(vx::InitVorlix(0, 0, &pending, 0), 0);
    EXPECT_EQ(g_initEx, 0);
    EXPECT_NE(vx::g_JobStatusList, vx::kInvalidListId);
    EXPECT_NE(vx::g_JobQueueList, vx::kInvalidListId);
    EXPECT_NE(vx::g_ConnThreadList, vx::kInvalidListId);
    EXPECT_EQ(vx::ListMemoryInUse(), before);

    vx::ExitVorlix();
    EXPECT_EQ(vx::g_JobStatusList, vx::kInvalidListId);
    EXPECT_EQ(vx::g_JobQueueList, vx::kInvalidListId);
    EXPECT_EQ(vx::g_ConnThreadList, vx::kInvalidListId);
    EXPECT_EQ(vx::ListMemoryInUse(), before);
}

}  // namespace
