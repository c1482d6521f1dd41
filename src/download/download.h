#pragma once
// The download queue and manager: files the content needs and the disk lacks, one
// transfer at a time, priority files first, checked by size (web pages also by MD5).
//
//   download_init                 once at start-up
//   content_process_downloads     rebuild the queue from the content (content check)
//   process_download_check        the main loop's download step
//   download_in_progress          nonzero while a transfer is in hand
//   download_start, download_process, download_add_file ...   the manager's steps
#include <cstdint>
#include <pthread.h>

#include "list/list.h"
#include "schedule/content.h"
#include "xml/dravikAPI.h"

struct DOWNLOAD_ITEM {
    int full_url;   // nonzero: `name` is the whole URL
    int server_id;  // index into g_servers
    char name[256];
    std::int64_t fsize;  // 0: unknown
    int priority;
    int errors;  // failed attempts since the queue was built
    int type;    // 0 video, 1 picture, 2 web page, 3 decided from the name
};

enum START_DL_STATUS {
    DL_STARTED = 0,
    DL_BUSY = 1,
    DL_LIST_EMPTY = 2,
    DL_OUT_OF_MEMORY = 3,
    DL_TOO_MANY_ERRORS = 4,
    DL_DENIED_BY_CALLER = 5,
};

struct START_DL_RESULT {
    START_DL_STATUS dlstat;
    int free_space_before;  // percent
    int free_space_after;   // percent expected after the file; -1 for an unknown size
};

enum PROCESS_DL_STATUS {
    PROCESS_DL_IN_PROGRESS = 0,
    PROCESS_DL_COMPLETE_SUCCESS = 1,
    PROCESS_DL_ERROR = 2,
};

struct PROCESS_DL_RESULT {
    PROCESS_DL_STATUS stat;
    int last_priority_file;  // 1: the last priority file has just arrived
    int error_code;          // the transfer's code on an error
};

// The transfer in hand.
struct ACTIVE_DOWNLOAD {
    int active;
    int reserved;  // always 0
    int type;      // the resolved media type
    int reserved2;
    DOWNLOAD_ITEM item;
};

constexpr int kDownloadCapacity = 200;

extern LIST s_xlist;
extern LIST* XLIST;
extern LIST_NODE xNodes[kDownloadCapacity];
extern DOWNLOAD_ITEM diArray[kDownloadCapacity];

extern int g_priority_count;  // priority files queued and not yet completed
extern DRAVIK_SERVER_ITEM g_servers[kMaxServers];
extern int g_servers_count;
extern ACTIVE_DOWNLOAD gActiveDownload;
extern pthread_t file_dl_thread;
extern CONTENT_DL_STATUS gContentDLStatus;  // of the content in force, kept by the content check

void* CopyNodeData(int index, void* item);
void download_init(void);
void download_clear_download_list(void);
void clear_active_download(void);
void download_set_servers(DRAVIK_CONTENT* pContent);
int download_add_file(const char* name, int fsize, int server_id, int priority, int type);
void download_start(START_DL_RESULT* result, int (*pre_start)(char* fname, unsigned long long fsize));
void download_process(PROCESS_DL_RESULT* result);
int download_in_progress(void);
int download_pending_count(void);
int download_priority_count(void);
void stop_media_download(void);
// Replaces the first `token` in `str` (a buffer of `size` bytes) with `value`; 1 if
// replaced, 0 if the token is absent or the result would not fit (str unchanged).
int replace_str(char* str, int size, const char* token, const char* value);
void fix_spaces(char* dst, const char* src, int size);
int content_process_downloads(DRAVIK_CONTENT* pContent, PL_EVENT* ev, CONTENT_DL_STATUS* dls);
int pre_download_start(char* fname, unsigned long long fsize);
void process_download_check(void);
