#pragma once
// What the parts of schedule-inspect share: the agent's clock stopped at a moment, and
// the names by which the explanation, the week and the checks call the document's
// playlists and layouts.
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>

#include "core/seam.h"
#include "core/text.h"
#include "schedule/content.h"

namespace inspect {

constexpr int kDay = 86400;

// The agent's clock stopped at one moment: the evaluations read the time through the
// seam, so installing this makes them evaluate at `at`.
class FixedClock final : public seam::Platform {
public:
    explicit FixedClock(std::time_t at) : at_(at) {}
    int system(const char*) override { return -1; }  // the evaluations run no commands
    void sleep(unsigned) override {}
    std::time_t now() override { return at_; }

private:
    std::time_t at_;
};

// Installs a FixedClock for as long as it lives; the real clock is back afterwards.
class ClockAt {
public:
    explicit ClockAt(std::time_t at) : clock_(at) { seam::install(&clock_); }
    ~ClockAt() { seam::install(nullptr); }
    ClockAt(const ClockAt&) = delete;
    ClockAt& operator=(const ClockAt&) = delete;

private:
    FixedClock clock_;
};

inline int clamp_count(int count, int capacity)
{
    if (count < 0) return 0;
    return count < capacity ? count : capacity;
}

inline std::string quoted(std::string_view s) { return "\"" + std::string(s) + "\""; }

// A playlist as the agent finds it: by position in the document's playlists.
inline std::string playlist_label(const DRAVIK_CONTENT& c, int index)
{
    std::string label = "playlist " + std::to_string(index);
    if (index >= 0 && index < clamp_count(c.plcount, kMaxPlaylists))
        return label + " " + quoted(text_of(c.playlists[index].name));
    return label + " (the document has no playlist there)";
}

inline std::string layout_label(const DRAVIK_CONTENT& c, int index)
{
    if (index == -1) return "no layout";
    std::string label = "layout " + std::to_string(index);
    if (index >= 0 && index < clamp_count(c.layoutcount, kMaxLayouts))
        return label + " " + quoted(text_of(c.layouts[index].name));
    return label + " (the document has no layout there)";
}

constexpr const char* kAllCancelled =
    "every start so far today was cancelled by a later stop of the same playlist";

// Why the defaults apply, from the events of the evaluation just made (`n` of them in
// g_PSI) at `secs` seconds after midnight.
inline std::string defaults_reason(int n, int secs)
{
    bool anyPast = false, anyPastStart = false;
    for (int e = 0; e < n; ++e)
        if (g_PSI[e].seconds <= secs) {
            anyPast = true;
            if (g_PSI[e].mode != 0) anyPastStart = true;
        }
    if (n == 0) return "no schedule item has an event today";
    if (!anyPast) return "nothing in the schedule has started yet today";
    if (anyPastStart) return kAllCancelled;
    return "the only events so far today are stops";
}

}  // namespace inspect
