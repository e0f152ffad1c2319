#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "jobs/list_table.h"
#include "jobs/zlplist.h"
#include "list_test_hooks.h"

namespace {

using namespace vx;

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
    static int Insert(ListId id, int32_t index, int32_t value, int32_t serial = 0) {
        Item item{value, serial, 0};
        return index < 0 ? AppendElement(id, &item, 1) : InsertElementAtIndex(id, index, &item, 1);
    }
    static Item* At(ListId id, int32_t index) {
        void* data = nullptr;
        return GetElementByIndex(id, index, &data, 1) == 0 ? static_cast<Item*>(data) : nullptr;
    }
    static int32_t Used(ListId id) {
        int32_t n = -1;
        EXPECT_EQ(GetNumberOfElements(id, &n, 1), 0);
        return n;
    }
    static int32_t Free(ListId id) {
        int32_t n = -1;
        EXPECT_EQ(GetNumberOfFreeElements(id, &n, 1), 0);
        return n;
    }
    // The values along the cursor; each must also be the element found by its index.
    static std::vector<int32_t> Values(ListId id) {
        std::vector<int32_t> values;
        void* data = nullptr;
        if (GetFirstElement(id, &data, 1) != 0) return values;
        while (data != nullptr) {
            EXPECT_EQ(At(id, static_cast<int32_t>(values.size())), data);
            values.push_back(static_cast<Item*>(data)->value);
            EXPECT_EQ(GetNextElement(id, &data, 1), 0);
        }
        EXPECT_EQ(static_cast<int32_t>(values.size()), Used(id));
        return values;
    }

    vxtest::RecordingHooks hooks_;
    std::vector<ListId> lists_;
};

using Ints = std::vector<int32_t>;

TEST_F(ListStore, NewListsAreFilledLabelledAndCounted) {
    const uint32_t before = ListMemoryInUse();
    ListId id = Make(4, sizeof(Item), 1);
    EXPECT_EQ(ListMemoryInUse() - before, 4 * (sizeof(ListElement) + sizeof(Item)));
    ASSERT_EQ(hooks_.allocations.size(), 3u);
    const char* labels[] = {"ListArray.pHeader", "ListHeader.StartOfElements",
                            "ListHeader.StartOfData"};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(hooks_.allocations[i].source, "zlplist");
        EXPECT_EQ(hooks_.allocations[i].label, labels[i]);
    }
    void* data = &data;
    EXPECT_EQ(GetFirstElement(id, &data, 1), -1);
    EXPECT_EQ(GetNextElement(id, &data, 1), 0);
    EXPECT_EQ(data, nullptr);
    ASSERT_EQ(Insert(id, -1, 7), 0);
    // The three slots behind the only element are untouched fresh memory.
    EXPECT_TRUE(ReadsAsZeroChars(At(id, 0) + 1, 3 * sizeof(Item)));
    EXPECT_EQ(Free(id), 3);

    Make(4);  // not counted
    Make(2, 0);
    EXPECT_EQ(hooks_.allocations.back().size, 2u * kZlpDefaultElementSize);
    EXPECT_EQ(ListMemoryInUse() - before, 4 * (sizeof(ListElement) + sizeof(Item)));
    EXPECT_EQ(ExitList(id), 0);
    EXPECT_EQ(ListMemoryInUse(), before);
}

TEST_F(ListStore, GrowthKeepsElementPointersValid) {
    const uint32_t before = ListMemoryInUse();
    ListId id = Make(1, sizeof(Item), 1);
    std::vector<Item*> taken;
    for (int32_t i = 0; i < 300; ++i) {
        ASSERT_EQ(Insert(id, -1, i, i), 0);
        taken.push_back(At(id, i));
    }
    for (int32_t i = 0; i < 300; ++i) {
        EXPECT_EQ(taken[i]->value, i);
        EXPECT_EQ(At(id, i), taken[i]);
    }
    EXPECT_EQ(Free(id), 512 - 300);
    EXPECT_EQ(ListMemoryInUse() - before, 512 * (sizeof(ListElement) + sizeof(Item)));
    EXPECT_EQ(ExitList(id), 0);
    EXPECT_EQ(ListMemoryInUse(), before);
}

