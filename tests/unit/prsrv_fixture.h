// A print-server object over a settings key and a log directory of its own, for tests.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "base/registry.h"
#include "printserver/zelprsrv.h"
#include "test_support.h"

namespace vxtest {

// Removes a value; deleting needs the write access that creating the key gives.
inline void RemoveRegistryValue(vx::RegHive hive, const std::string& key, const std::string& name) {
    vx::RegKey handle;
    if (vx::RegCreate(hive, key.c_str(), handle.Receive()) == vx::kRegOk)
        vx::RegRemoveValue(handle.Get(), name.c_str());
}

// A registry text value for the duration of a test.
class RegistryValue {
  public:
    RegistryValue(vx::RegHive hive, const std::string& key, const std::string& name,
                  const std::string& text)
        : hive_(hive), key_(key), name_(name) {
        vx::RegKey handle;
        EXPECT_EQ(vx::RegCreate(hive, key.c_str(), handle.Receive()), vx::kRegOk) << key;
        EXPECT_EQ(vx::RegSetText(handle.Get(), name.c_str(), text.c_str(),
                                 static_cast<uint32_t>(text.size())),
                  vx::kRegOk);
    }
    ~RegistryValue() { RemoveRegistryValue(hive_, key_, name_); }
    RegistryValue(const RegistryValue&) = delete;
    RegistryValue& operator=(const RegistryValue&) = delete;

  private:
    vx::RegHive hive_;
    std::string key_, name_;
};

class PrsrvFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        UseScratchEnvironment();
        key_ = "Software\\Zel\\VorlixTest\\" + UniqueName("prsrv_");
        logDir_ = dir_.Path() + std::string(1, vx::kPathSeparator);
    }

    // Writes a text value under the settings key (or a printer's subkey) behind the object's back.
    void Seed(const std::string& name, const std::string& text, const std::string& printer = "") {
        std::string path = printer.empty() ? key_ : key_ + "\\" + printer;
        vx::RegKey key;
        ASSERT_EQ(vx::RegCreate(vx::kHiveCurrentUser, path.c_str(), key.Receive()), vx::kRegOk);
        ASSERT_EQ(vx::RegSetText(key.Get(), name.c_str(), text.c_str(),
                                 static_cast<uint32_t>(text.size())),
                  vx::kRegOk);
    }

    // The stored text of a value under the settings key, or "<missing>".
    std::string Stored(const std::string& name) {
        vx::RegKey key;
        if (vx::RegOpen(vx::kHiveCurrentUser, key_.c_str(), key.Receive()) != vx::kRegOk)
            return "<missing>";
        char text[1024];
        uint32_t size = sizeof text;
        if (vx::RegQueryText(key.Get(), name.c_str(), text, &size) != vx::kRegOk)
            return "<missing>";
        return text;
    }

    std::unique_ptr<vx::Czelprsrv> Make(int runMode = vx::kRunModeTool,
                                        vx::Czelprsrv* parent = nullptr,
                                        const char* logDirectory = "") {
        vx::PrsrvConfig config;
        config.runMode = runMode;
        config.hive = vx::kHiveCurrentUser;
        config.settingsKey = key_.c_str();
        config.logDirectory =
            logDirectory != nullptr && logDirectory[0] == '\0' ? logDir_.c_str() : logDirectory;
        config.parent = parent;
        return std::make_unique<vx::Czelprsrv>(config);
    }

    ScratchDir dir_;
    std::string logDir_;
    std::string key_;
};

}  // namespace vxtest
