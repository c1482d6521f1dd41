#include "schedule-inspect/week.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "actions/config.h"
#include "schedule-inspect/common.h"

namespace inspect {
namespace {

constexpr const char* kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};

// The clock's offset from UTC at `t`, and whether it is summer time.
struct Zone {
    long offset;
    int isdst;
    bool operator==(const Zone&) const = default;
};

Zone zone_at(std::time_t t)
{
    std::tm tm{};
    localtime_r(&t, &tm);
    return {tm.tm_gmtoff, tm.tm_isdst};
}

// The first moment after `t`, up to `limit`, at which the offset is no longer t's;
// `limit` when there is none. Changes are months apart, so one look at `limit` finds
// whether there is one at all.
std::time_t next_zone_change(std::time_t t, std::time_t limit)
{
    Zone z = zone_at(t);
    if (zone_at(limit) == z) return limit;
    std::time_t lo = t, hi = limit;
    while (hi - lo > 1) {
        std::time_t mid = lo + (hi - lo) / 2;
        if (zone_at(mid) == z)
            lo = mid;
        else
            hi = mid;
    }
    return hi;
}

// What the agent makes of the schedule and the on/off times at `t`, and how long, in
// clock seconds, until either may next change.
struct Answer {
    Stretch stretch;
    long wait;
};

Answer ask(DRAVIK_CONTENT& content, DRAVIK_CONFIGURATION_CH* config, std::time_t t)
{
    ClockAt clock(t);
    PL_EVENT ev{};
    content_get_pl_event(&content, &ev);
    int chosen = content_selected_event();
    Answer a;
    a.stretch.playlist = ev.currentPL;
    a.stretch.layout = ev.currentLayout;
    if (chosen >= 0)
        a.stretch.item = g_PSI[chosen].item;
    else
        a.stretch.why = defaults_reason(content_event_count(), ev.timeNowSeconds);
    // The agent looks again at the next event, or at midnight when there is none today.
    a.wait = std::min(ev.nextEventTime, kDay) - ev.timeNowSeconds;
    if (config != nullptr) {
        int next = kDay;  // left as it is while on/off is disabled
        a.stretch.display_off = getAutoOnOffMode(config, &next) == 0;
        a.wait = std::min<long>(a.wait, next);
    }
    a.wait = std::clamp<long>(a.wait, 1, kDay);
    return a;
}

bool same_answer(const Stretch& a, const Stretch& b)
{
    return a.playlist == b.playlist && a.layout == b.layout && a.item == b.item && a.why == b.why &&
           a.display_off == b.display_off;
}

bool zone_changes(const Day& day) { return !(zone_at(day.start) == zone_at(day.end - 1)); }

// A clock time of the day: "24:00" for its end; seconds only when there are some; on a
// day when the offset changes, the zone's abbreviation where a clock time may be
// ambiguous.
std::string clock_of(const Day& day, std::time_t t, bool zones)
{
    std::time_t at = t == day.end ? t - 1 : t;
    std::tm tm{};
    localtime_r(&at, &tm);
    char buf[48];
    if (t == day.end)
        std::snprintf(buf, sizeof buf, "24:00");
    else if (tm.tm_sec != 0)
        std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", tm.tm_hour, tm.tm_min, tm.tm_sec);
    else
        std::snprintf(buf, sizeof buf, "%02d:%02d", tm.tm_hour, tm.tm_min);
    std::string s = buf;
    // The clock times before the change carry their zone; the day's label names the
    // zone of the rest.
    if (zones && t != day.end && !(zone_at(t) == zone_at(day.end - 1))) s += std::string(" ") + tm.tm_zone;
    return s;
}

std::string area(const LAYOUT_VID_AREA& a, const char* unit)
{
    char buf[96];
    std::snprintf(buf, sizeof buf, "%d%sx%d%s at %d%s,%d%s", a.width, unit, a.height, unit, a.x, unit, a.y,
                  unit);
    return buf;
}

std::string browser_layer(const DRAVIK_CONTENT& c, int layout)
{
    if (layout == -1) return "none";
    std::string label = layout_label(c, layout);
    if (layout < 0 || layout >= clamp_count(c.layoutcount, kMaxLayouts)) return label;
    // The video layer plays in the layout's area for the output's lines.
    const DRAVIK_LAYOUT& l = c.layouts[layout];
    return label + ", video " + area(l.va1080p, "") + " (1080 lines), " + area(l.va720p, "") +
           " (720 lines), " + area(l.vaPct, "%") + " (other)";
}

}  // namespace

