// Printer information of the print-server object: installed printers, ports, trays, reports and
// device settings. On Linux the printers are the built-in one and, under tests/with_cupsd.py, a
// two-bin queue made here; the host's CUPS is never asked. Under Wine tests skip without a printer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "base/registry.h"
#include "printserver/zelprsrv.h"
#include "prsrv_fixture.h"
#include "spooler/spooler.h"
#include "test_support.h"

namespace {

using vx::Czelprsrv;

constexpr const char* kUnknownPrinter = "VorlixNoSuchPrinter";
constexpr const char* kDevicesKey = "Software\\Microsoft\\Windows NT\\CurrentVersion\\Devices";

using vxtest::RegistryValue;

std::vector<std::string> ListedPrinters() {
    std::vector<std::string> names;
    vx::SpoolerEnumPrinters(
        [](void* context, const vx::SpoolerPrinterInfo& printer) {
            static_cast<std::vector<std::string>*>(context)->push_back(printer.name);
            return 0;
        },
        &names);
    return names;
}

// Two paper bins, so that the bin lists and the tray mapping have something to map.
constexpr const char* kTwoBinsPpd = R"ppd(*PPD-Adobe: "4.3"
*NickName: "Vorlix Bin Printer"
*OpenUI *InputSlot: PickOne
*DefaultInputSlot: Upper
*InputSlot Upper/Upper Tray: "<</MediaPosition 0>>setpagedevice"
*InputSlot Lower/Lower Tray: "<</MediaPosition 1>>setpagedevice"
*CloseUI: *InputSlot
)ppd";

// True when CUPS_SERVER names a CUPS server for the tests (Linux only).
bool HasTestServer() {
    static const bool given = [] {
        const char* server = getenv("CUPS_SERVER");
        return vx::BuiltInPrinterName() != nullptr && server != nullptr && server[0] != '\0';
    }();
    return given;
}

// This process's queue on the test server, removed at exit; its device port prints nothing.
const std::string& TestServerQueue() {
    static const std::string queue = [] {
        if (!HasTestServer()) return std::string();
        static vxtest::ScratchDir dir;
        std::string ppd = dir.File("bins.ppd");
        if (!vxtest::WriteWholeFile(ppd, kTwoBinsPpd)) return std::string();
        std::string name = vxtest::UniqueName("vx_info_");
        std::string add = "lpadmin -p " + name + " -E -v socket://127.0.0.1:9/ -P " + ppd;
        if (std::system(add.c_str()) != 0) return std::string();
        static std::string removal = "lpadmin -x " + name;
        std::atexit([] { (void)std::system(removal.c_str()); });
        return name;
    }();
    return queue;
}

// Linux: the built-in printer and the test server's queue; Wine: the default or first printer.
std::vector<std::string> PrintersToAsk() {
    std::vector<std::string> printers;
    if (const char* builtIn = vx::BuiltInPrinterName()) {
        printers.push_back(builtIn);
        if (!TestServerQueue().empty()) printers.push_back(TestServerQueue());
        return printers;
    }
    char name[vx::kSpoolerNameSize];
    if (vx::SpoolerGetDefaultPrinter(name, sizeof name) == vx::kSpoolerOk && name[0] != '\0')
        printers.push_back(name);
    else if (std::vector<std::string> listed = ListedPrinters(); !listed.empty())
        printers.push_back(listed[0]);
    return printers;
}

// Without a test server CUPS is pointed at a dead socket, before its first call, so that the
// host's printers never take part.
void KeepTheHostsPrintersOut() {
    static const bool kept = [] {
        if (vx::BuiltInPrinterName() == nullptr || HasTestServer()) return false;
        static vxtest::ScratchDir nowhere;
        vxtest::SetEnv("CUPS_SERVER", nowhere.File("no-cupsd.sock"));
        return true;
    }();
    (void)kept;
}

class PrinterInfo : public vxtest::PrsrvFixture {
  protected:
    void SetUp() override {
        KeepTheHostsPrintersOut();
        PrsrvFixture::SetUp();
        Seed("LogLevel", "9");
        Seed("KeepFile", "1");
    }

    std::unique_ptr<Czelprsrv> Open() {
        auto p = Make();
        mainLog_ = p->MainLogPath();
        return p;
    }
    std::string Log() { return vxtest::ReadTextFile(mainLog_); }

    std::string mainLog_;
};

