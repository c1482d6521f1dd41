#pragma once
// The soak's report (text) and picture (SVG): what ran, the faults by kind, every
// invariant's checks and violations with the logs around each, calls home and
// downloads per day, switch latencies, and the agent's footprint over device time with
// the faults marked and what each layer played.
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "checks.h"
#include "plan.h"

namespace soak {

// A layer's playlist name from a device second on ("" idle).
struct Shown {
    double at;
    int layer;
    std::string name;
};

// One line of a peer's log, in device seconds.
struct LogLine {
    double at;
    std::string source;  // cms-sim, player-sim
    std::string text;
};

struct Run {
    int days_asked = 0;
    double seconds = 0;       // device seconds run
    double wall_seconds = 0;
    std::uint64_t seed = 0;
    int speed = 0;
    std::string build, start, tz;
    std::time_t start_epoch = 0;
    std::string load_before, load_after;  // /proc/loadavg
    std::vector<Step> applied;            // the plan's steps that were applied
    std::map<std::string, int> reboots;   // by cause
    std::map<std::string, int> list_forms;
    std::vector<Shown> shown;
    std::vector<LogLine> logs;  // both peers' logs, in the order of device time
    std::string agent_output;   // the agent's standard output, when it printed anything
};

std::string report_text(const Run& run, const Checks& checks);
std::string report_svg(const Run& run, const Checks& checks);

}  // namespace soak
