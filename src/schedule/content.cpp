#include "schedule/content.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/timer.h"

SCHEDULE_EVENT g_PSI[kMaxScheduleEvents];
int endList[kMaxScheduleEvents];

namespace {

constexpr int kDay = 86400;

int g_event_count;     // entries of g_PSI filled by the last evaluation
int g_dropped_events;  // events of the last evaluation that found g_PSI full
int g_selected_event;  // entry of g_PSI that chose the playlist, -1 for the defaults

// One day entry of the item being expanded.
struct DayEntry {
    int mode;
    int time_of_day;
};

// Every append goes through here, so g_PSI never overflows. Ten items that each start
// or end inside today can ask for 290 events; the ones that find it full are dropped.
void append_event(int& n, int mode, int seconds, int item)
{
    if (n >= kMaxScheduleEvents) {
        ++g_dropped_events;
        return;
    }
    g_PSI[n++] = SCHEDULE_EVENT{mode, seconds, item};
}

// The number that `width` characters from `pos` read as, as atoi reads them. A text
// shorter than the fixed layout reads as if it ended in empty fields.
int field(const char* text, std::size_t length, std::size_t pos, std::size_t width)
{
    char buf[8] = {};
    for (std::size_t i = 0; i < width && pos + i < length; ++i) buf[i] = text[pos + i];
    return std::atoi(buf);
}

// Equal times keep the stored order: the swap is on strictly smaller only.
void sort_day_entries(DayEntry* list, int k)
{
    for (int p = 0; p + 1 < k; ++p)
        for (int j = 1; j < k - p; ++j)
            if (list[j].time_of_day < list[j - 1].time_of_day) {
                DayEntry t = list[j];
                list[j] = list[j - 1];
                list[j - 1] = t;
            }
}

// By time; at the same second the event of the item listed earlier comes first, so
// that in the backward walk the item listed later wins. Two events of one item at
// the same second keep the order they were made in.
void sort_events(int n)
{
    for (int p = 0; p + 1 < n; ++p)
        for (int j = 1; j < n - p; ++j) {
            const SCHEDULE_EVENT& a = g_PSI[j - 1];
            const SCHEDULE_EVENT& b = g_PSI[j];
            if (b.seconds < a.seconds || (b.seconds == a.seconds && b.item < a.item)) {
                SCHEDULE_EVENT t = g_PSI[j];
                g_PSI[j] = g_PSI[j - 1];
                g_PSI[j - 1] = t;
            }
        }
}

int clamp_count(int count, int capacity)
{
    if (count < 0) return 0;
    return count < capacity ? count : capacity;
}

// The events of one item whose period starts or ends within today: its day entries
// for today that fall inside the period, a start at the period's beginning when the
// item was already on then, and a stop at the period's end.
void expand_partial_day(const SCHEDULE_ITEM& it, int item, int wday, long startOff, long endOff,
                        int& n)
{
    DayEntry list[kMaxDayItems];
    int k = 0;
    for (int d = 0; d < clamp_count(it.dayItemCount, kMaxDayItems); ++d)
        if (it.dayItems[d].day == wday)
            list[k++] = DayEntry{it.dayItems[d].mode, it.dayItems[d].time_of_day};
    sort_day_entries(list, k);

    int j = 1;
    if (k == 0) {
        // nothing to emit from the list
    } else if (list[0].time_of_day >= endOff) {
        j = 1;
    } else if (list[0].time_of_day >= startOff) {
        append_event(n, list[0].mode, list[0].time_of_day, item);
        j = 1;
    } else {
        // The first entry lies before the period begins: find the first one inside it.
        // When none lies inside, nothing is started at the period's beginning even if
        // the item was on before it: that gap is how the player has always behaved,
        // and content is authored around it.
        int m = 1;
        bool found = false;
        for (;; ++m) {
            if (m == k) {
                j = k + 1;
                break;
            }
            if (list[m].time_of_day >= endOff) {
                j = m + 1;
                break;
            }
            if (list[m].time_of_day >= startOff) {
                found = true;
                break;
            }
        }
        if (found) {
            // Only a plain "on" (mode 1) counts as on before the period began.
            if (list[m - 1].mode == 1) append_event(n, 1, static_cast<int>(startOff), item);
            append_event(n, list[m].mode, list[m].time_of_day, item);
            j = m + 1;
        }
    }
    for (; j < k && list[j].time_of_day < endOff; ++j)
        append_event(n, list[j].mode, list[j].time_of_day, item);
    if (endOff != kDay) append_event(n, 0, static_cast<int>(endOff), item);
}

}  // namespace

