// The settings store of the print-server object against a real hive (the registry under Wine,
// a scratch ".reg" file on Linux): caching, per-printer fallback, writes.
#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/registry.h"
#include "printserver/zelprsrv.h"
#include "prsrv_fixture.h"
#include "test_support.h"

namespace {

using vx::Czelprsrv;

class SettingsStore : public vxtest::PrsrvFixture {
  protected:
    void SetUp() override {
        PrsrvFixture::SetUp();
        Seed("WinAPILog", "1");  // every registry call shows in the API log
        Seed("KeepFile", "1");
    }

    std::string ApiLog(Czelprsrv& p) { return vxtest::ReadTextFile(p.ApiLogPath()); }
};

// A missing value's default is kept: the hive is asked once.
TEST_F(SettingsStore, AMissingValueIsAskedOnce) {
    auto p = Make();
    EXPECT_EQ(p->GetGlobalInt("LateValue", 7), 7);
    Seed("LateValue", "42");  // written behind the service's back after the first read
    EXPECT_EQ(p->GetGlobalInt("LateValue", 8), 7);
    EXPECT_EQ(vxtest::CountOccurrences(ApiLog(*p), ", LateValue, ..) ="), 1);
}

TEST_F(SettingsStore, PrinterValueFallsBackToGlobalThenToDefault) {
    Seed("Copies", "3");
    Seed("Copies", "5", "LaserA");
    Seed("Other", "1", "LaserB");  // LaserB's subkey exists but has no "Copies"
    auto p = Make();
    EXPECT_EQ(p->GetOptionValue("LaserA", "Copies", 1), 5);
    EXPECT_EQ(p->GetOptionValue("LaserB", "Copies", 1), 3);
    EXPECT_EQ(p->GetOptionValue("NoSuchPrinter", "Copies", 1), 3);
    EXPECT_EQ(p->GetOptionValue(nullptr, "Copies", 1), 3);
    EXPECT_EQ(p->GetOptionValue("LaserB", "Absent", 9), 9);
    EXPECT_EQ(p->GetPrinterInt("LaserA", "Copies", 0), 5);
    // A direct printer read falls back to its own default, not to the global value.
    EXPECT_EQ(p->GetPrinterInt("LaserC", "Copies", 0), 0);
    // What was looked up for a printer is cached under printer and name.
    EXPECT_EQ(p->GetPrinterInt("LaserB", "Copies", 0), 3);
}

TEST_F(SettingsStore, PdfEmitPsIgnoresTheGlobalValue) {
    Seed("PDFEmitPS", "1");
    Seed("PDFEmitPS", "4", "WithValue");
    Seed("Other", "1", "WithoutValue");
    auto p = Make();
    EXPECT_EQ(p->GetOptionValue("WithoutValue", "PDFEmitPS", 0), 0);
    EXPECT_EQ(p->GetOptionValue(nullptr, "PDFEmitPS", 2), 2);
    EXPECT_EQ(p->GetOptionValue("WithValue", "PDFEmitPS", 2), 4);
    EXPECT_EQ(p->GetOptionValue("WithValue", "PDFEmitPS", 6), 6);  // the greater of the two
}

TEST_F(SettingsStore, WritesUpdateTheCacheAndTheRegistry) {
    Seed("Level", "2");
    auto p = Make();
    // Before the first write there is no write handle, and a delete changes nothing.
    EXPECT_EQ(p->DeleteGlobalValue("Level"), -1);
    EXPECT_EQ(Stored("Level"), "2");
    EXPECT_EQ(p->GetGlobalInt("Level", 0), 2);
    p->SetGlobalInt("Level", -17);
    EXPECT_EQ(Stored("Level"), "-17");
    std::string before = ApiLog(*p);
    EXPECT_EQ(p->GetGlobalInt("Level", 0), -17);
    EXPECT_EQ(ApiLog(*p), before);  // answered from the cache

    p->SetGlobalString("Path", "C:\\Temp\\x");
    EXPECT_EQ(Stored("Path"), "C:\\Temp\\x");
    char text[64];
    p->GetGlobalString("Path", "", text, sizeof text);
    EXPECT_STREQ(text, "C:\\Temp\\x");

    // A delete reaches the registry, but the running object keeps what it has read.
    EXPECT_EQ(p->DeleteGlobalValue("Level"), 0);
    EXPECT_EQ(Stored("Level"), "<missing>");
    EXPECT_EQ(p->GetGlobalInt("Level", 0), -17);
    EXPECT_EQ(p->DeleteGlobalValue("Level"), -1);
}

TEST_F(SettingsStore, ThreadsWritingFirstAtOnceOpenTheKeyOnce) {
    auto p = Make();
    constexpr int kThreads = 8;
    std::latch start(kThreads);
    std::vector<std::thread> writers;
    for (int i = 0; i < kThreads; ++i) {
        writers.emplace_back([&, i] {
            start.arrive_and_wait();
            p->SetGlobalInt(("Writer" + std::to_string(i)).c_str(), i);
        });
    }
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(vxtest::CountOccurrences(ApiLog(*p), "RegCreateKeyEx("), 1);
    for (int i = 0; i < kThreads; ++i)
        EXPECT_EQ(Stored("Writer" + std::to_string(i)), std::to_string(i));
}

TEST_F(SettingsStore, PrinterStringFallsBackToTheGlobalOne) {
    Seed("Long", "abcdefghijklmnopqrstuvwxyz");
    Seed("Long", "0123456789", "P1");
    auto p = Make();
    char buf[64];
    uint32_t size = sizeof buf;
    p->GetPrinterString("P1", "Long", "", buf, &size);
    EXPECT_STREQ(buf, "0123456789");
    size = sizeof buf;
    p->GetPrinterString("P2", "Long", "", buf, &size);
    EXPECT_STREQ(buf, "abcdefghijklmnopqrstuvwxyz");
    // A printer value that does not fit the caller's size is not read: the global value stays.
    char small[5];
    uint32_t tiny = sizeof small;
    p->GetPrinterString("P1", "Long", "", small, &tiny);
    EXPECT_STREQ(small, "abcd");
}

TEST_F(SettingsStore, UserModeMarkIsWrittenAndRemoved) {
    auto p = Make();
    EXPECT_EQ(p->SetUserModeMark(1, key_.c_str()), 1);
    EXPECT_EQ(Stored("UserMode"), "1");
    EXPECT_EQ(p->SetUserModeMark(0, key_.c_str()), 1);
    EXPECT_EQ(Stored("UserMode"), "<missing>");
}

TEST_F(SettingsStore, ChildObjectSharesTheParentsCaches) {
    Seed("Shared", "1");
    auto parent = Make();
    EXPECT_EQ(parent->GetGlobalInt("Shared", 0), 1);
    Seed("Shared", "2");
    auto child = Make(vx::kRunModeTool, parent.get());
    EXPECT_EQ(child->GetGlobalInt("Shared", 0), 1);  // the parent's cached value
    child->SetGlobalInt("FromChild", 9);
    EXPECT_EQ(parent->GetGlobalInt("FromChild", 0), 9);
}

}  // namespace
