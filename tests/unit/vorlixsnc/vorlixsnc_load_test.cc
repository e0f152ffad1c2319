// The built security library as the service finds it: by its platform name beside the program,
// loaded at run time, every export of snc/vorlixsnc.h there.
#include <gtest/gtest.h>

#include <string>

#include "base/dynlib.h"
#include "base/fileops.h"
#include "base/process.h"
#include "printserver/library_names.h"
#include "snc/vorlixsnc.h"

namespace {

TEST(SncLibraryLoad, ExportsEveryCallBesideTheProgram) {
    char directory[vx::kMaxPath];
    ASSERT_EQ(vx::GetExecutableDirectory(directory, sizeof directory), 0);
    std::string path =
        std::string(directory) + vx::kPathSeparator + vx::LibraryFileName("vorlixsnc.dll");
    vx::DynLibrary library;
    library.Adopt(vx::DynLibLoad(path.c_str()));
    ASSERT_TRUE(library.Loaded()) << path;

    for (const char* name :
         {"SncInit", "SncDone", "SncSetTrace", "SncGetAdapterName", "SncNiRawSessionInit",
          "SncSetQOP", "SncNiSessionAccept", "SncGetPeerName", "SncNiRawRead", "SncNiRawWrite",
          "SncNiErrorOf", "SncSessionDone", "SncErrorName", "SncErrorDescription", "SncErrorLine"})
        EXPECT_NE(library.Symbol(name), nullptr) << name;
    // Nothing of the library's inside shows: its own helpers stay private.
    EXPECT_EQ(library.Symbol("_ZN2vx9CopyTextEPcmPKc"), nullptr);

    // Without a profile the library comes up with no product, as the service expects.
    auto init = reinterpret_cast<decltype(&SncInit)>(library.Symbol("SncInit"));
    auto done = reinterpret_cast<decltype(&SncDone)>(library.Symbol("SncDone"));
    ASSERT_NE(init, nullptr);
    ASSERT_NE(done, nullptr);
    int realProduct = 1;
    EXPECT_EQ(init(SNC_USAGE_SERVER, "NO-SUCH-PROFILE.INI", directory, &realProduct), SNC_OK);
    EXPECT_EQ(realProduct, 0);
    done();
}

}  // namespace
