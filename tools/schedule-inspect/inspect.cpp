#include "schedule-inspect/inspect.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "schedule-inspect/common.h"

namespace inspect {
namespace {

constexpr const char* kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};

std::string clock_time(int seconds)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", seconds / 3600, seconds / 60 % 60,
                  seconds % 60);
    return buf;
}

std::string item_label(const DRAVIK_CONTENT& c, int item)
{
    const SCHEDULE_ITEM& it = c.schedule.schedItems[item];
    return "item " + std::to_string(item) + " (" + std::string(text_of(it.stime)) + " to " +
           std::string(text_of(it.etime)) + ")";
}

std::string event_kind(const SCHEDULE_EVENT& e)
{
    if (e.mode == 0) return "stop ";
    if (e.mode == 1) return "start";
    return "start (mode " + std::to_string(e.mode) + ")";
}

// The later stop, at or before now, of the same playlist that made the walk pass over
// the start at position e; -1 when nothing cancelled it.
int cancelling_stop(const DRAVIK_CONTENT& c, int n, int e, int secs)
{
    int pindex = c.schedule.schedItems[g_PSI[e].item].pindex;
    for (int k = e + 1; k < n && g_PSI[k].seconds <= secs; ++k)
        if (g_PSI[k].mode == 0 && c.schedule.schedItems[g_PSI[k].item].pindex == pindex) return k;
    return -1;
}

void explain_choice(std::FILE* out, const DRAVIK_CONTENT& c, const PL_EVENT& ev, int n, int chosen)
{
    std::fprintf(out, "Playing:  %s with %s\n", playlist_label(c, ev.currentPL).c_str(),
                 layout_label(c, ev.currentLayout).c_str());
    if (chosen >= 0) {
        const SCHEDULE_EVENT& e = g_PSI[chosen];
        std::fprintf(out, "Why:      schedule %s started it at %s%s\n",
                     item_label(c, e.item).c_str(), clock_time(e.seconds).c_str(),
                     e.mode == 1 ? "" : (" (day item mode " + std::to_string(e.mode) + ")").c_str());
        return;
    }
    std::string why = defaults_reason(n, ev.timeNowSeconds);
    if (why == kAllCancelled)
        why += "\n          (a stop ends its playlist whichever schedule item it comes from),\n"
               "          so the defaults apply";
    else
        why += ", so the defaults apply";
    std::fprintf(out, "Why:      %s (default_pindex %d, default_lindex %d)\n", why.c_str(),
                 c.schedule.defaultpl_index, c.schedule.defaultlo_index);
}

void explain_names(std::FILE* out, const DRAVIK_CONTENT& c, const PL_EVENT& ev)
{
    // The agent looks playlists and layouts up by position; say so when the document
    // numbers them differently, since that is a common authoring slip.
    if (ev.currentPL >= 0 && ev.currentPL < clamp_count(c.plcount, kMaxPlaylists) &&
        c.playlists[ev.currentPL].pindex != ev.currentPL)
        std::fprintf(out,
                     "Note:     the player takes playlist %d to be the document's playlist at "
                     "position %d, whose pindex is %d\n",
                     ev.currentPL, ev.currentPL, c.playlists[ev.currentPL].pindex);
    if (ev.currentLayout >= 0 && ev.currentLayout < clamp_count(c.layoutcount, kMaxLayouts) &&
        c.layouts[ev.currentLayout].lindex != ev.currentLayout)
        std::fprintf(out,
                     "Note:     the player takes layout %d to be the document's layout at "
                     "position %d, whose lindex is %d\n",
                     ev.currentLayout, ev.currentLayout, c.layouts[ev.currentLayout].lindex);
}

void explain_timeline(std::FILE* out, const DRAVIK_CONTENT& c, const PL_EVENT& ev, int n,
                      int chosen)
{
    std::fprintf(out, "\nToday's events (%d), in the order the agent weighs them:\n", n);
    if (n == 0) std::fprintf(out, "  none\n");
    bool nextMarked = false;
    for (int e = 0; e < n; ++e) {
        const SCHEDULE_EVENT& event = g_PSI[e];
        const SCHEDULE_ITEM& it = c.schedule.schedItems[event.item];
        bool past = event.seconds <= ev.timeNowSeconds;
        std::string what = event_kind(event) + "  " + playlist_label(c, it.pindex);
        if (event.mode != 0) what += ", " + layout_label(c, it.lindex);
        std::string note;
        if (e == chosen) {
            note = "  <- playing now";
        } else if (past && event.mode != 0 && e > chosen) {
            int k = cancelling_stop(c, n, e, ev.timeNowSeconds);
            if (k >= 0)
                note = "  (cancelled by the stop at " + clock_time(g_PSI[k].seconds) + " of item " +
                       std::to_string(g_PSI[k].item) + ")";
        } else if (!past && !nextMarked) {
            note = "  <- next change";
            nextMarked = true;
        }
        std::fprintf(out, "  %s %s  %s  from %s%s\n", clock_time(event.seconds).c_str(),
                     past ? "past  " : "future", what.c_str(), item_label(c, event.item).c_str(),
                     note.c_str());
    }
    if (content_dropped_event_count() > 0)
        std::fprintf(out,
                     "  %d more events did not fit in the agent's table of %d and were dropped:\n"
                     "  the agent ignores them too\n",
                     content_dropped_event_count(), kMaxScheduleEvents);
}

