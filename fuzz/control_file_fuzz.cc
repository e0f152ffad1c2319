// Feeds a control file, as a sender transmits it, to the control-file analysis (owner, title and
// the print lines that give the copy count) and to the count of print lines naming a data file.
// The first line of the input is the data file name looked for, the rest the control text: a
// sender chooses both.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz_service.h"
#include "protocol/lpd_receive.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vxfuzz::StartService();  // the analysis traces what it finds
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t lineEnd = input.find('\n');
    std::string dataFileName = input.substr(0, lineEnd == std::string::npos ? 0 : lineEnd);
    // The control file is held as a NUL-terminated text, cut at its first NUL like the service's.
    std::string control = lineEnd == std::string::npos ? input : input.substr(lineEnd + 1);

    char owner[13];
    char title[100];
    int32_t printLines = -1;
    vx::AnalyseControlFile(control.c_str(), owner, sizeof owner, title, sizeof title, &printLines);
    if (strnlen(owner, sizeof owner) == sizeof owner ||
        strnlen(title, sizeof title) == sizeof title)
        __builtin_trap();  // an unterminated field
    if (printLines < 0) __builtin_trap();

    int32_t naming = vx::CountPrintLinesNaming(control.c_str(), dataFileName.c_str());
    if (naming < 0 || naming > printLines) __builtin_trap();
    return 0;
}
