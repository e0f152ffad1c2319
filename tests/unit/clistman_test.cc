#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "list_test_hooks.h"
#include "lists/list_table.h"
#include "lists/swlistman.h"

namespace {

using namespace vx;
using Texts = std::vector<std::string>;

TEST(ClistMan, ListsGrowPastTheirFirstNodesKeepingEveryElementUncounted) {
    vxtest::RecordingHooks hooks;
    {
        ClistMan man(sizeof(int32_t), &hooks.hooks);
        const uint32_t before = ListMemoryInUse();
        ListId id = kInvalidListId;
        ASSERT_EQ(man.swlalInitList(0, &id), 0);
        constexpr int32_t kCount = 120;
        for (int32_t i = 0; i < kCount; ++i) ASSERT_EQ(man.swlalAppendElement(id, &i, 1), 0);
        int32_t count = 0;
        EXPECT_EQ(man.swlalGetNumberOfElements(id, &count, 1), 0);
        EXPECT_EQ(count, kCount);
        EXPECT_EQ(man.swlalGetNumberOfFreeElements(id, &count, 1), 0);
        EXPECT_EQ(count, 200 - kCount);  // 50 nodes, doubled twice
        std::vector<int32_t> read;
        void* data = nullptr;
        for (int rc = man.swlalGetFirstElement(id, &data, 1); rc == 0 && data != nullptr;
             rc = man.swlalGetNextElement(id, &data, 1))
            read.push_back(*static_cast<int32_t*>(data));
        std::vector<int32_t> expected(kCount);
        for (int32_t i = 0; i < kCount; ++i) expected[i] = i;
        EXPECT_EQ(read, expected);
        // The object's lists are not part of the list memory the service reports.
        EXPECT_EQ(ListMemoryInUse(), before);
    }
    EXPECT_EQ(hooks.live, 0);  // the object ends the lists left open
}

TEST(ClistMan, EachObjectHas1024SlotsOfItsOwn) {
    vxtest::RecordingHooks hooks;
    ClistMan full(8, &hooks.hooks), other(8, &hooks.hooks);
    ListId id = kInvalidListId;
    for (int i = 0; i < kClistManSlots; ++i) ASSERT_EQ(full.swlalInitList(0, &id), 0);
    EXPECT_EQ(full.swlalInitList(0, &id), -1);
    EXPECT_EQ(hooks.errors, Texts{"swlalInitList: Maximum number of lists 1024 reached\n"});
    EXPECT_EQ(other.swlalInitList(0, &id), 0);
    EXPECT_EQ(id, 0);
    EXPECT_EQ(full.swlalExitList(3), 0);
    EXPECT_EQ(full.swlalInitList(0, &id), 0);
    EXPECT_EQ(id, 3);
}

TEST(ClistMan, FailedLookupsAreReported) {
    vxtest::RecordingHooks hooks;
    ClistMan man(sizeof(int32_t), &hooks.hooks);
    ListId id = kInvalidListId;
    ASSERT_EQ(man.swlalInitList(0, &id), 0);
    const int32_t one = 1;
    man.swlalAppendElement(id, &one, 1);
    man.swlalAppendElement(id, &one, 1);
    void* data = nullptr;
    auto reported = [&](const std::function<int()>& operation) {
        hooks.Forget();
        EXPECT_EQ(operation(), -1);
        return hooks.errors;
    };
    EXPECT_EQ(reported([&] { return man.swlalGetElementByIndex(id + 1, 0, &data, 1); }),
              Texts{"ClistMan::swlaliGetHeader: Wrong list handle\n"});
    EXPECT_EQ(reported([&] { return man.swlalGetElementByIndex(id, 5, &data, 1); }),
              (Texts{"ClistMan::swlaliGetElement: Wrong index\n",
                     "ClistMan::swlalGetElementByIndex: No data available\n"}));
    EXPECT_EQ(reported([&] { return man.swlalGetElementByIndex(id, 2, &data, 1); }),
              Texts{"ClistMan::swlalGetElementByIndex: No data available\n"});
    EXPECT_EQ(reported([&] { return man.swlalInsertElementAtIndex(id, 3, &one, 1); }),
              Texts{"ClistMan::swlalInsertElementAtIndex: Wrong index\n"});
    EXPECT_EQ(reported([&] {
                  man.swlalGetFirstElement(id, &data, 1);
                  man.swlalClearList(id, 1);
                  return man.swlalGetNextElement(id, &data, 1);
              }),
              Texts{"ClistMan::swlalGetNextElement: No data available\n"});
}

}  // namespace