TEST_F(ListStore, InsertAndDeleteRenumber) {
    ListId id = Make(8);
    for (int32_t v = 10; v < 15; ++v) Insert(id, -1, v);
    Item* first = At(id, 0);
    Item* last = At(id, 4);
    ASSERT_EQ(DeleteElementAtIndex(id, 0, 1), 0);
    EXPECT_EQ(Values(id), (Ints{11, 12, 13, 14}));
    EXPECT_EQ(At(id, 3), last);
    EXPECT_TRUE(ReadsAsZeroChars(first, sizeof(Item)));

    EXPECT_EQ(Insert(id, 2, 20), 0);
    EXPECT_EQ(Insert(id, 0, 30), 0);
    EXPECT_EQ(Insert(id, 6, 40), 0);  // index == count appends
    EXPECT_EQ(Insert(id, 8, 50), -1);
    EXPECT_EQ(Values(id), (Ints{30, 11, 12, 20, 13, 14, 40}));
    EXPECT_EQ(DeleteElementAtIndex(id, 3, 1), 0);
    EXPECT_EQ(DeleteElementAtIndex(id, 5, 1), 0);
    EXPECT_EQ(DeleteElementAtIndex(id, 5, 1), -1);
    EXPECT_EQ(DeleteFirstElement(id, 1), 0);
    EXPECT_EQ(Values(id), (Ints{11, 12, 13, 14}));
    EXPECT_EQ(Used(id) + Free(id), 8);
}

TEST_F(ListStore, CursorEndsWithNullAndFailsOnAFreedNode) {
    ListId id = Make(4);
    for (int32_t v = 1; v <= 2; ++v) Insert(id, -1, v);
    void* data = nullptr;
    EXPECT_EQ(GetFirstElement(id, &data, 1), 0);
    EXPECT_EQ(GetNextElement(id, &data, 1), 0);
    EXPECT_EQ(static_cast<Item*>(data)->value, 2);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(GetNextElement(id, &data, 1), 0);
        EXPECT_EQ(data, nullptr);
    }
    EXPECT_EQ(GetFirstElement(id, &data, 1), 0);
    EXPECT_EQ(ClearList(id, 1), 0);
    EXPECT_EQ(GetNextElement(id, &data, 1), -1);
}

