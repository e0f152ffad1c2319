// The trace logs of the print-server object: levels, switching by size, clean-up, run-time option
// changes, the memory trace and console output. The line form is parsed by every end-to-end test.
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "printserver/rotated_logs.h"
#include "printserver/zelprsrv.h"
#include "prsrv_fixture.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;
using vx::Czelprsrv;

class TraceLog : public vxtest::PrsrvFixture {
  protected:
    std::string MainLog(Czelprsrv& p) { return vxtest::ReadTextFile(p.MainLogPath()); }

    // Files in the log directory whose names begin with "vorlix.dbg.": logs moved aside.
    std::vector<std::string> MovedLogs() {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir_.Path())) {
            std::string name = entry.path().filename().string();
            if (name.rfind("vorlix.dbg.", 0) == 0) names.push_back(name);
        }
        return names;
    }

    static std::string Line(int n) {
        return "line " + std::to_string(n) + std::string(90, '.') + "\n";
    }
};

TEST_F(TraceLog, LevelZeroMeansNoMainLogAtAll) {
    Seed("LogLevel", "0");
    auto p = Make();
    EXPECT_FALSE(p->MainLogOpen());
    p->TraceError("lost\n");
    EXPECT_FALSE(fs::exists(dir_.File("vorlix.dbg")));
}

TEST_F(TraceLog, SwitchesWhenTheFileOutgrowsTheLimitAfterEnoughLines) {
    Seed("MaxLogFileSize", "3000");
    Seed("KeepFile", "1");
    auto p = Make(vx::kRunModeService);
    ASSERT_TRUE(p->MainLogOpen());
    std::string path = p->MainLogPath();
    int switchedAt = -1;
    for (int i = 0; i < 100 && switchedAt < 0; ++i) {
        p->Trace(vx::kTraceNormal, "%s", Line(i).c_str());
        if (!MovedLogs().empty()) switchedAt = i;
        if (switchedAt < 0) {  // too few lines yet, or the file not too long yet
            EXPECT_TRUE(p->LinesWritten() <= 30 || fs::file_size(path) <= 3000u) << i;
        }
    }
    ASSERT_GE(switchedAt, 0);
    std::vector<std::string> moved = MovedLogs();
    ASSERT_EQ(moved.size(), 1u);
    EXPECT_TRUE(
        std::regex_match(moved[0], std::regex(R"(vorlix\.dbg\.\d\d_\d\d_\d{4}_\d\d_\d\d_\d\d)")));
    std::string oldLog = vxtest::ReadTextFile(dir_.File(moved[0]));
    EXPECT_NE(oldLog.find(Line(switchedAt)), std::string::npos);  // the line that switched
    std::string fresh = MainLog(*p);
    EXPECT_NE(fresh.find("This is Vorlix Version"), std::string::npos);
    EXPECT_EQ(fresh.find("line "), std::string::npos);
}

// Stamped names for the next few seconds, so that any switch in that time finds its target taken.
static void OccupySwitchTargets(const std::string& logPath) {
    std::time_t now = std::time(nullptr);
    for (int s = 0; s < 4; ++s) {
        std::time_t t = now + s;
        std::tm local = *std::localtime(&t);
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "%d_%m_%Y_%H_%M_%S", &local);
        vxtest::WriteWholeFile(logPath + "." + stamp, "taken");
    }
}

// Moved logs beyond the limit go; files that only look alike stay, and 0 keeps all. (Stamp order
// and the pruning at every switch are checked end to end.)
TEST_F(TraceLog, PruningSparesLookAlikesAndZeroKeepsEverything) {
    const std::string log = dir_.File("vorlix.dbg");
    const std::vector<std::string> moved = {"vorlix.dbg.31_12_2024_23_59_59",
                                            "vorlix.dbg.01_01_2025_00_00_00"};
    const std::vector<std::string> foreign = {
        "vorlix.dbg.01_01_2000_00_00_00.bak", "vorlix.dbg.1_01_2000_00_00_00",
        "vorlix.dbg.01-01-2000_00_00_00", "xvorlix.dbg.01_01_2000_00_00_00"};
    for (const auto& name : moved) ASSERT_TRUE(vxtest::WriteWholeFile(dir_.File(name), "old"));
    for (const auto& name : foreign) ASSERT_TRUE(vxtest::WriteWholeFile(dir_.File(name), "x"));
    EXPECT_EQ(vx::PruneRotatedLogs(log.c_str(), 0), 0);
    EXPECT_EQ(vx::PruneRotatedLogs(log.c_str(), 1), 1);
    EXPECT_FALSE(fs::exists(dir_.File(moved[0])));
    EXPECT_TRUE(fs::exists(dir_.File(moved[1])));
    for (const auto& name : foreign) EXPECT_TRUE(fs::exists(dir_.File(name))) << name;
}

TEST_F(TraceLog, FailedRenameKeepsWritingToTheOldFile) {
    Seed("MaxLogFileSize", "1000");
    Seed("KeepFile", "1");
    Seed("LogLevel", "5");
    auto p = Make(vx::kRunModeService);
    std::string path = p->MainLogPath();
    OccupySwitchTargets(path);
    for (int i = 0; i < 30; ++i) p->Trace(vx::kTraceNormal, "%s", Line(i).c_str());
    std::string log = MainLog(*p);
    EXPECT_NE(log.find("is not possible.\n"), std::string::npos);
    for (int i = 0; i < 30; ++i) EXPECT_NE(log.find(Line(i)), std::string::npos) << i;
}

