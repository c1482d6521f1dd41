// The fixed-pool list: pool exhaustion and reuse, removal at every position, sorting.
#include "list/list.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct Item {
    char text[8];
    int tag;
};

constexpr int kCapacity = 5;
Item slots[kCapacity];
LIST_NODE pool[kCapacity];

void* copy_item(int index, void* record)
{
    std::memcpy(&slots[index], record, sizeof(Item));
    return &slots[index];
}

class List : public ::testing::Test {
protected:
    void SetUp() override
    {
        list = {nullptr, nullptr, 0, kCapacity, pool, copy_item};
        newList(&list);
    }

    Item item(const char* text, int tag = 0)
    {
        Item it{};
        std::strncpy(it.text, text, sizeof it.text - 1);
        it.tag = tag;
        return it;
    }
    int add_end(const char* text, int tag = 0)
    {
        Item it = item(text, tag);
        return listAddEnd(&list, &it);
    }
    int add_begin(const char* text, int tag = 0)
    {
        Item it = item(text, tag);
        return listAddBegin(&list, &it);
    }

    // The texts from head to tail, checked against the links in both directions.
    std::vector<std::string> texts()
    {
        std::vector<std::string> forward;
        LIST_NODE* last = nullptr;
        for (LIST_NODE* n = list.head; n; n = n->next) {
            EXPECT_EQ(n->prev, last);
            EXPECT_EQ(n->in_use, 1);
            forward.emplace_back(static_cast<Item*>(n->data)->text);
            last = n;
        }
        EXPECT_EQ(list.tail, last);
        EXPECT_EQ(static_cast<int>(forward.size()), list.count);
        return forward;
    }

    LIST list{};
};

using Texts = std::vector<std::string>;

TEST_F(List, AddsAtBothEndsUntilThePoolIsExhausted)
{
    EXPECT_EQ(add_end("b"), 1);
    EXPECT_EQ(add_begin("a"), 1);
    EXPECT_EQ(add_end("c"), 1);
    EXPECT_EQ(add_begin("z"), 1);
    EXPECT_EQ(add_end("d"), 1);
    EXPECT_EQ(texts(), (Texts{"z", "a", "b", "c", "d"}));

    EXPECT_EQ(add_end("x"), 0);
    EXPECT_EQ(add_begin("y"), 0);
    EXPECT_EQ(texts(), (Texts{"z", "a", "b", "c", "d"}));
    EXPECT_EQ(listSize(&list), kCapacity);
}

TEST_F(List, ZeroCapacityTakesNothing)
{
    list.capacity = 0;
    Item it = item("a");
    EXPECT_EQ(CreateNode(&list, &it), nullptr);
    EXPECT_EQ(listAddEnd(&list, &it), 0);
    EXPECT_EQ(list.count, 0);
}

TEST_F(List, RemovedNodeAndItsSlotAreReusedFirst)
{
    for (const char* t : {"a", "b", "c", "d", "e"}) add_end(t);
    ASSERT_EQ(listRemove(&list, 0), 1);  // node 0, slot 0
    EXPECT_EQ(std::string(slots[0].text), "a");  // the slot keeps its contents
    ASSERT_EQ(add_end("f"), 1);
    EXPECT_EQ(list.tail, &pool[0]);
    EXPECT_EQ(list.tail->data, &slots[0]);
    EXPECT_EQ(texts(), (Texts{"b", "c", "d", "e", "f"}));
}

TEST_F(List, RemovesAtEveryPosition)
{
    for (const char* t : {"a", "b", "c", "d", "e"}) add_end(t);
    EXPECT_EQ(listRemove(&list, 2), 1);  // middle
    EXPECT_EQ(texts(), (Texts{"a", "b", "d", "e"}));
    EXPECT_EQ(listRemove(&list, 3), 1);  // last
    EXPECT_EQ(texts(), (Texts{"a", "b", "d"}));
    EXPECT_EQ(listRemove(&list, 0), 1);  // first
    EXPECT_EQ(texts(), (Texts{"b", "d"}));
    EXPECT_EQ(listRemove(&list, 2), 0);  // at count: out of range
    EXPECT_EQ(listRemove(&list, -1), 0);
    EXPECT_EQ(listRemove(&list, 1), 1);
    EXPECT_EQ(listRemove(&list, 0), 1);  // the only one
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(listRemove(&list, 0), 0);  // empty
    for (const LIST_NODE& n : pool) EXPECT_EQ(n.in_use, 0);
}

TEST_F(List, GetsByPosition)
{
    for (const char* t : {"a", "b", "c"}) add_end(t);
    EXPECT_EQ(std::string(static_cast<Item*>(listGet(&list, 1))->text), "b");
    EXPECT_EQ(list_get(&list, 2), list.tail);
    EXPECT_EQ(listGet(&list, -1), nullptr);
    EXPECT_EQ(listGet(&list, 3), nullptr);
}

TEST_F(List, FreeEmptiesTheListAndThePool)
{
    for (const char* t : {"a", "b", "c", "d"}) add_end(t);
    listFree(&list);
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.head, nullptr);
    for (const LIST_NODE& n : pool) EXPECT_EQ(n.in_use, 0);
    EXPECT_EQ(add_end("e"), 1);
    EXPECT_EQ(texts(), (Texts{"e"}));
}

TEST_F(List, FreeNodeIgnoresForeignPointers)
{
    add_end("a");
    LIST_NODE stranger{};
    stranger.in_use = 1;
    FreeNode(&list, &stranger);
    FreeNode(&list, nullptr);
    EXPECT_EQ(stranger.in_use, 1);
    EXPECT_EQ(pool[0].in_use, 1);
}

TEST_F(List, SortIsStableAndAscendingByLeadingText)
{
    add_end("b", 1);
    add_end("a", 2);
    add_end("b", 3);
    listSort(&list, nullptr);
    EXPECT_EQ(texts(), (Texts{"a", "b", "b"}));
    EXPECT_EQ(static_cast<Item*>(listGet(&list, 1))->tag, 1);
    EXPECT_EQ(static_cast<Item*>(listGet(&list, 2))->tag, 3);
}

TEST_F(List, SortWithACompareFunctionRelinksHeadAndTail)
{
    int tags[] = {5, 3, 4, 1, 2};
    for (int t : tags) add_end("x", t);
    LIST_NODE* first_node = list.head;
    listSort(&list, [](void* a, void* b) {
        return static_cast<Item*>(a)->tag - static_cast<Item*>(b)->tag;
    });
    std::vector<int> order;
    for (LIST_NODE* n = list.head; n; n = n->next) order.push_back(static_cast<Item*>(n->data)->tag);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4, 5}));
    EXPECT_EQ(list.tail, first_node);  // nodes moved, records did not
    texts();                           // links consistent both ways
}

TEST_F(List, SortOfFewerThanTwoChangesNothing)
{
    listSort(&list, nullptr);
    EXPECT_EQ(list.head, nullptr);
    add_end("a");
    listSort(&list, nullptr);
    EXPECT_EQ(texts(), (Texts{"a"}));
}

}  // namespace