// Items that gave no events today, and why, so an author can see a typo in a date.
void explain_idle_items(std::FILE* out, const DRAVIK_CONTENT& c, std::time_t at, int isdst,
                        int secs, int wday)
{
    std::time_t midnight = at - secs;
    std::vector<std::string> lines;
    for (int i = 0; i < clamp_count(c.schedule.itemCount, kMaxScheduleItems); ++i) {
        const SCHEDULE_ITEM& it = c.schedule.schedItems[i];
        bool used = false;
        for (int e = 0; e < content_event_count(); ++e) used = used || g_PSI[e].item == i;
        if (used) continue;
        std::time_t st = MakeTime(it.stime, isdst);
        std::time_t et = MakeTime(it.etime, isdst);
        std::string why;
        if (st == 0 || et == 0)
            why = "its start or end is not a date-time of the form 2026-03-01T08:00:00, so it "
                  "is ignored";
        else if (st == -1 || et == -1)
            why = "its start or end lies outside 1901-12-14 .. 2038-01-19, which the player's "
                  "32-bit clock cannot count";
        else if (!(st <= midnight + kDay && et > midnight))
            why = "its period does not touch today";
        else if (it.dayItemCount != 0) {
            bool today = false;
            for (int d = 0; d < clamp_count(it.dayItemCount, kMaxDayItems); ++d)
                today = today || it.dayItems[d].day == wday;
            why = today ? "its day items for today lie outside its period, and none carries "
                          "it into the period"
                        : std::string("it has no day items for ") + kWeekdays[wday];
        } else {
            why = "it gives no event today";
        }
        lines.push_back("  " + item_label(c, i) + ", " + playlist_label(c, it.pindex) + ": " + why);
    }
    if (lines.empty()) return;
    std::fprintf(out, "\nSchedule items without an event today:\n");
    for (const std::string& line : lines) std::fprintf(out, "%s\n", line.c_str());
}

}  // namespace

bool parse_local_time(const char* text, std::time_t* out, std::string* error)
{
    static constexpr std::string_view kForm = "dddd-dd-ddTdd:dd:dd";
    std::string_view s(text);
    bool shaped = s.size() == kForm.size();
    for (std::size_t i = 0; shaped && i < s.size(); ++i) {
        if (kForm[i] == 'd')
            shaped = s[i] >= '0' && s[i] <= '9';
        else if (kForm[i] == 'T')
            shaped = s[i] == 'T' || s[i] == ' ';
        else
            shaped = s[i] == kForm[i];
    }
    if (!shaped) {
        *error = "expected a local date and time of the form YYYY-MM-DDTHH:MM:SS";
        return false;
    }
    auto num = [&](std::size_t pos, std::size_t len) {
        int v = 0;
        for (std::size_t i = 0; i < len; ++i) v = v * 10 + (s[pos + i] - '0');
        return v;
    };
    std::tm want{};
    want.tm_year = num(0, 4) - 1900;
    want.tm_mon = num(5, 2) - 1;
    want.tm_mday = num(8, 2);
    want.tm_hour = num(11, 2);
    want.tm_min = num(14, 2);
    want.tm_sec = num(17, 2);

    // Whether the date and time exist at all, apart from any zone.
    std::tm check = want;
    std::time_t utc = timegm(&check);
    if (check.tm_year != want.tm_year || check.tm_mon != want.tm_mon ||
        check.tm_mday != want.tm_mday || check.tm_hour != want.tm_hour ||
        check.tm_min != want.tm_min || check.tm_sec != want.tm_sec || utc == -1) {
        *error = std::string("there is no such date and time as ") + text;
        return false;
    }

    // Read with each summer-time flag; keep the readings that show this clock time.
    tzset();
    bool found = false;
    std::time_t best = 0, latest = 0;
    bool first = true;
    for (int isdst : {0, 1, -1}) {
        std::tm tm = want;
        tm.tm_isdst = isdst;
        std::time_t t = std::mktime(&tm);
        if (first || t > latest) latest = t;
        first = false;
        std::tm back{};
        if (localtime_r(&t, &back) == nullptr) continue;
        if (back.tm_year == want.tm_year && back.tm_mon == want.tm_mon &&
            back.tm_mday == want.tm_mday && back.tm_hour == want.tm_hour &&
            back.tm_min == want.tm_min && back.tm_sec == want.tm_sec) {
            if (!found || t < best) best = t;  // the first of a repeated hour
            found = true;
        }
    }
    // A skipped clock time: with the offset before the change, which is the later reading.
    std::time_t t = found ? best : latest;
    if (t < INT_MIN || t > INT_MAX) {
        *error = "the agent counts time in 32-bit seconds: choose a moment between "
                 "1901-12-14 and 2038-01-19";
        return false;
    }
    *out = t;
    return true;
}

