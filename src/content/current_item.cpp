#include "content/current_item.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>
#include <sys/stat.h>

#include "actions/config.h"
#include "content/playlist.h"
#include "core/seam.h"
#include "core/text.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/download.h"
#include "download/wget.h"
#include "schedule/content.h"
#include "schedule/player_state.h"
#include "storage/cleanup.h"
#include "storage/pelk_file.h"

DRAVIK_CONTENT currentContent;

namespace {

constexpr const char* kLayersOid = "1.3.6.1.4.1.58321.3.3.1.0";
// Written with a leading dot, unlike its neighbours, as the device has always sent it.
constexpr const char* kResolutionOid = ".1.3.6.1.4.1.58321.3.2.9.0";
constexpr const char* kCoordModeOid = "1.3.6.1.4.1.58321.3.3.23.0";
constexpr const char* kXOid = "1.3.6.1.4.1.58321.3.3.24.0";
constexpr const char* kYOid = "1.3.6.1.4.1.58321.3.3.25.0";
constexpr const char* kWidthOid = "1.3.6.1.4.1.58321.3.3.26.0";
constexpr const char* kHeightOid = "1.3.6.1.4.1.58321.3.3.27.0";
constexpr const char* kLayerOid = "1.3.6.1.4.1.58321.3.3.30.0";
constexpr const char* kPlayOid = "1.3.6.1.4.1.58321.3.3.32.0";

constexpr const char* kFetchedContent = "/tmp/dacontent.xml";
constexpr const char* kSavedContent = "/mnt/hd3/contentdata.txt";

// Countdown bases: the player did not report its video layer; files still missing.
constexpr int kNoReportWait = 60;
constexpr int kMissingFilesWait = 600;

char data[kSnmpTextSize];  // the bridge's replies; the layer reports are read in place

// The content check's working records, in static storage like every record here.
PL_EVENT plEvent;
CURRENT_ITEM_LAYER layer0, layer1;  // what the video and browser layers report

void set_int(const char* oid, int value)
{
    char command[96];
    std::snprintf(command, sizeof command, "%s i %d", oid, value);
    send_snmp_command(kSnmpSetType, command, data);
}

// Puts `layer` into `area` (in the coordinate mode given, or the one the player keeps)
// and starts RAM playlist `ramIndex` on it.
void play_in_area(int layer, std::optional<int> coordMode, const LAYOUT_VID_AREA& area, int ramIndex)
{
    set_int(kLayerOid, layer);
    if (coordMode) set_int(kCoordModeOid, *coordMode);
    set_int(kWidthOid, area.width);
    set_int(kHeightOid, area.height);
    set_int(kXOid, area.x);
    set_int(kYOid, area.y);
    char command[96];
    std::snprintf(command, sizeof command, "%s s ram::playlist://r%d", kPlayOid, ramIndex);
    send_snmp_command(kSnmpSetType, command, data);
}

// One layer's report: five comma-separated fields (file, playlist name, state text,
// item, code) or three (state text, item, code). A field longer than its array keeps
// what fits; the rest up to its comma is skipped. The code goes through a 3-byte
// buffer as on the device, so at most two characters of it count.
void parse_layer(std::string_view text, CURRENT_ITEM_LAYER* layer)
{
    layer->valid = 0;
    layer->PlayListFileName[0] = layer->PlayListName[0] = '\0';
    layer->StateText[0] = layer->ItemName[0] = '\0';
    layer->StateCode = 0;
    auto commas = std::count(text.begin(), text.end(), ',');
    if (text.empty() || (commas != 4 && commas != 2)) return;

    auto next_field = [&text] {
        std::size_t comma = text.find(',');
        std::string_view field = text.substr(0, comma);
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
        return field;
    };
    if (commas == 4) {
        copy_text(layer->PlayListFileName, next_field());
        copy_text(layer->PlayListName, next_field());
    }
    copy_text(layer->StateText, next_field());
    copy_text(layer->ItemName, next_field());
    char code[3];
    copy_text(code, next_field());
    layer->StateCode = text_to_int(code);
    layer->valid = 1;
}

// Whether `layer` plays RAM slot `digit` (its own "h" lists count as well).
bool plays_slot(const CURRENT_ITEM_LAYER& layer, char digit)
{
    char kind = layer.PlayListFileName[0];
    return (kind == 'r' || kind == 'h') && layer.PlayListFileName[1] == digit;
}

// Indices come from the server's document unchecked: one outside the arrays is a
// playlist or layout whose files are not complete, and whose name is empty.
template <std::size_t N>
bool complete(const unsigned char (&flags)[N], int index)
{
    return index >= 0 && static_cast<std::size_t>(index) < N && flags[index] != 0;
}

int used(int count, int capacity) { return std::clamp(count, 0, capacity); }

std::string_view playlist_name(const DRAVIK_CONTENT* c, int index)
{
    if (index < 0 || index >= used(c->plcount, kMaxPlaylists)) return {};
    return text_of(c->playlists[index].name);
}

std::string_view layout_name(const DRAVIK_CONTENT* c, int index)
{
    if (index < 0 || index >= used(c->layoutcount, kMaxLayouts)) return {};
    return text_of(c->layouts[index].name);
}

void set_pending(std::string_view playlist, std::string_view layout, std::string_view content)
{
    copy_text(gPlayerState.pending_playlist_name, playlist);
    copy_text(gPlayerState.pending_layout_name, layout);
    copy_text(gPlayerState.pending_content_name, content);
}

void set_active(std::string_view playlist, std::string_view layout, std::string_view content)
{
    copy_text(gPlayerState.active_playlist_name, playlist);
    copy_text(gPlayerState.active_layout_name, layout);
    copy_text(gPlayerState.active_content_name, content);
}

// Whether /tmp/dacontent.xml still holds the document `c` was adopted from. A later
// call home may have fetched another document there that did not parse or had no id;
// copying that over the saved one would lose a good document for a broken one.
bool fetched_document_is(const DRAVIK_CONTENT* c)
{
    return dA_ParseContent(kFetchedContent) == 0 && text_of(dA_Content()->id) == text_of(c->id);
}

// The display is in its on period. Start-up keeps -1 for "off" until the first
// evaluation, so that it counts as a change: nothing starts on a screen that is off.
bool display_on() { return AutoOnOffMode > 0; }

// Nothing else makes the folder the player reads its lists from; on the device the
// player may have made it already.
void make_playlist_folder() { mkdir("/tmp/playlists", 0755); }

// The first start of a document saves it, so that a restart plays it at once.
void save_if_new(const DRAVIK_CONTENT* c)
{
    if (text_of(g_saved_content_id) == text_of(c->id)) return;
    if (!fetched_document_is(c)) {
        auto id = text_of(c->id);
        std::printf("content %.*s: %s now holds another document; the saved one is kept\n",
                    static_cast<int>(id.size()), id.data(), kFetchedContent);
        return;
    }
    remount_fs(3, 1);
    char command[96];
    std::snprintf(command, sizeof command, "cp -f %s %s", kFetchedContent, kSavedContent);
    seam::system(command);
    remount_fs(3, 0);
    copy_text(g_saved_content_id, text_of(c->id));
}

// What one content check compares and where it would write.
struct Check {
    DRAVIK_CONTENT* content;
    int pl, layout;          // scheduled now; negative: none
    int ramPL, ramLayoutPL;  // the video and browser slots that are not playing
    char plname[64];         // "<id>*<pl>", empty when no playlist is scheduled
    char loname[64];         // "<id>*<layout>"
    int next;                // seconds to the schedule's next event
};

// No layout scheduled: the video layer alone, full screen, with the default playlist
// standing in while the scheduled one's files are missing.
void check_without_layout(Check& k)
{
    std::string_view content_name = text_of(k.content->name);
    std::string_view pl_name = playlist_name(k.content, k.pl);
    if (k.pl < 0) {
        stop_play(1, 1);
        gPlayerState.no_pl_scheduled = 1;
        set_pending({}, {}, {});
        set_active({}, {}, content_name);
        return;
    }
    bool start = std::strcmp(k.plname, layer0.PlayListName) != 0;
    if (start) {
        set_pending(pl_name, {}, content_name);
    } else {
        set_active(pl_name, {}, content_name);
        gPlayerState.scheduled_pl_active = 1;
    }
    if (layer1.valid && layer1.StateCode != 0) {
        stop_play(0, 1);  // a layout left on the browser layer goes
        start = true;
    }
    if (!start) return;

    int p = k.pl;
    if (!complete(gContentDLStatus.completePL, p)) {
        k.next = std::min(k.next, kMissingFilesWait);
        int d = k.content->schedule.defaultpl_index;
        if (d == k.pl || d < 0 || !complete(gContentDLStatus.completePL, d)) return;
        p = d;
    }
    make_playlist_folder();
    MakeRAMVideoPlaylist(k.ramPL, p, k.content);
    MakeTEMPPlaylist(p, k.content);
    if (display_on()) start_ram_playlist(k.ramPL, 0);
    save_if_new(k.content);
    // The scheduled playlist's name even when the default stands in: deliberately, the
    // status shows what the schedule asks for.
    copy_text(gPlayerState.active_playlist_name, pl_name);
    copy_text(gPlayerState.active_content_name, content_name);
    set_pending({}, {}, {});
    gPlayerState.scheduled_pl_active = p == k.pl ? 1 : 0;
}

// A layout scheduled: the browser layer shows it and the video layer plays in its
// video area. There is no default here; while files are missing nothing changes.
void check_with_layout(Check& k)
{
    std::string_view content_name = text_of(k.content->name);
    std::string_view pl_name = playlist_name(k.content, k.pl);
    bool start = true;  // a browser layer that reports nothing is not compared
    if (layer1.valid) {
        if (k.pl < 0) {
            if (layer0.StateCode != 0) stop_play(1, 0);
            gPlayerState.pending_playlist_name[0] = '\0';
            gPlayerState.active_playlist_name[0] = '\0';
            // The browser layer's list is compared with the playlist name, which is
            // empty here, not with loname: kept as the device does it, so an idle
            // browser layer counts as showing the layout.
            if (std::strcmp(k.plname, layer1.PlayListName) == 0) {
                copy_text(gPlayerState.active_layout_name, layout_name(k.content, k.layout));
                copy_text(gPlayerState.active_content_name, content_name);
                gPlayerState.scheduled_pl_active = 1;
                start = false;
            }
        } else if (std::strcmp(k.plname, layer0.PlayListName) == 0 &&
                   std::strcmp(k.loname, layer1.PlayListName) == 0) {
            set_active(pl_name, layout_name(k.content, k.layout), content_name);
            gPlayerState.scheduled_pl_active = 1;
            start = false;
        } else {
            set_pending(pl_name, layout_name(k.content, k.layout), content_name);
        }
    }
    if (!start) return;

    if (!complete(gContentDLStatus.completeLayout, k.layout) ||
        (k.pl >= 0 && !complete(gContentDLStatus.completePL, k.pl))) {
        k.next = std::min(k.next, kMissingFilesWait);
        return;
    }
    make_playlist_folder();
    MakeRAMLayoutPlaylist(k.ramLayoutPL, k.layout, k.content);
    MakeTEMPLayoutFileList(k.layout, k.content);
    if (k.pl >= 0) {
        MakeRAMVideoPlaylist(k.ramPL, k.pl, k.content);
        MakeTEMPPlaylist(k.pl, k.content);
    }
    if (display_on()) {
        start_ram_playlist(k.ramLayoutPL, 1);
        // Without a playlist the video slot is the free one all the same: it plays what
        // an earlier check left there.
        start_ram_playlist_with_layout(k.ramPL, k.content, k.layout);
    }
    save_if_new(k.content);
    // The active layout shows the playlist's name, not the layout's: kept as the device
    // reports it.
    set_active(pl_name, pl_name, content_name);
    set_pending({}, {}, {});
    gPlayerState.scheduled_pl_active = 1;
}

}  // namespace

