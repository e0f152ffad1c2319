#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/eventlog.h"
#include "base/fileops.h"
#include "base/syserror.h"
#include "printserver/service_events.h"
#include "test_support.h"

namespace {

bool EndsCleanly(const char* text) {
    size_t len = strlen(text);
    return len > 0 && text[len - 1] != '\n' && text[len - 1] != '\r' && text[len - 1] != ' ';
}

TEST(SystemError, FileNotFoundHasATextWithoutLineBreak) {
    vxtest::ScratchDir dir;
    vx::SetLastSystemError(0);
    ASSERT_EQ(vx::FsRemove(dir.File("missing").c_str()), -1);
    uint32_t code = vx::LastSystemError();
    EXPECT_EQ(code, 2u);  // ERROR_FILE_NOT_FOUND and ENOENT share the number

    char text[256];
    ASSERT_EQ(vx::SystemErrorText(code, text, sizeof text), 0);
    EXPECT_TRUE(EndsCleanly(text)) << "[" << text << "]";
    EXPECT_EQ(vx::LastSystemError(), code);  // looking up the text keeps the error

    char small[8];
    vx::SystemErrorText(code, small, sizeof small);
    EXPECT_LT(strlen(small), sizeof small);
}

TEST(SystemError, UnknownCodeNamesTheNumber) {
    char text[128];
    EXPECT_EQ(vx::SystemErrorText(0x1DCBA987u, text, sizeof text), -1);
    EXPECT_NE(std::string(text).find("499886471"), std::string::npos) << text;
}

TEST(SystemEvent, MessageWordingAndReport) {
    char text[64];
    vx::EventMessageText(vx::kEventIdApiError, "RegSetValueExA", "Access is denied", text,
                         sizeof text);
    EXPECT_STREQ(text, "Error in RegSetValueExA occurred: Access is denied");
    vx::EventMessageText(7, "first", nullptr, text, sizeof text);
    EXPECT_STREQ(text, "first: ");
    EXPECT_EQ(
        vx::ReportSystemEvent(nullptr, vx::kEventError, 0, vx::kEventIdApiError, "a", "b", "a: b"),
        -1);
    EXPECT_EQ(vx::ReportSystemEvent("vorlix_test", vx::kEventInformation, 0, vx::kEventIdApiError,
                                    "base_syserror_test", "event reported by a unit test",
                                    "base_syserror_test: event reported by a unit test"),
              0);
}

}  // namespace
