// Binding the optional libraries: absent libraries, complete ones, faulty ones and the PDF
// product's version check, against stand-in libraries built beside the test (bin/testlibs/).
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "base/dynlib.h"
#include "base/fileops.h"
#include "base/process.h"
#include "base/registry.h"
#include "printserver/library_names.h"
#include "printserver/zelprsrv.h"
#include "prsrv_fixture.h"
#include "test_support.h"

namespace {

using vx::Czelprsrv;

constexpr const char* kPdfProductKey = "Software\\Zel\\Tolmapdf";

std::string Sep() {
    return std::string(1, vx::kPathSeparator);
}

std::string TestLibraries(const std::string& variant) {
    char dir[vx::kMaxPath];
    EXPECT_EQ(vx::GetExecutableDirectory(dir, sizeof dir), 0);
    return std::string(dir) + Sep() + "testlibs" + Sep() + variant;
}

// The PDF product's "InstallationPath" for the duration of a test.
vxtest::RegistryValue PdfProductInstalled(const std::string& directory) {
    return {vx::kHiveLocalMachine, kPdfProductKey, "InstallationPath", directory};
}

class LibraryBinding : public vxtest::PrsrvFixture {
  protected:
    void SetUp() override {
        PrsrvFixture::SetUp();
        Seed("LogLevel", "9");
        Seed("KeepFile", "1");
        Seed("WinAPILog", "1");
    }

    std::unique_ptr<Czelprsrv> Bind(const std::string& libraryDirectory, bool load = true) {
        vx::PrsrvConfig config;
        config.runMode = vx::kRunModeTool;
        config.hive = vx::kHiveCurrentUser;
        config.settingsKey = key_.c_str();
        config.logDirectory = logDir_.c_str();
        config.libraryDirectory = libraryDirectory.c_str();
        config.loadLibraries = load;
        auto p = std::make_unique<Czelprsrv>(config);
        mainLog_ = p->MainLogPath();
        apiLog_ = p->ApiLogPath();
        return p;
    }

    std::string Log() { return vxtest::ReadTextFile(mainLog_); }
    std::string ApiLog() { return vxtest::ReadTextFile(apiLog_); }

    static std::string Name(const char* windowsName) { return vx::LibraryFileName(windowsName); }

