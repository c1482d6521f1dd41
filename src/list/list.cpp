#include "list/list.h"

#include <cstring>

void newList(LIST* list)
{
    list->head = nullptr;
    list->tail = nullptr;
    list->count = 0;
    for (int i = 0; i < list->capacity; ++i) list->nodes[i].in_use = 0;
}

LIST_NODE* CreateNode(LIST* list, void* record)
{
    for (int i = 0; i < list->capacity; ++i) {
        LIST_NODE* node = &list->nodes[i];
        if (node->in_use) continue;
        node->data = list->copy(i, record);
        node->next = nullptr;
        node->prev = nullptr;
        node->in_use = 1;
        return node;
    }
    return nullptr;
}

void FreeNode(LIST* list, LIST_NODE* node)
{
    if (node == nullptr) return;
    for (int i = 0; i < list->capacity; ++i) {
        if (&list->nodes[i] == node) {
            node->in_use = 0;
            return;
        }
    }
}

int listAddBegin(LIST* list, void* record)
{
    LIST_NODE* node = CreateNode(list, record);
    if (node == nullptr) return 0;
    node->prev = nullptr;
    node->next = list->head;
    if (list->head) list->head->prev = node;
    else list->tail = node;
    list->head = node;
    list->count++;
    return 1;
}

int listAddEnd(LIST* list, void* record)
{
    LIST_NODE* node = CreateNode(list, record);
    if (node == nullptr) return 0;
    node->next = nullptr;
    node->prev = list->tail;
    if (list->tail) list->tail->next = node;
    else list->head = node;
    list->tail = node;
    list->count++;
    return 1;
}

LIST_NODE* list_get(LIST* list, int index)
{
    if (index < 0 || index >= list->count) return nullptr;
    LIST_NODE* node = list->head;
    for (int i = 0; i < index && node; ++i) node = node->next;
    return node;
}

void* listGet(LIST* list, int index)
{
    LIST_NODE* node = list_get(list, index);
    return node ? node->data : nullptr;
}

int listSize(LIST* list) { return list->count; }

int listRemove(LIST* list, int index)
{
    LIST_NODE* node = list_get(list, index);
    if (node == nullptr) return 0;
    if (list->count == 1) {
        list->head = nullptr;
        list->tail = nullptr;
    } else if (index == list->count - 1) {
        list->tail = node->prev;
        list->tail->next = nullptr;
    } else if (index == 0) {
        list->head = node->next;
        list->head->prev = nullptr;
    } else {
        node->prev->next = node->next;
        node->next->prev = node->prev;
    }
    node->next = nullptr;
    node->prev = nullptr;
    FreeNode(list, node);
    list->count--;
    return 1;
}

void listFree(LIST* list)
{
    for (int n = list->count; n > 0; --n) listRemove(list, 0);
    FreeNode(list, list->head);
    FreeNode(list, list->tail);
}

namespace {

// Exchanges the neighbouring nodes a and b (a directly before b) in the chain.
void swap_neighbours(LIST* list, LIST_NODE* a, LIST_NODE* b)
{
    LIST_NODE* before = a->prev;
    LIST_NODE* after = b->next;
    if (before) before->next = b;
    else list->head = b;
    if (after) after->prev = a;
    else list->tail = a;
    b->prev = before;
    b->next = a;
    a->prev = b;
    a->next = after;
}

}  // namespace

void listSort(LIST* list, int (*compare)(void* a, void* b))
{
    int n = list->count;
    if (n < 2) return;
    // A bubble sort that relinks nodes; equal elements never swap, so it is stable.
    for (int p = 0; p <= n - 2; ++p) {
        for (int j = 1; j <= n - 1 - p; ++j) {
            LIST_NODE* a = list_get(list, j - 1);
            LIST_NODE* b = list_get(list, j);
            if (a == nullptr || b == nullptr) return;
            int order = compare ? compare(a->data, b->data)
                                : std::strcmp(static_cast<const char*>(a->data),
                                              static_cast<const char*>(b->data));
            if (order > 0) swap_neighbours(list, a, b);
        }
    }
}

void listSwap(void) {}
