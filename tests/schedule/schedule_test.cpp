// Schedule evaluation on records built here, at moments set on the seam's clock, in
// time zones set through TZ (POSIX rules, so no zone files are needed).
#include "schedule/content.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "core/text.h"
#include "support/fake_platform.h"
#include "support/record_text.h"

namespace {

constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

DRAVIK_CONTENT content;  // tens of kilobytes: static storage

void set_zone(const char* tz)
{
    setenv("TZ", tz, 1);
    tzset();
}

// "pl lo start end day/mode/h:mm...": one schedule item and its day items.
SCHEDULE_ITEM& add_item(const std::string& text)
{
    SCHEDULE_ITEM& it = content.schedule.schedItems[content.schedule.itemCount++];
    std::istringstream in(text);
    std::string start, end;
    in >> it.pindex >> it.lindex >> start >> end;
    copy_text(it.stime, start);
    copy_text(it.etime, end);
    char sep;
    for (int day, mode, h, m; in >> day >> sep >> mode >> sep >> h >> sep >> m;)
        it.dayItems[it.dayItemCount++] = {day, mode, h * 3600 + m * 60};
    return it;
}

// The evaluation at local time `when` (never inside a clock change's skipped or
// repeated hour) as "playlist,layout,next change", and today's events as
// "item:mode@seconds ...".
std::string evaluate(const char* when, std::string* events = nullptr)
{
    static FakePlatform clock;
    std::tm tm{};
    EXPECT_NE(strptime(when, "%Y-%m-%dT%H:%M:%S", &tm), nullptr) << when;
    tm.tm_isdst = -1;
    clock.set_time(std::mktime(&tm));
    PL_EVENT ev{};
    content_get_pl_event(&content, &ev);
    EXPECT_EQ(ev.timeNowSeconds, tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec) << when;  // clock time
    for (int e = 0; events && e < content_event_count(); ++e)
        *events += (e ? " " : "") + fields(g_PSI[e].item) + ":" + fields(g_PSI[e].mode) + "@" + fields(g_PSI[e].seconds);
    char next[16];
    std::snprintf(next, sizeof next, "%02d:%02d:%02d", ev.nextEventTime / 3600, ev.nextEventTime / 60 % 60,
                  ev.nextEventTime % 60);
    return fields(ev.currentPL, ev.currentLayout, next);
}

struct Case {
    const char* why;
    std::vector<std::string> items;
    std::vector<std::pair<const char*, const char*>> at;  // local time, "playlist,layout,next"
    const char* events = nullptr;                          // at the last time
    const char* zone = nullptr;                            // nullptr: each of three zones
};

// 2026-03-04 is a Wednesday (day 3), far from any clock change; the default is 0, -1.
const Case kCases[] = {
    {"yesterday only, from tomorrow on, unreadable times: ignored",
     {"1 1 2026-03-02T00:00:00 2026-03-04T00:00:00", "2 1 2026-03-05T00:00:01 2026-03-09T00:00:00",
      "3 1 26-03-01T00:00:00 2026-03-09T00:00:00", "5 1 2026-03-01T00:00:00 2026/03/09T00:00:00"},
     {{"2026-03-04T10:11:12", "0,-1,24:00:00"}}, ""},
    {"spanning today: one start at midnight", {"6 3 2026-03-03T12:00:00 2026-03-05T12:00:00"},
     {{"2026-03-04T00:00:00", "6,3,24:00:00"}, {"2026-03-04T23:59:59", "6,3,24:00:00"}}, "0:1@0"},
    {"starting at the next midnight touches today", {"7 -1 2026-03-05T00:00:00 2026-03-06T00:00:00"},
     {{"2026-03-04T20:00:00", "0,-1,24:00:00"}}, "0:1@86400"},
    {"an event at the present second is past", {"2 5 2026-03-04T08:00:00 2026-03-04T18:00:00"},
     {{"2026-03-04T07:59:59", "0,-1,08:00:00"}, {"2026-03-04T08:00:00", "2,5,18:00:00"},
      {"2026-03-04T17:59:59", "2,5,18:00:00"}, {"2026-03-04T18:00:00", "0,-1,24:00:00"}}},
    {"day items of today only; an unreadable day never matches",
     {"3 -1 2026-01-01T00:00:00 2027-01-01T00:00:00 3/0/17:00 4/1/12:00 -1/1/13:00 3/1/8:30"},
     {{"2026-03-04T08:00:00", "0,-1,08:30:00"}, {"2026-03-04T12:30:00", "3,-1,17:00:00"},
      {"2026-03-04T17:00:00", "0,-1,24:00:00"}, {"2026-03-05T12:30:00", "3,-1,24:00:00"}}},
    // A period that begins today: an "on" before it carries into it as a start at its
    // beginning only when a later entry lies inside the period (deliberately: on at 06:00
    // and off at 22:00 in a period of 08:00 to 20:00 gives only the stop), and only a
    // plain "on" (mode 1) carries, though mode 2 starts like it within the walk.
    {"an on before the period, the next entry beyond it",
     {"1 -1 2026-03-04T08:00:00 2026-03-04T20:00:00 3/0/22:00 3/1/6:00"}, {{"2026-03-04T12:00:00", "0,-1,20:00:00"}},
     "0:0@72000"},
    {"an on before the period carries to its start",
     {"1 -1 2026-03-04T08:00:00 2026-03-04T20:00:00 3/1/6:00 3/0/9:00 3/1/22:00"},
     {{"2026-03-04T08:30:00", "1,-1,09:00:00"}, {"2026-03-04T12:00:00", "0,-1,20:00:00"}}},
    {"every entry before the period", {"1 -1 2026-03-04T08:00:00 2026-03-05T20:00:00 3/1/6:00"},
     {{"2026-03-04T12:00:00", "0,-1,24:00:00"}}, ""},
    {"mode 2 starts", {"5 -1 2026-01-01T00:00:00 2027-01-01T00:00:00 3/2/10:00"},
     {{"2026-03-04T11:00:00", "5,-1,24:00:00"}}},
    {"mode 2 does not carry", {"5 -1 2026-03-04T08:00:00 2026-03-04T20:00:00 3/2/6:00 3/0/9:00"},
     {{"2026-03-04T08:30:00", "0,-1,09:00:00"}}},
    // Starts in the same second: the item listed later wins, whatever its index.
    {"same second, later listed", {"7 1 2026-03-04T09:00:00 2026-03-04T17:00:00", "2 4 2026-03-04T09:00:00 2026-03-04T18:00:00"},
     {{"2026-03-04T10:00:00", "2,4,17:00:00"}}},
    {"same second, other order", {"2 4 2026-03-04T09:00:00 2026-03-04T18:00:00", "7 1 2026-03-04T09:00:00 2026-03-04T17:00:00"},
     {{"2026-03-04T10:00:00", "7,1,17:00:00"}}, "0:1@32400 1:1@32400 1:0@61200 0:0@64800"},
    // Deliberately, stops are matched by playlist index: item 1's stop of playlist 3 at
    // 12:00 cancels item 2's start of it too, and the earlier start of playlist 1 is back.
    {"a stop cancels the same playlist's start from another item",
     {"1 -1 2026-03-04T07:00:00 2026-03-05T07:00:00", "3 -1 2026-03-04T06:00:00 2026-03-04T12:00:00",
      "3 9 2026-03-04T10:00:00 2026-03-05T10:00:00"},
     {{"2026-03-04T11:00:00", "3,9,12:00:00"}, {"2026-03-04T13:00:00", "1,-1,24:00:00"}}},
    {"... and with nothing earlier, the default",
     {"3 -1 2026-03-04T07:00:00 2026-03-05T07:00:00", "3 -1 2026-03-04T06:00:00 2026-03-04T12:00:00",
      "3 9 2026-03-04T10:00:00 2026-03-05T10:00:00"},
     {{"2026-03-04T13:00:00", "0,-1,24:00:00"}}},
    // Days of a clock change count clock time (2026-03-29: 02:00 jumps to 03:00).
    {"spring forward", {"2 -1 2026-03-29T08:00:00 2026-03-29T18:00:00"},
     {{"2026-03-29T01:30:00", "0,-1,08:00:00"}, {"2026-03-29T03:30:00", "0,-1,08:00:00"},
      {"2026-03-29T17:59:59", "2,-1,18:00:00"}, {"2026-03-29T18:00:00", "0,-1,24:00:00"}},
     nullptr, kCentralEurope},
    // Deliberately, both ends are read with today's summer-time flag as it is now: an end
    // at 01:30, before the change, reads as clock 01:30 from noon's point of view rather
    // than the 02:30 that elapsed time would give.
    {"an end before the change", {"4 -1 2026-03-28T00:00:00 2026-03-29T01:30:00"},
     {{"2026-03-29T12:00:00", "0,-1,24:00:00"}}, "0:1@0 0:0@5400", kCentralEurope},
    {"fall back (2026-10-25: 03:00 goes back to 02:00)", {"5 1 2026-10-25T00:30:00 2026-10-25T12:00:00"},
     {{"2026-10-25T00:15:00", "0,-1,00:30:00"}, {"2026-10-25T11:59:59", "5,1,12:00:00"},
      {"2026-10-25T12:00:00", "0,-1,24:00:00"}},
     nullptr, kCentralEurope},
};

TEST(Schedule, EvaluationOfTheDay)
{
    for (const char* zone : {"UTC0", kCentralEurope, "EST5EDT,M3.2.0,M11.1.0"}) {
        set_zone(zone);
        for (const Case& c : kCases) {
            if (c.zone && std::string(c.zone) != zone) continue;
            SCOPED_TRACE(std::string(zone) + ": " + c.why);
            content = {};
            content.schedule.defaultlo_index = -1;
            for (const std::string& item : c.items) add_item(item);
            std::string events;
            for (const auto& [when, want] : c.at) EXPECT_EQ(evaluate(when, &(events = "")), want) << when;
            if (c.events) {
                EXPECT_EQ(events, c.events);
            }
        }

        // Ten items of 28 day items, each ending just before midnight, give 290 events for a
        // table of 280: the last ten (item 9's latest, its stops) are dropped.
        content = {};
        content.schedule.defaultpl_index = 4;
        content.schedule.defaultlo_index = 2;
        for (int i = 0; i < kMaxScheduleItems; ++i) {
            SCHEDULE_ITEM& it = add_item(fields(i) + " " + fields(i) + " 2026-03-01T00:00:00 2026-03-04T23:59:59");
            for (int j = 0; j < kMaxDayItems; ++j) it.dayItems[it.dayItemCount++] = {3, j % 2 == 0 ? 1 : 0, 3000 * j + 100 * i};
        }
        EXPECT_EQ(evaluate("2026-03-04T23:00:00"), "9,9,23:59:59");
        EXPECT_EQ(fields(content_event_count(), content_dropped_event_count()), "280,10");
        for (int e = 1; e < kMaxScheduleEvents; ++e) ASSERT_LE(g_PSI[e - 1].seconds, g_PSI[e].seconds);
        for (int i = 0; i < kMaxScheduleItems; ++i) copy_text(content.schedule.schedItems[i].etime, "2026-03-09T00:00:00");
        EXPECT_EQ(evaluate("2026-03-04T23:00:00"), "4,2,24:00:00");  // every item switched off at 22:30 and after
        EXPECT_EQ(fields(content_event_count(), content_dropped_event_count(), content_selected_event()), "280,0,-1");
        content.schedule.itemCount = 0;
        EXPECT_EQ(evaluate("2026-03-04T10:11:12"), "4,2,24:00:00");
    }
}

TEST(Schedule, MakeTimeReadsFixedPositionsAfterADashAtTheFifthCharacter)
{
    set_zone("UTC0");
    // Separators other than the first dash are not looked at, and a short text reads as
    // if its missing fields were empty; without the dash in place it is no time at all.
    const std::pair<const char*, std::time_t> cases[] = {
        {"2010-03-01T08:00:00", 1267430400}, {"2010-03x01x08x00x00", 1267430400}, {"2010-03-01T08", 1267430400},
        {"2010-03-01", 1267401600}, {"", 0}, {"201-03-01T08:00:00", 0}, {"2010/03/01", 0}, {"T2010-03-01", 0},
        // The device counts in 32 bits: the last second it holds, and past it what its
        // mktime gives, on a 64-bit build too.
        {"2038-01-19T03:14:07", 2147483647}, {"2038-01-19T03:14:08", -1}, {"2099-12-31T23:59:59", -1},
        {"1901-12-13T20:45:52", -2147483647 - 1},
    };
    for (const auto& [text, want] : cases) EXPECT_EQ(MakeTime(text, 0), want) << text;

    // Deliberately, the flag given, not the date's own, decides the offset.
    set_zone(kCentralEurope);
    EXPECT_EQ(MakeTime("2026-07-01T12:00:00", 1), 1782900000);
    EXPECT_EQ(MakeTime("2026-07-01T12:00:00", 0), 1782900000 + 3600);
    EXPECT_EQ(MakeTime("2026-01-15T12:00:00", 1), 1768474800 - 3600);
}

}  // namespace
