#include "storage/cleanup.h"

#include <cstring>

LIST_NODE cu_xNodes[kCleanupCapacity];
CLEANUP_ITEM cuArray[2048];
LIST cu_xlist = {nullptr, nullptr, 0, kCleanupCapacity, cu_xNodes, CopyCleanupListNodeData};
LIST* cleanupList = &cu_xlist;

int g_cleanup_trigger_free_pct = 30;
int g_tried_cleanup = 0;

char mem_chunk[kMemChunkSize];
int mem_chunk_offset;

void* CopyCleanupListNodeData(int index, void* item)
{
    std::memcpy(&cuArray[index], item, sizeof(CLEANUP_ITEM));
    return &cuArray[index];
}

// Not written yet: nothing is deleted.
int cleanup_get_files(LIST*, int, CLEANUP_SCAN* scan)
{
    *scan = {};
    return -1;
}
int cleanup_disk(DRAVIK_CONTENT*, const char*, int, CLEANUP_RESULTS* results)
{
    *results = {};
    return -1;
}
void process_cleanup(DRAVIK_CONTENT*) {}
