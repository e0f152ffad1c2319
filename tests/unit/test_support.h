// Helpers shared by the unit tests: scratch directories, file contents, unique names.
#pragma once

#include <initializer_list>
#include <string>

namespace vxtest {

// A fresh directory under the system's temporary directory, removed with its contents at the end.
class ScratchDir {
  public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::string& Path() const { return path_; }
    // Path of a name inside the directory.
    std::string File(const std::string& name) const;

  private:
    std::string path_;
};

// The whole content of a file, or "" when it cannot be read.
std::string ReadWholeFile(const std::string& path);
// The content of a text file with CR LF line ends (Windows text mode) read as LF.
std::string ReadTextFile(const std::string& path);
bool WriteWholeFile(const std::string& path, const std::string& content);

// A name that no other test run uses (for registry keys and files).
std::string UniqueName(const std::string& prefix);

// Points the settings hives (Linux) and the base directory at scratch directories of this test
// process, once. Under Windows the registry of the Wine prefix is used as it is.
void UseScratchEnvironment();

// Sets an environment variable for this process (empty value: removes it).
void SetEnv(const std::string& name, const std::string& value);

// True when the texts occur in the text in this order; a missing one is reported as a failure.
bool InOrder(const std::string& text, std::initializer_list<std::string> texts);

// Number of times needle occurs in haystack.
int CountOccurrences(const std::string& haystack, const std::string& needle);

}  // namespace vxtest