int process_content(char* line, char* currentID)
{
    // "ContentID" and one separator: the id begins at the 11th character.
    std::string_view rest(line);
    if (rest.size() < 11) return 0;
    rest.remove_prefix(10);
    if (rest.front() == ' ') rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    std::string_view id = rest.substr(0, std::min<std::size_t>(rest.find(','), 39));
    if (id.find(' ') != std::string_view::npos) return 0;

    if (id == std::string_view(currentID, strnlen(currentID, sizeof currentContent.id))) return 1;
    // Nothing changes until a document arrives; the next call home retries, since the
    // id still differs.
    if (!get_content_file(call_home_address, macAddress, kFetchedContent)) return 1;
    if (dA_ParseContent(kFetchedContent) != 0) return 0;
    if (dA_Content()->id[0] == '\0') return 1;

    currentContent = *dA_Content();
    g_cleanup_trigger_free_pct = 30;
    g_tried_cleanup = 0;
    gPlayerState.out_of_memory_error = 0;
    // The document is saved once a playlist from it has been started, not here.
    MutexLock lock(timerMutex);
    content_check_timer = 5;
    return 1;
}

void process_content_check(DRAVIK_CONTENT* pContent)
{
    if (pContent->id[0] == '\0') return;

    content_get_pl_event(pContent, &plEvent);
    content_process_downloads(pContent, &plEvent, &gContentDLStatus);
    gPlayerState.dl_total_count = download_pending_count();
    gPlayerState.dl_priority_count = download_priority_count();
    get_current_item_layers(&layer0, &layer1);

    Check k{};
    k.content = pContent;
    k.pl = plEvent.currentPL;
    k.layout = plEvent.currentLayout;
    k.ramPL = plays_slot(layer0, '0') ? 1 : 0;
    k.ramLayoutPL = plays_slot(layer1, '2') ? 3 : 2;
    auto id = text_of(pContent->id);
    if (k.pl >= 0)
        std::snprintf(k.plname, sizeof k.plname, "%.*s*%d", static_cast<int>(id.size()), id.data(), k.pl);
    std::snprintf(k.loname, sizeof k.loname, "%.*s*%d", static_cast<int>(id.size()), id.data(), k.layout);
    // The event's clock time, reached across a change to or from summer time too.
    k.next = seconds_until_local_time(plEvent.nextEventTime);

    gPlayerState.no_pl_scheduled = 0;
    gPlayerState.scheduled_pl_active = 0;
    if (!layer0.valid) k.next = kNoReportWait;  // a malformed report postpones any start
    else if (k.layout == -1) check_without_layout(k);
    else check_with_layout(k);

    MutexLock lock(timerMutex);
    initiate_content_check = 0;
    content_check_timer = k.next + 5;  // just after the next event
    initiate_post_status = 0;
    post_status_timer = 10;
    if (gContentDLStatus.dlcount != 0) initiate_download_check = 1;
}

