#include "content/playlist.h"

#include <cstdio>

#include "core/file.h"
#include "core/text.h"
#include "storage/cleanup.h"

namespace {

constexpr const char* kPlaylistDir = "/tmp/playlists";
constexpr const char* kTempPlaylist = kPlayingMediaList;  // the disk cleanup reads it
constexpr const char* kTempLayout = "/tmp/currentlo";

File open_for_writing(const char* path) { return File(std::fopen(path, "w")); }

int clamp_count(int count, int capacity)
{
    if (count < 0) return 0;
    return count < capacity ? count : capacity;
}

// The playlist a schedule index names, or nullptr (with a message) when the document
// has no playlist there: entries past the count may hold a previous document's data.
const DRAVIK_PLAYLIST* playlist_at(const DRAVIK_CONTENT* content, int plIndex, const char* who)
{
    if (plIndex >= 0 && plIndex < clamp_count(content->plcount, kMaxPlaylists))
        return &content->playlists[plIndex];
    std::printf("%s: the content has no playlist %d\n", who, plIndex);
    return nullptr;
}

const DRAVIK_LAYOUT* layout_at(const DRAVIK_CONTENT* content, int layoutIndex, const char* who)
{
    if (layoutIndex >= 0 && layoutIndex < clamp_count(content->layoutcount, kMaxLayouts))
        return &content->layouts[layoutIndex];
    std::printf("%s: the content has no layout %d\n", who, layoutIndex);
    return nullptr;
}

// The file a playlist item or layout file refers to, or nullptr when the index lies
// outside the document's files (a negative index is an item without one).
const DRAVIK_FILE_ITEM* file_at(const DRAVIK_CONTENT* content, int findex)
{
    if (findex < 0 || findex >= clamp_count(content->filecount, kMaxFiles)) return nullptr;
    return &content->files[findex];
}

// The fixed head of a RAM playlist, written as the exact bytes the player expects.
void write_header(std::FILE* f, bool browser, const DRAVIK_CONTENT* content, int index)
{
    std::fwrite("[Control]\r\n", 1, 11, f);
    std::fwrite("PlaylistVersion = 2.0\r\n", 1, 23, f);
    if (browser)
        std::fwrite("LayerType = Browser\r\n", 1, 21, f);
    else
        std::fwrite("LayerType = Video\r\n", 1, 19, f);
    auto id = text_of(content->id);
    std::fprintf(f, "Name = %.*s*%d\r\n", static_cast<int>(id.size()), id.data(), index);
    std::fwrite("[List]\r\n", 1, 8, f);
}

void write_name_line(std::FILE* f, const DRAVIK_FILE_ITEM& file)
{
    auto name = text_of(file.fname);
    std::fprintf(f, "%.*s\n", static_cast<int>(name.size()), name.data());
}

}  // namespace

int MakeRAMVideoPlaylist(int ramIndex, int plIndex, DRAVIK_CONTENT* content)
{
    const DRAVIK_PLAYLIST* pl = playlist_at(content, plIndex, "MakeRAMVideoPlaylist");
    if (pl == nullptr) return 0;
    char path[64];
    std::snprintf(path, sizeof path, "%s/r%d", kPlaylistDir, ramIndex);
    File f = open_for_writing(path);
    // Reported as done: the content check has nothing better to do about it.
    if (!f) return 1;
    write_header(f.get(), false, content, plIndex);

    int count = clamp_count(pl->itemCount, kMaxPlaylistItems);
    int entry = 1;
    for (int i = 0; i < count; ++i) {
        const DRAVIK_PLAYLIST_ITEM& item = pl->PlItems[i];
        const DRAVIK_FILE_ITEM* file = file_at(content, item.findex);
        // The player is left a playlist without its LOOP line, as it always has been.
        if (file == nullptr) return 0;
        auto name = text_of(file->fname);
        int len = static_cast<int>(name.size());
        if (item.type == 0)
            std::fprintf(f.get(), "ENTRY%d = VIDEO, %.*s\r\n", entry++, len, name.data());
        else if (item.type == 1)
            std::fprintf(f.get(), "ENTRY%d = PICTURE, %.*s,duration=%d\r\n", entry++, len,
                         name.data(), item.duration);
        // Other types take no entry number, so the numbers stay dense.
    }
    std::fprintf(f.get(), "ENTRY%d = LOOP\r\n", entry);
    return 1;
}

int MakeRAMLayoutPlaylist(int ramIndex, int layoutIndex, DRAVIK_CONTENT* content)
{
    const DRAVIK_LAYOUT* lo = layout_at(content, layoutIndex, "MakeRAMLayoutPlaylist");
    if (lo == nullptr) return 0;
    char path[64];
    std::snprintf(path, sizeof path, "%s/r%d", kPlaylistDir, ramIndex);
    File f = open_for_writing(path);
    if (!f) return 1;
    write_header(f.get(), true, content, layoutIndex);
    // The browser shows one page: only the first layout playlist item is written, and a
    // layout playlist has no LOOP line.
    if (lo->plItemCount > 0) {
        auto url = text_of(lo->layoutPLItems[0].url);
        std::fprintf(f.get(), "ENTRY1 = BROWSER, %.*s,xleft=0, yupper=0, xsize=100, ysize=100\r\n",
                     static_cast<int>(url.size()), url.data());
    }
    return 1;
}

int MakeTEMPPlaylist(int plIndex, DRAVIK_CONTENT* content)
{
    const DRAVIK_PLAYLIST* pl = playlist_at(content, plIndex, "MakeTEMPPlaylist");
    if (pl == nullptr) return 0;
    File f = open_for_writing(kTempPlaylist);
    if (!f) return 0;
    int count = clamp_count(pl->itemCount, kMaxPlaylistItems);
    for (int i = 0; i < count; ++i) {
        const DRAVIK_PLAYLIST_ITEM& item = pl->PlItems[i];
        const DRAVIK_FILE_ITEM* file = file_at(content, item.findex);
        if (file == nullptr) return 0;
        if (item.type == 0 || item.type == 1) write_name_line(f.get(), *file);
    }
    return 1;
}

int MakeTEMPLayoutFileList(int layoutIndex, DRAVIK_CONTENT* content)
{
    const DRAVIK_LAYOUT* lo = layout_at(content, layoutIndex, "MakeTEMPLayoutFileList");
    if (lo == nullptr) return 0;
    File f = open_for_writing(kTempLayout);
    if (!f) return 0;
    int count = clamp_count(lo->fileCount, kMaxLayoutFiles);
    for (int i = 0; i < count; ++i) {
        const LAYOUT_FILE& lf = lo->layoutFiles[i];
        const DRAVIK_FILE_ITEM* file = file_at(content, lf.findex);
        if (file == nullptr) return 0;
        if (lf.type == 0 || lf.type == 1 || lf.type == 2) write_name_line(f.get(), *file);
    }
    return 1;
}

const char* playlist_temp_playlist_filename(void) { return kTempPlaylist; }
const char* playlist_temp_layout_filename(void) { return kTempLayout; }
