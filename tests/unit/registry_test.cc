#include "base/registry.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "test_support.h"

#if !defined(_WIN32)
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

using vx::RegKey;

// Each test works on its own key in HKCU; on Linux the hive files live in the test's scratch
// directory.
class Registry : public ::testing::Test {
  protected:
    void SetUp() override {
#if !defined(_WIN32)
        setenv("VORLIX_REGISTRY_DIR", scratch_.Path().c_str(), 1);
#endif
        path_ = "Software\\Zel\\VorlixTest\\" + vxtest::UniqueName("key");
    }

    void TearDown() override {
        RegKey key;
        if (vx::RegCreate(vx::kHiveCurrentUser, path_.c_str(), key.Receive()) != vx::kRegOk) return;
        char name[256];
        while (vx::RegEnumText(key.Get(), 0, name, sizeof name, nullptr, 0) == vx::kRegOk)
            if (vx::RegRemoveValue(key.Get(), name) != vx::kRegOk) break;
    }

    static long Set(const RegKey& key, const char* name, const std::string& text) {
        return vx::RegSetText(key.Get(), name, text.c_str(), static_cast<uint32_t>(text.size()));
    }

    // The value's text, or "<error N>".
    static std::string Query(const RegKey& key, const char* name) {
        char buf[1024];
        uint32_t size = sizeof buf;
        long rc = vx::RegQueryText(key.Get(), name, buf, &size);
        return rc == vx::kRegOk ? std::string(buf) : "<error " + std::to_string(rc) + ">";
    }

    static std::map<std::string, std::string> Values(const RegKey& key) {
        std::map<std::string, std::string> values;
        char name[256];
        char data[1024];
        for (uint32_t i = 0;
             vx::RegEnumText(key.Get(), i, name, sizeof name, data, sizeof data) == vx::kRegOk; ++i)
            values[name] = data;
        return values;
    }

    std::string HiveFile() const {
        return scratch_.File("HKCU.reg");
    }

    vxtest::ScratchDir scratch_;
    std::string path_;
};

// RegKey cannot be returned by value; tests hold their keys directly.
#define CREATE_KEY(var) \
    RegKey var;         \
    ASSERT_EQ(vx::RegCreate(vx::kHiveCurrentUser, path_.c_str(), var.Receive()), vx::kRegOk)

TEST_F(Registry, CreateSetQueryEnumerateRemove) {
    RegKey missing;
    EXPECT_EQ(vx::RegOpen(vx::kHiveCurrentUser, path_.c_str(), missing.Receive()),
              vx::kRegNotFound);
    EXPECT_FALSE(missing.Valid());

    CREATE_KEY(key);
    // The parents of a created key exist without being created one by one; its children do not.
    RegKey parent;
    EXPECT_EQ(vx::RegOpen(vx::kHiveCurrentUser, "Software\\Zel\\VorlixTest", parent.Receive()),
              vx::kRegOk);
    EXPECT_EQ(vx::RegOpen(vx::kHiveCurrentUser, (path_ + "\\Below").c_str(), missing.Receive()),
              vx::kRegNotFound);
    ASSERT_EQ(Set(key, "LogLevel", "9"), vx::kRegOk);
    ASSERT_EQ(Set(key, "LogPath", "C:\\Logs\\"), vx::kRegOk);
    ASSERT_EQ(Set(key, "Title", "say \"hi\""), vx::kRegOk);
    ASSERT_EQ(Set(key, nullptr, "unnamed"), vx::kRegOk);
    ASSERT_EQ(Set(key, "Empty", ""), vx::kRegOk);
    EXPECT_EQ(Query(key, ""), "unnamed");

    ASSERT_EQ(Set(key, "LogLevel", "10"), vx::kRegOk);
    std::map<std::string, std::string> expected = {{"LogLevel", "10"},
                                                   {"LogPath", "C:\\Logs\\"},
                                                   {"Title", "say \"hi\""},
                                                   {"", "unnamed"},
                                                   {"Empty", ""}};
    EXPECT_EQ(Values(key), expected);
    char name[64];
    char data[64];
    EXPECT_EQ(vx::RegEnumText(key.Get(), 5, name, sizeof name, data, sizeof data),
              vx::kRegNoMoreItems);

    EXPECT_EQ(vx::RegRemoveValue(key.Get(), "LogPath"), vx::kRegOk);
    EXPECT_EQ(Query(key, "LogPath"), "<error 2>");
    EXPECT_EQ(vx::RegRemoveValue(key.Get(), "LogPath"), vx::kRegNotFound);
    // A missing value empties the caller's buffer.
    char buf[16] = "junk";
    uint32_t size = sizeof buf;
    EXPECT_EQ(vx::RegQueryText(key.Get(), "Missing", buf, &size), vx::kRegNotFound);
    EXPECT_STREQ(buf, "");

    // A key opened (not created) reads but does not write.
    RegKey reader;
    ASSERT_EQ(vx::RegOpen(vx::kHiveCurrentUser, path_.c_str(), reader.Receive()), vx::kRegOk);
    EXPECT_EQ(Query(reader, "LogLevel"), "10");
    EXPECT_EQ(Set(reader, "LogLevel", "1"), vx::kRegAccessDenied);
    EXPECT_EQ(vx::RegRemoveValue(reader.Get(), "LogLevel"), vx::kRegAccessDenied);
    EXPECT_EQ(reader.Close(), vx::kRegOk);
}

