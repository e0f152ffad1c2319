#include "protocol/job_file_writer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/fileops.h"
#include "test_support.h"

namespace {

// A failed write is reported to the session at its next hand-over or flush, and nothing later
// is written.
TEST(JobFileWriterTest, AFailedWriteIsReported) {
    vxtest::ScratchDir dir;
    const std::string path = dir.File("read-only");
    ASSERT_TRUE(vxtest::WriteWholeFile(path, "kept"));
    vx::StreamPtr file(vx::FsOpenStream(path.c_str(), "rb"));
    ASSERT_TRUE(file);
    vx::JobFileWriterPtr writer = vx::StartJobFileWriter(file.get());
    ASSERT_NE(writer, nullptr);
    const std::string chunk(256 * 1024, 'x');
    bool accepted = true;
    for (int i = 0; i < 4 && accepted; ++i)
        accepted = vx::WriteThroughWriter(*writer, chunk.data(), chunk.size());
    EXPECT_FALSE(accepted && vx::FlushJobFileWriter(*writer));
    EXPECT_FALSE(vx::FlushJobFileWriter(*writer));
    writer.reset();
    file.reset();
    EXPECT_EQ(vxtest::ReadWholeFile(path), "kept");
}

// Only so many writers work at once; a place is free again when a writer is freed.
TEST(JobFileWriterTest, WritersAreBounded) {
    vxtest::ScratchDir dir;
    vx::StreamPtr file(vx::FsOpenStream(dir.File("job").c_str(), "wb"));
    ASSERT_TRUE(file);
    std::vector<vx::JobFileWriterPtr> writers;
    for (int i = 0; i < vx::kMaxJobFileWriters; ++i) {
        writers.push_back(vx::StartJobFileWriter(file.get()));
        ASSERT_NE(writers.back(), nullptr) << i;
    }
    EXPECT_EQ(vx::StartJobFileWriter(file.get()), nullptr);
    writers.pop_back();
    EXPECT_NE(vx::StartJobFileWriter(file.get()), nullptr);
}

}  // namespace
