#include <gtest/gtest.h>

#include <set>
#include <string>

#include "base/fileops.h"
#include "test_support.h"

namespace {

using vxtest::ReadWholeFile;
using vxtest::ScratchDir;
using vxtest::WriteWholeFile;

TEST(FileRename, RefusesAnExistingTargetWhileReplaceOverwritesIt) {
    ScratchDir dir;
    std::string a = dir.File("a.dbg"), b = dir.File("b.dbg"), c = dir.File("c.dbg");
    ASSERT_TRUE(WriteWholeFile(a, "new"));
    ASSERT_TRUE(WriteWholeFile(b, "old"));

    EXPECT_EQ(vx::FsRename(a.c_str(), b.c_str()), -1);
    EXPECT_EQ(ReadWholeFile(a) + ReadWholeFile(b), "newold");
    EXPECT_EQ(vx::FsReplace(a.c_str(), b.c_str()), 0);
    EXPECT_FALSE(vx::FsExists(a.c_str()));
    EXPECT_EQ(ReadWholeFile(b), "new");
    EXPECT_EQ(vx::FsRename(b.c_str(), c.c_str()), 0);
    EXPECT_FALSE(vx::FsExists(b.c_str()));
    EXPECT_EQ(ReadWholeFile(c), "new");
    EXPECT_EQ(vx::FsRename(a.c_str(), dir.File("d.dbg").c_str()), -1);  // source gone
    EXPECT_EQ(vx::FsRemove(c.c_str()), 0);
    EXPECT_EQ(vx::FsRemove(c.c_str()), -1);
}

int CollectName(void* context, const char* name) {
    static_cast<std::set<std::string>*>(context)->insert(name);
    return 0;
}

int StopAtFirst(void* context, const char* /*name*/) {
    ++*static_cast<int*>(context);
    return 1;
}

TEST(FileDirectory, ListsEntriesWithoutDotsAndStopsWhenAsked) {
    ScratchDir dir;
    ASSERT_TRUE(WriteWholeFile(dir.File("prnl00001.dbd"), "x"));
    ASSERT_TRUE(WriteWholeFile(dir.File("stal.dbd"), "y"));
    ASSERT_EQ(vx::FsMakeDirectory(dir.File("Logs").c_str()), 0);

    std::set<std::string> names;
    EXPECT_EQ(vx::FsListDirectory(dir.Path().c_str(), CollectName, &names), 0);
    EXPECT_EQ(names, (std::set<std::string>{"prnl00001.dbd", "stal.dbd", "Logs"}));

    int visits = 0;
    EXPECT_EQ(vx::FsListDirectory(dir.Path().c_str(), StopAtFirst, &visits), 0);
    EXPECT_EQ(visits, 1);

    names.clear();
    EXPECT_EQ(vx::FsListDirectory(dir.File("missing").c_str(), CollectName, &names), -1);
    EXPECT_TRUE(names.empty());
}

TEST(FileDirectory, MakeDirectoryAndAccessChecks) {
    ScratchDir dir;
    std::string logs = dir.File("Logs"), file = dir.File("file.txt");
    ASSERT_TRUE(WriteWholeFile(file, "x"));

    EXPECT_FALSE(vx::FsIsDirectoryReadWrite(logs.c_str()));
    EXPECT_EQ(vx::FsMakeDirectory(logs.c_str()), 0);
    EXPECT_EQ(vx::FsMakeDirectory(logs.c_str()), 0);  // existing directory is fine
    EXPECT_TRUE(vx::FsIsDirectory(logs.c_str()) && vx::FsIsDirectoryReadWrite(logs.c_str()));
    EXPECT_EQ(vx::FsMakeDirectory(file.c_str()), -1);  // a file is in the way
    EXPECT_TRUE(vx::FsExists(file.c_str()));
    EXPECT_FALSE(vx::FsIsDirectory(file.c_str()) || vx::FsIsDirectoryReadWrite(file.c_str()));
    EXPECT_EQ(vx::FsMakeDirectory(dir.File("no/such/parent").c_str()), -1);

    std::set<std::string> names;  // the probe leaves nothing behind
    vx::FsListDirectory(logs.c_str(), CollectName, &names);
    EXPECT_TRUE(names.empty());
}

TEST(FileAppend, AppendsPiecesMakesTheFileAndEmptiesIt) {
    ScratchDir dir;
    std::string path = dir.File("journal.job");
    EXPECT_EQ(vx::FsEmptyFile(path.c_str()), -1);  // nothing to empty
    EXPECT_EQ(vx::FsSize(path.c_str()), -1);
    EXPECT_EQ(vx::FsAppendBytes(path.c_str(), "first", 5, false), 0);
    EXPECT_EQ(vx::FsAppendBytes(path.c_str(), "", 0, false), 0);
    EXPECT_EQ(vx::FsAppendBytes(path.c_str(), "|second", 7, true), 0);
    EXPECT_EQ(ReadWholeFile(path), "first|second");
    EXPECT_EQ(vx::FsSize(path.c_str()), 12);
    EXPECT_EQ(vx::FsEmptyFile(path.c_str()), 0);
    EXPECT_EQ(vx::FsSize(path.c_str()), 0);
    EXPECT_EQ(vx::FsAppendBytes(dir.File("missing/x").c_str(), "x", 1, false), -1);
}

TEST(PathText, AppendSeparatorOnceAndNeverPastTheBuffer) {
    char path[16] = "Logs";
    vx::AppendSeparator(path, sizeof path);
    vx::AppendSeparator(path, sizeof path);
    EXPECT_EQ(std::string(path), std::string("Logs") + vx::kPathSeparator);

    char empty[4] = "";
    vx::AppendSeparator(empty, sizeof empty);
    EXPECT_STREQ(empty, "");

    char full[8] = "1234567";  // no room left: unchanged rather than overrun
    vx::AppendSeparator(full, sizeof full);
    EXPECT_STREQ(full, "1234567");
}

}  // namespace