TEST_F(ListStore, FindCountDeleteAndReplaceByKey) {
    ListId id = Make(8);
    for (int32_t v : {5, 7, 5, 9, 5}) Insert(id, -1, v);
    const int32_t five = 5, eight = 8;
    int32_t found = 1;
    Item copy{};
    EXPECT_EQ(FindElement(id, MatchValue, &found, &five, &copy, 1), 0);
    EXPECT_EQ(found, 2);
    EXPECT_EQ(copy.value, 5);
    found = 3;
    EXPECT_EQ(FindElement(id, MatchValue, &found, &five, &copy, 1), 0);
    EXPECT_EQ(found, 4);
    found = 0;
    EXPECT_EQ(FindElement(id, MatchValue, &found, &eight, &copy, 1), -1);
    int32_t count = -1;
    EXPECT_EQ(CountElements(id, MatchValue, &count, 0, &five, 1), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(CountElements(id, MatchValue, &count, 3, &five, 1), 0);
    EXPECT_EQ(count, 1);

    Item six{6, 0, 0};
    EXPECT_EQ(DeleteElement(id, MatchValue, &five, 1), 0);
    EXPECT_EQ(ReplaceElement(id, MatchValue, &five, &six, 0), 0);
    EXPECT_EQ(DeleteElement(id, MatchValue, &eight, 0), 0);
    EXPECT_EQ(ReplaceElement(id, MatchValue, &eight, &six, 1), 0);
    EXPECT_EQ(ReplaceElementAtIndex(id, 3, &six, 1), 0);
    EXPECT_EQ(ReplaceElementAtIndex(id, 4, &six, 1), -1);
    EXPECT_EQ(Values(id), (Ints{7, 6, 9, 6}));
}

TEST_F(ListStore, ClearFillsEveryDataBlockAndKeepsCapacity) {
    ListId id = Make(2);
    std::vector<Item*> taken;
    for (int32_t v = 0; v < 13; ++v) {  // blocks of 2, 2, 4 and 8 elements
        Insert(id, -1, v);
        taken.push_back(At(id, v));
    }
    EXPECT_EQ(ClearList(id, 1), 0);
    EXPECT_EQ(Used(id), 0);
    EXPECT_EQ(Free(id), 16);
    for (Item* item : taken) EXPECT_TRUE(ReadsAsZeroChars(item, sizeof(Item)));
    Insert(id, -1, 1);
    Insert(id, 0, 2);
    EXPECT_EQ(Values(id), (Ints{2, 1}));
    EXPECT_EQ(Free(id), 14);
}

TEST_F(ListStore, SortOrdersAscendingAndDataStayInPlace) {
    std::mt19937 random(7);
    std::vector<Ints> inputs = {{}, {4}, {}, {}, Ints(200, 3)};
    for (int i = 0; i < 300; ++i) inputs[0].push_back(static_cast<int32_t>(random() % 20));
    for (int32_t i = 0; i < 100; ++i) inputs[2].push_back(i);
    for (int32_t i = 0; i < 100; ++i) inputs[3].push_back(100 - i);
    for (const Ints& input : inputs) {
        ListId id = Make(4);
        // Built by inserting at the front, so nodes sit in the reverse of their array order.
        for (size_t k = input.size(); k-- > 0;) Insert(id, 0, input[k], static_cast<int32_t>(k));
        std::vector<Item*> taken;
        for (size_t k = 0; k < input.size(); ++k) taken.push_back(At(id, static_cast<int32_t>(k)));
        EXPECT_EQ(SortList(id, 2, OrderByValue, 1), 0);
        EXPECT_EQ(Values(id), input);
        EXPECT_EQ(SortList(id, 1, OrderByValue, 0), 0);
        Ints sorted = input;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(Values(id), sorted);
        std::vector<Item*> now;
        for (size_t k = 0; k < input.size(); ++k) {
            EXPECT_EQ(taken[k]->value, input[k]);
            EXPECT_EQ(taken[k]->serial, static_cast<int32_t>(k));
            now.push_back(At(id, static_cast<int32_t>(k)));
        }
        std::sort(taken.begin(), taken.end());
        std::sort(now.begin(), now.end());
        EXPECT_EQ(now, taken);
        ExitList(id);
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
        SCOPED_TRACE(id);
        EXPECT_EQ(ExitList(id), -1);
        EXPECT_EQ(LockList(id), -1);
        EXPECT_EQ(UnlockList(id), -1);
        EXPECT_EQ(GetElementByIndex(id, 0, &data, 1), -1);
        EXPECT_EQ(GetFirstElement(id, &data, 1), -1);
        EXPECT_EQ(GetNextElement(id, &data, 1), -1);
        EXPECT_EQ(InsertElementAtIndex(id, 0, &item, 1), -1);
        EXPECT_EQ(AppendElement(id, &item, 1), -1);
        EXPECT_EQ(DeleteElementAtIndex(id, 0, 1), -1);
        EXPECT_EQ(DeleteFirstElement(id, 1), -1);
        EXPECT_EQ(DeleteElement(id, MatchValue, &key, 1), -1);
        EXPECT_EQ(ReplaceElementAtIndex(id, 0, &item, 1), -1);
        EXPECT_EQ(ReplaceElement(id, MatchValue, &key, &item, 1), -1);
        EXPECT_EQ(FindElement(id, MatchValue, &n, &key, &item, 1), -1);
        EXPECT_EQ(CountElements(id, MatchValue, &n, 0, &key, 1), -1);
        EXPECT_EQ(GetNumberOfElements(id, &n, 1), -1);
        EXPECT_EQ(GetNumberOfFreeElements(id, &n, 1), -1);
        EXPECT_EQ(ClearList(id, 1), -1);
        EXPECT_EQ(SortList(id, 1, OrderByValue, 1), -1);
    }
}

TEST_F(ListStore, SlotsRunOutAt2048AndTheLowestFreeSlotIsReused) {
    for (int i = 0; i < kZlpListSlots; ++i) ASSERT_EQ(Make(1, 1), i);
    hooks_.Forget();
    ListId extra = kInvalidListId;
    EXPECT_EQ(InitList(1, 1, &extra, 0), -1);
    EXPECT_EQ(hooks_.errors,
              std::vector<std::string>{"InitList: Maximum number of lists 2048 reached\n"});
    ExitList(700);
    ExitList(5);
    EXPECT_EQ(Make(1, 1), 5);
    EXPECT_EQ(Make(1, 1), 700);
}

TEST_F(ListStore, GrowthStopsAtTheDataBlockLimit) {
    ListTableConfig config = ZlpListTableConfig();
    config.maxDataBlocks = 5;  // four growths: 1, 2, 4, 8, 16 elements
    ListTable* table = CreateListTable(config, &hooks_.hooks);
    ListId id = kInvalidListId;
    ASSERT_EQ(TableInitList(table, 1, sizeof(int32_t), &id, 0), 0);
    for (int32_t v = 0; v < 16; ++v) ASSERT_EQ(TableAppendElement(table, id, &v, 1), 0);
    const int32_t more = 16;
    EXPECT_EQ(TableAppendElement(table, id, &more, 1), -1);
    EXPECT_EQ(hooks_.errors, std::vector<std::string>{"iAppendList: No more appends possible\n"});
    int32_t used = 0;
    void* data = nullptr;
    EXPECT_EQ(TableGetNumberOfElements(table, id, &used, 1), 0);
    EXPECT_EQ(used, 16);
    EXPECT_EQ(TableGetElementByIndex(table, id, 15, &data, 1), 0);
    EXPECT_EQ(*static_cast<int32_t*>(data), 15);
    DestroyListTable(table);
}

TEST_F(ListStore, FailedAllocationLeavesEverythingAsItWas) {
    const uint32_t before = ListMemoryInUse();
    for (int nth = 1; nth <= 3; ++nth) {
        hooks_.Fail(nth);
        ListId id = kInvalidListId;
        EXPECT_EQ(InitList(2, sizeof(Item), &id, 1), -1);
        EXPECT_EQ(ListMemoryInUse(), before);
        EXPECT_EQ(hooks_.live, 0);
    }
    hooks_.Fail(0);
    ListId id = Make(2, sizeof(Item), 1);
    EXPECT_EQ(id, 0);  // no slot was lost
    Insert(id, -1, 1);
    Insert(id, -1, 2);
    const uint32_t full = ListMemoryInUse();
    const int live = hooks_.live;
    for (int nth = 1; nth <= 2; ++nth) {
        hooks_.Fail(nth);
        EXPECT_EQ(Insert(id, -1, 3), -1);
        EXPECT_EQ(Values(id), (Ints{1, 2}));
        EXPECT_EQ(Free(id), 0);
        EXPECT_EQ(ListMemoryInUse(), full);
        EXPECT_EQ(hooks_.live, live);
    }
    hooks_.Fail(0);
    Insert(id, 0, 3);
    hooks_.Fail(1);
    EXPECT_EQ(SortList(id, 1, OrderByValue, 1), -1);
    hooks_.Fail(0);
    EXPECT_EQ(Values(id), (Ints{3, 1, 2}));
    EXPECT_EQ(Insert(id, -1, 4), 0);
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
                if (Insert(id, -1, t * kRounds + r) != 0) ++faults;
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
    EXPECT_EQ((Used(id) + Free(id)) % 4, 0);
}

}  // namespace
