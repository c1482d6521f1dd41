// The content document: playlists, files, schedule, servers and layouts, read straight
// into the global Content record.
//
// Entries beyond an array's capacity (10 playlists of 100 items, 200 files, 10 schedule
// items of 28 day entries, 4 servers, 10 layouts of 20 files and 4 playlist items) are
// read like the others but dropped: the count stays at the capacity and nothing beyond
// an array is written.
#include <string_view>

#include "core/text.h"
#include "xml/attribute_values.h"

using namespace xml_values;

namespace {

// A type word is looked at through a 10-byte buffer: nine characters at most.
int attr_media_type()
{
    char word[10];
    getAttributeStringVal(word, sizeof word);
    return ConvertMediaType(word);
}

// Where an entry that does not fit is read to, so that it never overwrites its
// neighbours.
DRAVIK_PLAYLIST spare_playlist;
DRAVIK_FILE_ITEM spare_file;
SCHEDULE_ITEM spare_sched_item;
DRAVIK_SERVER_ITEM spare_server;
DRAVIK_LAYOUT spare_layout;

template <typename T, std::size_t N>
T* slot(T (&array)[N], int count, T* spare)
{
    return count < static_cast<int>(N) ? &array[count] : spare;
}

void count_up(int& count, int capacity)
{
    if (count < capacity) ++count;
}

// Reads and drops everything up to the first end tag with the element's name, so an
// element of the same name nested in it ends the skip early.
int skip_element()
{
    char name[kXtNameSize];
    copy_text(name, tag());
    for (;;) {
        int kind = xt_get_token();
        if (kind == XT_ERROR || kind == XT_END) return -1;
        if (kind == XT_END_TAG && tag() == name) return 0;
    }
}

// One pl_item. Any attribute but type, findex and dur fails the document; nested start
// tags are ignored.
int parse_pl_item(DRAVIK_PLAYLIST* pl, bool full)
{
    DRAVIK_PLAYLIST_ITEM item{0, -1, 0};
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "type") item.type = attr_media_type();
            else if (attr() == "findex") item.findex = attr_int();
            else if (attr() == "dur") item.duration = attr_int();
            else return -1;
            break;
        case XT_END_TAG:
            if (tag() == "pl_item") {
                if (!full) pl->PlItems[pl->itemCount++] = item;
                return 0;
            }
            break;
        default: break;
        }
    }
}

int parse_playlist()
{
    DRAVIK_PLAYLIST* pl = slot(Content.playlists, Content.plcount, &spare_playlist);
    pl->itemCount = 0;
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "pindex") pl->pindex = attr_int();
            else if (attr() == "name") attr_text(pl->name);
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_START_TAG:
            if (tag() == "pl_item") {
                bool full = pl->itemCount >= kMaxPlaylistItems;
                if (parse_pl_item(pl, full) != 0) return -1;
                // The item after the hundredth ends the playlist; the rest of it is read
                // at the top level, where further pl_items are unknown elements.
                if (full) {
                    count_up(Content.plcount, kMaxPlaylists);
                    return 0;
                }
            }
            break;
        case XT_END_TAG:
            if (tag() == "playlist") {
                count_up(Content.plcount, kMaxPlaylists);
                return 0;
            }
            break;
        default: break;
        }
    }
}

// One f_item. Its findex is deliberately not reset: a file without one keeps what the
// slot held before. Unknown attributes are ignored here, unlike on a pl_item.
int parse_f_item()
{
    DRAVIK_FILE_ITEM* f = slot(Content.files, Content.filecount, &spare_file);
    f->type = 0;
    f->server_id = -1;
    f->fname[0] = '\0';
    f->fsize = 0;
    f->path[0] = '\0';
    f->md5[0] = '\0';
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "findex") f->findex = attr_int();
            else if (attr() == "type") f->type = attr_media_type();
            else if (attr() == "server_id") f->server_id = attr_int();
            else if (attr() == "file") attr_text(f->fname);
            else if (attr() == "size") {
                long size;
                getAttributeLongVal(&size);
                f->fsize = static_cast<std::uint32_t>(size);
            } else if (attr() == "path") attr_text(f->path);
            else if (attr() == "md5") attr_text(f->md5);  // the first four characters only
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_END_TAG:
            if (tag() == "f_item") {
                count_up(Content.filecount, kMaxFiles);
                return 0;
            }
            break;
        default: break;
        }
    }
}

