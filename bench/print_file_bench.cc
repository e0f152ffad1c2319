// How long PrintFile takes for a 100 MB raw job, against the time to copy the same file:
// to the built-in file printer, and to a CUPS raw queue when CUPS_SERVER is set and a queue is
// named (first argument, or VORLIX_BENCH_PRINTER). Prints figures; asserts nothing.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "printlib/zelwin.h"

namespace {

constexpr size_t kJobBytes = 100u * 1024 * 1024;
constexpr size_t kChunk = 64 * 1024;

namespace fs = std::filesystem;

void Trace(void*, int level, const char* text) {
    if (level < 0) fputs(text, stderr);
}
int32_t Option(void*, const char*, const char*, int32_t def) {
    return def;
}
void String(void*, const char*, const char* def, char* buffer, size_t size) {
    snprintf(buffer, size, "%s", def);
}

std::string g_output;
void Output(void*, char* buffer, size_t size) {
    snprintf(buffer, size, "%s", g_output.c_str());
}

struct FileCloser {
    void operator()(FILE* f) const {
        if (f != nullptr) fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

bool MakeJob(const fs::path& path) {
    FilePtr out(fopen(path.string().c_str(), "wb"));
    if (out == nullptr) return false;
    std::vector<unsigned char> chunk(kChunk);
    uint32_t state = 12345;
    for (size_t done = 0; done < kJobBytes; done += kChunk) {
        for (auto& byte : chunk) {
            state = state * 1103515245u + 12345u;
            byte = static_cast<unsigned char>(state >> 24);
        }
        if (fwrite(chunk.data(), 1, chunk.size(), out.get()) != chunk.size()) return false;
    }
    return true;
}

double CopySeconds(const fs::path& from, const fs::path& to) {
    auto start = std::chrono::steady_clock::now();
    FilePtr in(fopen(from.string().c_str(), "rb"));
    FilePtr out(fopen(to.string().c_str(), "wb"));
    std::vector<char> chunk(kChunk);
    size_t got;
    while (in && out && (got = fread(chunk.data(), 1, chunk.size(), in.get())) > 0) {
        fwrite(chunk.data(), 1, got, out.get());
    }
    out.reset();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Report(const char* what, double seconds, double copySeconds) {
    printf("%-28s %8.3f s  %8.1f MB/s  %6.2f x copy\n", what, seconds,
           kJobBytes / 1048576.0 / seconds, seconds / copySeconds);
}

double PrintSeconds(const fs::path& job, const char* printer, int* rc) {
    ZelHost host{nullptr, Option, String, Output, Trace, nullptr, nullptr};
    std::vector<ZelWide> wide;
    for (const char* p = printer; *p != '\0'; ++p) wide.push_back(static_cast<unsigned char>(*p));
    wide.push_back(0);
    auto start = std::chrono::steady_clock::now();
    *rc = PrintFile(job.string().c_str(), "", "", wide.data(), "bench", "bench", "", 1, 0,
                    ZEL_STREAM_RAW, nullptr, nullptr, ZEL_ROOT_LOCAL_MACHINE, nullptr, 0, 0, &host);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    fs::path dir = fs::temp_directory_path() / ("zelwin_bench_" + std::to_string(rand()));
    fs::create_directories(dir / "out");
    g_output = (dir / "out").string() + "/";
    fs::path job = dir / "job.bin";
    if (!MakeJob(job)) {
        fprintf(stderr, "cannot write %s\n", job.string().c_str());
        return 1;
    }
    double copy = CopySeconds(job, dir / "copy.bin");
    printf("100 MB raw job\n");
    Report("file copy", copy, copy);
    int rc = 0;
    double toFile = PrintSeconds(job, "file", &rc);
    if (rc == ZEL_RC_OK)
        Report("PrintFile to file printer", toFile, copy);
    else
        printf("PrintFile to the file printer: rc %d\n", rc);

    const char* printer = argc > 1 ? argv[1] : getenv("VORLIX_BENCH_PRINTER");
    if (getenv("CUPS_SERVER") != nullptr && printer != nullptr) {
        double toQueue = PrintSeconds(job, printer, &rc);
        if (rc == ZEL_RC_OK)
            Report("PrintFile to CUPS raw queue", toQueue, copy);
        else
            printf("PrintFile to %s: rc %d\n", printer, rc);
    } else {
        printf("CUPS queue: not measured (set CUPS_SERVER and name a raw queue)\n");
    }
    std::error_code ignored;
    fs::remove_all(dir, ignored);
    return 0;
}
