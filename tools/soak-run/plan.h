#pragma once
// The fault schedule: what the soak does to the device and its server, and when, in
// device seconds since the first boot. Random, but the same for the same seed and length.
//
//   Plan plan = make_plan(seed, seconds)   every kind at least once, then each at its
//                                          rate per device day, in the order of time
#include <cstdint>
#include <string>
#include <vector>

#include "world.h"

namespace soak {

enum class Kind {
    NewContent,     // a new content document (new ids, media, schedule, layouts)
    CorruptContent, // one the agent's parser refuses; a good one follows
    NewConfig,      // on/off times, time zone, logging, time server
    CorruptConfig,
    CommandList,    // a list of another form (ListForm); one-shot forms last one call home
    ServerDown,     // connections refused for minutes to hours
    DocumentFault,  // a document answered 401, 404 or 500, stalled, cut short or slow
    MediaFault,     // media stalled, cut short or refused
    CallNow,
    UsbStick,       // a stick with a USB.CONF, with or without media
    PowerCut,       // the device loses power and boots again on the same disks
    ClockForward,
    ClockBack,      // ends the timer thread, as designed: a reboot follows hours later
    Reboot,         // that reboot
    DiskFull,       // the media disk filled by other files
};
constexpr int kKinds = static_cast<int>(Kind::DiskFull) + 1;
const char* kind_name(Kind kind);

struct Step {
    double at;     // device second
    Kind kind;
    double until;  // device second a lasting fault ends (ServerDown, faults, DiskFull)
    int number;    // seconds of a clock step, a list's interval, a stick's media flag ...
    ListForm form;       // CommandList
    std::string target;  // DocumentFault: the path; DiskFull: the folder
    std::string fault;   // cms-sim faults, in device seconds where they hold a time
};

using Plan = std::vector<Step>;

Plan make_plan(std::uint64_t seed, double seconds);
// No faults: a new content document every 20 to 40 device minutes, for measuring how
// faithful the device's figures stay at a speed.
Plan make_calm_plan(std::uint64_t seed, double seconds);

}  // namespace soak
