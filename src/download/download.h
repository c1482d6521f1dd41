#pragma once
// The download queue and manager: files the content needs and the disk lacks, one
// transfer at a time, priority files first.
//
//   download_init                 once at start-up
//   content_process_downloads     rebuild the queue from the content (content check)
//   process_download_check        the main loop's download step
//   download_in_progress          nonzero while a transfer is in hand
#include <cstdint>

#include "content/content.h"
#include "list/list.h"

struct DOWNLOAD_ITEM {
    int full_url;   // nonzero: `name` is the whole URL
    int server_id;  // index into g_servers
    char name[256];
    std::int64_t fsize;  // 0: unknown
    int priority;
    int errors;  // failed attempts since the queue was built
    int type;    // 0 video, 1 picture, 2 web page, 3 decided from the name
};

constexpr int kDownloadCapacity = 200;

extern LIST s_xlist;
extern LIST* XLIST;
extern LIST_NODE xNodes[kDownloadCapacity];
extern DOWNLOAD_ITEM diArray[kDownloadCapacity];

void* CopyNodeData(int index, void* item);
void download_init(void);
int download_in_progress(void);
int content_process_downloads(DRAVIK_CONTENT* pContent, PL_EVENT* ev, CONTENT_DL_STATUS* dls);
void process_download_check(void);
