// The command line's view of the settings table: which names it accepts, what "-t" resets, and
// how start-up reads the option globals.
#include "config/option_table.h"

#include <gtest/gtest.h>

#include <string>

#include "config/option_globals.h"
#include "printserver/settings_table.h"
#include "prsrv_fixture.h"

namespace {

bool Has(const vx::Setting& setting, uint8_t flag) {
    return (setting.flags & flag) != 0;
}

TEST(OptionTable, KnownNamesFollowTheTwoRulesAndTheTable) {
    for (const char* name : {"MyCOLOR", "COL", "AuthX", "Auth"})
        EXPECT_TRUE(vx::IsKnownOption(name)) << name;
    // The rules' names match case, and settings the service reads or reports are not the command
    // line's to touch.
    for (const char* name :
         {"color", "auth7", "loglevel", "", "EnableEUDC", "UseNonASCII", "PropertyChangeAllowed",
          "EnableCancelButton", "SyncJobFiles", "AbortAfterErrors"})
        EXPECT_FALSE(vx::IsKnownOption(name)) << name;
    EXPECT_FALSE(vx::IsKnownOption(nullptr));
}

class OptionStore : public vxtest::PrsrvFixture {};

TEST_F(OptionStore, ResetDeletesExactlyTheResetList) {
    // Every setting at its default, so that the store behaves as usual while it is seeded.
    for (const vx::Setting& setting : vx::kSettings) {
        Seed(setting.name, setting.type == vx::kSettingInteger
                               ? std::to_string(setting.defaultValue)
                               : std::string(setting.defaultText));
    }
    for (const char* name : {"Auth1", "MyCOLOR", "Custom"}) Seed(name, "7");
    Seed("LPDPort", "600", "Printer1");
    auto p = Make();
    p->SetGlobalString("Custom", "written");  // opens the write handle
    vx::ResetOptions(*p);
    for (const vx::Setting& setting : vx::kSettings) {
        bool deleted = Stored(setting.name) == "<missing>";
        EXPECT_EQ(deleted, Has(setting, vx::kSettingReset)) << setting.name;
    }
    EXPECT_EQ(Stored("Auth1"), "7");  // authorised senders stay, and the two rules' names
    EXPECT_EQ(Stored("MyCOLOR"), "7");
    EXPECT_EQ(p->GetPrinterInt("Printer1", "LPDPort", 0), 600);  // printer values stay
}

TEST_F(OptionStore, OptionGlobalsAreReadAndAbsentOnesTakeTheirDefaults) {
    Seed("RestartAfterJobs", "0x0A");
    Seed("ConnectionMode", "0");
    auto p = Make();
    int count = 0;
    const vx::OptionGlobalEntry* table = vx::OptionGlobalTable(&count);
    ASSERT_GT(count, 0);
    for (int i = 0; i < count; ++i) vx::g_Options.*(table[i].field) = 12345;
    vx::ReadOptionGlobals(*p);
    EXPECT_EQ(vx::g_Options.RestartAfterJobs, 10);
    EXPECT_EQ(vx::g_Options.ConnectionMode, 0);
    for (int i = 0; i < count; ++i) {
        std::string name = table[i].setting->name;
        if (name == "RestartAfterJobs" || name == "ConnectionMode") continue;
        EXPECT_EQ(vx::g_Options.*(table[i].field), table[i].setting->defaultValue) << name;
    }
    for (int i = 0; i < count; ++i)
        vx::g_Options.*(table[i].field) = table[i].setting->defaultValue;
}

}  // namespace