TEST_F(Registry, TextIsAlwaysTerminated) {
    CREATE_KEY(key);
    // Stored without terminator, as the service writes its texts.
    ASSERT_EQ(Set(key, "Text", "abcdefghij"), vx::kRegOk);

    // Room for exactly text and terminator, or for the text alone: cut, terminated, and the size
    // needed reported back.
    const struct {
        uint32_t size;
        long rc;
        const char* text;
    } cases[] = {{11, vx::kRegOk, "abcdefghij"}, {10, vx::kRegMoreData, "abcdefghi"}};
    char buf[32];
    uint32_t size;
    for (const auto& c : cases) {
        memset(buf, 'x', sizeof buf);
        size = c.size;
        EXPECT_EQ(vx::RegQueryText(key.Get(), "Text", buf, &size), c.rc) << c.size;
        EXPECT_STREQ(buf, c.text);
        EXPECT_EQ(size, 11u);
        if (c.size < sizeof buf) {
            EXPECT_EQ(buf[c.size], 'x');
        }
    }
    size = 0;
    EXPECT_EQ(vx::RegQueryText(key.Get(), "Text", nullptr, &size), vx::kRegOk);
    EXPECT_EQ(size, 11u);

    // A terminator within the given length ends the text; a shorter length cuts it.
    ASSERT_EQ(vx::RegSetText(key.Get(), "WithZero", "abc", 4), vx::kRegOk);
    size = sizeof buf;
    EXPECT_EQ(vx::RegQueryText(key.Get(), "WithZero", buf, &size), vx::kRegOk);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(size, 4u);
    ASSERT_EQ(vx::RegSetText(key.Get(), "Cut", "abcdef", 3), vx::kRegOk);
    EXPECT_EQ(Query(key, "Cut"), "abc");

    // Enumeration cuts name and data to their buffers and still succeeds.
    RegKey single;
    ASSERT_EQ(vx::RegCreate(vx::kHiveCurrentUser, (path_ + "\\Single").c_str(), single.Receive()),
              vx::kRegOk);
    ASSERT_EQ(Set(single, "LongName", "abcdefghij"), vx::kRegOk);
    char name[4];
    char data[5];
    EXPECT_EQ(vx::RegEnumText(single.Get(), 0, name, sizeof name, data, sizeof data), vx::kRegOk);
    EXPECT_STREQ(name, "Lon");
    EXPECT_STREQ(data, "abcd");
    EXPECT_EQ(vx::RegRemoveValue(single.Get(), "LongName"), vx::kRegOk);
}

TEST_F(Registry, NamesIgnoreCaseAndKeepTheirCase) {
    CREATE_KEY(key);
    ASSERT_EQ(Set(key, "LogLevel", "1"), vx::kRegOk);

    std::string upper = path_;
    for (char& c : upper) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    RegKey other;
    ASSERT_EQ(vx::RegCreate(vx::kHiveCurrentUser, upper.c_str(), other.Receive()), vx::kRegOk);
    EXPECT_EQ(Query(other, "LOGLEVEL"), "1");
    ASSERT_EQ(Set(other, "logLEVEL", "2"), vx::kRegOk);

    std::map<std::string, std::string> expected = {{"LogLevel", "2"}};
    EXPECT_EQ(Values(key), expected);
    EXPECT_EQ(vx::RegRemoveValue(key.Get(), "LOGLEVEL"), vx::kRegOk);
    EXPECT_TRUE(Values(key).empty());
}

#if !defined(_WIN32)

// A hive as an admin might write it: BOM, CRLF, comments, escapes, dword, hex over two lines,
// the unnamed value, unreadable lines and a key of the other hive.
std::string HandWrittenHive(const std::string& path) {
    return "\xEF\xBB\xBFWindows Registry Editor Version 5.00\r\n"
           "\r\n"
           "; settings written by hand\r\n"
           "[HKEY_CURRENT_USER\\" +
           path +
           "]\r\n"
           "\"LogPath\"=\"C:\\\\Logs\\\\\"\r\n"
           "\"Title\"=\"say \\\"hi\\\"\"\r\n"
           "@=\"unnamed\"\r\n"
           "\"LogLevel\"=dword:0000001f\r\n"
           "\"Blob\"=hex:01,02,\\\r\n"
           "  ff\r\n"
           "\"Expand\"=hex(2):25,00,00,00\r\n"
           "this line means nothing\r\n"
           "\"Broken\"=\"no end\r\n"
           "\"Bad\"=dword:xyz\r\n"
           "\r\n"
           "[HKEY_LOCAL_MACHINE\\" +
           path +
           "]\r\n"
           "\"Other\"=\"hive\"\r\n";
}

