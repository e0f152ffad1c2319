// Drives the print library from the command line for the end-to-end tests: each command calls
// one entry point and prints its result; the library's trace goes to standard output.
//
//   printfile_driver [--output DIR] [--option NAME=VALUE]... COMMAND...
//
// Commands (run in order):
//   print PRINTER FILE JOBID COPIES TYPE     PrintFile
//   init [pending]                           InitEx (2, pending mode)
//   queue PRINTER FILE JOBID COPIES NOSTATUS QueueJobEx (owner "tester", title empty)
//   status JOBID PRINTER                     JobStatusQueryEx once
//   wait JOBID PRINTER                       JobStatusQueryEx until done or error (3 minutes)
//   lock PRINTER / unlock PRINTER            LockPrinterListEx / UnlockPrinterListEx
//   entries PRINTER                          GetNumberOfEntriesEx and every GetNextQueueEntryEx
//   pending COUNT                            GetPendingJobsEx
//   exit                                     ExitEx
//   sleep MS
//   environment DIR                          LogPrintEnvironment
//   fontmetrics FONT DIR MODE FLAGA FLAGB    WriteFontMetricFile
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "printlib/zelwin.h"

namespace {

struct DriverHost {
    std::map<std::string, std::string> options;
    std::string outputDirectory;
    std::mutex outputLock;
};

// The --option value of that name, or null.
const char* Option(void* context, const char* name) {
    auto& options = static_cast<DriverHost*>(context)->options;
    auto found = options.find(name);
    return found == options.end() ? nullptr : found->second.c_str();
}

int32_t GetOptionValue(void* context, const char*, const char* name, int32_t def) {
    const char* value = Option(context, name);
    return value == nullptr ? def : atoi(value);
}

void GetString(void* context, const char* name, const char* def, char* buffer, size_t size) {
    const char* value = Option(context, name);
    snprintf(buffer, size, "%s", value == nullptr ? def : value);
}

void GetOutputDirectory(void* context, char* buffer, size_t size) {
    snprintf(buffer, size, "%s", static_cast<DriverHost*>(context)->outputDirectory.c_str());
}

void Trace(void* context, int level, const char* text) {
    std::lock_guard<std::mutex> hold(static_cast<DriverHost*>(context)->outputLock);
    printf("trace %d: %s", level, text);
    fflush(stdout);
}

// The tests use ASCII names: each byte becomes one unit.
std::vector<ZelWide> Wide(const char* text) {
    std::vector<ZelWide> wide;
    for (const char* p = text; *p != '\0'; ++p) wide.push_back(static_cast<unsigned char>(*p));
    wide.push_back(0);
    return wide;
}

std::string Narrow(const ZelWide* text) {
    std::string narrow;
    for (; *text != 0; ++text) narrow += *text < 0x80 ? static_cast<char>(*text) : '?';
    return narrow;
}

void Say(DriverHost& host, const char* format, ...) __attribute__((format(printf, 2, 3)));
void Say(DriverHost& host, const char* format, ...) {
    std::lock_guard<std::mutex> hold(host.outputLock);
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    fflush(stdout);
}

int Usage() {
    fprintf(stderr, "usage: printfile_driver [--output DIR] [--option NAME=VALUE]... COMMAND...\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    DriverHost driver;
    ZelHost host{&driver, GetOptionValue, GetString, GetOutputDirectory, Trace, nullptr, nullptr};
    int i = 1;
    for (; i + 1 < argc && strncmp(argv[i], "--", 2) == 0; i += 2) {
        if (strcmp(argv[i], "--output") == 0) {
            driver.outputDirectory = argv[i + 1];
        } else if (strcmp(argv[i], "--option") == 0) {
            const char* eq = strchr(argv[i + 1], '=');
            if (eq == nullptr) return Usage();
            driver.options[std::string(argv[i + 1], static_cast<size_t>(eq - argv[i + 1]))] =
                eq + 1;
        } else {
            return Usage();
        }
    }
    // Enough arguments for the command at i, or the usage.
    auto need = [&](int n) { return i + n < argc; };
    while (i < argc) {
        std::string command = argv[i];
        if (command == "print" && need(5)) {
            int rc = PrintFile(argv[i + 2], "", "", Wide(argv[i + 1]).data(), argv[i + 3], "", "",
                               atoi(argv[i + 4]), 0, atoi(argv[i + 5]), nullptr, nullptr,
                               ZEL_ROOT_LOCAL_MACHINE, nullptr, 0, 0, &host);
            Say(driver, "PrintFile rc=%d\n", rc);
            i += 6;
        } else if (command == "init") {
            bool pending = need(1) && strcmp(argv[i + 1], "pending") == 0;
            uint32_t count = 0;
            int rc = InitEx(2, pending ? 1 : 0, &count, &host);
            Say(driver, "InitEx rc=%d pending=%u\n", rc, count);
            i += pending ? 2 : 1;
        } else if (command == "queue" && need(5)) {
            int rc = QueueJobEx(Wide(argv[i + 1]).data(), Wide(argv[i + 2]).data(), Wide("").data(),
                                Wide("tester").data(), atoi(argv[i + 4]), atoi(argv[i + 5]),
                                Wide(argv[i + 3]).data());
            Say(driver, "QueueJobEx %s rc=%d\n", argv[i + 3], rc);
            i += 6;
        } else if ((command == "status" || command == "wait") && need(2)) {
            int state = 0;
            ZelWide text[81] = {};
            int rc = 0;
            auto until = std::chrono::steady_clock::now() + std::chrono::minutes(3);
            for (;;) {
                rc = JobStatusQueryEx(Wide(argv[i + 1]).data(), Wide(argv[i + 2]).data(), &state,
                                      text, 81);
                bool final = rc == 0 && (state == ZEL_JOB_DONE || state == ZEL_JOB_ERROR);
                if (command == "status" || final || std::chrono::steady_clock::now() > until) break;
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
            Say(driver, "JobStatusQueryEx %s rc=%d state=%d text=%s\n", argv[i + 1], rc,
                rc == 0 ? state : 0, Narrow(text).c_str());
            i += 3;
        } else if ((command == "lock" || command == "unlock") && need(1)) {
            int rc = command == "lock" ? LockPrinterListEx(Wide(argv[i + 1]).data())
                                       : UnlockPrinterListEx(Wide(argv[i + 1]).data());
            Say(driver, "%s rc=%d\n", command.c_str(), rc);
            i += 2;
        } else if (command == "entries" && need(1)) {
            int count = 0;
            int rc = GetNumberOfEntriesEx(Wide(argv[i + 1]).data(), &count);
            Say(driver, "GetNumberOfEntriesEx rc=%d count=%d\n", rc, count);
            for (int index = 0; index < count; ++index) {
                char line[300] = {};
                rc = GetNextQueueEntryEx(Wide(argv[i + 1]).data(), index, line, sizeof line);
                Say(driver, "entry rc=%d: %s", rc, line);
            }
            i += 2;
        } else if (command == "pending" && need(1)) {
            uint32_t capacity = static_cast<uint32_t>(atoi(argv[i + 1]));
            std::vector<SWE_JOB_INFO> jobs(capacity > 0 ? capacity : 1);
            int filled = GetPendingJobsEx(jobs.data(), capacity);
            Say(driver, "GetPendingJobsEx filled=%d\n", filled);
            for (int k = 0; k < filled; ++k) {
                Say(driver, "job %s|%s|%s|%s|%s\n", Narrow(jobs[k].PrinterName).c_str(),
                    Narrow(jobs[k].FileName).c_str(), Narrow(jobs[k].JobId).c_str(),
                    Narrow(jobs[k].Title).c_str(), Narrow(jobs[k].Owner).c_str());
            }
            i += 2;
        } else if (command == "exit") {
            Say(driver, "ExitEx rc=%d\n", ExitEx());
            i += 1;
        } else if (command == "sleep" && need(1)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(atoi(argv[i + 1])));
            i += 2;
        } else if (command == "environment" && need(1)) {
            Say(driver, "LogPrintEnvironment rc=%d\n",
                LogPrintEnvironment(argv[i + 1], 2, ZEL_ROOT_LOCAL_MACHINE));
            i += 2;
        } else if (command == "fontmetrics" && need(5)) {
            int rc =
                WriteFontMetricFile(argv[i + 1], argv[i + 2], atoi(argv[i + 3]), atoi(argv[i + 4]),
                                    atoi(argv[i + 5]), ZEL_ROOT_LOCAL_MACHINE, nullptr);
            Say(driver, "WriteFontMetricFile rc=%d\n", rc);
            i += 6;
        } else {
            return Usage();
        }
    }
    return 0;
}
