// What vorlix.exe carries in its resources and the registration of its event source. On Linux
// ELF files carry no resources and syslog needs no registration.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "base/eventlog.h"
#include "base/fileops.h"
#include "base/process.h"
#include "base/registry.h"
#include "base/version_resource.h"
#include "printserver/service_events.h"
#include "test_support.h"

namespace {

#if defined(_WIN32)
constexpr bool kResourcesInExecutable = true;
const char* const kVorlixRelative = "\\vorlix.exe";
#else
constexpr bool kResourcesInExecutable = false;
const char* const kVorlixRelative = "/vorlix";
#endif

// The service is built beside the test executable.
std::string VorlixPath() {
    char dir[vx::kMaxPath];
    return vx::GetExecutableDirectory(dir, sizeof dir) == 0 ? dir + std::string(kVorlixRelative)
                                                            : "";
}

std::string OwnPath() {
    char path[vx::kMaxPath];
    return vx::GetExecutablePath(path, sizeof path) == 0 ? path : "";
}

TEST(VersionResource, VorlixCarriesItsVersionTexts) {
    ASSERT_TRUE(vx::FsExists(VorlixPath().c_str())) << VorlixPath();
    char fileVersion[64] = "stale";
    char productVersion[64] = "stale";
    int rc = vx::ReadFileVersion(VorlixPath().c_str(), fileVersion, sizeof fileVersion,
                                 productVersion, sizeof productVersion);
    if (!kResourcesInExecutable) {
        EXPECT_EQ(rc, -1);
        EXPECT_STREQ(fileVersion, "");
        EXPECT_STREQ(productVersion, "");
        return;
    }
    ASSERT_EQ(rc, 0);
    EXPECT_STREQ(fileVersion, "7500.1.0.47");
    EXPECT_STREQ(productVersion, "750 Final Release");
}

TEST(MessageTable, WordsTheServiceEventsEndedByCrLf) {
    std::string vorlix = VorlixPath();
    char text[256] = "stale";
    int rc = vx::FormatMessageFileText(vorlix.c_str(), vx::kEventIdApiError, "Func", "Text", text,
                                       sizeof text);
    if (!kResourcesInExecutable) {
        EXPECT_EQ(rc, -1);
        EXPECT_STREQ(text, "");
        return;
    }
    ASSERT_EQ(rc, 0);
    EXPECT_STREQ(text, "Error in Func occurred: Text\r\n");
    ASSERT_EQ(vx::FormatMessageFileText(vorlix.c_str(), 1, nullptr, nullptr, text, sizeof text), 0);
    EXPECT_STREQ(text, "API Events\r\n");

    // No other message, and no table in a file built without one.
    EXPECT_EQ(vx::FormatMessageFileText(vorlix.c_str(), 2, "a", "b", text, sizeof text), -1);
    EXPECT_EQ(vx::FormatMessageFileText(OwnPath().c_str(), vx::kEventIdApiError, "a", "b", text,
                                        sizeof text),
              -1);
}

// The test's event log key, removed (with its source) at the end.
struct EventLogKey {
    std::string name;
    std::string Path() const { return "SYSTEM\\CurrentControlSet\\Services\\EventLog\\" + name; }
    ~EventLogKey() {
#if defined(_WIN32)
        std::system(("reg delete \"HKLM\\" + Path() + "\" /f > NUL 2>&1").c_str());
#endif
    }
};

std::string QueryText(const vx::RegKey& key, const char* name, uint32_t* size) {
    char buf[vx::kMaxPath + 16];
    *size = sizeof buf;
    if (vx::RegQueryText(key.Get(), name, buf, size) != vx::kRegOk) return "<missing>";
    return buf;
}

TEST(EventSource, RegistrationWritesTheFourValues) {
    vxtest::UseScratchEnvironment();
    EventLogKey log{vxtest::UniqueName("VorlixTestLog")};
    std::string sourcePath = log.Path() + "\\vorlix";
    std::string messageFile = VorlixPath();
    EXPECT_EQ(vx::RegisterEventSourceEntry(log.name.c_str(), "vorlix", messageFile.c_str(), 1), 0);

    vx::RegKey key;
    long opened = vx::RegOpen(vx::kHiveLocalMachine, sourcePath.c_str(), key.Receive());
    if (!kResourcesInExecutable) {
        EXPECT_EQ(opened, vx::kRegNotFound);  // syslog: nothing written to the hive
        return;
    }
    ASSERT_EQ(opened, vx::kRegOk);
    uint32_t size = 0;
    EXPECT_EQ(QueryText(key, "EventMessageFile", &size), messageFile);
    EXPECT_EQ(size, messageFile.size() + 1);  // stored with its terminating zero
    EXPECT_EQ(QueryText(key, "CategoryMessageFile", &size), messageFile);
    EXPECT_EQ(size, messageFile.size() + 1);
    EXPECT_EQ(QueryText(key, "TypesSupported", &size), "7");
    EXPECT_EQ(QueryText(key, "CategoryCount", &size), "1");

    // The value types, as the system's own tool shows them.
    vxtest::ScratchDir scratch;
    std::string out = scratch.File("query.txt");
    std::string command = "reg query \"HKLM\\" + sourcePath + "\" > \"" + out + "\"";
    ASSERT_EQ(std::system(command.c_str()), 0);
    std::string listing = vxtest::ReadWholeFile(out);
    EXPECT_EQ(vxtest::CountOccurrences(listing, "REG_EXPAND_SZ"), 2) << listing;
    EXPECT_EQ(vxtest::CountOccurrences(listing, "REG_DWORD"), 2) << listing;

    // Registering again rewrites the values in place.
    ASSERT_EQ(vx::RegisterEventSourceEntry(log.name.c_str(), "vorlix", "C:\\other.exe", 3), 0);
    EXPECT_EQ(QueryText(key, "EventMessageFile", &size), "C:\\other.exe");
    EXPECT_EQ(QueryText(key, "CategoryCount", &size), "3");
}

TEST(EventSource, RefusesWhatCannotNameItsKey) {
    if (!kResourcesInExecutable) GTEST_SKIP() << "syslog needs no registration";
    std::string longName(300, 'x');
    EXPECT_EQ(vx::RegisterEventSourceEntry("Application", longName.c_str(), "C:\\v.exe", 1), 1);
    EXPECT_EQ(vx::RegisterEventSourceEntry(nullptr, "vorlix", "C:\\v.exe", 1), 1);
    EXPECT_EQ(vx::RegisterEventSourceEntry("Application", nullptr, "C:\\v.exe", 1), 1);
    EXPECT_EQ(vx::RegisterEventSourceEntry("Application", "vorlix", nullptr, 1), 1);
}

}  // namespace