TEST_F(Registry, ReadsHandWrittenHive) {
    ASSERT_TRUE(vxtest::WriteWholeFile(HiveFile(), HandWrittenHive(path_)));
    RegKey key;
    ASSERT_EQ(vx::RegOpen(vx::kHiveCurrentUser, path_.c_str(), key.Receive()), vx::kRegOk);
    EXPECT_EQ(Query(key, "LogPath"), "C:\\Logs\\");
    EXPECT_EQ(Query(key, "Title"), "say \"hi\"");
    EXPECT_EQ(Query(key, nullptr), "unnamed");
    EXPECT_EQ(Query(key, "loglevel"), "31");
    EXPECT_EQ(Query(key, "Blob"), "01,02,ff");
    EXPECT_EQ(Query(key, "Expand"), "25,00,00,00");
    EXPECT_EQ(Query(key, "Broken"), "<error 2>");
    EXPECT_EQ(Query(key, "Bad"), "<error 2>");
    EXPECT_EQ(Query(key, "Other"), "<error 2>");

    // On Linux the enumeration follows the file.
    const char* order[] = {"LogPath", "Title", "", "LogLevel", "Blob", "Expand"};
    char name[64];
    char data[64];
    for (uint32_t i = 0; i < 6; ++i) {
        ASSERT_EQ(vx::RegEnumText(key.Get(), i, name, sizeof name, data, sizeof data), vx::kRegOk);
        EXPECT_STREQ(name, order[i]);
    }
    EXPECT_EQ(vx::RegEnumText(key.Get(), 6, name, sizeof name, data, sizeof data),
              vx::kRegNoMoreItems);

    // The same as UTF-16LE with BOM, the way regedit exports.
    std::u16string wide = u"\uFEFFWindows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\";
    for (char c : path_) wide.push_back(static_cast<char16_t>(c));
    wide += u"]\r\n\"Greeting\"=\"Grüße \u20AC\"\r\n\"LogLevel\"=dword:00000010\r\n";
    std::string bytes;
    for (char16_t u : wide) {
        bytes.push_back(static_cast<char>(u & 0xFF));
        bytes.push_back(static_cast<char>(u >> 8));
    }
    ASSERT_TRUE(vxtest::WriteWholeFile(HiveFile(), bytes));
    EXPECT_EQ(Query(key, "Greeting"), "Grüße \xE2\x82\xAC");
    EXPECT_EQ(Query(key, "LogLevel"), "16");
}

TEST_F(Registry, RewriteKeepsWhatItDoesNotEdit) {
    ASSERT_TRUE(vxtest::WriteWholeFile(HiveFile(), HandWrittenHive(path_)));
    CREATE_KEY(key);
    ASSERT_EQ(Set(key, "New", "value"), vx::kRegOk);
    ASSERT_EQ(vx::RegRemoveValue(key.Get(), "Title"), vx::kRegOk);
    ASSERT_EQ(Set(key, "Lines", "one\ntwo"), vx::kRegOk);

    std::string file = vxtest::ReadWholeFile(HiveFile());
    EXPECT_TRUE(vxtest::CountOccurrences(file, "Windows Registry Editor Version 5.00\r\n") == 1 &&
                file.find("Windows Registry Editor") == 0)
        << file;
    for (const char* kept :
         {"; settings written by hand", "\"Blob\"=hex:01,02,\\\r\n  ff\r\n",
          "\"Expand\"=hex(2):25,00,00,00", "\"LogLevel\"=dword:0000001f", "[HKEY_LOCAL_MACHINE\\",
          "\"Other\"=\"hive\"", "this line means nothing", "\"New\"=\"value\""})
        EXPECT_NE(file.find(kept), std::string::npos) << kept << "\n" << file;
    EXPECT_EQ(file.find("Title"), std::string::npos);
    EXPECT_EQ(vxtest::CountOccurrences(file, "\n"), vxtest::CountOccurrences(file, "\r\n"));

    EXPECT_EQ(Query(key, "Lines"), "one\ntwo");
    // Only the edited key is a section of this hive; the HKLM one is carried along.
    EXPECT_EQ(vxtest::CountOccurrences(file, "[HKEY_CURRENT_USER\\"), 1);
}

