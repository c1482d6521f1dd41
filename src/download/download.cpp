#include "download/download.h"

#include <cstdio>
#include <cstring>
#include <strings.h>

#include "core/text.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/wget.h"
#include "schedule/player_state.h"
#include "storage/cleanup.h"
#include "storage/pelk_file.h"

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

namespace {

// A free-space margin every start keeps, in KB.
constexpr unsigned long long kMarginKB = 30000;

int clamp_count(int count, int capacity)
{
    if (count < 0) return 0;
    return count < capacity ? count : capacity;
}

// The queue's header holds its pool and copy function from the start; emptying it is
// all a set-up needs.
void set_up_queue()
{
    newList(XLIST);
    g_priority_count = 0;
}

// The first queued item called `name` and its position, or nullptr.
DOWNLOAD_ITEM* find_queued(const char* name, int* position)
{
    int index = 0;
    for (LIST_NODE* node = XLIST->head; node != nullptr; node = node->next, ++index) {
        auto* item = static_cast<DOWNLOAD_ITEM*>(node->data);
        if (std::strncmp(item->name, name, sizeof item->name) == 0) {
            *position = index;
            return item;
        }
    }
    return nullptr;
}

// Whether a file of the content is on the disk, complete: by its size, and a web page
// also by the first four characters of its MD5 digest. Files are stored under their
// bare names, so that is what is digested.
bool on_disk(const DRAVIK_FILE_ITEM& file)
{
    unsigned long long size = 0;
    if (!check_file_exists(file.fname, &size, file.type)) return false;
    if ((size >> 32) != 0 || static_cast<std::uint32_t>(size) != file.fsize) return false;
    if (file.type != 2) return true;
    char digest[34];
    if (!get_md5sum(digest, get_file_name(file.fname), 2) || file.md5[0] == '\0') return false;
    // md5sum writes lower case; a document may not. Either way it is the same digest.
    return strncasecmp(digest, file.md5, 4) == 0;
}

// Whether file `findex` is played by the scheduled playlist, or else shown by the
// scheduled layout.
bool needed_now(const DRAVIK_CONTENT* content, const PL_EVENT* ev, int findex)
{
    if (ev->currentPL >= 0 && ev->currentPL < clamp_count(content->plcount, kMaxPlaylists)) {
        const DRAVIK_PLAYLIST& pl = content->playlists[ev->currentPL];
        for (int i = 0; i < clamp_count(pl.itemCount, kMaxPlaylistItems); ++i)
            if (pl.PlItems[i].findex == findex) return true;
    }
    if (ev->currentLayout >= 0 &&
        ev->currentLayout < clamp_count(content->layoutcount, kMaxLayouts)) {
        const DRAVIK_LAYOUT& lo = content->layouts[ev->currentLayout];
        for (int i = 0; i < clamp_count(lo.fileCount, kMaxLayoutFiles); ++i)
            if (lo.layoutFiles[i].findex == findex) return true;
    }
    return false;
}

// Whether every entry's file is on the disk. An entry naming a file the document does
// not have can never be complete.
template <typename Entry>
unsigned char all_on_disk(const Entry* entries, int count, const CONTENT_DL_STATUS* dls,
                          int filecount)
{
    for (int i = 0; i < count; ++i) {
        int f = entries[i].findex;
        if (f < 0 || f >= filecount || !dls->FileFlag[f]) return 0;
    }
    return 1;
}

// The address of a queued file: its server's address with the tokens filled in, each
// at its first place only and in this order; or the name itself for a full URL.
void build_url(char (&url)[512], const DOWNLOAD_ITEM& item)
{
    if (item.full_url) {
        copy_text(url, text_of(item.name));
        return;
    }
    if (item.server_id >= 0 && item.server_id < g_servers_count) {
        copy_text(url, text_of(g_servers[item.server_id].address));
    } else {
        // Entries past the count may hold a previous document's servers.
        std::printf("download: %s names server %d, which the content does not have\n",
                    item.name, item.server_id);
        url[0] = '\0';
    }
    replace_str(url, sizeof url, "$MAC$", mac_address());
    replace_str(url, sizeof url, "$FILE$", item.name);
    replace_str(url, sizeof url, "$DCMSERVER$", dcm_server());
}

void start_transfer_thread()
{
    g_stopFileDownload = 0;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    int ret = pthread_create(&file_dl_thread, &attr, ftp_file_to_hd, nullptr);
    pthread_attr_destroy(&attr);
    if (ret != 0) {
        // No thread will ever report: report a failed transfer in its place, so the file
        // is marked and the queue moves on.
        std::printf("download: the transfer thread could not be started, ret = %d\n", ret);
        status.code = 134;
    }
}

}  // namespace

