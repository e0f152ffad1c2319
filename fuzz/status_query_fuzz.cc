// Feeds the queue-state commands (03 and 04: a printer's queue, a "JOB" query for one job, the
// version query) to the dispatch, as the first buffer of a connection, and answers them from a
// print system whose jobs the input describes too: on a shared print host another user names
// the documents and CUPS words their states, and the queue listing shows both to the sender.
//
// Input: the command line, then one line per job of the printer "lp":
// "user<TAB>document<TAB>state text<TAB>state bits". The first byte of the command line picks the
// command (03, 04, '3' or '4').
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/text.h"
#include "fake_spooler.h"
#include "fuzz_connection.h"
#include "fuzz_service.h"
#include "jobs/job_record.h"
#include "jobs/job_status_list.h"
#include "protocol/connection_handler.h"

namespace {

constexpr size_t kMaxJobs = 64;

std::vector<std::string> SplitOn(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t at = text.find(separator, start);
        parts.push_back(
            text.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos) return parts;
        start = at + 1;
    }
}

// Final statuses that the "JOB" query finds: a printed job and a failed one.
void EnterStatuses() {
    static bool entered = false;
    if (entered) return;
    entered = true;
    vx::JobRecord done{};
    vx::CopyText(done.PrinterName, vxfuzz::kFuzzPrinter);
    vx::CopyText(done.JobId, "J1");
    vx::CopyText(done.Owner, "owner");
    done.Status = vx::kJobDone;
    vx::JobRecord failed = done;
    vx::CopyText(failed.JobId, "J2");
    vx::CopyText(failed.StatusText, "Paper jam");
    failed.Status = vx::kJobError;
    vx::InsertJobStatus(done);
    vx::InsertJobStatus(failed);
}

void SetSpoolerJobs(const std::vector<std::string>& lines) {
    vxtest::FakeSpooler& spooler = vxtest::FakeSpooler::Get();
    std::lock_guard<std::mutex> hold(spooler.mutex);
    std::vector<vx::SpoolerJobInfo>& jobs = spooler.printers[vxfuzz::kFuzzPrinter].jobs;
    jobs.clear();
    for (size_t i = 1; i < lines.size() && jobs.size() < kMaxJobs; ++i) {
        std::vector<std::string> fields = SplitOn(lines[i], '\t');
        fields.resize(4);
        uint32_t state = static_cast<uint32_t>(strtoul(fields[3].c_str(), nullptr, 0));
        jobs.push_back(vxtest::SpoolJob(static_cast<uint32_t>(i), fields[0].c_str(),
                                        fields[1].c_str(), state, fields[2].c_str()));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    vxfuzz::StartService();
    EnterStatuses();
    std::string input(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> lines = SplitOn(input, '\n');
    SetSpoolerJobs(lines);

    // The command line as the first read delivers it: with its line feed when it had one.
    std::string command = lines[0];
    if (lines.size() > 1) command.push_back('\n');
    command[0] =
        "\x03\x04"
        "34"[static_cast<unsigned char>(command[0]) % 4];

    vxfuzz::FuzzConnection connection;
    vx::LpdDispatch(command.data(), static_cast<int32_t>(command.size()), &connection.Socket(), 1);
    connection.Drain();
    return 0;
}