    std::string mainLog_;
    std::string apiLog_;
};

TEST_F(LibraryBinding, AbsentLibrariesAreReported) {
    vxtest::ScratchDir empty;
    auto p = Bind(empty.Path());
    std::string log = Log();
    EXPECT_TRUE(vxtest::InOrder(
        log, {"TOLMAPDF (64bit) not installed.\n", "No optional OCR DLL detected.\n",
              "No optional barcode64.dll detected.\n",
              "Error: No icon DLL loaded, please install zelbtmp64.dll.\n",
              "MainLoadDLLs completed successfully.\n"}));
    // The search begins in the executable's directory and ends in its parent.
    std::string parent = empty.Path().substr(0, empty.Path().rfind(vx::kPathSeparator));
    EXPECT_TRUE(
        vxtest::InOrder(log, {"Looking for file " + empty.Path() + Sep() + Name("OCR.DLL") + "\n",
                              "Looking for file " + parent + Sep() + Name("OCR.DLL") + "\n"}));
    // Five places for each of the three libraries that have no installation of their own.
    EXPECT_EQ(vxtest::CountOccurrences(log, "Looking for file "), 3 * 5);
    // Without the PDF library the service sends PDF as it is.
    EXPECT_EQ(p->PdfAsRaw(), 1);
    EXPECT_EQ(p->GetDefaultValue("PDFasRAW"), 0);
    EXPECT_EQ(log.find("This is TOLMAPDF Version"), std::string::npos);
}

TEST_F(LibraryBinding, NothingIsBoundUnlessAskedButVersionsAreRead) {
    auto p = Bind(TestLibraries("complete"), false);
    EXPECT_FALSE(p->Libraries().pdf.module.Loaded());
    EXPECT_FALSE(p->Libraries().icon.module.Loaded());
    EXPECT_EQ(p->InstalledPrinters(), nullptr);
    EXPECT_EQ(Log().find("MainLoadDLLs"), std::string::npos);
    // The product beside the executable is found all the same: it decides the banner.
    EXPECT_EQ(p->PdfLibraryCompatible(), 1);
    EXPECT_NE(Log().find("This is TOLMAPDF Version 3.6.14085.0 (64bit)\n"), std::string::npos);

    // A library without a version resource gives none.
    char fileVersion[64];
    char productVersion[64];
    std::string ocr = TestLibraries("complete") + Sep() + Name("OCR.DLL");
    EXPECT_EQ(p->ReadFileVersion(ocr.c_str(), fileVersion, sizeof fileVersion, productVersion,
                                 sizeof productVersion),
              -1);
    EXPECT_STREQ(fileVersion, "");
    EXPECT_STREQ(productVersion, "");
    // The print library linked into the program is found where the loader took it from.
    std::string printLibrary = p->PrintLibraryPath();
    ASSERT_FALSE(printLibrary.empty());
    EXPECT_EQ(printLibrary.substr(printLibrary.rfind(vx::kPathSeparator) + 1),
              Name("zelwin64.dll"));
}

TEST_F(LibraryBinding, CompleteLibrariesAreBoundAndReleased) {
    const std::string dir = TestLibraries("complete");
    {
        auto p = Bind(dir);
        const vx::OptionalLibraries& libs = p->Libraries();
        // No installation path: the product is where its library is found.
        EXPECT_EQ(std::string(p->PdfProductDirectory()), dir);
        EXPECT_TRUE(libs.pdf.usable);
        EXPECT_NE(libs.pdf.CreatePDFContainer, nullptr);
        EXPECT_NE(libs.ocr.OCRInit, nullptr);
        EXPECT_NE(libs.barcode.BarcodePrintW, nullptr);
        EXPECT_EQ(libs.barcode.wideText, 1);
        EXPECT_NE(libs.icon.GetZELBitmap, nullptr);
        EXPECT_EQ(p->PdfAsRaw(), 0);
        EXPECT_EQ(p->GetDefaultValue("PDFasRAW"), 1);

        std::string log = Log();
        EXPECT_TRUE(vxtest::InOrder(
            log, {"This is TOLMAPDF Version 3.6.14085.0 (64bit)\n", "tolmapdf64.dll loaded.\n",
                  "OCR DLL loaded.\n", "barcode64.dll loaded.\n", "Barcode library ready\n",
                  "Icon DLL loaded.\n", "MainLoadDLLs completed successfully.\n"}));
        EXPECT_EQ(log.find("not found"), std::string::npos);
        EXPECT_EQ(log.find("Error: "), std::string::npos);
    }
    // The modules go after the list manager and before the locks.
    std::string api = ApiLog();
    EXPECT_EQ(vxtest::CountOccurrences(api, "FreeLibrary("), 4);
    EXPECT_TRUE(
        vxtest::InOrder(api, {"delete listManager(", "FreeLibrary(", "DeleteCriticalSection("}));
}

TEST_F(LibraryBinding, FaultyLibrariesAreBoundAsFarAsTheyGo) {
    const std::string dir = TestLibraries("faulty");
    auto product = PdfProductInstalled(dir);
    auto p = Bind(dir);
    const vx::OptionalLibraries& libs = p->Libraries();
    EXPECT_EQ(p->PdfLibraryCompatible(), 1);  // 3.6.16064.0 is accepted
    EXPECT_FALSE(libs.pdf.usable);
    EXPECT_EQ(libs.pdf.PrintPDFFile, nullptr);  // half a PDF library is none
    EXPECT_EQ(p->PdfAsRaw(), 1);
    // The bar-code library stays loaded, but nothing of it is used after a failed start.
    EXPECT_TRUE(libs.barcode.module.Loaded());
    EXPECT_EQ(libs.barcode.BarcodeInit, nullptr);
    EXPECT_EQ(libs.barcode.wideText, 0);
    EXPECT_EQ(libs.icon.GetZELBitmap, nullptr);

    std::string log = Log();
    EXPECT_TRUE(vxtest::InOrder(
        log,
        {"This is TOLMAPDF Version 3.6.16064.0 (64bit)\n", "tolmapdf64.dll loaded.\n",
         "Error: GetProcAddress failed: ", "tolmapdf64.dll not useable: 'SavePDFFile' not found.\n",
         "OCR DLL loaded.\n", "OCR.DLL can not be initialized (rc=0)\n", "barcode64.dll loaded.\n",
         "'BarcodePrintW' not found.\n", "barcode64.dll can not be initialized (rc=0)\n",
         "Barcode licence missing\n", "Icon DLL loaded.\n", "Can not get address of GetZELBitmap\n",
         "MainLoadDLLs completed successfully.\n"}));
}

TEST_F(LibraryBinding, PdfProductWithAnotherVersionCountsAsNotInstalled) {
    const std::string dir = TestLibraries("refused");
    auto product = PdfProductInstalled(dir);
    auto p = Bind(dir);
    EXPECT_EQ(p->PdfLibraryCompatible(), 0);
    EXPECT_EQ(p->GetDefaultValue("PDFasRAW"), 0);
    EXPECT_FALSE(p->Libraries().pdf.module.Loaded());
    EXPECT_STREQ(p->PdfProductDirectory(), "");
    std::string log = Log();
    EXPECT_TRUE(
        vxtest::InOrder(log, {"TOLMAPDF (64bit) not installed\n",
                              "Error: Version 3.6.99999.0 of pdfprint.dll is not compatible.\n",
                              "TOLMAPDF (64bit) not installed.\n"}));
    EXPECT_EQ(ApiLog().find("SetDllDirectory("), std::string::npos);
}

}  // namespace