// Strict on purpose: an attribute in `files` outside an f_item (the element's own
// included) fails the document.
int parse_files()
{
    Content.filecount = 0;
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END:
        case XT_ATTRIBUTE: return -1;
        case XT_START_TAG:
            if (tag() == "f_item" && parse_f_item() != 0) return -1;
            break;
        case XT_END_TAG:
            if (tag() == "files") return 0;
            break;
        default: break;
        }
    }
}

int parse_day_item(DAY_ITEM* d)
{
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "day") d->day = attr_day();
            else if (attr() == "mode") d->mode = attr_mode();
            else if (attr() == "time") attr_time(&d->time_of_day);
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_END_TAG:
            if (tag() == "day_item") return 0;
            break;
        default: break;
        }
    }
}

// Returns 1 when the item ended on a day entry beyond the 28th: the rest of the item is
// then read at the schedule level. The item itself counts as ended there.
int parse_sched_item(SCHEDULE_ITEM* item)
{
    item->pindex = -1;
    item->lindex = -1;
    item->dayItemCount = 0;  // stime and etime deliberately keep what the slot held
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "pindex") item->pindex = attr_int();
            else if (attr() == "lindex") item->lindex = attr_int();
            else if (attr() == "start") attr_text(item->stime);
            else if (attr() == "end") attr_text(item->etime);
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_START_TAG:
            if (tag() == "day_item") {
                bool full = item->dayItemCount >= kMaxDayItems;
                DAY_ITEM d{0, 1, 0};
                if (parse_day_item(&d) != 0) return -1;
                if (full) return 1;
                item->dayItems[item->dayItemCount++] = d;
            }
            break;
        case XT_END_TAG:
            if (tag() == "sched_item") return 0;
            break;
        default: break;
        }
    }
}

int parse_schedule()
{
    DRAVIK_SCHEDULE& s = Content.schedule;
    s.itemCount = 0;
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "default_pindex") s.defaultpl_index = attr_int();
            else if (attr() == "default_lindex") s.defaultlo_index = attr_int();
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_START_TAG:
            if (tag() == "sched_item") {
                bool full = s.itemCount >= kMaxScheduleItems;
                if (parse_sched_item(slot(s.schedItems, s.itemCount, &spare_sched_item)) < 0) return -1;
                // The item after the tenth ends the schedule; the rest of it is read at
                // the top level.
                if (full) return 0;
                ++s.itemCount;
            }
            break;
        case XT_END_TAG:
            if (tag() == "schedule") return 0;
            break;
        default: break;
        }
    }
}

int parse_server_item()
{
    DRAVIK_SERVER_ITEM* server = slot(Content.servers, Content.servercount, &spare_server);
    server->id = -1;
    server->address[0] = '\0';
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "id") server->id = attr_int();
            else if (attr() == "addr") attr_text(server->address);
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_END_TAG:
            if (tag() == "server_item") {
                count_up(Content.servercount, kMaxServers);
                return 0;
            }
            break;
        default: break;
        }
    }
}

int parse_servers()
{
    Content.servercount = 0;
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE: UnknownAttributeWarning(xt_get_attr_name()); break;
        case XT_START_TAG:
            if (tag() == "server_item" && parse_server_item() != 0) return -1;
            break;
        case XT_END_TAG:
            if (tag() == "servers") return 0;
            break;
        default: break;
        }
    }
}

// lo_file and lo_pl_item are built in a scratch item that is deliberately not reset
// between items, so a field an item leaves out repeats the previous item's value. The
// scratch starts each layout at 0 and empty.
int parse_lo_file(LAYOUT_FILE* file)
{
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "findex") file->findex = attr_int();
            else if (attr() == "type") file->type = attr_media_type();
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_END_TAG:
            if (tag() == "lo_file") return 0;
            break;
        default: break;
        }
    }
}

int parse_lo_pl_item(LAYOUT_PL_ITEM* item)
{
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "url") attr_text(item->url);
            else if (attr() == "dur") item->dur = attr_int();
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_END_TAG:
            if (tag() == "lo_pl_item") return 0;
            break;
        default: break;
        }
    }
}

// Once 20 files are held, further lo_file start tags are ignored, and their attributes
// reach this level, where they are ignored too.
int parse_layout_files(DRAVIK_LAYOUT* layout, LAYOUT_FILE* scratch)
{
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE: UnknownAttributeWarning(xt_get_attr_name()); break;
        case XT_START_TAG:
            if (tag() == "lo_file" && layout->fileCount < kMaxLayoutFiles) {
                if (parse_lo_file(scratch) != 0) return -1;
                layout->layoutFiles[layout->fileCount++] = *scratch;
            }
            break;
        case XT_END_TAG:
            if (tag() == "layout_files") return 0;
            break;
        default: break;
        }
    }
}