std::time_t local_midnight(int year, int month, int day)
{
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_isdst = -1;
    std::time_t t = std::mktime(&tm);
    // The agent counts in 32-bit seconds; so does the week.
    if (t == -1 || t < INT_MIN || t > INT_MAX) return -1;
    return t;
}

std::vector<Day> week(DRAVIK_CONTENT& content, DRAVIK_CONFIGURATION_CH* config, std::time_t first, int days)
{
    std::tm tm{};
    localtime_r(&first, &tm);
    std::vector<Day> out;
    for (int d = 0; d < days; ++d) {
        Day day;
        day.start = local_midnight(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday + d);
        day.end = local_midnight(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday + d + 1);
        if (day.start == -1 || day.end == -1) break;
        for (std::time_t t = day.start; t < day.end;) {
            Answer a = ask(content, config, t);
            auto limit =
                static_cast<std::time_t>(std::min<long long>(static_cast<long long>(t) + a.wait, day.end));
            std::time_t next = next_zone_change(t, limit);
            if (!day.stretches.empty() && day.stretches.back().to == t &&
                same_answer(day.stretches.back(), a.stretch)) {
                day.stretches.back().to = next;
            } else {
                a.stretch.from = t;
                a.stretch.to = next;
                day.stretches.push_back(a.stretch);
            }
            t = next;
        }
        out.push_back(std::move(day));
    }
    return out;
}

std::string day_label(const Day& day)
{
    std::tm tm{};
    localtime_r(&day.start, &tm);
    char buf[96];
    std::snprintf(buf, sizeof buf, "%s %04d-%02d-%02d (%s", kWeekdays[tm.tm_wday], tm.tm_year + 1900,
                  tm.tm_mon + 1, tm.tm_mday, tm.tm_zone);
    std::string s = buf;
    if (zone_changes(day)) {
        std::time_t change = next_zone_change(day.start, day.end - 1);
        std::tm at{};
        localtime_r(&change, &at);
        std::snprintf(buf, sizeof buf, ", %s from %02d:%02d", at.tm_zone, at.tm_hour, at.tm_min);
        s += buf;
    }
    return s + ")";
}

std::string clock_range(const Day& day, std::time_t from, std::time_t to)
{
    bool zones = zone_changes(day);
    return clock_of(day, from, zones) + "-" + clock_of(day, to, zones);
}

std::string stretch_text(const DRAVIK_CONTENT& c, const Day& day, const Stretch& s, bool with_display)
{
    std::string text = clock_range(day, s.from, s.to) +
                       "  video: " + (s.playlist < 0 ? std::string("none") : playlist_label(c, s.playlist)) +
                       "; browser: " + browser_layer(c, s.layout) + "; ";
    text += s.item >= 0 ? "schedule item " + std::to_string(s.item) : "default: " + s.why;
    if (with_display && s.display_off) text += "; display off";
    return text;
}

std::string zone_name()
{
    const char* tz = std::getenv("TZ");
    if (tz != nullptr && *tz == ':') ++tz;
    if (tz != nullptr && *tz != '\0') return tz;
    if (tz != nullptr) return "UTC";
    tzset();
    std::string zones = tzname[0];
    if (tzname[1] != nullptr && zones != tzname[1]) zones += std::string("/") + tzname[1];
    return "the system's (" + zones + ")";
}

void print_week(std::FILE* out, const DRAVIK_CONTENT& c, const std::vector<Day>& days,
                const DRAVIK_CONFIGURATION_CH* config)
{
    std::fprintf(out, "%s (id %s), in the time zone %s\n", quoted(text_of(c.name)).c_str(),
                 std::string(text_of(c.id)).c_str(), zone_name().c_str());
    if (config != nullptr)
        std::fprintf(out, "with the display's on/off times of configuration %s%s\n",
                     quoted(text_of(config->id)).c_str(),
                     config->autoOnOffEnable != 0 && config->aooItemCount > 0
                         ? ""
                         : " (none in force: the display stays on)");
    for (const Day& day : days) {
        std::fprintf(out, "\n%s\n", day_label(day).c_str());
        for (const Stretch& s : day.stretches)
            std::fprintf(out, "  %s\n", stretch_text(c, day, s, config != nullptr).c_str());
    }
}

}  // namespace inspect
