// Schedule evaluation on records built here, at moments set on the seam's clock, in
// time zones set through TZ (POSIX rules, so no zone files are needed).
#include "schedule/content.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

#include "core/text.h"
#include "support/fake_platform.h"
#include "support/record_text.h"

namespace {

constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr int kWednesday = 3;  // 2026-03-04, far from any clock change

DRAVIK_CONTENT content;  // tens of kilobytes: static storage

void set_zone(const char* tz)
{
    setenv("TZ", tz, 1);
    tzset();
}

int hms(int h, int m, int s = 0) { return h * 3600 + m * 60 + s; }

void reset(int defaultPL = 0, int defaultLayout = -1)
{
    content = {};
    content.schedule.defaultpl_index = defaultPL;
    content.schedule.defaultlo_index = defaultLayout;
}

SCHEDULE_ITEM& add_item(int pindex, int lindex, const char* start, const char* end,
                        std::initializer_list<DAY_ITEM> days = {})
{
    SCHEDULE_ITEM& it = content.schedule.schedItems[content.schedule.itemCount++];
    it.pindex = pindex;
    it.lindex = lindex;
    copy_text(it.stime, start);
    copy_text(it.etime, end);
    for (const DAY_ITEM& d : days) it.dayItems[it.dayItemCount++] = d;
    return it;
}

class ScheduleTest : public ::testing::Test {
protected:
    FakePlatform clock;
    PL_EVENT ev{};

    // The evaluation at local time `when` (never inside a clock change's skipped or
    // repeated hour) as "playlist,layout,next change".
    std::string at(const char* when)
    {
        std::tm tm{};
        EXPECT_NE(strptime(when, "%Y-%m-%dT%H:%M:%S", &tm), nullptr) << when;
        tm.tm_isdst = -1;
        clock.set_time(std::mktime(&tm));
        content_get_pl_event(&content, &ev);
        char next[40];
        std::snprintf(next, sizeof next, "%02d:%02d:%02d", ev.nextEventTime / 3600, ev.nextEventTime / 60 % 60,
                      ev.nextEventTime % 60);
        return fields(ev.currentPL, ev.currentLayout, next);
    }
};

class Schedule : public ScheduleTest, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override { set_zone(GetParam()); }
};

TEST_P(Schedule, DefaultsWhenNothingTouchesToday)
{
    reset(4, 2);
    EXPECT_EQ(at("2026-03-04T10:11:12"), "4,2,24:00:00");
    EXPECT_EQ(ev.timeNowSeconds, hms(10, 11, 12));

    // Over yesterday only, from tomorrow on, and with unreadable times: all ignored.
    add_item(1, 1, "2026-03-02T00:00:00", "2026-03-04T00:00:00");
    add_item(2, 1, "2026-03-05T00:00:01", "2026-03-09T00:00:00");
    add_item(3, 1, "26-03-01T00:00:00", "2026-03-09T00:00:00");
    add_item(5, 1, "2026-03-01T00:00:00", "2026/03/09T00:00:00");
    EXPECT_EQ(at("2026-03-04T10:11:12"), "4,2,24:00:00");
    EXPECT_EQ(fields(content_event_count(), content_selected_event()), "0,-1");
}

TEST_P(Schedule, ItemsWithoutDayItemsPlayTheirWholePeriod)
{
    // Spanning today: one start at midnight and no stop.
    reset();
    add_item(6, 3, "2026-03-03T12:00:00", "2026-03-05T12:00:00");
    for (const char* when : {"2026-03-04T00:00:00", "2026-03-04T12:00:00", "2026-03-04T23:59:59"})
        EXPECT_EQ(at(when), "6,3,24:00:00") << when;
    EXPECT_EQ(fields(content_event_count(), g_PSI[0].seconds, g_PSI[0].mode), "1,0,1");

    // Starting at the very next midnight still counts as touching today.
    reset();
    add_item(7, -1, "2026-03-05T00:00:00", "2026-03-06T00:00:00");
    EXPECT_EQ(at("2026-03-04T20:00:00"), "0,-1,24:00:00");
    EXPECT_EQ(fields(content_event_count(), g_PSI[0].seconds), "1,86400");

    // An event at the present second is already past.
    reset();
    add_item(2, 5, "2026-03-04T08:00:00", "2026-03-04T18:00:00");
    EXPECT_EQ(at("2026-03-04T07:59:59"), "0,-1,08:00:00");
    EXPECT_EQ(at("2026-03-04T08:00:00"), "2,5,18:00:00");
    EXPECT_EQ(at("2026-03-04T17:59:59"), "2,5,18:00:00");
    EXPECT_EQ(at("2026-03-04T18:00:00"), "0,-1,24:00:00");
}

