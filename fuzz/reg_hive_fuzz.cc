// Feeds the content of a settings hive file (the ".reg" text an administrator may edit by hand:
// any encoding, any line ends, cut anywhere) to the hive reader, and checks what the service
// relies on: every value reads back as text, a file written back reads in again unchanged, and a
// text value set and written reads back as it was set.
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/posix/reg_file.h"
#include "base/reg_text.h"

namespace {

namespace rf = vx::regfile;

constexpr const char* kHive = "HKEY_CURRENT_USER";

// A text made from the input's first bytes, of the kind the service writes into its settings:
// printable characters and line breaks.
std::string SettingText(const std::string& input) {
    std::string text;
    for (size_t i = 0; i < input.size() && i < 64; ++i) {
        unsigned char c = static_cast<unsigned char>(input[i]);
        if ((c >= 0x20 && c < 0x7f) || c == '\n' || c == '\r' || c == '\t') text.push_back(c);
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string input(reinterpret_cast<const char*>(data), size);
    rf::Document doc;
    rf::Parse(input, kHive, &doc);
    for (const rf::Section& section : doc.sections) {
        if (!rf::KeyExists(doc, section.path) && section.inHive) __builtin_trap();
        for (size_t i = 0; const rf::Value* value = rf::ValueAt(section, i); ++i) {
            std::string text = rf::ValueText(*value);
            char buffer[16];
            uint32_t bufferSize = sizeof buffer;
            vx::RegDeliverText(text.data(), text.size(), buffer, &bufferSize);
        }
    }

    // Written back and read again, the file stays as it was written.
    std::string written = rf::Serialize(doc);
    rf::Document again;
    rf::Parse(written, kHive, &again);
    if (rf::Serialize(again) != written) __builtin_trap();

    // A text set by the service reads back unchanged after a write and a read.
    std::string text = SettingText(input);
    rf::Section* section = rf::FindSection(&again, "Software\\Zel\\Fuzz");
    if (section == nullptr) section = rf::AddSection(&again, "Software\\Zel\\Fuzz", kHive);
    rf::SetText(section, "FuzzValue", text);
    rf::Document reread;
    rf::Parse(rf::Serialize(again), kHive, &reread);
    const rf::Section* found = rf::FindSection(reread, "Software\\Zel\\Fuzz");
    const rf::Value* value = found != nullptr ? rf::FindValue(*found, "FuzzValue") : nullptr;
    if (value == nullptr || rf::ValueText(*value) != text) __builtin_trap();
    return 0;
}