void explain(std::FILE* out, DRAVIK_CONTENT& content, std::time_t at)
{
    PL_EVENT ev{};
    {
        ClockAt clock(at);
        content_get_pl_event(&content, &ev);
    }
    int n = content_event_count();
    int chosen = content_selected_event();

    std::fprintf(out, "now=%d playlist=%d layout=%d next=%d\n", ev.timeNowSeconds, ev.currentPL,
                 ev.currentLayout, ev.nextEventTime);

    std::tm tm{};
    localtime_r(&at, &tm);
    char when[64];
    std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S %Z", &tm);
    std::fprintf(out, "\nContent:  %s (id %s)\n", quoted(text_of(content.name)).c_str(),
                 std::string(text_of(content.id)).c_str());
    if (content.id[0] == '\0')
        std::fprintf(out, "Warning:  the document has no id: a player would not take it up and "
                          "keeps what it plays\n");
    std::fprintf(out, "At:       %s, a %s; %d seconds after midnight by the clock\n", when,
                 kWeekdays[tm.tm_wday], ev.timeNowSeconds);
    explain_choice(out, content, ev, n, chosen);
    explain_names(out, content, ev);
    if (ev.nextEventTime >= kDay)
        std::fprintf(out, "Next:     no change for the rest of today\n");
    else
        std::fprintf(out, "Next:     a change at %s\n", clock_time(ev.nextEventTime).c_str());
    explain_timeline(out, content, ev, n, chosen);
    explain_idle_items(out, content, at, tm.tm_isdst, ev.timeNowSeconds, tm.tm_wday);
}

std::string dump_json(const DRAVIK_CONTENT& c)
{
    using Json = nlohmann::ordered_json;
    auto str = [](const auto& field) { return std::string(text_of(field)); };
    auto area = [](const LAYOUT_VID_AREA& a) {
        return Json{{"x", a.x}, {"y", a.y}, {"width", a.width}, {"height", a.height}};
    };

    Json doc;
    doc["id"] = str(c.id);
    doc["name"] = str(c.name);
    doc["plcount"] = c.plcount;
    doc["filecount"] = c.filecount;
    doc["servercount"] = c.servercount;
    doc["layoutcount"] = c.layoutcount;

    Json playlists = Json::array();
    for (int i = 0; i < clamp_count(c.plcount, kMaxPlaylists); ++i) {
        const DRAVIK_PLAYLIST& p = c.playlists[i];
        Json items = Json::array();
        for (int k = 0; k < clamp_count(p.itemCount, kMaxPlaylistItems); ++k)
            items.push_back({{"type", p.PlItems[k].type},
                             {"findex", p.PlItems[k].findex},
                             {"duration", p.PlItems[k].duration}});
        playlists.push_back({{"pindex", p.pindex},
                             {"name", str(p.name)},
                             {"itemCount", p.itemCount},
                             {"PlItems", items}});
    }
    doc["playlists"] = playlists;

    Json files = Json::array();
    for (int i = 0; i < clamp_count(c.filecount, kMaxFiles); ++i) {
        const DRAVIK_FILE_ITEM& f = c.files[i];
        files.push_back({{"findex", f.findex},
                         {"type", f.type},
                         {"server_id", f.server_id},
                         {"fname", str(f.fname)},
                         {"fsize", f.fsize},
                         {"path", str(f.path)},
                         {"md5", str(f.md5)}});
    }
    doc["files"] = files;

    const DRAVIK_SCHEDULE& s = c.schedule;
    Json items = Json::array();
    for (int i = 0; i < clamp_count(s.itemCount, kMaxScheduleItems); ++i) {
        const SCHEDULE_ITEM& it = s.schedItems[i];
        Json days = Json::array();
        for (int d = 0; d < clamp_count(it.dayItemCount, kMaxDayItems); ++d)
            days.push_back({{"day", it.dayItems[d].day},
                            {"mode", it.dayItems[d].mode},
                            {"time_of_day", it.dayItems[d].time_of_day}});
        items.push_back({{"pindex", it.pindex},
                         {"lindex", it.lindex},
                         {"stime", str(it.stime)},
                         {"etime", str(it.etime)},
                         {"dayItemCount", it.dayItemCount},
                         {"dayItems", days}});
    }
    doc["schedule"] = {{"defaultpl_index", s.defaultpl_index},
                       {"defaultlo_index", s.defaultlo_index},
                       {"itemCount", s.itemCount},
                       {"schedItems", items}};

    Json servers = Json::array();
    for (int i = 0; i < clamp_count(c.servercount, kMaxServers); ++i)
        servers.push_back({{"id", c.servers[i].id}, {"address", str(c.servers[i].address)}});
    doc["servers"] = servers;

    Json layouts = Json::array();
    for (int i = 0; i < clamp_count(c.layoutcount, kMaxLayouts); ++i) {
        const DRAVIK_LAYOUT& l = c.layouts[i];
        Json lfiles = Json::array();
        for (int k = 0; k < clamp_count(l.fileCount, kMaxLayoutFiles); ++k)
            lfiles.push_back({{"type", l.layoutFiles[k].type}, {"findex", l.layoutFiles[k].findex}});
        Json pages = Json::array();
        for (int k = 0; k < clamp_count(l.plItemCount, kMaxLayoutPlItems); ++k)
            pages.push_back({{"url", str(l.layoutPLItems[k].url)}, {"dur", l.layoutPLItems[k].dur}});
        layouts.push_back({{"lindex", l.lindex},
                           {"name", str(l.name)},
                           {"fileCount", l.fileCount},
                           {"plItemCount", l.plItemCount},
                           {"va1080p", area(l.va1080p)},
                           {"va720p", area(l.va720p)},
                           {"vaPct", area(l.vaPct)},
                           {"layoutFiles", lfiles},
                           {"layoutPLItems", pages}});
    }
    doc["layouts"] = layouts;

    // Texts are bytes as the document gave them: anything that is not UTF-8 is shown
    // as U+FFFD rather than refused.
    return doc.dump(2, ' ', false, Json::error_handler_t::replace);
}

