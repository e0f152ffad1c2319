// Job processing under test: a print-server object over scratch settings, the process-wide job
// lists, a recording print backend and the fake print system, where every name is a printer.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "config/option_globals.h"
#include "config/process_state.h"
#include "fake_spooler.h"
#include "gate.h"
#include "jobs/job_context.h"
#include "jobs/job_lists.h"
#include "jobs/job_status_list.h"
#include "jobs/print_backend.h"
#include "jobs/print_job.h"
#include "jobs/printer_queues.h"
#include "prsrv_fixture.h"

namespace vxtest {

inline std::string Narrow(const ZelWide* text) {
    std::string out;
    for (; text != nullptr && *text != 0; ++text) out.push_back(static_cast<char>(*text));
    return out;
}

// One PrintFile call as the fake saw it.
struct PrintCall {
    std::string file, baseDir, workDir, printer, jobId, title, owner;
    int copies, wideData, streamType, registryRoot, printParam1, printParam2;
    const ZelHost* host;
    std::thread::id thread;
};

// The recording backend: onPrint decides each result (and may block); a call counts as started
// before it runs and as printed after it returned.
struct FakePrinting {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<PrintCall> started, printed;
    std::vector<std::string> queuedEx;  // "printer|file|title|owner|copies|noStatus|jobId"
    std::function<int(const PrintCall&)> onPrint;

    static FakePrinting& Get() {
        static FakePrinting* fake = new FakePrinting;
        return *fake;
    }
    void Set(std::function<int(const PrintCall&)> decide) {
        std::lock_guard<std::mutex> hold(mutex);
        onPrint = std::move(decide);
    }
    std::vector<PrintCall> Printed() {
        std::lock_guard<std::mutex> hold(mutex);
        return printed;
    }
    std::vector<std::string> PrintedIds() {
        std::vector<std::string> ids;
        for (const PrintCall& call : Printed()) ids.push_back(call.jobId);
        return ids;
    }
    // False when the hang guard ran out.
    bool WaitPrinted(size_t n) { return WaitFor(printed, n); }
    bool WaitStarted(size_t n) { return WaitFor(started, n); }

    const vx::PrintBackend* Install() {
        static vx::PrintBackend table;
        vx::SetPrintBackendForTest(nullptr);
        table = vx::Backend();
        table.PrintFile = &PrintFile;
        table.QueueJobEx = &QueueJobEx;
        std::lock_guard<std::mutex> hold(mutex);
        started.clear();
        printed.clear();
        queuedEx.clear();
        onPrint = nullptr;
        return &table;
    }

  private:
    bool WaitFor(const std::vector<PrintCall>& calls, size_t n) {
        std::unique_lock<std::mutex> hold(mutex);
        return changed.wait_for(hold, kHangGuard, [&] { return calls.size() >= n; });
    }
    static int PrintFile(const char* file, const char* base, const char* work,
                         const ZelWide* printer, const char* jobId, const char* title,
                         const char* owner, int copies, int wide, int stream, void*, void*,
                         int root, const char*, int param2, int param1, const ZelHost* host) {
        PrintCall call{file,
                       base,
                       work,
                       Narrow(printer),
                       jobId,
                       title,
                       owner,
                       copies,
                       wide,
                       stream,
                       root,
                       param1,
                       param2,
                       host,
                       std::this_thread::get_id()};
        FakePrinting& f = Get();
        std::function<int(const PrintCall&)> decide;
        {
            std::lock_guard<std::mutex> hold(f.mutex);
            f.started.push_back(call);
            decide = f.onPrint;
            f.changed.notify_all();
        }
        int rc = decide ? decide(call) : ZEL_RC_OK;
        std::lock_guard<std::mutex> hold(f.mutex);
        f.printed.push_back(call);
        f.changed.notify_all();
        return rc;
    }
    static int QueueJobEx(const ZelWide* printer, const ZelWide* file, const ZelWide* title,
                          const ZelWide* owner, int copies, int noStatus, const ZelWide* jobId) {
        std::lock_guard<std::mutex> hold(Get().mutex);
        Get().queuedEx.push_back(Narrow(printer) + "|" + Narrow(file) + "|" + Narrow(title) + "|" +
                                 Narrow(owner) + "|" + std::to_string(copies) + "|" +
                                 std::to_string(noStatus) + "|" + Narrow(jobId));
        return 0;
    }
};

inline void ResetOptionGlobals() {
    int count = 0;
    const vx::OptionGlobalEntry* table = vx::OptionGlobalTable(&count);
    for (int i = 0; i < count; ++i)
        (vx::g_Options.*(table[i].field)) = table[i].setting->defaultValue;
}

class JobsFixture : public PrsrvFixture {
  protected:
    void SetUp() override {
        PrsrvFixture::SetUp();
        Seed("LogLevel", "9");
        Seed("WinAPILog", "1");
        ResetOptionGlobals();
        vx::g_StopReason = vx::kStopNone;
        vx::ResetTestModeCount();
        vx::SetPrintBackendForTest(fake().Install());
        FakeSpooler::Install().anyNameIsAPrinter = true;
        prsrv_ = Make();
        vx::g_prsrv = prsrv_.get();
        // As the service makes them: neither list counts in the list memory.
        ASSERT_EQ(vx::InitList(vx::kJobStatusListCapacity, vx::kJobStatusElementSize,
                               &vx::g_JobStatusList, 0),
                  0);
        ASSERT_EQ(vx::InitList(vx::kJobQueueListCapacity, sizeof(vx::PrinterQueue),
                               &vx::g_JobQueueList, 0),
                  0);
    }