// A line with a stray carriage return before its CR LF, in a file of LF lines, is carried along
// byte for byte when the file is rewritten.
TEST_F(Registry, StrayCarriageReturnsSurviveRewrites) {
    const std::string odd = "odd line\r\r\n";
    ASSERT_TRUE(vxtest::WriteWholeFile(
        HiveFile(),
        "Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\" + path_ + "]\r\r\n" + odd));
    CREATE_KEY(key);
    ASSERT_EQ(Set(key, "Value", "first"), vx::kRegOk);
    std::string file = vxtest::ReadWholeFile(HiveFile());
    EXPECT_EQ(vxtest::CountOccurrences(file, odd), 1) << file;
    EXPECT_EQ(vxtest::CountOccurrences(file, "]\r\r\n"), 1) << file;
    EXPECT_EQ(Query(key, "Value"), "first");
}

// Every call sees the file as it is now: one another process replaced just after our write, and,
// once the hive has been left alone long enough to be remembered instead of read on every call,
// one of the same size whose file time was set back.
TEST_F(Registry, EveryCallSeesTheFileAsItIsNow) {
    auto hive = [&](const char* level) {
        return "Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\" + path_ +
               "]\n\"LogLevel\"=\"" + level + "\"\n";
    };
    CREATE_KEY(key);
    ASSERT_EQ(Set(key, "LogLevel", "1"), vx::kRegOk);
    ASSERT_TRUE(vxtest::WriteWholeFile(HiveFile(), hive("7")));
    EXPECT_EQ(Query(key, "LogLevel"), "7");
    // A write edits the file as it is now, not as this handle last saw it.
    EXPECT_EQ(Set(key, "Other", "x"), vx::kRegOk);
    EXPECT_EQ(Query(key, "LogLevel"), "7");

    ASSERT_TRUE(vxtest::WriteWholeFile(HiveFile(), hive("1")));
    std::this_thread::sleep_for(std::chrono::milliseconds(2300));
    EXPECT_EQ(Query(key, "LogLevel"), "1");
    EXPECT_EQ(Query(key, "LogLevel"), "1");
    struct stat before {};
    ASSERT_EQ(stat(HiveFile().c_str(), &before), 0);
    ASSERT_TRUE(vxtest::WriteWholeFile(HiveFile(), hive("2")));
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, HiveFile().c_str(), times, 0), 0);
    EXPECT_EQ(Query(key, "LogLevel"), "2");
}

// Processes writing the same hive at once: the file lock keeps every value.
TEST_F(Registry, ProcessesWritingAtOnceLoseNothing) {
    constexpr int kChildren = 4;
    constexpr int kValues = 15;
    // Child c writes the values "c_i", each holding its own name.
    auto name = [](int c, int i) { return std::to_string(c) + "_" + std::to_string(i); };
    CREATE_KEY(key);
    std::vector<pid_t> children;
    for (int c = 0; c < kChildren; ++c) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            int failures = 0;
            for (int i = 0; i < kValues; ++i)
                failures += Set(key, name(c, i).c_str(), name(c, i)) != vx::kRegOk;
            _exit(failures == 0 ? 0 : 1);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    auto values = Values(key);
    EXPECT_EQ(values.size(), static_cast<size_t>(kChildren * kValues));
    for (int c = 0; c < kChildren; ++c)
        for (int i = 0; i < kValues; ++i) EXPECT_EQ(values[name(c, i)], name(c, i));
}

TEST_F(Registry, HiveLocationAndUnwritableHive) {
    const char* oldConfig = getenv("XDG_CONFIG_HOME");
    std::string savedConfig = oldConfig ? oldConfig : "";
    unsetenv("VORLIX_REGISTRY_DIR");
    std::string config = scratch_.File("config");
    setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    {
        CREATE_KEY(key);
        ASSERT_EQ(Set(key, "LogLevel", "1"), vx::kRegOk);
        EXPECT_EQ(vx::RegRemoveValue(key.Get(), "LogLevel"), vx::kRegOk);
    }
    if (oldConfig != nullptr)
        setenv("XDG_CONFIG_HOME", savedConfig.c_str(), 1);
    else
        unsetenv("XDG_CONFIG_HOME");
    struct stat st;
    ASSERT_EQ(stat((config + "/vorlix").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0755u);
    ASSERT_EQ(stat((config + "/vorlix/HKCU.reg").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);

    // A directory that cannot be made (a file stands in its way) refuses writes.
    ASSERT_TRUE(vxtest::WriteWholeFile(scratch_.File("plain"), "x"));
    setenv("VORLIX_REGISTRY_DIR", scratch_.File("plain/sub").c_str(), 1);
    RegKey key;
    EXPECT_EQ(vx::RegCreate(vx::kHiveCurrentUser, path_.c_str(), key.Receive()),
              vx::kRegAccessDenied);
    setenv("VORLIX_REGISTRY_DIR", scratch_.Path().c_str(), 1);
}

#endif

}  // namespace