TEST_P(Schedule, DayItemsOfTodayOnly)
{
    reset();
    add_item(3, -1, "2026-01-01T00:00:00", "2027-01-01T00:00:00",
             {{kWednesday, 0, hms(17, 0)},
              {kWednesday + 1, 1, hms(12, 0)},  // Thursday: not today
              {-1, 1, hms(13, 0)},              // an unreadable day never matches
              {kWednesday, 1, hms(8, 30)}});
    EXPECT_EQ(at("2026-03-04T08:00:00"), "0,-1,08:30:00");
    EXPECT_EQ(at("2026-03-04T12:30:00"), "3,-1,17:00:00");
    EXPECT_EQ(at("2026-03-04T17:00:00"), "0,-1,24:00:00");
    EXPECT_EQ(at("2026-03-05T12:30:00"), "3,-1,24:00:00");  // Thursday's entry alone
}

// A period that begins or ends today: an "on" before the period carries into it as a
// start at its beginning only when a later entry lies inside the period, and only a
// plain "on" (mode 1) does, though mode 2 starts like it within the walk.
TEST_P(Schedule, DayItemsOfAPeriodThatBeginsToday)
{
    // On at 06:00 and off at 22:00, but the period runs 08:00 to 20:00: the next entry
    // lies beyond its end, so nothing starts at 08:00 and only the stop is produced.
    reset();
    add_item(1, -1, "2026-03-04T08:00:00", "2026-03-04T20:00:00",
             {{kWednesday, 0, hms(22, 0)}, {kWednesday, 1, hms(6, 0)}});
    EXPECT_EQ(at("2026-03-04T12:00:00"), "0,-1,20:00:00");
    EXPECT_EQ(fields(content_event_count(), g_PSI[0].mode), "1,0");

    reset();
    add_item(1, -1, "2026-03-04T08:00:00", "2026-03-04T20:00:00",
             {{kWednesday, 1, hms(6, 0)}, {kWednesday, 0, hms(9, 0)}, {kWednesday, 1, hms(22, 0)}});
    EXPECT_EQ(at("2026-03-04T08:30:00"), "1,-1,09:00:00");
    EXPECT_EQ(at("2026-03-04T12:00:00"), "0,-1,20:00:00");

    // All entries before the period: nothing carries either.
    reset();
    add_item(1, -1, "2026-03-04T08:00:00", "2026-03-05T20:00:00", {{kWednesday, 1, hms(6, 0)}});
    EXPECT_EQ(at("2026-03-04T12:00:00"), "0,-1,24:00:00");
    EXPECT_EQ(content_event_count(), 0);

    reset();
    add_item(5, -1, "2026-01-01T00:00:00", "2027-01-01T00:00:00", {{kWednesday, 2, hms(10, 0)}});
    EXPECT_EQ(at("2026-03-04T11:00:00"), "5,-1,24:00:00");
    reset();
    add_item(5, -1, "2026-03-04T08:00:00", "2026-03-04T20:00:00",
             {{kWednesday, 2, hms(6, 0)}, {kWednesday, 0, hms(9, 0)}});
    EXPECT_EQ(at("2026-03-04T08:30:00"), "0,-1,09:00:00");
}

TEST_P(Schedule, SameSecondStartsGoToTheItemListedLater)
{
    reset();
    add_item(7, 1, "2026-03-04T09:00:00", "2026-03-04T17:00:00");
    add_item(2, 4, "2026-03-04T09:00:00", "2026-03-04T18:00:00");
    EXPECT_EQ(at("2026-03-04T10:00:00"), "2,4,17:00:00");

    // Listed the other way round, the other one wins: position decides, not the index.
    reset();
    add_item(2, 4, "2026-03-04T09:00:00", "2026-03-04T18:00:00");
    add_item(7, 1, "2026-03-04T09:00:00", "2026-03-04T17:00:00");
    EXPECT_EQ(at("2026-03-04T10:00:00"), "7,1,17:00:00");
    EXPECT_EQ(fields(content_event_count(), g_PSI[0].item, g_PSI[1].item), "4,0,1");
}

// Stops are matched by playlist index, so one item's stop cancels another's start.
TEST_P(Schedule, StopOfAPlaylistCancelsItsStartFromAnotherItem)
{
    reset();
    add_item(1, -1, "2026-03-04T07:00:00", "2026-03-05T07:00:00");  // playlist 1 from 07:00
    add_item(3, -1, "2026-03-04T06:00:00", "2026-03-04T12:00:00");  // A: playlist 3 until 12:00
    add_item(3, 9, "2026-03-04T10:00:00", "2026-03-05T10:00:00");   // B: playlist 3 from 10:00
    EXPECT_EQ(at("2026-03-04T11:00:00"), "3,9,12:00:00");
    // A's stop at 12:00 cancels B's start too: the earlier playlist 1 comes back, and
    // without it the default.
    EXPECT_EQ(at("2026-03-04T13:00:00"), "1,-1,24:00:00");
    content.schedule.schedItems[0].pindex = 3;
    EXPECT_EQ(at("2026-03-04T13:00:00"), "0,-1,24:00:00");
}

