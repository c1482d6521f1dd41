// Schedule evaluation on records built here, at moments set on the seam's clock, in time
// zones set through TZ (POSIX rules, so no zone files are needed). The day's cases are
// the table in days.txt.
#include "schedule/content.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

#include "core/text.h"
#include "support/fake_platform.h"
#include "support/record_text.h"

namespace {

constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
DRAVIK_CONTENT content;  // tens of kilobytes: static storage

void set_zone(const std::string& tz)
{
    setenv("TZ", tz.c_str(), 1);
    tzset();
}

// "PL LO START END D/M/H:MM...": one schedule item and its day items.
SCHEDULE_ITEM& add_item(std::istream& in)
{
    SCHEDULE_ITEM& it = content.schedule.schedItems[content.schedule.itemCount++];
    std::string start, end;
    in >> it.pindex >> it.lindex >> start >> end;
    copy_text(it.stime, start);
    copy_text(it.etime, end);
    char sep;
    for (int day, mode, h, m; in >> day >> sep >> mode >> sep >> h >> sep >> m;)
        it.dayItems[it.dayItemCount++] = {day, mode, h * 3600 + m * 60};
    return it;
}

// The evaluation at local time `when` (never inside a clock change's skipped or repeated
// hour) as "playlist,layout,next change".
std::string evaluate(const std::string& when)
{
    static FakePlatform clock;
    std::tm tm{};
    EXPECT_NE(strptime(when.c_str(), "%Y-%m-%dT%H:%M:%S", &tm), nullptr) << when;
    tm.tm_isdst = -1;
    clock.set_time(std::mktime(&tm));
    PL_EVENT ev{};
    content_get_pl_event(&content, &ev);
    EXPECT_EQ(ev.timeNowSeconds, tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec) << when;  // clock time
    char next[16];
    std::snprintf(next, sizeof next, "%02d:%02d:%02d", ev.nextEventTime / 3600, ev.nextEventTime / 60 % 60, ev.nextEventTime % 60);
    return fields(ev.currentPL, ev.currentLayout, next);
}

TEST(Schedule, EvaluationOfTheDay)
{
    for (const std::string zone : {"UTC0", kCentralEurope, "EST5EDT,M3.2.0,M11.1.0"}) {
        set_zone(zone);
        std::ifstream cases(DAYS);
        std::string name, only;
        for (std::string line; std::getline(cases, line);) {
            std::istringstream in(line);
            std::string word;
            in >> word;
            std::string rest = line.substr(std::min(line.size(), word.size() + 1));
            if (word == "case") {
                std::tie(name, only) = std::pair(rest, "");
                content = {};
                content.schedule.defaultlo_index = -1;
            }
            if (word == "zone") only = rest;
            if (!only.empty() && only != zone) continue;
            SCOPED_TRACE(zone + ": " + name);
            if (word == "item") add_item(in);
            if (word == "at") {
                EXPECT_EQ(evaluate(rest.substr(0, 19)), rest.substr(20)) << rest;
            }
            if (word != "events") continue;
            std::string events;
            for (int e = 0; e < content_event_count(); ++e)
                events += (e ? " " : "") + fields(g_PSI[e].item) + ":" + fields(g_PSI[e].mode) + "@" + fields(g_PSI[e].seconds);
            EXPECT_EQ(events, rest);
        }

        // Ten items of 28 day items, each ending just before midnight, give 290 events for a
        // table of 280: the last ten (item 9's latest, its stops) are dropped.
        content = {};
        content.schedule.defaultpl_index = 4;
        content.schedule.defaultlo_index = 2;
        for (int i = 0; i < kMaxScheduleItems; ++i) {
            std::istringstream in(fields(i) + " " + fields(i) + " 2026-03-01T00:00:00 2026-03-04T23:59:59");
            SCHEDULE_ITEM& it = add_item(in);
            for (int j = 0; j < kMaxDayItems; ++j) it.dayItems[it.dayItemCount++] = {3, j % 2 == 0 ? 1 : 0, 3000 * j + 100 * i};
        }
        EXPECT_EQ(evaluate("2026-03-04T23:00:00"), "9,9,23:59:59");
        EXPECT_EQ(fields(content_event_count(), content_dropped_event_count()), "280,10");
        for (int e = 1; e < kMaxScheduleEvents; ++e) ASSERT_LE(g_PSI[e - 1].seconds, g_PSI[e].seconds);
        for (int i = 0; i < kMaxScheduleItems; ++i) copy_text(content.schedule.schedItems[i].etime, "2026-03-09T00:00:00");
        EXPECT_EQ(evaluate("2026-03-04T23:00:00"), "4,2,24:00:00");  // every item switched off at 22:30 and after
        EXPECT_EQ(fields(content_event_count(), content_dropped_event_count(), content_selected_event()), "280,0,-1");
    }
}

TEST(Schedule, MakeTimeReadsFixedPositionsAfterADashAtTheFifthCharacter)
{
    set_zone("UTC0");
    // Separators other than the first dash are not looked at, and a short text reads as if
    // its missing fields were empty; without the dash in place it is no time at all. The
    // device counts in 32 bits: the last second it holds, and past it what its mktime gives.
    const std::pair<const char*, std::time_t> cases[] = {
        {"2010-03-01T08:00:00", 1267430400}, {"2010-03x01x08x00x00", 1267430400}, {"2010-03-01T08", 1267430400},
        {"2010-03-01", 1267401600}, {"", 0}, {"201-03-01T08:00:00", 0}, {"2010/03/01", 0}, {"T2010-03-01", 0},
        {"2038-01-19T03:14:07", 2147483647}, {"2038-01-19T03:14:08", -1}, {"1901-12-13T20:45:52", -2147483647 - 1}};
    for (const auto& [text, want] : cases) EXPECT_EQ(MakeTime(text, 0), want) << text;
    // Deliberately, the flag given, not the date's own, decides the offset.
    set_zone(kCentralEurope);
    EXPECT_EQ(MakeTime("2026-07-01T12:00:00", 1), 1782900000);
    EXPECT_EQ(MakeTime("2026-07-01T12:00:00", 0), 1782900000 + 3600);
    EXPECT_EQ(MakeTime("2026-01-15T12:00:00", 1), 1768474800 - 3600);
}

}  // namespace