void* CopyNodeData(int index, void* item)
{
    std::memcpy(&diArray[index], item, sizeof(DOWNLOAD_ITEM));
    return &diArray[index];
}

void download_init(void)
{
    clear_active_download();
    status.auth[0] = '\0';
    status.url[0] = '\0';
    status.fname[0] = '\0';
    status.code = 0;
    status.media_index = 0;
    set_up_queue();
}

void download_clear_download_list(void) { set_up_queue(); }

void clear_active_download(void)
{
    gActiveDownload.active = 0;
    gActiveDownload.reserved = 0;
    gActiveDownload.type = 0;
    gActiveDownload.item.full_url = 0;
    gActiveDownload.item.name[0] = '\0';
    gActiveDownload.item.fsize = 0;
}

void download_set_servers(DRAVIK_CONTENT* pContent)
{
    g_servers_count = clamp_count(pContent->servercount, kMaxServers);
    for (int i = 0; i < g_servers_count; ++i) g_servers[i] = pContent->servers[i];
}

int download_add_file(const char* name, int fsize, int server_id, int priority, int type)
{
    DOWNLOAD_ITEM item{};
    item.full_url = 0;
    item.server_id = server_id;
    copy_text(item.name, name ? name : "");
    item.fsize = fsize;  // sign-extended: a size of 2 GiB or more reads as too big
    item.priority = priority;
    item.errors = 0;
    item.type = type;
    // Priority files go to the head, so they come out in the reverse of their order in
    // the content, ahead of every other file. The count rises even when the queue is
    // full, as it always has.
    if (priority) {
        g_priority_count++;
        return listAddBegin(XLIST, &item);
    }
    return listAddEnd(XLIST, &item);
}

void download_start(START_DL_RESULT* result, int (*pre_start)(char* fname, unsigned long long fsize))
{
    FREESPACE_RESULTS fs{};
    get_free_space(&fs);  // an unmeasurable disk reads as full: only unknown sizes start
    result->free_space_before = fs.free_percent;
    result->free_space_after = fs.free_percent;
    if (listSize(XLIST) == 0) {
        result->dlstat = DL_LIST_EMPTY;
        return;
    }
    if (status.code == 255) {
        result->dlstat = DL_BUSY;
        return;
    }
    clear_active_download();

    // The first file that has not failed and fits with the margin to spare. When none
    // is taken, the last one looked at decides the outcome: too big, or failed.
    DOWNLOAD_ITEM* taken = nullptr;
    bool too_big = false;
    for (LIST_NODE* node = XLIST->head; node != nullptr; node = node->next) {
        too_big = false;
        auto* item = static_cast<DOWNLOAD_ITEM*>(node->data);
        if (item == nullptr || item->errors != 0) continue;
        if (item->fsize == 0) {  // unknown: always tried
            taken = item;
            result->free_space_after = -1;
            break;
        }
        unsigned long long sizeKB = static_cast<unsigned long long>(item->fsize) >> 10;
        if (sizeKB + kMarginKB <= fs.freeKB) {
            taken = item;
            unsigned long long allMB = fs.allKB / 1024;
            result->free_space_after =
                allMB ? static_cast<int>((fs.freeKB - sizeKB) / 1024 * 100 / allMB) : 0;
            break;
        }
        too_big = true;
    }
    if (taken == nullptr) {
        result->dlstat = too_big ? DL_OUT_OF_MEMORY : DL_TOO_MANY_ERRORS;
        return;
    }
    if (pre_start && pre_start(taken->name, static_cast<unsigned long long>(taken->fsize)) != 0) {
        result->dlstat = DL_DENIED_BY_CALLER;
        return;
    }

    gActiveDownload.active = 1;
    gActiveDownload.reserved = 0;
    gActiveDownload.type = taken->type == 3 ? guess_file_type(taken->name) : taken->type;
    gActiveDownload.item = *taken;
    result->dlstat = DL_STARTED;

    status.media_index = gActiveDownload.type == 1 ? 2 : gActiveDownload.type == 2 ? 4 : 0;
    char url[512];
    build_url(url, *taken);
    fix_spaces(status.url, url, sizeof status.url);
    copy_text(status.fname, get_file_name(taken->name));
    status.auth[0] = '\0';
    start_transfer_thread();
}

