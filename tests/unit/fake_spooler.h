// A print system for tests, put behind Spooler() in place of the host's: printers with their
// status, spooler jobs, port, driver, paper bins and fonts, a default printer, and what became of
// jobs handed over before a restart. Tests set it up through Get() and the fields below; its
// calls hold a lock, so worker threads may ask it while a test waits.
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
    std::string port, driver, location, comment;
    std::vector<vx::SpoolerDeviceItem> bins;
    std::vector<std::string> fonts;
    std::map<int, vx::SpooledJobFate> spooled;  // the print system's job numbers; else kUnknown
};

class FakeSpooler {
  public:
    // Empties the fake and puts it behind Spooler(); Remove() gives the host's back.
    static FakeSpooler& Install();
    static void Remove();
    static FakeSpooler& Get();

    std::mutex mutex;  // held by every call of the fake
    std::map<std::string, FakePrinter> printers;
    // Tests that print to names they make up: every name is a printer, in its default state.
    bool anyNameIsAPrinter = false;
    std::string defaultPrinter;  // "": there is none
    bool enumJobsFails = false;
    bool closeFails = false;
    int closed = 0;                       // printers closed
    std::vector<std::string> fatesAsked;  // "printer number", one per question

  private:
    FakeSpooler() = default;
    FakePrinter* Find(const char* name);
    static const vx::SpoolerCalls kCalls;
};

// A spooler job as the print system lists it.
vx::SpoolerJobInfo SpoolJob(uint32_t id, const char* user, const char* document,
                            uint32_t status = 0, const char* statusText = "");

}  // namespace vxtest
