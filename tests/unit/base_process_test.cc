#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/fileops.h"
#include "base/process.h"
#include "test_support.h"

namespace {

// Restores VORLIX_HOME as it was when the test began.
class HomeVariable {
  public:
    HomeVariable() { had_ = vx::GetEnvironmentText("VORLIX_HOME", saved_, sizeof saved_) == 0; }
    ~HomeVariable() { vx::SetEnvironmentText("VORLIX_HOME", had_ ? saved_ : nullptr); }

  private:
    bool had_ = false;
    char saved_[vx::kMaxPath] = "";
};

TEST(Executable, PathExistsAndDirectoryContainsIt) {
    char path[vx::kMaxPath];
    char dir[vx::kMaxPath];
    ASSERT_EQ(vx::GetExecutablePath(path, sizeof path), 0);
    ASSERT_EQ(vx::GetExecutableDirectory(dir, sizeof dir), 0);
    EXPECT_TRUE(vx::FsExists(path)) << path;
    EXPECT_FALSE(vx::FsIsDirectory(path));
    EXPECT_TRUE(vx::FsIsDirectory(dir)) << dir;
    size_t dirLen = strlen(dir);
    ASSERT_LT(dirLen, strlen(path));
    EXPECT_EQ(strncmp(path, dir, dirLen), 0);
    EXPECT_TRUE(vx::IsPathSeparator(path[dirLen]));
    EXPECT_FALSE(vx::IsPathSeparator(dir[dirLen - 1]));
    EXPECT_NE(strstr(path + dirLen, "base_process_test"), nullptr);

    char tiny[8];
    EXPECT_EQ(vx::GetExecutablePath(tiny, sizeof tiny), -1);  // a cut path is no path
    EXPECT_LT(strlen(tiny), sizeof tiny);
}

TEST(BaseDirectory, HomeVariableOverridesExecutableDirectory) {
    HomeVariable restore;
    vxtest::ScratchDir home;
    char exeDir[vx::kMaxPath];
    char base[vx::kMaxPath];
    ASSERT_EQ(vx::GetExecutableDirectory(exeDir, sizeof exeDir), 0);

    ASSERT_EQ(vx::SetEnvironmentText("VORLIX_HOME", nullptr), 0);
    EXPECT_EQ(vx::GetEnvironmentText("VORLIX_HOME", base, sizeof base), -1);
    ASSERT_EQ(vx::GetBaseDirectory(base, sizeof base), 0);
    EXPECT_STREQ(base, exeDir);

    ASSERT_EQ(vx::SetEnvironmentText("VORLIX_HOME", home.Path().c_str()), 0);
    ASSERT_EQ(vx::GetBaseDirectory(base, sizeof base), 0);
    EXPECT_EQ(std::string(base), home.Path());

    // A trailing separator is dropped, as for the executable's directory.
    std::string withSeparator = home.Path() + vx::kPathSeparator;
    ASSERT_EQ(vx::SetEnvironmentText("VORLIX_HOME", withSeparator.c_str()), 0);
    ASSERT_EQ(vx::GetBaseDirectory(base, sizeof base), 0);
    EXPECT_EQ(std::string(base), home.Path());

    // A value longer than the buffer is cut, not overflowed.
    char small[6];
    ASSERT_EQ(vx::GetEnvironmentText("VORLIX_HOME", small, sizeof small), 0);
    EXPECT_EQ(std::string(small), withSeparator.substr(0, 5));
}

TEST(Host, OsInfoAndMemoryCounters) {
    vx::OsInfo os{};
    ASSERT_EQ(vx::GetOsInfo(&os), 0);
    EXPECT_GT(os.major, 0u);
    EXPECT_LT(strlen(os.text), sizeof os.text);

    vx::ProcessMemory memory{};
    ASSERT_EQ(vx::GetProcessMemory(&memory), 0);
    EXPECT_GT(memory.workingSet, 0u);
    EXPECT_GE(memory.peakWorkingSet, memory.workingSet);
    EXPECT_GT(memory.pagefileUsage, 0u);
}

}  // namespace