std::time_t MakeTime(const char* text, int isdst)
{
    if (text == nullptr) return 0;
    const char* dash = std::strchr(text, '-');
    if (dash == nullptr || dash - text != 4) return 0;
    std::size_t length = std::strlen(text);

    // Read by position: YYYY-MM-DD?hh?mm?ss; only the first dash is looked at.
    std::tm tm{};
    tm.tm_year = field(text, length, 0, 4) - 1900;
    tm.tm_mon = field(text, length, 5, 2) - 1;
    tm.tm_mday = field(text, length, 8, 2);
    tm.tm_hour = field(text, length, 11, 2);
    tm.tm_min = field(text, length, 14, 2);
    tm.tm_sec = field(text, length, 17, 2);
    // Both ends of an item are read with today's daylight-saving state rather than
    // their own, so an item's clock times shift by the hour across a change.
    tm.tm_isdst = isdst ? 1 : 0;
    // The device's time_t is 32 bits: there mktime fails (-1) for a moment outside
    // 1901-12-13 .. 2038-01-19, so an item ending in 2099 never plays. A wider time_t
    // gives the same answer, so that every build schedules as the device does.
    std::time_t t = std::mktime(&tm);
    if (t < INT32_MIN || t > INT32_MAX) return -1;
    return t;
}

void content_get_pl_event(DRAVIK_CONTENT* content, PL_EVENT* ev)
{
    ev->currentPL = -1;
    ev->nextEventTime = -1;
    g_event_count = 0;
    g_dropped_events = 0;
    g_selected_event = -1;

    // localtime_r, unlike localtime, need not look at TZ again: make it.
    tzset();
    std::time_t now = get_tod_in_sec();
    std::tm tm{};
    localtime_r(&now, &tm);
    int secs = tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec;
    ev->timeNowSeconds = secs;
    int wday = tm.tm_wday;
    // On the day the clock changes this is an hour off the real midnight; the whole
    // evaluation measures from it consistently.
    std::time_t midnight = now - secs;

    const DRAVIK_SCHEDULE& sched = content->schedule;
    int n = 0;
    for (int i = 0; i < clamp_count(sched.itemCount, kMaxScheduleItems); ++i) {
        const SCHEDULE_ITEM& it = sched.schedItems[i];
        std::time_t st = MakeTime(it.stime, tm.tm_isdst);
        std::time_t et = MakeTime(it.etime, tm.tm_isdst);
        if (st == 0 || et == 0) continue;
        // Inclusive at the end of the day: an item starting at the next midnight counts.
        if (!(st <= midnight + kDay && et > midnight)) continue;

        if (it.dayItemCount == 0) {
            append_event(n, 1, st > midnight ? static_cast<int>(st - midnight) : 0, i);
            if (et < midnight + kDay) append_event(n, 0, static_cast<int>(et - midnight), i);
        } else if (st <= midnight && et >= midnight + kDay) {
            for (int d = 0; d < clamp_count(it.dayItemCount, kMaxDayItems); ++d)
                if (it.dayItems[d].day == wday)
                    append_event(n, it.dayItems[d].mode, it.dayItems[d].time_of_day, i);
        } else {
            long startOff = st > midnight ? static_cast<long>(st - midnight) : 0;
            long endOff = et < midnight + kDay ? static_cast<long>(et - midnight) : kDay;
            expand_partial_day(it, i, wday, startOff, endOff, n);
        }
    }
    g_event_count = n;

    sort_events(n);

    ev->currentPL = sched.defaultpl_index;
    ev->currentLayout = sched.defaultlo_index;
    ev->nextEventTime = kDay;
    if (n == 0) return;

    // Backwards from the latest: the most recent start at or before now wins, unless a
    // later stop of the same playlist index cancelled it. Stops are matched by playlist
    // index, not by item, so a stop from one item cancels another item's start of the
    // same playlist. An event at the present second is already past.
    int s = 0;
    for (int e = n - 1; e >= 0; --e) {
        const SCHEDULE_EVENT& event = g_PSI[e];
        const SCHEDULE_ITEM& it = sched.schedItems[event.item];
        if (event.seconds > secs) {
            ev->nextEventTime = event.seconds;  // the earliest future event is left last
            continue;
        }
        if (event.mode == 0) {
            if (s < kMaxScheduleEvents) endList[s++] = it.pindex;
            continue;
        }
        bool stopped = false;
        for (int k = 0; k < s; ++k)
            if (endList[k] == it.pindex) {
                stopped = true;
                break;
            }
        if (stopped) continue;
        ev->currentPL = it.pindex;
        ev->currentLayout = it.lindex;
        g_selected_event = e;
        return;
    }
}

int content_event_count(void) { return g_event_count; }
int content_dropped_event_count(void) { return g_dropped_events; }
int content_selected_event(void) { return g_selected_event; }
