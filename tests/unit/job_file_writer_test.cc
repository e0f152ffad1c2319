#include "protocol/job_file_writer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/fileops.h"
#include "test_support.h"

namespace {

// Bytes that show a chunk written twice, left out or out of order.
std::string Numbered(size_t size) {
    std::string data;
    for (size_t n = 0; data.size() < size; ++n) data += std::to_string(n) + ",";
    data.resize(size);
    return data;
}

// Whatever the sizes handed over, the file gets the bytes in order, once, by the flush; the
// writer can be used again after a flush.
TEST(JobFileWriterTest, WritesEverythingInOrder) {
    vxtest::ScratchDir dir;
    const std::string path = dir.File("job");
    const std::string data = Numbered(3 * 1024 * 1024 + 123);
    vx::StreamPtr file(vx::FsOpenStream(path.c_str(), "wb"));
    ASSERT_TRUE(file);
    vx::JobFileWriterPtr writer = vx::StartJobFileWriter(file.get());
    ASSERT_NE(writer, nullptr);
    size_t at = 0;
    for (size_t piece : {1u, 30024u, 262143u, 262144u, 700001u}) {
        ASSERT_TRUE(vx::WriteThroughWriter(*writer, data.data() + at, piece));
        at += piece;
    }
    ASSERT_TRUE(vx::FlushJobFileWriter(*writer));
    while (at < data.size()) {
        size_t piece = std::min<size_t>(30024, data.size() - at);
        ASSERT_TRUE(vx::WriteThroughWriter(*writer, data.data() + at, piece));
        at += piece;
    }
    ASSERT_TRUE(vx::FlushJobFileWriter(*writer));
    writer.reset();
    file.reset();
    EXPECT_EQ(vxtest::ReadWholeFile(path), data);
}

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