int parse_layout_playlist(DRAVIK_LAYOUT* layout, LAYOUT_PL_ITEM* scratch)
{
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE: UnknownAttributeWarning(xt_get_attr_name()); break;
        case XT_START_TAG:
            if (tag() == "lo_pl_item" && layout->plItemCount < kMaxLayoutPlItems) {
                if (parse_lo_pl_item(scratch) != 0) return -1;
                layout->layoutPLItems[layout->plItemCount++] = *scratch;
            }
            break;
        case XT_END_TAG:
            if (tag() == "layout_playlist") return 0;
            break;
        default: break;
        }
    }
}

}  // namespace

int getVidAreaAttributes(LAYOUT_VID_AREA* area)
{
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END:
        case XT_START_TAG: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "x") area->x = attr_int();
            else if (attr() == "y") area->y = attr_int();
            else if (attr() == "width") area->width = attr_int();
            else if (attr() == "height") area->height = attr_int();
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_END_TAG: return 0;
        default: break;
        }
    }
}

// The layout's lindex is not reset: a layout without one keeps what the slot held.
int parseIntoContentLayout(DRAVIK_LAYOUT* layout)
{
    layout->name[0] = '\0';
    layout->fileCount = 0;
    layout->plItemCount = 0;
    layout->va1080p = {0, 0, 1920, 1080};
    layout->va720p = {0, 0, 1280, 720};
    layout->vaPct = {0, 0, 100, 100};
    LAYOUT_FILE file_scratch{0, 0};
    LAYOUT_PL_ITEM pl_item_scratch{};
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR:
        case XT_END: return -1;
        case XT_ATTRIBUTE:
            if (attr() == "lindex") layout->lindex = attr_int();
            else if (attr() == "name") attr_text(layout->name);
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        case XT_START_TAG: {
            std::string_view t = tag();
            int r = 0;
            if (t == "vid_area_1080") r = getVidAreaAttributes(&layout->va1080p);
            else if (t == "vid_area_720") r = getVidAreaAttributes(&layout->va720p);
            else if (t == "vid_area_pct") r = getVidAreaAttributes(&layout->vaPct);
            else if (t == "layout_files") r = parse_layout_files(layout, &file_scratch);
            else if (t == "layout_playlist") r = parse_layout_playlist(layout, &pl_item_scratch);
            if (r != 0) return -1;
            break;
        }
        case XT_END_TAG:
            if (tag() == "layout") return 0;
            break;
        default: break;
        }
    }
}

int dA_ParseContent(const char* path)
{
    // Only these are cleared: entries beyond the counts, and the content's name, keep
    // what the previous content left.
    Content.schedule.defaultpl_index = -1;
    Content.schedule.defaultlo_index = -1;
    Content.schedule.itemCount = 0;
    Content.id[0] = '\0';
    Content.plcount = 0;
    Content.filecount = 0;
    Content.servercount = 0;
    Content.layoutcount = 0;
    g_ContentValid = 0;

    XmlDocument doc(path);
    if (!doc.ok()) return -1;
    for (;;) {
        switch (xt_get_token()) {
        case XT_ERROR: return -1;
        case XT_END:
            if (doc.read_error()) return -1;  // a file that cannot be read is no document
            g_ContentValid = 1;
            return 0;
        case XT_START_TAG: {
            std::string_view t = tag();
            int r = 0;
            if (t == "playlist") r = parse_playlist();
            else if (t == "files") r = parse_files();
            else if (t == "schedule") r = parse_schedule();
            else if (t == "servers") r = parse_servers();
            else if (t == "layout") {
                r = parseIntoContentLayout(slot(Content.layouts, Content.layoutcount, &spare_layout));
                if (r == 0) count_up(Content.layoutcount, kMaxLayouts);
            } else if (t != "content") r = skip_element();
            if (r != 0) return -1;
            break;
        }
        case XT_ATTRIBUTE:
            if (attr() == "id") attr_text(Content.id);
            else if (attr() == "name") attr_text(Content.name);
            else UnknownAttributeWarning(xt_get_attr_name());
            break;
        default: break;  // end tags, text and sections
        }
    }
}
