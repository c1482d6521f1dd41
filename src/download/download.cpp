#include "download/download.h"

#include <cstring>

LIST_NODE xNodes[kDownloadCapacity];
DOWNLOAD_ITEM diArray[kDownloadCapacity];
LIST s_xlist = {nullptr, nullptr, 0, kDownloadCapacity, xNodes, CopyNodeData};
LIST* XLIST = &s_xlist;

int g_priority_count;
DRAVIK_SERVER_ITEM g_servers[kMaxServers];
int g_servers_count;
ACTIVE_DOWNLOAD gActiveDownload;
pthread_t file_dl_thread;
CONTENT_DL_STATUS gContentDLStatus;

void* CopyNodeData(int index, void* item)
{
    std::memcpy(&diArray[index], item, sizeof(DOWNLOAD_ITEM));
    return &diArray[index];
}

// Not written yet: the queue stays empty and nothing is ever downloading.
void download_init(void) { newList(XLIST); }
void download_clear_download_list(void) { newList(XLIST); }
void clear_active_download(void) { gActiveDownload = {}; }
void download_set_servers(DRAVIK_CONTENT*) {}
int download_add_file(const char*, int, int, int, int) { return 0; }
void download_start(START_DL_RESULT* result, int (*)(char*, unsigned long long))
{
    *result = {DL_LIST_EMPTY, 0, 0};
}
void download_process(PROCESS_DL_RESULT* result) { *result = {PROCESS_DL_IN_PROGRESS, 0, 0}; }
int download_in_progress(void) { return 0; }
int download_pending_count(void) { return 0; }
int download_priority_count(void) { return 0; }
void stop_media_download(void) {}
int replace_str(char*, int, const char*, const char*) { return 0; }
void fix_spaces(char* dst, const char*, int size)
{
    if (size > 0) dst[0] = '\0';
}
int content_process_downloads(DRAVIK_CONTENT*, PL_EVENT*, CONTENT_DL_STATUS* dls)
{
    *dls = {};
    return 0;
}
int pre_download_start(char*, unsigned long long) { return 0; }
void process_download_check(void) {}