int run(int argc, char** argv, std::FILE* out, std::FILE* err)
{
    const char* usage =
        "usage: schedule-inspect CONTENT_XML [--at YYYY-MM-DDTHH:MM:SS] [--dump]\n"
        "  Shows what the content document's schedule plays at a local time (default: now;\n"
        "  time zone from TZ), as the player's agent works it out:\n"
        "    now=<seconds after midnight> playlist=<index> layout=<index> next=<seconds>\n"
        "  then the names, the next change and today's events with the item behind each.\n"
        "  --dump prints the parsed document as JSON instead.\n";
    const char* path = nullptr;
    const char* atText = nullptr;
    bool dump = false;
    for (int i = 1; i < argc; ++i) {
        std::string_view a = argv[i];
        if (a == "--dump") {
            dump = true;
        } else if (a == "--at") {
            if (++i >= argc) {
                std::fprintf(err, "schedule-inspect: --at needs a date and time\n%s", usage);
                return kUsage;
            }
            atText = argv[i];
        } else if (a.substr(0, 5) == "--at=") {
            atText = argv[i] + 5;
        } else if (a == "-h" || a == "--help") {
            std::fputs(usage, out);
            return kOk;
        } else if (a.size() > 1 && a[0] == '-') {
            std::fprintf(err, "schedule-inspect: unknown option %s\n%s", argv[i], usage);
            return kUsage;
        } else if (path == nullptr) {
            path = argv[i];
        } else {
            std::fprintf(err, "schedule-inspect: one content document only\n%s", usage);
            return kUsage;
        }
    }
    if (path == nullptr) {
        std::fputs(usage, err);
        return kUsage;
    }

    std::time_t at = 0;
    if (atText != nullptr) {
        std::string why;
        if (!parse_local_time(atText, &at, &why)) {
            std::fprintf(err, "schedule-inspect: --at %s: %s\n", atText, why.c_str());
            return kUsage;
        }
    } else {
        at = seam::now();
    }

    if (std::FILE* f = std::fopen(path, "r")) {
        std::fclose(f);
    } else {
        std::fprintf(err, "schedule-inspect: cannot open %s: %s\n", path, std::strerror(errno));
        return kBadDocument;
    }
    dA_Initialize();
    if (dA_ParseContent(path) != 0 || !dA_IsContentValid()) {
        std::fprintf(err,
                     "schedule-inspect: %s is not a content document the player can read "
                     "(the agent's parser rejects it)\n",
                     path);
        return kBadDocument;
    }
    DRAVIK_CONTENT& content = *dA_Content();
    if (dump)
        std::fprintf(out, "%s\n", dump_json(content).c_str());
    else
        explain(out, content, at);
    return std::fflush(out) == 0 ? kOk : kBadDocument;
}

}  // namespace inspect
