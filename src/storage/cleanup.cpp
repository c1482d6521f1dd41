#include "storage/cleanup.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "core/seam.h"
#include "core/shell.h"
#include "storage/pelk_file.h"

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

namespace {

// The folder a candidate of `type` lives in; nullptr for a type that is never scanned.
const char* candidate_dir(int type)
{
    switch (type) {
    case 0: return "/mnt/hd4/video";
    case 1: return "/mnt/hd4/picture";
    default: return nullptr;
    }
}

struct DirCloser {
    void operator()(DIR* d) const { closedir(d); }
};
using Dir = std::unique_ptr<DIR, DirCloser>;

// A file descriptor closed when it goes out of scope.
class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd()
    {
        if (fd_ >= 0) close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// Takes every candidate called `name` off the list. Files are stored under their bare
// names, so a name with folder parts is compared by its last part; and a name that
// stands in both media folders is spared in both, since either may be the one in use.
void spare(std::string_view name)
{
    std::size_t slash = name.rfind('/');
    if (slash != std::string_view::npos) name.remove_prefix(slash + 1);
    if (name.empty()) return;
    int index = 0;
    for (LIST_NODE* node = cleanupList->head; node != nullptr;) {
        LIST_NODE* next = node->next;
        if (name == static_cast<CLEANUP_ITEM*>(node->data)->name) listRemove(cleanupList, index);
        else ++index;
        node = next;
    }
}

// Spares the files of the playlist that is playing, one name a line. Read through a
// descriptor and a fixed buffer rather than stdio, so a cleanup allocates nothing. A
// missing file spares nothing.
void spare_playing_media()
{
    Fd fd(open(kPlayingMediaList, O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return;
    static char chunk[4096];
    static char line[255];  // names longer than 254 characters match no candidate
    std::size_t len = 0;
    bool too_long = false;
    for (;;) {
        ssize_t got = read(fd.get(), chunk, sizeof chunk);
        if (got <= 0) break;
        for (ssize_t i = 0; i < got; ++i) {
            if (chunk[i] == '\n') {
                if (!too_long) spare(std::string_view(line, len));
                len = 0;
                too_long = false;
            } else if (len < sizeof line - 1) {
                line[len++] = chunk[i];
            } else {
                too_long = true;
            }
        }
    }
    // A last line without its line end keeps all its characters.
    if (len > 0 && !too_long) spare(std::string_view(line, len));
}

}  // namespace

int cleanup_get_files(LIST* list, int type, CLEANUP_SCAN* scan)
{
    *scan = {};
    const char* dir = candidate_dir(type);
    if (dir == nullptr) return -1;
    Dir d(opendir(dir));
    if (!d) return -1;
    int room = list->capacity;
    long long totalKB = 0;
    while (const dirent* entry = readdir(d.get())) {
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
        if (room == 0) {
            scan->stopped_early = 1;
            break;
        }
        int sizeKB = 0;
        char path[320];
        std::snprintf(path, sizeof path, "%s/%s", dir, name);  // a name has at most 255 bytes
        struct stat st{};
        if (stat(path, &st) == 0) {
            long long kb = static_cast<long long>(st.st_size) / 1024;
            sizeKB = kb > INT_MAX ? INT_MAX : static_cast<int>(kb);
        }
        std::size_t len = std::strlen(name);
        if (len + static_cast<std::size_t>(mem_chunk_offset) + 1 >= kMemChunkSize) {
            scan->stopped_early = 1;
            break;
        }
        char* kept = mem_chunk + mem_chunk_offset;
        std::memcpy(kept, name, len + 1);
        mem_chunk_offset += static_cast<int>(len + 1);
        CLEANUP_ITEM item{type, sizeKB, kept};
        listAddEnd(list, &item);  // a full pool drops the candidate: it is simply kept
        --room;
        totalKB += sizeKB;
    }
    scan->totalKB = totalKB > INT_MAX ? INT_MAX : static_cast<int>(totalKB);
    return 0;
}

int cleanup_disk(DRAVIK_CONTENT* pContent, const char* saved_content_id, int target_pct,
                 CLEANUP_RESULTS* results)
{
    FREESPACE_RESULTS fs{};
    if (get_free_space(&fs) != 0) return -1;
    results->freeKB_before = results->freeKB_after = fs.freeKB;
    results->free_pct_before = results->free_pct_after = fs.free_percent;
    results->files_deleted = 0;
    if (fs.free_percent >= target_pct) return 0;

    newList(cleanupList);  // its header holds the pool and copy function from the start
    mem_chunk_offset = 0;

    // Pictures are looked at only when every video found room.
    CLEANUP_SCAN scan{};
    if (cleanup_get_files(cleanupList, 0, &scan) != 0) return -1;
    if (!scan.stopped_early && cleanup_get_files(cleanupList, 1, &scan) != 0) return -1;
    if (listSize(cleanupList) == 0) return 0;

    // Whole megabytes towards the target, plus one, in kilobytes.
    std::uint32_t mb = (fs.allKB / 1024) * static_cast<std::uint32_t>(target_pct - fs.free_percent) / 100;
    long long to_free = (static_cast<long long>(mb) + 1) * 1024;

    // New content has arrived while the old playlist still plays: its files stay too.
    if (std::strncmp(pContent->id, saved_content_id, sizeof pContent->id) != 0)
        spare_playing_media();
    int filecount = pContent->filecount < 0 ? 0
                    : pContent->filecount > kMaxFiles ? kMaxFiles
                                                      : pContent->filecount;
    for (int i = 0; i < filecount; ++i) {
        const char* fname = pContent->files[i].fname;
        spare(std::string_view(fname, strnlen(fname, sizeof pContent->files[i].fname)));
    }

    // Candidates go in the order the folders gave them, not by age or size: the walk
    // stops as soon as enough is gone.
    remount_fs(4, 1);
    for (LIST_NODE* node = cleanupList->head; node != nullptr; node = node->next) {
        const auto* item = static_cast<const CLEANUP_ITEM*>(node->data);
        // The name comes from a folder listing: escaped without wild cards, so that a
        // file called * or a b.mp4 removes only itself.
        char name[800];  // room for every character of a 255-byte name escaped
        char command[900];
        if (!shell_escaped(name, item->name) ||
            std::snprintf(command, sizeof command, "rm -f %s/%s", candidate_dir(item->type),
                          name) >= static_cast<int>(sizeof command)) {
            std::printf("cleanup: %s is left alone, its name is too long to remove\n", item->name);
            continue;
        }
        to_free -= item->sizeKB;
        seam::system(command);
        results->files_deleted++;
        if (to_free < 0) break;
    }
    remount_fs(4, 0);

    if (get_free_space(&fs) != 0) return -1;
    results->freeKB_after = fs.freeKB;
    results->free_pct_after = fs.free_percent;
    return 0;
}

void process_cleanup(DRAVIK_CONTENT* pContent)
{
    CLEANUP_RESULTS results{};
    if (cleanup_disk(pContent, g_saved_content_id, 50, &results) != 0) {
        std::printf("cleanup: the media partition could not be measured or a media folder "
                    "could not be read; nothing deleted\n");
        return;
    }
    // A cleanup that fell short sets the trigger below what it reached, so that a disk
    // full of content that must stay does not bring a cleanup after every download.
    if (results.free_pct_after < 50) {
        int trigger = results.free_pct_after - 10;
        g_cleanup_trigger_free_pct = trigger < 6 ? 5 : trigger;
    } else {
        g_cleanup_trigger_free_pct = 30;
    }
}
