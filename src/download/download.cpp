#include "download/download.h"

#include <cstring>

LIST_NODE xNodes[kDownloadCapacity];
DOWNLOAD_ITEM diArray[kDownloadCapacity];
LIST s_xlist = {nullptr, nullptr, 0, kDownloadCapacity, xNodes, CopyNodeData};
LIST* XLIST = &s_xlist;

void* CopyNodeData(int index, void* item)
{
    std::memcpy(&diArray[index], item, sizeof(DOWNLOAD_ITEM));
    return &diArray[index];
}

// Not written yet: the queue stays empty and nothing is ever downloading.
void download_init(void) { newList(XLIST); }
int download_in_progress(void) { return 0; }
int content_process_downloads(DRAVIK_CONTENT*, PL_EVENT*, CONTENT_DL_STATUS* dls)
{
    *dls = {};
    return 0;
}
void process_download_check(void) {}