TEST_F(TraceLog, NoLogFileSwitchDeletesTheOldLog) {
    Seed("MaxLogFileSize", "1000");
    Seed("NoLogFileSwitch", "1");
    Seed("KeepFile", "1");
    auto p = Make(vx::kRunModeService);
    for (int i = 0; i < 40; ++i) p->Trace(vx::kTraceNormal, "%s", Line(i).c_str());
    EXPECT_TRUE(MovedLogs().empty());
    std::string log = MainLog(*p);
    EXPECT_EQ(log.find(Line(0)), std::string::npos);
    EXPECT_NE(log.find("This is Vorlix Version"), std::string::npos);
}

TEST_F(TraceLog, LogsAreDeletedAtTheEndUnlessKept) {
    Seed("WinAPILog", "1");
    std::string mainPath, apiPath;
    {
        auto p = Make(vx::kRunModeService);
        mainPath = p->MainLogPath();
        apiPath = p->ApiLogPath();
        EXPECT_TRUE(fs::exists(mainPath) && fs::exists(apiPath));
    }
    EXPECT_FALSE(fs::exists(mainPath) || fs::exists(apiPath));

    Seed("KeepFile", "1");
    {
        auto p = Make(vx::kRunModeService);
        p->Trace(vx::kTraceNormal, "kept\n");
    }
    EXPECT_NE(vxtest::ReadTextFile(mainPath).find("kept\n"), std::string::npos);
    EXPECT_TRUE(fs::exists(apiPath));
}

TEST_F(TraceLog, OptionChangesTakeEffectAtOnce) {
    auto p = Make();
    p->Trace(vx::kTraceDetail, "hidden\n");
    p->Trace(-5, "negative five\n");  // |-5| is above level 1
    p->ChangeTraceOption("LogLevel", "9");
    p->Trace(vx::kTraceDetail, "shown\n");
    std::string log = MainLog(*p);
    EXPECT_EQ(log.find("hidden"), std::string::npos);
    EXPECT_EQ(log.find("negative five"), std::string::npos);
    EXPECT_NE(log.find("Option LogLevel will be changed to value 9\n"), std::string::npos);
    EXPECT_NE(log.find("shown\n"), std::string::npos);
    EXPECT_EQ(p->GetGlobalInt("LogLevel", 0), 9);  // the cache follows the change

    p->ChangeTraceOption("LogLevel", "9");  // unchanged: no second line
    EXPECT_EQ(vxtest::CountOccurrences(MainLog(*p), "will be changed"), 1);
    p->ChangeTraceOption("KeepFile", "1");
    EXPECT_FALSE(p->DeleteLogsAtEnd());
    p->ChangeTraceOption("NewSetting", "0x10");  // decimal conversion only
    EXPECT_EQ(p->GetGlobalInt("NewSetting", 5), 0);
}

TEST_F(TraceLog, TrackedMemoryIsTracedByTagFileAndLineOnlyWithMemoryLog) {
    Seed("LogLevel", "9");
    {
        auto p = Make();
        p->TrackedFree(p->TrackedAlloc(8, "unit", 1, "Quiet", 0), "unit", 2, "Quiet", 0);
        p->ReportMemoryUsage(0, 0);
        EXPECT_EQ(MainLog(*p).find("Quiet"), std::string::npos);
        EXPECT_EQ(MainLog(*p).find("memory usage"), std::string::npos);
    }
    Seed("MemoryLog", "1");
    auto p = Make();
    void* always = p->TrackedAlloc(16, "unit", 7, "Tagged", 1);
    void* quiet = p->TrackedAlloc(8, "unit", 8, nullptr, 0);
    ASSERT_NE(always, nullptr);
    EXPECT_EQ(static_cast<unsigned char*>(always)[15], 0);
    p->TrackedFree(always, "unit", 9, "Tagged", 1);
    p->TrackedFree(quiet, "unit", 10, nullptr, 0);
    p->ReportMemoryUsage(0, 4321);
    std::string log = MainLog(*p);
    EXPECT_TRUE(std::regex_search(
        log, std::regex(R"(malloc \S+ \(Tagged\) of size 16 in file unit in line 7\n)")));
    EXPECT_TRUE(
        std::regex_search(log, std::regex(R"(malloc \S+ of size 8 in file unit in line 8\n)")));
    EXPECT_TRUE(
        std::regex_search(log, std::regex(R"(free \S+ \(Tagged\) in file unit in line 9\n)")));
    EXPECT_NE(log.find("Initial memory usage\n"), std::string::npos);
    EXPECT_NE(log.find("\tAllocated list memory: 4 K\n"), std::string::npos);
}

TEST_F(TraceLog, ConsoleRunShowsErrorLinesTwice) {
    auto p = Make(vx::kRunModeConsole);
    testing::internal::CaptureStdout();
    p->Trace(vx::kTraceNormal, "once\n");
    p->TraceError("twice\n");
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(vxtest::CountOccurrences(out, "once\n"), 1);
    EXPECT_EQ(vxtest::CountOccurrences(out, "Error: twice\n"), 2);
}

}  // namespace