void download_process(PROCESS_DL_RESULT* result)
{
    result->stat = PROCESS_DL_IN_PROGRESS;
    result->last_priority_file = 0;
    result->error_code = 0;
    int code = status.code;
    if (code == 255) return;
    if (!gActiveDownload.active) return;
    gActiveDownload.active = 0;

    // Matched by name: the queue may have been rebuilt while the file was on its way.
    int position = 0;
    DOWNLOAD_ITEM* item = find_queued(gActiveDownload.item.name, &position);
    if (code == 1) {
        if (item != nullptr) {
            bool priority = item->priority != 0;
            listRemove(XLIST, position);
            if (priority && g_priority_count != 0 && --g_priority_count == 0)
                result->last_priority_file = 1;
        }
        result->stat = PROCESS_DL_COMPLETE_SUCCESS;
        return;
    }
    // Not tried again until the next content check rebuilds the queue.
    result->stat = PROCESS_DL_ERROR;
    result->error_code = code;
    if (item != nullptr) item->errors++;
}

int download_in_progress(void) { return gActiveDownload.active; }
int download_pending_count(void) { return listSize(XLIST); }
int download_priority_count(void) { return g_priority_count; }
void stop_media_download(void) { g_stopFileDownload = 1; }

int replace_str(char* str, int size, const char* token, const char* value)
{
    std::size_t token_len = std::strlen(token);
    if (token_len == 0 || size <= 0) return 0;
    char* at = std::strstr(str, token);
    if (at == nullptr) return 0;
    std::size_t len = std::strlen(str);
    std::size_t value_len = std::strlen(value);
    if (len - token_len + value_len >= static_cast<std::size_t>(size)) return 0;
    // Move the tail (with its terminator) into place, then write the value.
    std::memmove(at + value_len, at + token_len, len - (at - str) - token_len + 1);
    std::memcpy(at, value, value_len);
    return 1;
}

void fix_spaces(char* dst, const char* src, int size)
{
    if (size <= 0) return;
    int n = 0;
    for (; n < size - 1 && src[n] != '\0'; ++n) dst[n] = src[n] == ' ' ? '+' : src[n];
    dst[n] = '\0';
}

int content_process_downloads(DRAVIK_CONTENT* pContent, PL_EVENT* ev, CONTENT_DL_STATUS* dls)
{
    *dls = {};
    copy_text(dls->contentID, text_of(pContent->id));
    download_clear_download_list();
    download_set_servers(pContent);

    int filecount = clamp_count(pContent->filecount, kMaxFiles);
    for (int i = 0; i < filecount; ++i) {
        const DRAVIK_FILE_ITEM& file = pContent->files[i];
        if (on_disk(file)) {
            dls->FileFlag[i] = 1;
            continue;
        }
        int priority = needed_now(pContent, ev, i) ? 1 : 0;
        if (priority) dls->dlcount_current_pl++;
        // Counted even when the queue is full and the file is not queued.
        dls->dlcount++;
        download_add_file(file.fname, static_cast<int>(file.fsize), file.server_id, priority,
                          file.type);
    }

    for (int p = 0; p < clamp_count(pContent->plcount, kMaxPlaylists); ++p) {
        const DRAVIK_PLAYLIST& pl = pContent->playlists[p];
        if (!dls->completePL[p])
            dls->completePL[p] =
                all_on_disk(pl.PlItems, clamp_count(pl.itemCount, kMaxPlaylistItems), dls, filecount);
    }
    for (int l = 0; l < clamp_count(pContent->layoutcount, kMaxLayouts); ++l) {
        const DRAVIK_LAYOUT& lo = pContent->layouts[l];
        if (!dls->completeLayout[l])
            dls->completeLayout[l] =
                all_on_disk(lo.layoutFiles, clamp_count(lo.fileCount, kMaxLayoutFiles), dls, filecount);
    }
    return dls->dlcount;
}

