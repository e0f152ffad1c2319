#include "fake_spooler.h"

#include "base/text.h"

namespace vxtest {

namespace {

using Hold = std::lock_guard<std::mutex>;

FakeSpooler& Fake() {
    return FakeSpooler::Get();
}

FakePrinter* Of(vx::SpoolerPrinter* printer) {
    return reinterpret_cast<FakePrinter*>(printer);
}

int Result(bool ok) {
    return ok ? vx::kSpoolerOk : vx::kSpoolerFailed;
}

void Describe(const std::string& name, const FakePrinter& printer, vx::SpoolerPrinterInfo* out) {
    *out = vx::SpoolerPrinterInfo{};
    vx::CopyText(out->name, name.c_str());
    vx::CopyText(out->driver, printer.driver.c_str());
    vx::CopyText(out->location, printer.location.c_str());
    out->status = printer.status;
}

const vx::SpoolerCalls kFakeCalls = {
    .EnumPrinters =
        [](vx::SpoolerPrinterVisitor visit, void* context) {
            Hold hold(Fake().mutex);
            int n = 0;
            for (auto& [name, printer] : Fake().printers) {
                vx::SpoolerPrinterInfo info;
                Describe(name, printer, &info);
                ++n;
                if (visit != nullptr && visit(context, info) != 0) break;
            }
            return n;
        },
    .GetDefaultPrinter =
        [](char* out, size_t cap) {
            Hold hold(Fake().mutex);
            vx::CopyText(out, cap, Fake().defaultPrinter.c_str());
            return Result(!Fake().defaultPrinter.empty());
        },
    .CanOpenPrinter =
        [](const char* name) {
            Hold hold(Fake().mutex);
            return Fake().Find(name) != nullptr;
        },
    .GetPrinter =
        [](const char* name, vx::SpoolerPrinterInfo* out) {
            Hold hold(Fake().mutex);
            const FakePrinter* printer = Fake().Find(name);
            if (printer != nullptr) Describe(name, *printer, out);
            return Result(printer != nullptr);
        },
    .GetDeviceList =
        [](const char* name, const char*, vx::SpoolerDeviceList, vx::SpoolerDeviceItem*, int) {
            Hold hold(Fake().mutex);
            return Fake().Find(name) != nullptr ? 0 : vx::kSpoolerFailed;
        },
    .GetDeviceFacts =
        [](const char* name, const char*, vx::SpoolerDeviceFacts* out) {
            Hold hold(Fake().mutex);
            *out = vx::SpoolerDeviceFacts{};
            return Result(Fake().Find(name) != nullptr);
        },
    .GetDriverInfo =
        [](const char* name, vx::SpoolerDriverInfo* out) {
            Hold hold(Fake().mutex);
            const FakePrinter* printer = Fake().Find(name);
            *out = vx::SpoolerDriverInfo{};
            if (printer != nullptr) vx::CopyText(out->name, printer->driver.c_str());
            return Result(printer != nullptr);
        },
    .EnumPrinterFonts =
        [](const char* name, vx::SpoolerFontVisitor, void*) {
            Hold hold(Fake().mutex);
            return Fake().Find(name) != nullptr ? 0 : vx::kSpoolerFailed;
        },
    .JobSettingsSize = [](const char*) { return size_t(0); },
    .ReadJobSettings = [](const char*, void*, size_t) { return int(vx::kSpoolerFailed); },
    .OpenPrinter =
        [](const char* name) {
            Hold hold(Fake().mutex);
            return reinterpret_cast<vx::SpoolerPrinter*>(Fake().Find(name));
        },
    .ClosePrinter =
        [](vx::SpoolerPrinter*) {
            Hold hold(Fake().mutex);
            ++Fake().closed;
            return Result(!Fake().closeFails);
        },
    .EnumJobs =
        [](vx::SpoolerPrinter* printer, vx::SpoolerJobInfo* out, int capacity) {
            Hold hold(Fake().mutex);
            if (Fake().enumJobsFails) return int(vx::kSpoolerFailed);
            const auto& jobs = Of(printer)->jobs;
            for (int i = 0; out != nullptr && i < int(jobs.size()) && i < capacity; ++i)
                out[i] = jobs[size_t(i)];
            return int(jobs.size());
        },
    .GetPrinterStatus =
        [](vx::SpoolerPrinter* printer, uint32_t* status) {
            Hold hold(Fake().mutex);
            *status = Of(printer)->status;
            return int(vx::kSpoolerOk);
        },
    .SpooledJobFateOf =
        [](const char* name, int number) {
            Hold hold(Fake().mutex);
            Fake().fatesAsked.push_back(std::string(name) + " " + std::to_string(number));
            const FakePrinter* printer = Fake().Find(name);
            if (printer == nullptr) return vx::SpooledJobFate::kGone;
            auto it = printer->spooled.find(number);
            return it != printer->spooled.end() ? it->second : vx::SpooledJobFate::kUnknown;
        },
};

}  // namespace

FakeSpooler& FakeSpooler::Get() {
    static FakeSpooler* fake = new FakeSpooler;
    return *fake;
}

FakeSpooler& FakeSpooler::Install() {
    FakeSpooler& fake = Get();
    {
        Hold hold(fake.mutex);
        fake.printers.clear();
        fake.anyNameIsAPrinter = fake.enumJobsFails = fake.closeFails = false;
        fake.defaultPrinter.clear();
        fake.closed = 0;
        fake.fatesAsked.clear();
    }
    vx::SetSpoolerForTest(&kFakeCalls);
    return fake;
}

void FakeSpooler::Remove() {
    vx::SetSpoolerForTest(nullptr);
}

FakePrinter* FakeSpooler::Find(const char* name) {
    auto it = printers.find(name);
    if (it != printers.end()) return &it->second;
    return anyNameIsAPrinter && name[0] != '\0' ? &printers[name] : nullptr;
}

vx::SpoolerJobInfo SpoolJob(uint32_t id, const char* user, const char* document, uint32_t status,
                            const char* statusText) {
    vx::SpoolerJobInfo job{};
    job.id = id;
    vx::CopyText(job.user, user);
    vx::CopyText(job.document, document);
    vx::CopyText(job.statusText, statusText);
    job.status = status;
    return job;
}

}  // namespace vxtest
