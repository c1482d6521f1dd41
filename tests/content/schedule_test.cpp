// Schedule evaluation on records built here, at moments set on the seam's clock, in
// time zones set through TZ (POSIX rules, so no zone files are needed).
#include "content/content.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

#include "core/text.h"
#include "support/fake_platform.h"

namespace {

constexpr const char* kUtc = "UTC0";
constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kUsEastern = "EST5EDT,M3.2.0,M11.1.0";

DRAVIK_CONTENT content;  // tens of kilobytes: static storage

// Sets TZ for the lifetime of a test.
class Zone {
public:
    explicit Zone(const char* tz)
    {
        if (const char* old = std::getenv("TZ")) old_ = old, had_ = true;
        setenv("TZ", tz, 1);
        tzset();
    }
    ~Zone()
    {
        if (had_)
            setenv("TZ", old_.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

private:
    std::string old_;
    bool had_ = false;
};

// Local "YYYY-MM-DDTHH:MM:SS" to calendar seconds in the zone in force; the moments
// used here are never inside a clock change's skipped or repeated hour.
std::time_t local(const char* text)
{
    std::tm tm{};
    EXPECT_EQ(std::sscanf(text, "%d-%d-%dT%d:%d:%d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                          &tm.tm_hour, &tm.tm_min, &tm.tm_sec),
              6);
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    tm.tm_isdst = -1;
    return std::mktime(&tm);
}

int hms(int h, int m, int s = 0) { return h * 3600 + m * 60 + s; }

void reset(int defaultPL = 0, int defaultLayout = -1)
{
    content = {};
    content.schedule.defaultpl_index = defaultPL;
    content.schedule.defaultlo_index = defaultLayout;
}

int add_item(int pindex, int lindex, const char* start, const char* end,
             std::initializer_list<DAY_ITEM> days = {})
{
    DRAVIK_SCHEDULE& s = content.schedule;
    SCHEDULE_ITEM& it = s.schedItems[s.itemCount];
    it.pindex = pindex;
    it.lindex = lindex;
    copy_text(it.stime, start);
    copy_text(it.etime, end);
    for (const DAY_ITEM& d : days) it.dayItems[it.dayItemCount++] = d;
    return s.itemCount++;
}

PL_EVENT evaluate_at(FakePlatform& clock, const char* when)
{
    clock.set_time(local(when));
    PL_EVENT ev{};
    content_get_pl_event(&content, &ev);
    return ev;
}

struct Expect {
    int pl, layout, next;
};

void expect_event(const PL_EVENT& ev, Expect e, const char* when)
{
    EXPECT_EQ(ev.currentPL, e.pl) << when;
    EXPECT_EQ(ev.currentLayout, e.layout) << when;
    EXPECT_EQ(ev.nextEventTime, e.next) << when;
}

class Schedule : public ::testing::TestWithParam<const char*> {
protected:
    Zone zone{GetParam()};
    FakePlatform clock;
};

// 2026-03-04 is a Wednesday (weekday 3), far from any clock change.
constexpr int kWednesday = 3;

TEST_P(Schedule, DefaultsWhenNothingTouchesToday)
{
    reset(4, 2);
    PL_EVENT ev = evaluate_at(clock, "2026-03-04T10:11:12");
    expect_event(ev, {4, 2, 86400}, "no items");
    EXPECT_EQ(ev.timeNowSeconds, hms(10, 11, 12));

    // Over yesterday only, from tomorrow on, and with unreadable times: all ignored.
    add_item(1, 1, "2026-03-02T00:00:00", "2026-03-04T00:00:00");
    add_item(2, 1, "2026-03-05T00:00:01", "2026-03-09T00:00:00");
    add_item(3, 1, "26-03-01T00:00:00", "2026-03-09T00:00:00");
    add_item(5, 1, "2026-03-01T00:00:00", "2026/03/09T00:00:00");
    expect_event(evaluate_at(clock, "2026-03-04T10:11:12"), {4, 2, 86400}, "no item today");
    EXPECT_EQ(content_event_count(), 0);
    EXPECT_EQ(content_selected_event(), -1);
}

TEST_P(Schedule, ItemSpanningTodayPlaysAllDay)
{
    reset(0, -1);
    add_item(6, 3, "2026-03-03T12:00:00", "2026-03-05T12:00:00");
    for (const char* when : {"2026-03-04T00:00:00", "2026-03-04T12:00:00", "2026-03-04T23:59:59"})
        expect_event(evaluate_at(clock, when), {6, 3, 86400}, when);
    // One start at midnight and no stop: it ends tomorrow.
    ASSERT_EQ(content_event_count(), 1);
    EXPECT_EQ(g_PSI[0].seconds, 0);
    EXPECT_EQ(g_PSI[0].mode, 1);

    // Starting at the very next midnight still counts as touching today.
    reset(0, -1);
    add_item(7, -1, "2026-03-05T00:00:00", "2026-03-06T00:00:00");
    expect_event(evaluate_at(clock, "2026-03-04T20:00:00"), {0, -1, 86400}, "next midnight");
    ASSERT_EQ(content_event_count(), 1);
    EXPECT_EQ(g_PSI[0].seconds, 86400);
}

TEST_P(Schedule, EventAtThePresentSecondIsPast)
{
    reset(0, -1);
    add_item(2, 5, "2026-03-04T08:00:00", "2026-03-04T18:00:00");
    expect_event(evaluate_at(clock, "2026-03-04T07:59:59"), {0, -1, hms(8, 0)}, "before");
    expect_event(evaluate_at(clock, "2026-03-04T08:00:00"), {2, 5, hms(18, 0)}, "start second");
    expect_event(evaluate_at(clock, "2026-03-04T17:59:59"), {2, 5, hms(18, 0)}, "last second");
    expect_event(evaluate_at(clock, "2026-03-04T18:00:00"), {0, -1, 86400}, "stop second");
}

TEST_P(Schedule, DayItemsOfTodayOnly)
{
    reset(0, -1);
    add_item(3, -1, "2026-01-01T00:00:00", "2027-01-01T00:00:00",
             {{kWednesday, 0, hms(17, 0)},
              {kWednesday + 1, 1, hms(12, 0)},  // Thursday: not today
              {-1, 1, hms(13, 0)},              // an unreadable day never matches
              {kWednesday, 1, hms(8, 30)}});
    expect_event(evaluate_at(clock, "2026-03-04T08:00:00"), {0, -1, hms(8, 30)}, "morning");
    expect_event(evaluate_at(clock, "2026-03-04T12:30:00"), {3, -1, hms(17, 0)}, "noon");
    expect_event(evaluate_at(clock, "2026-03-04T17:00:00"), {0, -1, 86400}, "evening");
    // The next day its Thursday entry alone applies.
    expect_event(evaluate_at(clock, "2026-03-05T12:30:00"), {3, -1, 86400}, "thursday");
}

TEST_P(Schedule, NoStartAtPeriodBeginWhenNextDayItemLiesBeyondItsEnd)
{
    // On at 06:00 and off at 22:00 every Wednesday, but the period runs 08:00 to 20:00
    // today: the "on" before 08:00 does not carry into the period, because the next
    // entry (22:00) lies beyond its end. Only the stop at 20:00 is produced.
    reset(0, -1);
    add_item(1, -1, "2026-03-04T08:00:00", "2026-03-04T20:00:00",
             {{kWednesday, 0, hms(22, 0)}, {kWednesday, 1, hms(6, 0)}});
    expect_event(evaluate_at(clock, "2026-03-04T12:00:00"), {0, -1, hms(20, 0)}, "gap");
    ASSERT_EQ(content_event_count(), 1);
    EXPECT_EQ(g_PSI[0].mode, 0);

    // With an entry inside the period the "on" carries: a start at 08:00.
    reset(0, -1);
    add_item(1, -1, "2026-03-04T08:00:00", "2026-03-04T20:00:00",
             {{kWednesday, 1, hms(6, 0)}, {kWednesday, 0, hms(9, 0)}, {kWednesday, 1, hms(22, 0)}});
    expect_event(evaluate_at(clock, "2026-03-04T08:30:00"), {1, -1, hms(9, 0)}, "carried");
    expect_event(evaluate_at(clock, "2026-03-04T12:00:00"), {0, -1, hms(20, 0)}, "off at 9");

    // All entries before the period: nothing carries either.
    reset(0, -1);
    add_item(1, -1, "2026-03-04T08:00:00", "2026-03-05T20:00:00", {{kWednesday, 1, hms(6, 0)}});
    expect_event(evaluate_at(clock, "2026-03-04T12:00:00"), {0, -1, 86400}, "all before");
    EXPECT_EQ(content_event_count(), 0);
}

TEST_P(Schedule, ModeTwoStartsButDoesNotCarryIntoThePeriod)
{
    // Mode 2 is a start in the walk ...
    reset(0, -1);
    add_item(5, -1, "2026-01-01T00:00:00", "2027-01-01T00:00:00", {{kWednesday, 2, hms(10, 0)}});
    expect_event(evaluate_at(clock, "2026-03-04T11:00:00"), {5, -1, 86400}, "mode 2 start");

    // ... but only mode 1 counts as "on" before the period began.
    reset(0, -1);
    add_item(5, -1, "2026-03-04T08:00:00", "2026-03-04T20:00:00",
             {{kWednesday, 2, hms(6, 0)}, {kWednesday, 0, hms(9, 0)}});
    expect_event(evaluate_at(clock, "2026-03-04T08:30:00"), {0, -1, hms(9, 0)}, "not carried");
}

TEST_P(Schedule, SameSecondStartsGoToTheItemListedLater)
{
    reset(0, -1);
    add_item(7, 1, "2026-03-04T09:00:00", "2026-03-04T17:00:00");
    add_item(2, 4, "2026-03-04T09:00:00", "2026-03-04T18:00:00");
    expect_event(evaluate_at(clock, "2026-03-04T10:00:00"), {2, 4, hms(17, 0)}, "second listed");

    // Listed the other way round, the other one wins: position decides, not the index.
    reset(0, -1);
    add_item(2, 4, "2026-03-04T09:00:00", "2026-03-04T18:00:00");
    add_item(7, 1, "2026-03-04T09:00:00", "2026-03-04T17:00:00");
    expect_event(evaluate_at(clock, "2026-03-04T10:00:00"), {7, 1, hms(17, 0)}, "swapped");
    // Sorted by time, then by item position.
    ASSERT_EQ(content_event_count(), 4);
    EXPECT_EQ(g_PSI[0].item, 0);
    EXPECT_EQ(g_PSI[1].item, 1);
}

TEST_P(Schedule, StopOfAPlaylistCancelsItsStartFromAnotherItem)
{
    reset(0, -1);
    add_item(1, -1, "2026-03-04T07:00:00", "2026-03-05T07:00:00");  // playlist 1 from 07:00
    add_item(3, -1, "2026-03-04T06:00:00", "2026-03-04T12:00:00");  // A: playlist 3 until 12:00
    add_item(3, 9, "2026-03-04T10:00:00", "2026-03-05T10:00:00");   // B: playlist 3 from 10:00
    expect_event(evaluate_at(clock, "2026-03-04T11:00:00"), {3, 9, hms(12, 0)}, "before A stops");
    // A's stop at 12:00 cancels B's start too: the earlier playlist 1 comes back.
    expect_event(evaluate_at(clock, "2026-03-04T13:00:00"), {1, -1, 86400}, "after A stops");

    // Without the other playlist the default applies.
    content.schedule.schedItems[0].pindex = 3;
    expect_event(evaluate_at(clock, "2026-03-04T13:00:00"), {0, -1, 86400}, "all cancelled");
}

TEST_P(Schedule, TenItemsOfTwentyEightDayItemsStayWithinTheEventTable)
{
    // Every item ends just before midnight, so each gives its 28 entries and a stop:
    // 290 events for a table of 280. The last ten (item 9's latest) are dropped.
    reset(0, -1);
    for (int i = 0; i < kMaxScheduleItems; ++i) {
        int k = add_item(i, i, "2026-03-01T00:00:00", "2026-03-04T23:59:59");
        SCHEDULE_ITEM& it = content.schedule.schedItems[k];
        for (int j = 0; j < kMaxDayItems; ++j)
            it.dayItems[it.dayItemCount++] = {kWednesday, j % 2 == 0 ? 1 : 0, 3000 * j + 100 * i};
    }
    PL_EVENT ev = evaluate_at(clock, "2026-03-04T23:00:00");
    EXPECT_EQ(content_event_count(), kMaxScheduleEvents);
    EXPECT_EQ(content_dropped_event_count(), 10);
    // Items 0-8 were switched off at 22:30; item 9's last kept event is its start at
    // 15:15, and its stops were the ones dropped.
    expect_event(ev, {9, 9, hms(23, 59, 59)}, "full table");
    for (int e = 1; e < kMaxScheduleEvents; ++e) ASSERT_LE(g_PSI[e - 1].seconds, g_PSI[e].seconds);

    // Covering the whole day instead: exactly 280, nothing dropped.
    for (int i = 0; i < kMaxScheduleItems; ++i)
        copy_text(content.schedule.schedItems[i].etime, "2026-03-09T00:00:00");
    evaluate_at(clock, "2026-03-04T23:00:00");
    EXPECT_EQ(content_event_count(), kMaxScheduleEvents);
    EXPECT_EQ(content_dropped_event_count(), 0);
}

INSTANTIATE_TEST_SUITE_P(Zones, Schedule, ::testing::Values(kUtc, kCentralEurope, kUsEastern));

TEST(ScheduleClockChange, SpringForwardDayCountsClockTime)
{
    Zone zone(kCentralEurope);
    FakePlatform clock;
    reset(0, -1);
    // 2026-03-29: at 02:00 the clock jumps to 03:00.
    add_item(2, -1, "2026-03-29T08:00:00", "2026-03-29T18:00:00");
    PL_EVENT ev = evaluate_at(clock, "2026-03-29T01:30:00");
    expect_event(ev, {0, -1, hms(8, 0)}, "before the change");
    ev = evaluate_at(clock, "2026-03-29T03:30:00");
    EXPECT_EQ(ev.timeNowSeconds, hms(3, 30));  // clock time, though only 2.5 h have passed
    expect_event(ev, {0, -1, hms(8, 0)}, "after the change");
    expect_event(evaluate_at(clock, "2026-03-29T17:59:59"), {2, -1, hms(18, 0)}, "afternoon");
    expect_event(evaluate_at(clock, "2026-03-29T18:00:00"), {0, -1, 86400}, "stop");

    // Both ends are read with today's summer-time flag as it is now: an end at 01:30,
    // before the change, reads as 01:30 summer time, which is clock 01:30 from noon's
    // point of view rather than the 02:30 that real elapsed time would give.
    reset(0, -1);
    add_item(4, -1, "2026-03-28T00:00:00", "2026-03-29T01:30:00");
    evaluate_at(clock, "2026-03-29T12:00:00");
    ASSERT_EQ(content_event_count(), 2);
    EXPECT_EQ(g_PSI[1].mode, 0);
    EXPECT_EQ(g_PSI[1].seconds, hms(1, 30));
}

TEST(ScheduleClockChange, FallBackDayCountsClockTime)
{
    Zone zone(kCentralEurope);
    FakePlatform clock;
    reset(0, -1);
    // 2026-10-25: at 03:00 the clock goes back to 02:00.
    add_item(5, 1, "2026-10-25T00:30:00", "2026-10-25T12:00:00");
    expect_event(evaluate_at(clock, "2026-10-25T00:15:00"), {0, -1, hms(0, 30)}, "early");
    expect_event(evaluate_at(clock, "2026-10-25T11:59:59"), {5, 1, hms(12, 0)}, "last second");
    PL_EVENT ev = evaluate_at(clock, "2026-10-25T12:00:00");
    expect_event(ev, {0, -1, 86400}, "stop second");
    EXPECT_EQ(ev.timeNowSeconds, hms(12, 0));
}

TEST(MakeTime, ReadsFixedPositionsAfterADashAtTheFifthCharacter)
{
    Zone zone(kUtc);
    EXPECT_EQ(MakeTime("2010-03-01T08:00:00", 0), 1267430400);
    // Separators other than the first dash are not looked at.
    EXPECT_EQ(MakeTime("2010-03-01 08:00:00", 0), 1267430400);
    EXPECT_EQ(MakeTime("2010-03x01x08x00x00", 0), 1267430400);
    // A short text reads as if its missing fields were empty.
    EXPECT_EQ(MakeTime("2010-03-01", 0), 1267401600);
    EXPECT_EQ(MakeTime("2010-03-01T08", 0), 1267430400);
    // Anything without the dash in place is no time at all.
    for (const char* bad : {"", "201-03-01T08:00:00", "20100-3-01T08:00:00", "2010/03/01",
                            "T2010-03-01"})
        EXPECT_EQ(MakeTime(bad, 0), 0) << bad;

    Zone cet(kCentralEurope);
    // The flag given, not the date's own, decides the offset.
    EXPECT_EQ(MakeTime("2026-07-01T12:00:00", 1), 1782900000);
    EXPECT_EQ(MakeTime("2026-07-01T12:00:00", 0), 1782900000 + 3600);
    EXPECT_EQ(MakeTime("2026-01-15T12:00:00", 1), 1768474800 - 3600);
}

}  // namespace
