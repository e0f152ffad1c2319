// Which names the command line accepts, and what "-t" resets.
#include "config/option_table.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "config/option_globals.h"
#include "prsrv_fixture.h"

namespace {

TEST(OptionTable, KnownNamesFollowTheTwoRulesAndTheList) {
    EXPECT_TRUE(vx::IsKnownOption("MyCOLOR"));
    EXPECT_TRUE(vx::IsKnownOption("COL"));
    EXPECT_FALSE(vx::IsKnownOption("color"));
    EXPECT_TRUE(vx::IsKnownOption("AuthX"));
    EXPECT_TRUE(vx::IsKnownOption("Auth"));
    EXPECT_FALSE(vx::IsKnownOption("auth7"));
    EXPECT_TRUE(vx::IsKnownOption("LogLevel"));
    EXPECT_FALSE(vx::IsKnownOption("loglevel"));
    for (const char* name :
         {"EnableEUDC", "UseNonASCII", "PropertyChangeAllowed", "EnableCancelButton", "",
          "AbortAfterErrors", "ClusterResource", "ForceChanges"})
        EXPECT_FALSE(vx::IsKnownOption(name)) << name;
    EXPECT_FALSE(vx::IsKnownOption(nullptr));
}

TEST(OptionTable, ResetListIsTheKnownListAndThreeMore) {
    int knownCount = 0;
    int resetCount = 0;
    const char* const* known = vx::KnownOptionNames(&knownCount);
    const char* const* reset = vx::ResetOptionNames(&resetCount);
    ASSERT_EQ(knownCount, 104);
    ASSERT_EQ(resetCount, 107);
    std::set<std::string> knownSet(known, known + knownCount);
    std::set<std::string> resetSet(reset, reset + resetCount);
    EXPECT_EQ(knownSet.size(), 104u);  // no name twice
    std::set<std::string> extra;
    for (const std::string& name : resetSet)
        if (!knownSet.count(name)) extra.insert(name);
    EXPECT_EQ(extra,
              (std::set<std::string>{"AbortAfterErrors", "ClusterResource", "ForceChanges"}));
    for (const std::string& name : knownSet) EXPECT_TRUE(resetSet.count(name)) << name;
    for (int i = 0; i < knownCount; ++i) EXPECT_TRUE(vx::IsKnownOption(known[i])) << known[i];
}

class OptionStore : public vxtest::PrsrvFixture {};

TEST_F(OptionStore, ResetDeletesOnlyWhenTheStoreHasWritten) {
    Seed("LogLevel", "9");
    Seed("AbortAfterErrors", "3");
    Seed("Auth1", "CN=sender");
    Seed("LPDPort", "600", "Printer1");
    {
        auto p = Make();
        vx::ResetOptions(*p);  // no write yet: no write handle, nothing deleted
        EXPECT_EQ(Stored("LogLevel"), "9");
    }
    {
        auto p = Make();
        p->SetGlobalInt("KeepFile", 1);  // opens the write handle
        vx::ResetOptions(*p);
        EXPECT_EQ(Stored("LogLevel"), "<missing>");
        EXPECT_EQ(Stored("AbortAfterErrors"), "<missing>");
        EXPECT_EQ(Stored("KeepFile"), "<missing>");
        EXPECT_EQ(Stored("Auth1"), "CN=sender");  // authorised senders stay
    }
    auto next = Make();
    EXPECT_EQ(next->GetPrinterInt("Printer1", "LPDPort", 0), 600);  // printer values stay
    vx::ReadOptionGlobals(*next);
    EXPECT_EQ(vx::g_Options.UseOldTitle, 1);
    EXPECT_EQ(vx::g_Options.ProcessingMode, 1);
    EXPECT_EQ(vx::g_Options.UseNonASCII, 1);
    EXPECT_EQ(vx::g_Options.RestartAfterJobs, 0);
}

TEST_F(OptionStore, OptionGlobalsAreReadInTheirOrderWithTheirDefaults) {
    Seed("RestartAfterJobs", "0x0A");
    Seed("ConnectionMode", "0");
    Seed("WinAPILog", "1");
    Seed("KeepFile", "1");
    auto p = Make();
    vx::ReadOptionGlobals(*p);
    EXPECT_EQ(vx::g_Options.RestartAfterJobs, 10);
    EXPECT_EQ(vx::g_Options.ConnectionMode, 0);
    EXPECT_EQ(vx::g_Options.ProcessingMode, 1);
    int count = 0;
    const vx::OptionGlobalEntry* table = vx::OptionGlobalTable(&count);
    ASSERT_EQ(count, 14);
    EXPECT_STREQ(table[0].name, "ZELUserAsOwner");
    EXPECT_STREQ(table[13].name, "LogTimeCheck");
    // The registry is asked in the table's order.
    std::string api = vxtest::ReadTextFile(p->ApiLogPath());
    size_t last = 0;
    for (int i = 0; i < count; ++i) {
        // Read (and cached) already by the print-server object at construction.
        if (std::string(table[i].name) == "NoLogFileSwitch") continue;
        size_t at = api.find(std::string(", ") + table[i].name + ", ..)", last);
        ASSERT_NE(at, std::string::npos) << table[i].name;
        last = at;
    }
}

}  // namespace
