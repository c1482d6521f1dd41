#pragma once
// Disk cleanup: deletes media that neither the content in force nor the playing
// playlist refers to, and adapts the free-space trigger to what it achieved.
//
//   process_cleanup(content)    towards 50 % free; adapts g_cleanup_trigger_free_pct
//   cleanup_disk, cleanup_get_files
#include <cstdint>

#include "list/list.h"
#include "xml/dravikAPI.h"

struct CLEANUP_ITEM {
    int type;    // 0 a file of /mnt/hd4/video, 1 of /mnt/hd4/picture
    int sizeKB;
    char* name;  // bare name, kept in mem_chunk
};

struct CLEANUP_RESULTS {
    std::uint32_t freeKB_before;
    std::uint32_t freeKB_after;
    int free_pct_before;
    int free_pct_after;
    int files_deleted;
};

constexpr int kCleanupCapacity = 512;

// The playing playlist's media, one bare name a line: written by the playlist module
// whenever it starts a playlist, read here to spare those files while new content
// waits to take over.
constexpr const char* kPlayingMediaList = "/tmp/currentpl";

// The cleanup candidates. The slot array is four times the pool on purpose; only the
// first 512 slots are ever used.
extern LIST cu_xlist;
extern LIST* cleanupList;
extern LIST_NODE cu_xNodes[kCleanupCapacity];
extern CLEANUP_ITEM cuArray[2048];

extern int g_cleanup_trigger_free_pct;  // a download that leaves less free asks for a cleanup
extern int g_tried_cleanup;

// The name arena: candidates' names, appended with their terminators, reset by every
// cleanup_disk run.
constexpr int kMemChunkSize = 512000;
extern char mem_chunk[kMemChunkSize];
extern int mem_chunk_offset;

// What a scan of one media folder found.
struct CLEANUP_SCAN {
    int totalKB;        // size of the files added
    int stopped_early;  // 1: no room left for more candidates
};

void* CopyCleanupListNodeData(int index, void* item);
int cleanup_get_files(LIST* list, int type, CLEANUP_SCAN* scan);
int cleanup_disk(DRAVIK_CONTENT* pContent, const char* saved_content_id, int target_pct,
                 CLEANUP_RESULTS* results);
void process_cleanup(DRAVIK_CONTENT* pContent);
