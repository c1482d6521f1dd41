#include "schedule-inspect/inspect.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "schedule-inspect/check.h"
#include "schedule-inspect/common.h"
#include "schedule-inspect/week.h"

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

namespace {

constexpr const char* kUsageText =
    "Usage: schedule-inspect CONTENT_XML [OPTION]...\n"
    "Reads a content document with the player's own parser and works out its schedule with the\n"
    "player's own code, in the local time of the zone that TZ names. It answers one question at\n"
    "a time: --at, the week view (--from, --days, --config, --svg), --check or --dump.\n"
    "\n"
    "Options:\n"
    "  --at YYYY-MM-DDTHH:MM:SS  what plays at that moment, and why (the default: now). The first\n"
    "                            line is \"now=<seconds after midnight> playlist=<index>\n"
    "                            layout=<index> next=<seconds after midnight>\"; then the names,\n"
    "                            the next change and today's events with the item behind each\n"
    "  --from YYYY-MM-DD         a week view from that day (default: today, when another option\n"
    "                            of the week view asks for one): day by day, the stretches of\n"
    "                            time and what the video and browser layers play in each, with\n"
    "                            the schedule item behind it or why the defaults apply\n"
    "  --days N                  days in the week view (default 7, at most 366)\n"
    "  --config CONFIG_XML       in the week view, also when the display is off by this\n"
    "                            configuration's on/off times\n"
    "  --svg FILE                also draw the week view as an SVG picture in FILE\n"
    "  --check                   every way the player reads the document differently from what\n"
    "                            its author likely meant, one line each; exit status 1 if any\n"
    "  --dump                    the parsed document as JSON\n"
    "  -h, --help                this help\n"
    "\n"
    "Exit status: 0 done; 1 the document cannot be opened or the player's parser rejects it, or\n"
    "--check found something; 2 a wrong command line.\n";

int usage_error(std::FILE* err, const std::string& why)
{
    std::fprintf(err, "schedule-inspect: %s\n%s", why.c_str(), kUsageText);
    return kUsage;
}

// A whole number 1 to `most`, digits only.
bool parse_count(const char* text, int most, int* out)
{
    std::string_view s(text);
    if (s.empty() || s.size() > 4 || s.find_first_not_of("0123456789") != std::string_view::npos) return false;
    *out = std::atoi(text);
    return *out >= 1 && *out <= most;
}

bool readable(std::FILE* err, const char* path)
{
    if (std::FILE* f = std::fopen(path, "r")) {
        std::fclose(f);
        return true;
    }
    std::fprintf(err, "schedule-inspect: cannot open %s: %s\n", path, std::strerror(errno));
    return false;
}

}  // namespace

