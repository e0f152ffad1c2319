#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "list_test_hooks.h"
#include "lists/list_table.h"
#include "lists/zlplist.h"

namespace {

using namespace vx;
using Ints = std::vector<int32_t>;
using Texts = std::vector<std::string>;

struct Item {
    int32_t value;
    int32_t serial;
    uint64_t pad;
};

int MatchValue(const void* key, const void* element, int, void*) {
    return static_cast<const Item*>(element)->value == *static_cast<const int32_t*>(key) ? 0 : 1;
}

int OrderByValue(const void* a, const void* b, int, void*) {
    int32_t x = static_cast<const Item*>(a)->value, y = static_cast<const Item*>(b)->value;
    return (x > y) - (x < y);
}

bool ReadsAsZeroChars(const void* data, size_t size) {
    return std::string(static_cast<const char*>(data), size) == std::string(size, '0');
}

// Inserts at index, or appends for index -1.
int Put(ListId id, int32_t index, int32_t value, int32_t serial = 0) {
    Item item{value, serial, 0};
    return index < 0 ? AppendElement(id, &item, 1) : InsertElementAtIndex(id, index, &item, 1);
}

Item* At(ListId id, int32_t index) {
    void* data = nullptr;
    return GetElementByIndex(id, index, &data, 1) == 0 ? static_cast<Item*>(data) : nullptr;
}

// GetNumberOfElements or GetNumberOfFreeElements.
int32_t Number(int (*get)(ListId, int32_t*, int), ListId id) {
    int32_t n = -1;
    return get(id, &n, 1) == 0 ? n : -1;
}

// The values along the cursor; each must also be the element found by its index.
Ints Values(ListId id) {
    Ints values;
    void* data = nullptr;
    for (GetFirstElement(id, &data, 1); data != nullptr; GetNextElement(id, &data, 1)) {
        EXPECT_EQ(At(id, static_cast<int32_t>(values.size())), data);
        values.push_back(static_cast<Item*>(data)->value);
    }
    EXPECT_EQ(static_cast<int32_t>(values.size()), Number(GetNumberOfElements, id));
    return values;
}

class ListStore : public ::testing::Test {
  protected:
    void SetUp() override { SetListStoreHooks(&hooks_.hooks); }
    void TearDown() override {
        for (ListId id : lists_) ExitList(id);
        SetListStoreHooks(nullptr);
        EXPECT_EQ(hooks_.live, 0);
    }
    ListId Make(int32_t count, size_t size = sizeof(Item), int counted = 0) {
        ListId id = kInvalidListId;
        EXPECT_EQ(InitList(count, size, &id, counted), 0);
        lists_.push_back(id);
        return id;
    }

