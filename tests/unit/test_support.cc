#include "test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace vxtest {

namespace fs = std::filesystem;

std::string UniqueName(const std::string& prefix) {
    static std::atomic<int> counter{0};
    std::random_device rd;
    auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    std::ostringstream name;
    name << prefix << std::hex << (rd() ^ static_cast<unsigned>(now)) << "_" << counter++;
    return name.str();
}

ScratchDir::ScratchDir() {
    fs::path dir = fs::temp_directory_path() / UniqueName("vorlix_test_");
    fs::create_directories(dir);
    path_ = dir.string();
}

ScratchDir::~ScratchDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
}

std::string ScratchDir::File(const std::string& name) const {
    return (fs::path(path_) / name).string();
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "";
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

std::string ReadTextFile(const std::string& path) {
    std::string content = ReadWholeFile(path);
    std::string text;
    text.reserve(content.size());
    for (size_t i = 0; i < content.size(); ++i) {
        if (content[i] == '\r' && i + 1 < content.size() && content[i + 1] == '\n') continue;
        text.push_back(content[i]);
    }
    return text;
}

bool WriteWholeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out << content;
    return static_cast<bool>(out);
}

void SetEnv(const std::string& name, const std::string& value) {
#if defined(_WIN32)
    _putenv_s(name.c_str(), value.c_str());
#else
    if (value.empty())
        unsetenv(name.c_str());
    else
        setenv(name.c_str(), value.c_str(), 1);
#endif
}

void UseScratchEnvironment() {
    // Lives for the whole test process; removed by the system's temp clean-up, not by us, because
    // other static objects may still use it at exit.
    static const std::string root = [] {
        fs::path dir = fs::temp_directory_path() / UniqueName("vorlix_env_");
        fs::create_directories(dir / "registry");
        fs::create_directories(dir / "home");
        return dir.string();
    }();
#if !defined(_WIN32)
    SetEnv("VORLIX_REGISTRY_DIR", (fs::path(root) / "registry").string());
#endif
    SetEnv("VORLIX_HOME", (fs::path(root) / "home").string());
}

int CountOccurrences(const std::string& haystack, const std::string& needle) {
    if (needle.empty()) return 0;
    int count = 0;
    for (size_t pos = haystack.find(needle); pos != std::string::npos;
         pos = haystack.find(needle, pos + needle.size()))
        ++count;
    return count;
}

bool InOrder(const std::string& text, std::initializer_list<std::string> texts) {
    size_t at = 0;
    for (const std::string& wanted : texts) {
        size_t found = text.find(wanted, at);
        if (found == std::string::npos) {
            ADD_FAILURE() << "missing or out of order: " << wanted;
            return false;
        }
        at = found + wanted.size();
    }
    return true;
}

}  // namespace vxtest
