#include "fake_spooler.h"

#include <algorithm>

#include "base/text.h"

namespace vxtest {

namespace {

FakePrinter* Of(vx::SpoolerPrinter* printer) {
    return reinterpret_cast<FakePrinter*>(printer);
}

FakeSpooler& Fake() {
    return FakeSpooler::Get();
}

}  // namespace

FakeSpooler& FakeSpooler::Get() {
    static FakeSpooler* fake = new FakeSpooler;
    return *fake;
}

FakeSpooler& FakeSpooler::Install() {
    FakeSpooler& fake = Get();
    {
        std::lock_guard<std::mutex> hold(fake.mutex);
        fake.printers.clear();
        fake.anyNameIsAPrinter = fake.enumJobsFails = fake.closeFails = false;
        fake.defaultPrinter.clear();
        fake.closed = 0;
        fake.fatesAsked.clear();
    }
    vx::SetSpoolerForTest(&kCalls);
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

const vx::SpoolerCalls FakeSpooler::kCalls = {
    // EnumPrinters
    [](vx::SpoolerPrinterVisitor visit, void* context) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        int n = 0;
        for (auto& [name, printer] : Fake().printers) {
            vx::SpoolerPrinterInfo info{};
            vx::CopyText(info.name, name.c_str());
            vx::CopyText(info.port, printer.port.c_str());
            vx::CopyText(info.driver, printer.driver.c_str());
            vx::CopyText(info.location, printer.location.c_str());
            vx::CopyText(info.comment, printer.comment.c_str());
            info.status = printer.status;
            ++n;
            if (visit != nullptr && visit(context, info) != 0) break;
        }
        return n;
    },
    // GetDefaultPrinter
    [](char* out, size_t cap) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        if (Fake().defaultPrinter.empty()) return int(vx::kSpoolerFailed);
        vx::CopyText(out, cap, Fake().defaultPrinter.c_str());
        return int(vx::kSpoolerOk);
    },
    // CanOpenPrinter
    [](const char* name) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        return Fake().Find(name) != nullptr;
    },
    // GetPrinter
    [](const char* name, vx::SpoolerPrinterInfo* out) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        const FakePrinter* printer = Fake().Find(name);
        if (printer == nullptr) return int(vx::kSpoolerFailed);
        *out = vx::SpoolerPrinterInfo{};
        vx::CopyText(out->name, name);
        vx::CopyText(out->port, printer->port.c_str());
        vx::CopyText(out->driver, printer->driver.c_str());
        vx::CopyText(out->location, printer->location.c_str());
        vx::CopyText(out->comment, printer->comment.c_str());
        out->status = printer->status;
        return int(vx::kSpoolerOk);
    },
    // GetDeviceList: the paper bins; the other lists are empty.
    [](const char* name, const char*, vx::SpoolerDeviceList list, vx::SpoolerDeviceItem* out,
       int capacity) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        const FakePrinter* printer = Fake().Find(name);
        if (printer == nullptr) return int(vx::kSpoolerFailed);
        if (list != vx::kDeviceBins) return 0;
        int count = int(printer->bins.size());
        if (out == nullptr) return count;
        count = std::min(count, capacity);
        std::copy_n(printer->bins.begin(), count, out);
        return count;
    },
    // GetDeviceFacts: a driver that reports nothing.
    [](const char* name, const char*, vx::SpoolerDeviceFacts* out) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        *out = vx::SpoolerDeviceFacts{};
        return int(Fake().Find(name) != nullptr ? vx::kSpoolerOk : vx::kSpoolerFailed);
    },
    // GetDriverInfo: the driver's name only.
    [](const char* name, vx::SpoolerDriverInfo* out) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        const FakePrinter* printer = Fake().Find(name);
        if (printer == nullptr) return int(vx::kSpoolerFailed);
        *out = vx::SpoolerDriverInfo{};
        vx::CopyText(out->name, printer->driver.c_str());
        return int(vx::kSpoolerOk);
    },
    // EnumPrinterFonts
    [](const char* name, vx::SpoolerFontVisitor visit, void* context) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        const FakePrinter* printer = Fake().Find(name);
        if (printer == nullptr) return int(vx::kSpoolerFailed);
        int n = 0;
        for (const std::string& font : printer->fonts) {
            ++n;
            if (visit(context, font.c_str()) != 0) break;
        }
        return n;
    },
    // JobSettingsSize: fake printers have no device settings.
    [](const char*) { return size_t(0); },
    // ReadJobSettings
    [](const char*, void*, size_t) { return int(vx::kSpoolerFailed); },
    // OpenPrinter
    [](const char* name) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        return reinterpret_cast<vx::SpoolerPrinter*>(Fake().Find(name));
    },
    // ClosePrinter
    [](vx::SpoolerPrinter*) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        ++Fake().closed;
        return int(Fake().closeFails ? vx::kSpoolerFailed : vx::kSpoolerOk);
    },
    // EnumJobs
    [](vx::SpoolerPrinter* printer, vx::SpoolerJobInfo* out, int capacity) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        if (Fake().enumJobsFails) return int(vx::kSpoolerFailed);
        const auto& jobs = Of(printer)->jobs;
        for (size_t i = 0; out != nullptr && i < jobs.size() && int(i) < capacity; ++i)
            out[i] = jobs[i];
        return int(jobs.size());
    },
    // GetPrinterStatus
    [](vx::SpoolerPrinter* printer, uint32_t* status) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        *status = Of(printer)->status;
        return int(vx::kSpoolerOk);
    },
    // SpooledJobFateOf
    [](const char* name, int number) {
        std::lock_guard<std::mutex> hold(Fake().mutex);
        Fake().fatesAsked.push_back(std::string(name) + " " + std::to_string(number));
        const FakePrinter* printer = Fake().Find(name);
        if (printer == nullptr) return vx::SpooledJobFate::kGone;
        auto it = printer->spooled.find(number);
        return it != printer->spooled.end() ? it->second : vx::SpooledJobFate::kUnknown;
    },
};

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