int run(int argc, char** argv, std::FILE* out, std::FILE* err)
{
    const char* path = nullptr;
    const char* atText = nullptr;
    const char* fromText = nullptr;
    const char* daysText = nullptr;
    const char* configPath = nullptr;
    const char* svgPath = nullptr;
    bool dump = false, checks = false;
    struct Valued {
        std::string_view name;
        const char** value;
    } const valued[] = {{"--at", &atText},           {"--from", &fromText}, {"--days", &daysText},
                        {"--config", &configPath}, {"--svg", &svgPath}};
    for (int i = 1; i < argc; ++i) {
        std::string_view a = argv[i];
        bool taken = false;
        for (const Valued& v : valued) {
            if (a == v.name) {
                if (++i >= argc) return usage_error(err, std::string(v.name) + " needs a value");
                *v.value = argv[i];
                taken = true;
            } else if (a.size() > v.name.size() && a.substr(0, v.name.size()) == v.name &&
                       a[v.name.size()] == '=') {
                *v.value = argv[i] + v.name.size() + 1;
                taken = true;
            }
        }
        if (taken) continue;
        if (a == "--dump") {
            dump = true;
        } else if (a == "--check") {
            checks = true;
        } else if (a == "-h" || a == "--help") {
            std::fputs(kUsageText, out);
            return kOk;
        } else if (a.size() > 1 && a[0] == '-') {
            return usage_error(err, "unknown option " + std::string(a));
        } else if (path == nullptr) {
            path = argv[i];
        } else {
            return usage_error(err, "one content document only");
        }
    }
    if (path == nullptr) {
        std::fputs(kUsageText, err);
        return kUsage;
    }
    bool weekView = fromText != nullptr || daysText != nullptr || configPath != nullptr || svgPath != nullptr;
    if ((atText != nullptr) + weekView + dump + checks > 1)
        return usage_error(err, "choose one of --at, the week view (--from, --days, --config, --svg), --check "
                                "and --dump");

    std::time_t at = seam::now();
    if (atText != nullptr) {
        std::string why;
        if (!parse_local_time(atText, &at, &why))
            return usage_error(err, "--at " + std::string(atText) + ": " + why);
    }
    int days = 7;
    if (daysText != nullptr && !parse_count(daysText, 366, &days))
        return usage_error(err, "--days " + std::string(daysText) + ": expected a number of days, 1 to 366");
    std::time_t first = 0;
    if (weekView) {
        std::tm today{};
        localtime_r(&at, &today);
        if (fromText != nullptr) {
            std::string why;
            std::string midnight = std::string(fromText) + "T00:00:00";
            if (std::strlen(fromText) != 10 || !parse_local_time(midnight.c_str(), &at, &why))
                return usage_error(err, "--from " + std::string(fromText) +
                                            ": expected a day of the form YYYY-MM-DD that the player's "
                                            "clock can count");
            localtime_r(&at, &today);
        }
        first = local_midnight(today.tm_year + 1900, today.tm_mon + 1, today.tm_mday);
        if (first == -1 || local_midnight(today.tm_year + 1900, today.tm_mon + 1, today.tm_mday + days) == -1)
            return usage_error(err, "the agent counts time in 32-bit seconds: the days must end by 2038-01-19");
    }

    if (!readable(err, path)) return kBadDocument;
    if (checks) return check(out, path) == 0 ? kOk : kBadDocument;
    dA_Initialize();
    if (dA_ParseContent(path) != 0 || !dA_IsContentValid()) {
        std::fprintf(err,
                     "schedule-inspect: %s is not a content document the player can read "
                     "(the agent's parser rejects it; --check says where)\n",
                     path);
        return kBadDocument;
    }
    DRAVIK_CONTENT& content = *dA_Content();
    if (dump) {
        std::fprintf(out, "%s\n", dump_json(content).c_str());
    } else if (!weekView) {
        explain(out, content, at);
    } else {
        DRAVIK_CONFIGURATION_CH* config = nullptr;
        if (configPath != nullptr) {
            if (!readable(err, configPath)) return kBadDocument;
            if (dA_ParseConfigurationCH(configPath) != 0 || !dA_IsConfigurationCHValid()) {
                std::fprintf(err, "schedule-inspect: %s is not a configuration document the player can read\n",
                             configPath);
                return kBadDocument;
            }
            config = dA_ConfigurationCH();
        }
        std::vector<Day> shown = week(content, config, first, days);
        print_week(out, content, shown, config);
        if (svgPath != nullptr) {
            std::string svg = svg_week(content, shown, config);
            std::FILE* f = std::fopen(svgPath, "w");
            bool written = f != nullptr && std::fwrite(svg.data(), 1, svg.size(), f) == svg.size();
            if (f != nullptr && std::fclose(f) != 0) written = false;
            if (!written) {
                std::fprintf(err, "schedule-inspect: cannot write %s: %s\n", svgPath, std::strerror(errno));
                return kBadDocument;
            }
        }
    }
    return std::fflush(out) == 0 ? kOk : kBadDocument;
}

}  // namespace inspect
