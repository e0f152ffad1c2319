// A print system for tests, put behind Spooler() in place of the host's: printers with their
// status and spooler jobs, a default printer, and what became of jobs handed over before a
// restart. Its printers report no paper bins, fonts or device settings. Every call holds the
// fake's lock, so worker threads may ask it while a test waits.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "spooler/spooler_seam.h"

namespace vxtest {

struct FakePrinter {
    uint32_t status = 0;  // vx::kPrinter... bits
    std::vector<vx::SpoolerJobInfo> jobs;
    std::string location, driver;
    std::map<int, vx::SpooledJobFate> spooled;  // by the print system's job number; else kUnknown
};

struct FakeSpooler {
    // Empties the fake and puts it behind Spooler(); Remove() gives the host's back.
    static FakeSpooler& Install();
    static void Remove();
    static FakeSpooler& Get();

    // The printer of that name, null when there is none. Called under the lock.
    FakePrinter* Find(const char* name);

    std::mutex mutex;
    std::map<std::string, FakePrinter> printers;
    // For tests that print to names they make up: every name is a printer in its first state.
    bool anyNameIsAPrinter = false;
    std::string defaultPrinter;  // "": there is none
    bool enumJobsFails = false;
    bool closeFails = false;
    int closed = 0;                       // printers closed
    std::vector<std::string> fatesAsked;  // "printer number", one per question
};

// A spooler job as the print system lists it.
vx::SpoolerJobInfo SpoolJob(uint32_t id, const char* user, const char* document,
                            uint32_t status = 0, const char* statusText = "");

}  // namespace vxtest