    vxtest::RecordingHooks hooks_;
    std::vector<ListId> lists_;
};

// Growth doubles the capacity in new data blocks; a clear fills every block and keeps them.
TEST_F(ListStore, GrowthKeepsElementPointersValidAndClearKeepsCapacity) {
    const uint32_t before = ListMemoryInUse();
    ListId id = Make(1, sizeof(Item), 1);
    std::vector<Item*> taken;
    for (int32_t i = 0; i < 300; ++i) {
        ASSERT_EQ(Put(id, -1, i), 0);
        taken.push_back(At(id, i));
    }
    for (int32_t i = 0; i < 300; ++i) {
        EXPECT_EQ(taken[i]->value, i);
        EXPECT_EQ(At(id, i), taken[i]);
    }
    EXPECT_EQ(Number(GetNumberOfFreeElements, id), 512 - 300);
    EXPECT_EQ(ListMemoryInUse() - before, 512 * (sizeof(ListElement) + sizeof(Item)));

    EXPECT_EQ(ClearList(id, 1), 0);
    EXPECT_EQ(Number(GetNumberOfFreeElements, id), 512);
    for (Item* item : taken) EXPECT_TRUE(ReadsAsZeroChars(item, sizeof(Item)));
    Put(id, -1, 1);
    Put(id, 0, 2);
    EXPECT_EQ(Values(id), (Ints{2, 1}));
    EXPECT_EQ(ExitList(id), 0);
    EXPECT_EQ(ListMemoryInUse(), before);
}

// A backlog makes a list grow; once its last element is deleted it gives the added blocks back
// and starts over at its first capacity, able to grow again.
TEST_F(ListStore, AListEmptiedAfterGrowthGoesBackToItsFirstBlock) {
    const uint32_t before = ListMemoryInUse();
    ListId id = Make(4, sizeof(Item), 1);
    const uint32_t first = ListMemoryInUse() - before;
    const int live = hooks_.live;
    for (int round = 0; round < 2; ++round) {
        for (int32_t v = 0; v < 20; ++v) ASSERT_EQ(Put(id, -1, v), 0);
        EXPECT_EQ(Number(GetNumberOfFreeElements, id), 32 - 20);
        while (Number(GetNumberOfElements, id) > 1) ASSERT_EQ(DeleteFirstElement(id, 1), 0);
        EXPECT_EQ(Values(id), (Ints{19}));  // still grown while an element lives
        EXPECT_EQ(Number(GetNumberOfFreeElements, id), 31);
        ASSERT_EQ(DeleteFirstElement(id, 1), 0);
        EXPECT_EQ(Number(GetNumberOfFreeElements, id), 4);
        EXPECT_EQ(ListMemoryInUse() - before, first);
        EXPECT_EQ(hooks_.live, live);
        EXPECT_EQ(Values(id), Ints{});
    }
    // An empty list that never grew keeps what it has.
    ListId small = Make(4, sizeof(Item), 1);
    Put(small, -1, 1);
    ASSERT_EQ(DeleteFirstElement(small, 1), 0);
    EXPECT_EQ(Number(GetNumberOfFreeElements, small), 4);
    EXPECT_EQ(hooks_.live, live + 3);
}

TEST_F(ListStore, InsertAndDeleteRenumberAndRefillSlots) {
    ListId id = Make(8);
    for (int32_t v = 10; v < 15; ++v) Put(id, -1, v);
    Item* first = At(id, 0);
    Item* last = At(id, 4);
    ASSERT_EQ(DeleteElementAtIndex(id, 0, 1), 0);
    EXPECT_EQ(Values(id), (Ints{11, 12, 13, 14}));
    EXPECT_EQ(At(id, 3), last);
    EXPECT_TRUE(ReadsAsZeroChars(first, sizeof(Item)));
    EXPECT_EQ(Put(id, 2, 20), 0);
    EXPECT_EQ(Put(id, 0, 30), 0);
    EXPECT_EQ(Put(id, 6, 40), 0);  // index == count appends
    EXPECT_EQ(Put(id, 8, 50), -1);
    EXPECT_EQ(Values(id), (Ints{30, 11, 12, 20, 13, 14, 40}));
    EXPECT_EQ(DeleteElementAtIndex(id, 3, 1), 0);
    EXPECT_EQ(DeleteElementAtIndex(id, 5, 1), 0);
    EXPECT_EQ(DeleteElementAtIndex(id, 5, 1), -1);
    EXPECT_EQ(DeleteFirstElement(id, 1), 0);
    EXPECT_EQ(Values(id), (Ints{11, 12, 13, 14}));
    EXPECT_EQ(Number(GetNumberOfElements, id) + Number(GetNumberOfFreeElements, id), 8);
}

TEST_F(ListStore, FindCountDeleteAndReplaceByKey) {
    ListId id = Make(8);
    for (int32_t v : {5, 7, 5, 9, 5}) Put(id, -1, v);
    const int32_t five = 5, eight = 8;
    int32_t found = 1, count = -1;
    Item copy{}, six{6, 0, 0};
    EXPECT_EQ(FindElement(id, MatchValue, &found, &five, &copy, 1), 0);
    EXPECT_EQ(found, 2);
    EXPECT_EQ(copy.value, 5);
    EXPECT_EQ(FindElement(id, MatchValue, &found, &eight, &copy, 1), -1);
    EXPECT_EQ(CountElements(id, MatchValue, &count, 1, &five, 1), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(DeleteElement(id, MatchValue, &five, 1), 0);
    EXPECT_EQ(ReplaceElement(id, MatchValue, &five, &six, 0), 0);
    EXPECT_EQ(DeleteElement(id, MatchValue, &eight, 0), 0);
    EXPECT_EQ(ReplaceElement(id, MatchValue, &eight, &six, 1), 0);
    EXPECT_EQ(ReplaceElementAtIndex(id, 3, &six, 1), 0);
    EXPECT_EQ(ReplaceElementAtIndex(id, 4, &six, 1), -1);
    EXPECT_EQ(Values(id), (Ints{7, 6, 9, 6}));
}

TEST_F(ListStore, SortOrdersAscendingAndDataStayInPlace) {
    std::mt19937 random(7);
    Ints shuffled, descending;
    for (int32_t i = 0; i < 300; ++i) shuffled.push_back(static_cast<int32_t>(random() % 20));
    for (int32_t i = 0; i < 100; ++i) descending.push_back(100 - i);
    for (const Ints& input : {Ints{}, shuffled, descending}) {
        ListId id = Make(4);
        // Inserted at the front, so the nodes sit in the reverse of their array order.
        for (size_t k = input.size(); k-- > 0;) Put(id, 0, input[k], static_cast<int32_t>(k));
        std::vector<Item*> taken, now;
        for (size_t k = 0; k < input.size(); ++k) taken.push_back(At(id, static_cast<int32_t>(k)));
        EXPECT_EQ(SortList(id, 2, OrderByValue, 1), 0);
        EXPECT_EQ(Values(id), input);
        EXPECT_EQ(SortList(id, 1, OrderByValue, 0), 0);
        Ints sorted = input;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(Values(id), sorted);
        for (size_t k = 0; k < input.size(); ++k) {
            EXPECT_EQ(taken[k]->value, input[k]);
            EXPECT_EQ(taken[k]->serial, static_cast<int32_t>(k));
            now.push_back(At(id, static_cast<int32_t>(k)));
        }
        std::sort(taken.begin(), taken.end());
        std::sort(now.begin(), now.end());
        EXPECT_EQ(now, taken);
    }
}

TEST_F(ListStore, InvalidHandlesFailEverywhere) {
    ListId gone = Make(2);
    ExitList(gone);
    const int32_t key = 0;
    Item item{};
    void* data = nullptr;
    int32_t n = 0;
    for (ListId id : {gone, -1, kZlpListSlots, 100000}) {
        // clang-format off
        const int results[] = {
            ExitList(id), LockList(id), UnlockList(id), GetElementByIndex(id, 0, &data, 1),
            GetFirstElement(id, &data, 1), GetNextElement(id, &data, 1),
            InsertElementAtIndex(id, 0, &item, 1), AppendElement(id, &item, 1),
            DeleteElementAtIndex(id, 0, 1), DeleteFirstElement(id, 1),
            DeleteElement(id, MatchValue, &key, 1), ReplaceElementAtIndex(id, 0, &item, 1),
            ReplaceElement(id, MatchValue, &key, &item, 1),
            FindElement(id, MatchValue, &n, &key, &item, 1),
            CountElements(id, MatchValue, &n, 0, &key, 1), GetNumberOfElements(id, &n, 1),
            GetNumberOfFreeElements(id, &n, 1), ClearList(id, 1),
            SortList(id, 1, OrderByValue, 1)};
        // clang-format on
        for (int result : results) EXPECT_EQ(result, -1) << "list " << id;
    }
}

// The real limit (99 doublings) cannot be reached in memory; a table of the same kind with three
// data blocks shows the rule and its text.
TEST_F(ListStore, GrowthStopsAtTheDataBlockLimit) {
    ListTableConfig config = ZlpListTableConfig();
    config.maxDataBlocks = 3;  // two growths
    ListTable* table = CreateListTable(config, &hooks_.hooks);
    ListId id = kInvalidListId;
    ASSERT_EQ(TableInitList(table, 1, sizeof(int32_t), &id, 0), 0);
    for (int32_t v = 0; v <= 4; ++v)
        EXPECT_EQ(TableAppendElement(table, id, &v, 1), v < 4 ? 0 : -1);
    EXPECT_EQ(hooks_.errors, Texts{"iAppendList: No more appends possible\n"});
    void* data = nullptr;
    EXPECT_EQ(TableGetElementByIndex(table, id, 3, &data, 1), 0);
    EXPECT_EQ(*static_cast<int32_t*>(data), 3);
    DestroyListTable(table);
}

TEST_F(ListStore, FailedAllocationLeavesEverythingAsItWas) {
    const uint32_t before = ListMemoryInUse();
    ListId id = kInvalidListId;
    for (int nth = 1; nth <= 3; ++nth) {
        hooks_.Fail(nth);
        EXPECT_EQ(InitList(2, sizeof(Item), &id, 1), -1);
        EXPECT_EQ(ListMemoryInUse(), before);
        EXPECT_EQ(hooks_.live, 0);
    }
    hooks_.Fail(0);
    EXPECT_EQ(id = Make(2, sizeof(Item), 1), 0);  // no slot was lost
    Put(id, -1, 1);
    Put(id, -1, 2);
    const uint32_t full = ListMemoryInUse();
    const int live = hooks_.live;
    for (int nth = 1; nth <= 2; ++nth) {  // the node array, then the data block
        hooks_.Fail(nth);
        EXPECT_EQ(Put(id, -1, 3), -1);
        EXPECT_EQ(Values(id), (Ints{1, 2}));
        EXPECT_EQ(Number(GetNumberOfFreeElements, id), 0);
        EXPECT_EQ(ListMemoryInUse(), full);
        EXPECT_EQ(hooks_.live, live);
    }
    hooks_.Fail(0);
    Put(id, 0, 3);
    hooks_.Fail(1);
    EXPECT_EQ(SortList(id, 1, OrderByValue, 1), -1);
    EXPECT_EQ(Put(id, -1, 4), 0);
    EXPECT_EQ(Values(id), (Ints{3, 1, 2, 4}));
}

TEST_F(ListStore, ConcurrentAppendsAndDeletesStayConsistent) {
    ListId id = Make(4);
    constexpr int kThreads = 4, kRounds = 400;
    std::atomic<int> faults{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int r = 0; r < kRounds; ++r) {
                if (Put(id, -1, t * kRounds + r) != 0) ++faults;
                if (r % 2 == 1 && DeleteFirstElement(id, 1) != 0) ++faults;
                if (r % 50 != 0) continue;
                // An iteration under the caller's lock sees exactly the counted elements.
                LockList(id);
                int32_t used = 0, seen = 0;
                GetNumberOfElements(id, &used, 0);
                void* data = nullptr;
                for (GetFirstElement(id, &data, 0); data != nullptr; GetNextElement(id, &data, 0)) {
                    ++seen;
                }
                if (seen != used) ++faults;
                UnlockList(id);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(faults.load(), 0);
    EXPECT_EQ(Values(id).size(), static_cast<size_t>(kThreads * kRounds / 2));
    EXPECT_EQ((Number(GetNumberOfElements, id) + Number(GetNumberOfFreeElements, id)) % 4, 0);
}

}  // namespace