TEST_F(PrinterInfo, InstalledPrintersAreTheSpoolersPrinters) {
    std::vector<std::string> listed = ListedPrinters();
    if (vx::BuiltInPrinterName() != nullptr) {
        // Always there, once, with or without CUPS; the default when CUPS has none.
        EXPECT_EQ(std::count(listed.begin(), listed.end(), vx::BuiltInPrinterName()), 1);
        char name[vx::kSpoolerNameSize];
        ASSERT_EQ(vx::SpoolerGetDefaultPrinter(name, sizeof name), vx::kSpoolerOk);
        EXPECT_NE(std::find(listed.begin(), listed.end(), name), listed.end());
        if (listed.size() == 1) {
            EXPECT_STREQ(name, vx::BuiltInPrinterName());
        }
    }
    auto p = Open();
    ASSERT_EQ(p->GetInstalledPrinters(), 0);
    ASSERT_EQ(p->InstalledPrinterCount(), static_cast<int32_t>(listed.size()));
    for (size_t i = 0; i < listed.size(); ++i)
        EXPECT_EQ(std::string(p->InstalledPrinters()[i].name), listed[i]);
}

TEST_F(PrinterInfo, AnUnknownPrinterHasNoPortDriverOrSettings) {
    EXPECT_FALSE(vx::SpoolerCanOpenPrinter(kUnknownPrinter));
    EXPECT_FALSE(vx::SpoolerCanOpenPrinter(""));
    vx::SpoolerPrinterInfo info;
    EXPECT_NE(vx::SpoolerGetPrinter(kUnknownPrinter, &info), vx::kSpoolerOk);
    auto p = Open();
    EXPECT_EQ(p->ReportPrinterDriver(kUnknownPrinter, 1), -1);
    vx::JobSettings settings;
    EXPECT_EQ(p->GetJobDeviceSettings(kUnknownPrinter, 2, &settings), -1);
    EXPECT_FALSE(settings.Valid());
    EXPECT_TRUE(vxtest::InOrder(
        Log(), {"Error: GetPrinterDriver failed for printer VorlixNoSuchPrinter\n",
                "Error: Cannot read the device settings of printer VorlixNoSuchPrinter\n"}));
}

// Port, driver report and device settings of each printer this host offers.
TEST_F(PrinterInfo, EachPrinterIsDescribedByItsSpooler) {
    std::vector<std::string> printers = PrintersToAsk();
    if (printers.empty()) GTEST_SKIP() << "no printer on this host";
    for (const std::string& printer : printers) {
        SCOPED_TRACE(printer);
        vx::SpoolerPrinterInfo info;
        ASSERT_EQ(vx::SpoolerGetPrinter(printer.c_str(), &info), vx::kSpoolerOk);
        auto p = Open();
        char port[128];
        ASSERT_EQ(p->DeterminePort(printer.c_str(), port, sizeof port), 0);
        EXPECT_EQ(std::string(port), std::string(info.port).substr(0, 100));

        EXPECT_EQ(p->ReportPrinterDriver(printer.c_str(), 1), 0);
        EXPECT_NE(Log().find("OS version: "), std::string::npos);

        vx::JobSettings three;
        ASSERT_EQ(p->GetJobDeviceSettings(printer.c_str(), 3, &three), 0);
        EXPECT_EQ(three.Copies(), 3);
        // The copy count is a 16-bit field: larger requests print the most it can hold.
        vx::JobSettings many;
        ASSERT_EQ(p->GetJobDeviceSettings(printer.c_str(), 100000, &many), 0);
        EXPECT_EQ(many.Copies(), 32767);
        EXPECT_NE(three.Get(), many.Get());
    }
}

