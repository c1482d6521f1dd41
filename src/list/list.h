#pragma once
// Doubly linked lists that never allocate: each list is handed a fixed pool of nodes,
// its user's fixed array of element slots and a copy function. Node i always owns
// element slot i, so a slot is reused with its node and never freed or cleared.
//
//   newList, CreateNode, FreeNode, listFree
//   listAddBegin, listAddEnd, listRemove      1 done, 0 pool full / out of range
//   list_get (node), listGet (element), listSize, listSort (stable, ascending)

struct LIST_NODE {
    void* data;  // element slot with the same index as the node
    LIST_NODE* next;
    LIST_NODE* prev;
    int in_use;  // 0 free, 1 linked
};

// Copies `record` into element slot `index` and returns the slot's address.
using LIST_COPY_FN = void* (*)(int index, void* record);

struct LIST {
    LIST_NODE* head;
    LIST_NODE* tail;
    int count;
    int capacity;
    LIST_NODE* nodes;  // pool of `capacity` nodes
    LIST_COPY_FN copy;
};

// `capacity`, `nodes` and `copy` must be set before; they are kept.
void newList(LIST* list);
LIST_NODE* CreateNode(LIST* list, void* record);
void FreeNode(LIST* list, LIST_NODE* node);
int listAddBegin(LIST* list, void* record);
int listAddEnd(LIST* list, void* record);
LIST_NODE* list_get(LIST* list, int index);
void* listGet(LIST* list, int index);
int listSize(LIST* list);
int listRemove(LIST* list, int index);
void listFree(LIST* list);
// Without `compare`, elements are ordered by the text at the start of each record.
void listSort(LIST* list, int (*compare)(void* a, void* b));
void listSwap(void);