void get_current_item_layers(CURRENT_ITEM_LAYER* CL1, CURRENT_ITEM_LAYER* CL2)
{
    send_snmp_command(kSnmpGetType, kLayersOid, data);
    // "<layer 0>%<layer 1>"; without a "%" there is no layer-1 report.
    char* second = std::strchr(data, '%');
    if (second != nullptr) *second++ = '\0';
    parse_layer(data, CL1);
    parse_layer(second != nullptr ? std::string_view(second) : std::string_view(), CL2);
}

void stop_play(int layer1, int layer2)
{
    if (layer1 && layer2) set_int(kStopOid, 7);
    else if (layer1) set_int(kStopOid, 17);
    else if (layer2) set_int(kStopOid, 33);
}

void start_ram_playlist(int ramIndex, int layer)
{
    // Full size, in percent, at the origin; the coordinate mode is not sent.
    play_in_area(layer, std::nullopt, LAYOUT_VID_AREA{0, 0, 100, 100}, ramIndex);
}

void start_ram_playlist_with_layout(int ramIndex, DRAVIK_CONTENT* pContent, int layoutIndex)
{
    if (layoutIndex < 0 || layoutIndex >= used(pContent->layoutcount, kMaxLayouts)) {
        std::printf("start_ram_playlist_with_layout: the content has no layout %d\n", layoutIndex);
        return;
    }
    const DRAVIK_LAYOUT& layout = pContent->layouts[layoutIndex];
    send_snmp_command(kSnmpGetType, kResolutionOid, data);
    int vmode = convertResToMode(text_to_int(data));
    // Pixels in the 1080- and 720-line modes; percent of the screen otherwise.
    if (vmode == 1080) play_in_area(0, 1, layout.va1080p, ramIndex);
    else if (vmode == 720) play_in_area(0, 1, layout.va720p, ramIndex);
    else play_in_area(0, 0, layout.vaPct, ramIndex);
}

int convertResToMode(int res)
{
    static constexpr int k1080[] = {7, 8, 9, 19, 29, 34, 35, 36, 37, 38, 39, 43, 44, 48, 49, 50, 51, 60, 61};
    static constexpr int k720[] = {10, 13, 18, 45, 52, 55, 56, 62};
    static constexpr int k480[] = {11, 12, 17, 53, 54, 57, 58, 59, 68};
    auto in = [res](const auto& codes) {
        return std::find(std::begin(codes), std::end(codes), res) != std::end(codes);
    };
    if (in(k1080)) return 1080;
    if (in(k720)) return 720;
    if (in(k480)) return 480;
    return 0;
}

void save_default_startup(int) {}