// Meant to consult the download request before each start; every start is allowed.
int pre_download_start(char*, unsigned long long) { return 0; }

void process_download_check(void)
{
    int next_timer = 10;
    bool want_content_check = false;
    bool want_post_status = false;

    if (download_in_progress()) {
        PROCESS_DL_RESULT r{};
        download_process(&r);
        if (r.stat == PROCESS_DL_COMPLETE_SUCCESS || r.stat == PROCESS_DL_ERROR) {
            gPlayerState.dl_state = r.stat == PROCESS_DL_COMPLETE_SUCCESS ? DL_STATE_COMPLETE
                                                                          : DL_STATE_ERROR;
            gPlayerState.dl_total_count = download_pending_count();
            gPlayerState.dl_priority_count = download_priority_count();
            if (r.stat == PROCESS_DL_ERROR) gPlayerState.dl_error = r.error_code;
            want_post_status = true;
            // The last priority file is in: playback can move to the new content.
            want_content_check = r.last_priority_file != 0;
        }
    } else if (initiate_call_home_pending || initiate_post_status_pending ||
               initiate_cleanup_pending || initiate_send_log_pending) {
        // Work put off during the transfer runs first; no download starts meanwhile. A
        // trigger is only ever raised here, never cleared: one the timer raised meanwhile
        // (or the log's, left standing while logging is off) must not be lost.
        {
            MutexLock lock(timerMutex);
            if (initiate_send_log_pending) initiate_send_log = 1;
            if (initiate_call_home_pending) initiate_call_home = 1;
            if (initiate_post_status_pending) initiate_post_status = 1;
        }
        if (initiate_cleanup_pending) initiate_cleanup = 1;
    } else {
        START_DL_RESULT r{};
        download_start(&r, pre_download_start);
        gPlayerState.dl_total_count = download_pending_count();
        gPlayerState.dl_priority_count = download_priority_count();
        gPlayerState.too_many_download_errors = 0;
        switch (r.dlstat) {
        case DL_BUSY:
            gPlayerState.dl_state = DL_STATE_ACTIVE;
            break;
        case DL_LIST_EMPTY:
            want_content_check = true;
            next_timer = 0;
            break;
        case DL_OUT_OF_MEMORY:
            if (!g_tried_cleanup) {
                initiate_cleanup = 1;
                g_tried_cleanup = 1;
            } else {
                gPlayerState.out_of_memory_error = 1;
                want_post_status = true;
                next_timer = 0;
            }
            break;
        case DL_TOO_MANY_ERRORS:
            gPlayerState.too_many_download_errors = 1;
            want_post_status = true;
            next_timer = 0;
            break;
        case DL_DENIED_BY_CALLER:
            next_timer = 0;
            break;
        case DL_STARTED:
        default:
            gPlayerState.dl_state = DL_STATE_ACTIVE;
            // An unknown size counts as -1 % after: it always asks for a cleanup.
            if (g_cleanup_trigger_free_pct > r.free_space_after) initiate_cleanup = 1;
            break;
        }
    }

    MutexLock lock(timerMutex);
    initiate_download_check = 0;
    download_check_timer = next_timer;
    if (want_content_check) initiate_content_check = 1;
    if (want_post_status) initiate_post_status = 1;
}