TEST_P(Schedule, TenItemsOfTwentyEightDayItemsStayWithinTheEventTable)
{
    // Every item ends just before midnight, so each gives its 28 entries and a stop:
    // 290 events for a table of 280. The last ten (item 9's latest) are dropped.
    reset();
    for (int i = 0; i < kMaxScheduleItems; ++i) {
        SCHEDULE_ITEM& it = add_item(i, i, "2026-03-01T00:00:00", "2026-03-04T23:59:59");
        for (int j = 0; j < kMaxDayItems; ++j)
            it.dayItems[it.dayItemCount++] = {kWednesday, j % 2 == 0 ? 1 : 0, 3000 * j + 100 * i};
    }
    // Items 0-8 were switched off at 22:30; item 9's last kept event is its start at
    // 15:15, and its stops were the ones dropped.
    EXPECT_EQ(at("2026-03-04T23:00:00"), "9,9,23:59:59");
    EXPECT_EQ(fields(content_event_count(), content_dropped_event_count()), "280,10");
    for (int e = 1; e < kMaxScheduleEvents; ++e) ASSERT_LE(g_PSI[e - 1].seconds, g_PSI[e].seconds);

    // Covering the whole day instead: exactly 280, nothing dropped.
    for (int i = 0; i < kMaxScheduleItems; ++i) copy_text(content.schedule.schedItems[i].etime, "2026-03-09T00:00:00");
    at("2026-03-04T23:00:00");
    EXPECT_EQ(fields(content_event_count(), content_dropped_event_count()), "280,0");
}

INSTANTIATE_TEST_SUITE_P(Zones, Schedule, ::testing::Values("UTC0", kCentralEurope, "EST5EDT,M3.2.0,M11.1.0"));

class ScheduleClockChange : public ScheduleTest {
protected:
    void SetUp() override { set_zone(kCentralEurope); }
};

TEST_F(ScheduleClockChange, DaysTheClockChangesCountClockTime)
{
    // 2026-03-29: at 02:00 the clock jumps to 03:00.
    reset();
    add_item(2, -1, "2026-03-29T08:00:00", "2026-03-29T18:00:00");
    EXPECT_EQ(at("2026-03-29T01:30:00"), "0,-1,08:00:00");
    EXPECT_EQ(at("2026-03-29T03:30:00"), "0,-1,08:00:00");
    EXPECT_EQ(ev.timeNowSeconds, hms(3, 30));  // clock time, though only 2.5 h have passed
    EXPECT_EQ(at("2026-03-29T17:59:59"), "2,-1,18:00:00");
    EXPECT_EQ(at("2026-03-29T18:00:00"), "0,-1,24:00:00");

    // Both ends are read with today's summer-time flag as it is now: an end at 01:30,
    // before the change, reads as 01:30 summer time, which is clock 01:30 from noon's
    // point of view rather than the 02:30 that real elapsed time would give.
    reset();
    add_item(4, -1, "2026-03-28T00:00:00", "2026-03-29T01:30:00");
    at("2026-03-29T12:00:00");
    EXPECT_EQ(fields(content_event_count(), g_PSI[1].mode, g_PSI[1].seconds), "2,0,5400");

    // 2026-10-25: at 03:00 the clock goes back to 02:00.
    reset();
    add_item(5, 1, "2026-10-25T00:30:00", "2026-10-25T12:00:00");
    EXPECT_EQ(at("2026-10-25T00:15:00"), "0,-1,00:30:00");
    EXPECT_EQ(at("2026-10-25T11:59:59"), "5,1,12:00:00");
    EXPECT_EQ(at("2026-10-25T12:00:00"), "0,-1,24:00:00");
    EXPECT_EQ(ev.timeNowSeconds, hms(12, 0));
}

TEST(MakeTime, ReadsFixedPositionsAfterADashAtTheFifthCharacter)
{
    set_zone("UTC0");
    // Separators other than the first dash are not looked at, and a short text reads as
    // if its missing fields were empty.
    for (const char* text : {"2010-03-01T08:00:00", "2010-03-01 08:00:00", "2010-03x01x08x00x00", "2010-03-01T08"})
        EXPECT_EQ(MakeTime(text, 0), 1267430400) << text;
    EXPECT_EQ(MakeTime("2010-03-01", 0), 1267401600);
    // Anything without the dash in place is no time at all.
    for (const char* bad : {"", "201-03-01T08:00:00", "20100-3-01T08:00:00", "2010/03/01", "T2010-03-01"})
        EXPECT_EQ(MakeTime(bad, 0), 0) << bad;
    // The device counts in 32 bits: the last second it holds, and past it what its
    // mktime gives, on a 64-bit build too.
    EXPECT_EQ(MakeTime("2038-01-19T03:14:07", 0), 2147483647);
    EXPECT_EQ(MakeTime("2038-01-19T03:14:08", 0), -1);
    EXPECT_EQ(MakeTime("2099-12-31T23:59:59", 0), -1);
    EXPECT_EQ(MakeTime("1901-12-13T20:45:52", 0), -2147483647 - 1);

    // The flag given, not the date's own, decides the offset.
    set_zone(kCentralEurope);
    EXPECT_EQ(MakeTime("2026-07-01T12:00:00", 1), 1782900000);
    EXPECT_EQ(MakeTime("2026-07-01T12:00:00", 0), 1782900000 + 3600);
    EXPECT_EQ(MakeTime("2026-01-15T12:00:00", 1), 1768474800 - 3600);
}

}  // namespace
