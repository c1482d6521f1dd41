#pragma once
// The week view: day by day, the stretches of time in which the agent's schedule
// evaluation gives one answer, as a table and as an SVG picture.
//
//   inspect::local_midnight(y, m, d)         the start of a local day
//   inspect::week(content, config, first, n) n days of stretches from local midnight `first`
//   inspect::print_week(out, ...)            the table
//   inspect::svg_week(...)                   the picture, as SVG text
//   inspect::stretch_text(content, s, ...)   one stretch in words, as the table and the
//                                            picture's hover text give it
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "xml/dravikAPI.h"

namespace inspect {

// From `from` up to `to` the agent's evaluation gives the same answer.
struct Stretch {
    std::time_t from = 0, to = 0;
    int playlist = -1;  // the evaluation's currentPL
    int layout = -1;    // its currentLayout
    int item = -1;      // the schedule item behind it; -1: the defaults apply
    std::string why;    // with the defaults: why they apply
    bool display_off = false;  // by the configuration's on/off times
};

struct Day {
    std::time_t start = 0, end = 0;  // its local midnight and the next one
    std::vector<Stretch> stretches;
};

// -1 when the day cannot be counted in the agent's 32-bit seconds.
std::time_t local_midnight(int year, int month, int day);

// Steps the agent's own evaluation (content_get_pl_event, and getAutoOnOffMode when
// `config` is given) from one change to the next. Between changes of the clock's
// offset the clock and the calendar run together, so a wait the evaluation gives in
// clock seconds is also one in real seconds; at a change to or from summer time the
// evaluation is simply asked again.
std::vector<Day> week(DRAVIK_CONTENT& content, DRAVIK_CONFIGURATION_CH* config,
                      std::time_t first, int days);

// "Saturday 2026-03-28 (CET)"; a day on which the offset changes names both zones.
std::string day_label(const Day& day);
// "10:00-20:45", with the zones on a day when the offset changes.
std::string clock_range(const Day& day, std::time_t from, std::time_t to);
// "10:00-20:45  video: playlist 1 "Spring sale"; browser: none; schedule item 1".
std::string stretch_text(const DRAVIK_CONTENT& content, const Day& day, const Stretch& s,
                         bool with_display);
// The time zone as TZ names it, or the system's.
std::string zone_name();

void print_week(std::FILE* out, const DRAVIK_CONTENT& content, const std::vector<Day>& days,
                const DRAVIK_CONFIGURATION_CH* config);
std::string svg_week(const DRAVIK_CONTENT& content, const std::vector<Day>& days,
                     const DRAVIK_CONFIGURATION_CH* config);

}  // namespace inspect
