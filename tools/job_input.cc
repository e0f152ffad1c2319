#include "tools/job_input.h"

#include <cerrno>
#include <cstring>

#include "base/console.h"
#include "base/text.h"

namespace vx {

namespace {

const char* BaseName(const char* path) {
    const char* name = path;
    for (const char* c = path; *c != '\0'; ++c)
        if (*c == '/' || *c == '\\') name = c + 1;
    return name;
}

}  // namespace

int OpenJobInput(const char* path, JobInput* input, SendResult* result) {
    if (strcmp(path, "-") == 0) {
        if (SetStdInBinary() != 0)
            return Fail(result, kExitNoInput, "cannot read standard input in binary mode");
        input->stream = stdin;
        input->size = -1;
        CopyText(input->name, "stdin");
        return 0;
    }
    if (FsIsDirectory(path)) return Fail(result, kExitNoInput, "%s: is a directory", path);
    input->file.reset(fopen(path, "rb"));
    if (!input->file)
        return Fail(result, kExitNoInput, "cannot open %s: %s", path, strerror(errno));
    input->stream = input->file.get();
    input->size = FsSize(path);
    // The name becomes the default title and a control-file line: no line ends or other
    // control characters in it.
    CopyText(input->name, BaseName(path));
    for (char* c = input->name; *c != '\0'; ++c)
        if (static_cast<unsigned char>(*c) < 32) *c = ' ';
    return 0;
}

long ReadJobInput(JobInput& input, void* buffer, size_t length, SendResult* result) {
    size_t got = fread(buffer, 1, length, input.stream);
    if (got == 0 && ferror(input.stream)) {
        Fail(result, kExitNoInput, "cannot read %s", input.name);
        return -1;
    }
    return static_cast<long>(got);
}

int ReadAllJobInput(JobInput& input, std::vector<uint8_t>* data, SendResult* result) {
    uint8_t chunk[65536];
    for (;;) {
        long got = ReadJobInput(input, chunk, sizeof chunk, result);
        if (got < 0) return -1;
        if (got == 0) return 0;
        data->insert(data->end(), chunk, chunk + got);
    }
}

}  // namespace vx
