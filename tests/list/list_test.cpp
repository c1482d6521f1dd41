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

using Texts = std::vector<std::string>;

class List : public ::testing::Test {
protected:
    void SetUp() override
    {
        list = {nullptr, nullptr, 0, kCapacity, pool, copy_item};
        newList(&list);
    }

    int add(const char* text, int tag = 0, bool at_end = true)
    {
        Item it{};
        std::strncpy(it.text, text, sizeof it.text - 1);
        it.tag = tag;
        return at_end ? listAddEnd(&list, &it) : listAddBegin(&list, &it);
    }
    void add_all(const Texts& texts)
    {
        for (const auto& t : texts) ASSERT_EQ(add(t.c_str()), 1);
    }
    Item* at(int index) { return static_cast<Item*>(listGet(&list, index)); }

    // The texts from head to tail, checked against the links in both directions.
    Texts texts()
    {
        Texts forward;
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

TEST_F(List, AddsAtBothEndsUntilThePoolIsExhausted)
{
    EXPECT_EQ(add("b"), 1);
    EXPECT_EQ(add("a", 0, false), 1);
    EXPECT_EQ(add("c"), 1);
    EXPECT_EQ(add("z", 0, false), 1);
    EXPECT_EQ(add("d"), 1);
    EXPECT_EQ(add("x"), 0);
    EXPECT_EQ(add("y", 0, false), 0);
    EXPECT_EQ(texts(), (Texts{"z", "a", "b", "c", "d"}));
    EXPECT_STREQ(at(1)->text, "a");
    EXPECT_EQ(at(5), nullptr);
    EXPECT_EQ(at(-1), nullptr);
}

TEST_F(List, FreedNodesAndTheirSlotsAreReused)
{
    add_all({"a", "b", "c", "d", "e"});
    ASSERT_EQ(listRemove(&list, 0), 1);  // node 0, slot 0
    ASSERT_EQ(add("f"), 1);
    EXPECT_EQ(list.tail, &pool[0]);
    EXPECT_EQ(list.tail->data, &slots[0]);
    EXPECT_EQ(texts(), (Texts{"b", "c", "d", "e", "f"}));

    // A node that is not the pool's is left alone.
    LIST_NODE stranger{};
    stranger.in_use = 1;
    FreeNode(&list, &stranger);
    EXPECT_EQ(stranger.in_use, 1);

    listFree(&list);
    EXPECT_EQ(list.head, nullptr);
    for (const LIST_NODE& n : pool) EXPECT_EQ(n.in_use, 0);
    add_all({"1", "2", "3", "4", "5"});
    EXPECT_EQ(texts(), (Texts{"1", "2", "3", "4", "5"}));
}

TEST_F(List, RemovesAtEveryPosition)
{
    add_all({"a", "b", "c", "d", "e"});
    const std::pair<int, Texts> steps[] = {
        {2, {"a", "b", "d", "e"}},  // middle
        {3, {"a", "b", "d"}},       // last
        {0, {"b", "d"}},            // first
        {1, {"b"}},
        {0, {}},                    // the only one
    };
    for (const auto& [index, left] : steps) {
        EXPECT_EQ(listRemove(&list, static_cast<int>(left.size()) + 1), 0) << "past the end";
        EXPECT_EQ(listRemove(&list, -1), 0);
        EXPECT_EQ(listRemove(&list, index), 1) << index;
        EXPECT_EQ(texts(), left);
    }
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(listRemove(&list, 0), 0);  // empty
    for (const LIST_NODE& n : pool) EXPECT_EQ(n.in_use, 0);
}

TEST_F(List, SortIsStableAndAscending)
{
    listSort(&list, nullptr);  // empty: nothing to do
    add("b", 1);
    add("a", 2);
    add("b", 3);
    auto tags = [this] {
        std::vector<int> order;
        for (int i = 0; i < list.count; ++i) order.push_back(at(i)->tag);
        return order;
    };
    listSort(&list, nullptr);  // by the text at the start of each record
    EXPECT_EQ(texts(), (Texts{"a", "b", "b"}));
    EXPECT_EQ(tags(), (std::vector<int>{2, 1, 3}));

    listSort(&list, [](void* a, void* b) {  // by tag, descending
        return static_cast<Item*>(b)->tag - static_cast<Item*>(a)->tag;
    });
    EXPECT_EQ(tags(), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(list.head, &pool[2]);  // nodes moved, records did not
    EXPECT_EQ(list.tail, &pool[0]);
    texts();  // links consistent both ways
}

}  // namespace