TEST_F(PrinterInfo, PortFromTheDevicesValueIsTheTextAfterTheFirstComma) {
    RegistryValue a(vx::kHiveCurrentUser, kDevicesKey, "VorlixDevicesA", "winspool,VXPORT_A:");
    RegistryValue b(vx::kHiveCurrentUser, kDevicesKey, "VorlixDevicesB", "winspool,VXPORT_B:,15");
    RegistryValue noComma(vx::kHiveCurrentUser, kDevicesKey, "VorlixDevicesD", "winspool");
    RegistryValue longPort(vx::kHiveCurrentUser, kDevicesKey, "VorlixDevicesE",
                           "winspool," + std::string(150, 'P'));
    auto p = Open();
    char port[256];
    const struct {
        const char* printer;
        int result;
        std::string port;
    } cases[] = {{"VorlixDevicesA", 0, "VXPORT_A:"},
                 {"VorlixDevicesB", 0, "VXPORT_B:,15"},
                 {"VorlixDevicesD", 9, ""},
                 {"VorlixDevicesE", 0, std::string(100, 'P')}};
    for (const auto& c : cases) {
        EXPECT_EQ(p->DeterminePort(c.printer, port, sizeof port), c.result) << c.printer;
        EXPECT_EQ(port, c.port) << c.printer;
    }

    // A printer not found is looked up again next time: "Not found" is no cached port.
    vxtest::RemoveRegistryValue(vx::kHiveCurrentUser, kDevicesKey, "VorlixDevicesC");
    EXPECT_EQ(p->DeterminePort("VorlixDevicesC", port, sizeof port), 9);
    RegistryValue c(vx::kHiveCurrentUser, kDevicesKey, "VorlixDevicesC", "winspool,LATE:");
    ASSERT_EQ(p->DeterminePort("VorlixDevicesC", port, sizeof port), 0);
    EXPECT_STREQ(port, "LATE:");

    // A port found is kept: a later change of the value reaches the next print-server object.
    RegistryValue moved(vx::kHiveCurrentUser, kDevicesKey, "VorlixDevicesA", "winspool,MOVED:");
    ASSERT_EQ(p->DeterminePort("VorlixDevicesA", port, sizeof port), 0);
    EXPECT_STREQ(port, "VXPORT_A:");
    p.reset();
    p = Open();
    ASSERT_EQ(p->DeterminePort("VorlixDevicesA", port, sizeof port), 0);
    EXPECT_STREQ(port, "MOVED:");
}

TEST_F(PrinterInfo, ClusterResourcePortIsKeyedByTheNameAfterTheLastBackslash) {
    const std::string key =
        "Cluster\\Resources\\VorlixTestResource\\Parameters\\Printers\\VorlixClustered";
    RegistryValue port(vx::kHiveLocalMachine, key, "Port", "CLUSTER_PORT:");
    Seed("ClusterResource", "VorlixTestResource");
    auto p = Open();
    char found[128];
    ASSERT_EQ(p->DeterminePort("\\\\vorlixhost\\VorlixClustered", found, sizeof found), 0);
    EXPECT_STREQ(found, "CLUSTER_PORT:");
}

TEST_F(PrinterInfo, AlternativePathKeepsTheFirstPrintersKey) {
#if defined(_WIN32)
    // There the key belongs to the spooler: each subkey is a printer it opens itself, so the
    // fallback cannot be reached with a test key.
    GTEST_SKIP() << "the spooler's own printer key";
#endif
    const std::string printers = "SYSTEM\\CurrentControlSet\\Control\\Print\\Printers\\";
    RegistryValue a(vx::kHiveLocalMachine, printers + "VorlixAltA", "Port", "ALT_A:");
    RegistryValue b(vx::kHiveLocalMachine, printers + "VorlixAltB", "Port", "ALT_B:");
    Seed("UseAlternativPath", "1");
    Seed("ClusterResource", "VorlixTestResource");  // the alternative path comes first
    auto p = Open();
    char port[128];
    ASSERT_EQ(p->DeterminePort("VorlixAltA", port, sizeof port), 0);
    EXPECT_STREQ(port, "ALT_A:");
    // The key opened for the first printer is kept and asked for the next one too.
    ASSERT_EQ(p->DeterminePort("VorlixAltB", port, sizeof port), 0);
    EXPECT_STREQ(port, "ALT_A:");
}

TEST_F(PrinterInfo, TraysMapTheApplicationServersNumbersToBins) {
    int asked = 0;
    for (const std::string& printer : PrintersToAsk()) {
        vx::SpoolerDeviceItem bin = {};
        if (vx::SpoolerGetDeviceList(printer.c_str(), "", vx::kDeviceBins, &bin, 1) != 1) continue;
        SCOPED_TRACE(printer);
        ++asked;
        auto p = Open();
        int index = p->GetTrayIndex(printer.c_str());
        ASSERT_GE(index, 0);
        // Without a configured number every bin is printed from as itself.
        EXPECT_EQ(p->FindConfiguredTray(printer.c_str(), 0), bin.id);
        EXPECT_EQ(p->GetTrayIndex(printer.c_str()), index);
        EXPECT_EQ(p->GetTrayIndex(kUnknownPrinter), -1);
        std::string trayKey = printer + "\\Trays\\" + bin.name;
        Seed("ZELID", "3", trayKey);
        Seed("TrayID", "260", trayKey);
        p.reset();
        p = Open();
        EXPECT_EQ(p->FindConfiguredTray(printer.c_str(), 3), 260);
        EXPECT_EQ(p->FindConfiguredTray(printer.c_str(), 4), -1);
        EXPECT_EQ(p->FindConfiguredTray(kUnknownPrinter, 3), -1);
    }
    if (asked == 0) GTEST_SKIP() << "no printer with paper bins on this host";
}

}  // namespace