    void TearDown() override {
        // Whatever a test left blocked prints now; the workers end and the queues go.
        fake().Set(nullptr);
        for (auto& gate : gates_) gate->Open();
        vx::WaitForPrinterWorkers();
        vx::DismantlePrinterQueues();
        vx::ExitList(vx::g_JobStatusList);
        vx::ExitList(vx::g_JobQueueList);
        vx::g_JobStatusList = vx::g_JobQueueList = vx::kInvalidListId;
        vx::SetPrintBackendForTest(nullptr);
        FakeSpooler::Remove();
        vx::g_prsrv = nullptr;
        prsrv_.reset();
        ResetOptionGlobals();
        vx::g_StopReason = vx::kStopNone;
    }

    static FakePrinting& fake() { return FakePrinting::Get(); }
    static FakeSpooler& spooler() { return FakeSpooler::Get(); }

    // Every print call waits at a new gate (opened by TearDown at the latest), then returns rc.
    Gate* BlockPrinting(int rc = ZEL_RC_OK) {
        gates_.push_back(std::make_unique<Gate>());
        Gate* gate = gates_.back().get();
        fake().Set([gate, rc](const PrintCall&) {
            EXPECT_TRUE(gate->Pass()) << "a print call was never released";
            return rc;
        });
        return gate;
    }
    void FailJobs(std::set<std::string> ids, int rc) {
        fake().Set([ids, rc](const PrintCall& c) { return ids.count(c.jobId) ? rc : ZEL_RC_OK; });
    }

    std::string DataFile(const std::string& name, const std::string& content = "plain text\n") {
        EXPECT_TRUE(WriteWholeFile(dir_.File(name), content));
        return dir_.File(name);
    }
    std::string Log() { return ReadTextFile(vx::g_prsrv->MainLogPath()); }
    int LogCount(const std::string& text) { return CountOccurrences(Log(), text); }

    // False when the hang guard ran out.
    static bool Eventually(const std::function<bool()>& condition) {
        auto end = std::chrono::steady_clock::now() + kHangGuard;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    // A job as the receiving side hands it over.
    struct Received {
        vx::JobRecord record{};
        vx::JobContext context{};
    };
    static std::unique_ptr<Received> Receive(const std::string& printer, const std::string& jobId,
                                             const std::string& file, int32_t noStatus = 0) {
        auto r = std::make_unique<Received>();
        vx::CopyText(r->record.PrinterName, printer.c_str());
        vx::CopyText(r->record.JobId, jobId.c_str());
        vx::CopyText(r->record.Owner, "owner");
        r->record.Copies = 1;
        r->record.NoStatusFlag = noStatus;
        vx::CopyText(r->context.FileName, file.c_str());
        vx::CopyText(r->context.Title, "title");
        r->record.Context = &r->context;
        return r;
    }
    // An extended-protocol job: status entry, then processing.
    int ReceiveS(const std::string& printer, const std::string& jobId, int32_t noStatus = 0) {
        auto r = Receive(printer, jobId, DataFile(jobId + ".prn"), noStatus);
        return vx::EnterReceivedJob(&r->record) < 0 ? -1 : vx::ProcessJob(&r->record, 'S');
    }
    // An LPD job from a local file.
    int QueueU(const std::string& printer, const std::string& jobId, int copies = 1) {
        std::string file = DataFile(jobId + ".prn");
        return vx::ProcessFile(printer.c_str(), file.c_str(), jobId.c_str(), copies, 0);
    }

    // The jobs waiting in a printer's queue, in order.
    static std::vector<vx::JobInfo> Queued(const std::string& printer) {
        std::vector<vx::JobInfo> jobs;
        vx::VisitQueuedJobs(
            printer.c_str(),
            [](void* out, int32_t, const vx::JobInfo& job) {
                static_cast<std::vector<vx::JobInfo>*>(out)->push_back(job);
                return 0;
            },
            &jobs);
        return jobs;
    }
    static std::vector<std::string> QueuedIds(const std::string& printer) {
        std::vector<std::string> ids;
        for (const vx::JobInfo& job : Queued(printer)) ids.push_back(job.JobId);
        return ids;
    }
    static int32_t StatusOf(const std::string& printer, const std::string& jobId) {
        vx::JobRecord r;
        return vx::FindJobStatus(printer.c_str(), jobId.c_str(), &r) == 0 ? r.Status : -1;
    }
    static void PutStatus(const std::string& printer, const std::string& jobId, int32_t status,
                          const char* text = "") {
        vx::JobRecord r{};
        vx::CopyText(r.PrinterName, printer.c_str());
        vx::CopyText(r.JobId, jobId.c_str());
        vx::CopyText(r.StatusText, text);
        r.Status = status;
        ASSERT_EQ(vx::InsertJobStatus(r), 0);
    }
    static int32_t Count(vx::ListId id) {
        int32_t n = -1;
        vx::GetNumberOfElements(id, &n, 1);
        return n;
    }

    std::unique_ptr<vx::Czelprsrv> prsrv_;
    std::vector<std::unique_ptr<Gate>> gates_;
};

}  // namespace vxtest
