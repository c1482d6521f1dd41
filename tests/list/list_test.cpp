// The fixed-pool list, as nothing in the agent uses all of it: a full pool refuses, a
// freed node is taken again with its slot, the sort moves nodes (not records) and keeps
// equal elements in order, and listFree empties the pool.
#include "list/list.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

char slots[4][2];
LIST_NODE pool[4];
LIST list = {nullptr, nullptr, 0, 4, pool, [](int i, void* c) -> void* { return std::memcpy(slots[i], c, 1); }};

// The texts from head to tail, with the links checked both ways.
std::string texts()
{
    std::string out;
    LIST_NODE* last = nullptr;
    for (LIST_NODE* n = list.head; n; last = n, n = n->next) {
        EXPECT_EQ(n->prev, last);
        out += static_cast<char*>(n->data);
    }
    EXPECT_EQ(list.tail, last);
    return out;
}

TEST(List, PoolReuseSortAndFree)
{
    newList(&list);
    for (char c : std::string("cdba")) ASSERT_EQ(c < 'c' ? listAddBegin(&list, &c) : listAddEnd(&list, &c), 1);
    EXPECT_EQ(listAddEnd(&list, slots[0]), 0) << "the pool is full";
    EXPECT_EQ(texts(), "abcd");
    for (int at : {1, 2}) ASSERT_EQ(listRemove(&list, at), 1);  // b (pool[2]), then d (pool[1])
    char a = 'a';
    ASSERT_EQ(listAddEnd(&list, &a), 1);
    EXPECT_EQ(list.tail, &pool[1]);
    EXPECT_EQ(list.tail->data, slots[1]);

    listSort(&list, nullptr);  // by the text at the start of each record
    EXPECT_EQ(texts(), "aac");
    EXPECT_EQ(list.head, &pool[3]) << "the first of two equal elements stays first";
    listSort(&list, [](void* x, void* y) { return *static_cast<char*>(y) - *static_cast<char*>(x); });
    EXPECT_EQ(texts(), "caa");

    listFree(&list);
    EXPECT_EQ(texts(), "");
    for (const LIST_NODE& n : pool) EXPECT_EQ(n.in_use, 0);
}

}  // namespace
