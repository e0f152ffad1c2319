// The built-in file printer: safe names, one new file per job, copies, never an overwrite.
#include <gtest/gtest.h>

#include <string>

#include "base/fileops.h"
#include "printlib/file_printer.h"
#include "test_support.h"

namespace {

std::string Safe(const char* id) {
    char out[64];
    zel::SafeFileName(id, out, sizeof out);
    return out;
}

TEST(FilePrinter, JobIdsBecomeNamesThatStayInTheDirectory) {
    EXPECT_EQ(Safe("123"), "123");
    EXPECT_EQ(Safe("../../etc/passwd"), "_._.._etc_passwd");
    EXPECT_EQ(Safe("..\\..\\x"), "_._.._x");
    EXPECT_EQ(Safe("C:evil"), "C_evil");
    EXPECT_EQ(Safe(".hidden"), "_hidden");
    EXPECT_EQ(Safe("a\tb\x7f*?\"<>|"), "a_b_______");
    EXPECT_EQ(Safe(""), "job");
    EXPECT_EQ(Safe(nullptr), "job");
    char small[4];
    zel::SafeFileName("abcdef", small, sizeof small);
    EXPECT_STREQ(small, "abc");
}

TEST(FilePrinter, EveryJobGetsANewFileWithAllItsCopies) {
    vxtest::ScratchDir dir;
    // Larger than one chunk, and not a multiple of it.
    std::string data(200 * 1024 + 17, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 31 % 251);
    std::string source = dir.File("job.bin");
    ASSERT_TRUE(vxtest::WriteWholeFile(source, data));
    std::string output = dir.File("out");  // made by the printer
    vx::StreamPtr in(fopen(source.c_str(), "rb"));
    char path[600];
    char error[256] = {};
    auto print = [&](const std::string& directory, int copies) {
        return zel::WriteToFilePrinter(directory.c_str(), "7", ".prn", in.get(), source.c_str(),
                                       copies, path, sizeof path, error, sizeof error);
    };
    ASSERT_EQ(print(output, 3), 0) << error;
    std::string first = path;
    EXPECT_EQ(first, output + vx::kPathSeparator + "7_1.prn");
    EXPECT_EQ(vxtest::ReadWholeFile(first), data + data + data);

    ASSERT_EQ(print(output, 1), 0);
    EXPECT_EQ(std::string(path), output + vx::kPathSeparator + "7_2.prn");
    EXPECT_EQ(vxtest::ReadWholeFile(first), data + data + data);
    EXPECT_EQ(vxtest::ReadWholeFile(path), data);

    // An output directory that cannot be made is an error.
    EXPECT_EQ(print(source, 1), -1);
    EXPECT_NE(std::string(error).find("cannot be created"), std::string::npos);
}

}  // namespace
