#pragma once
// Link-time stand-ins for everything the main loop calls outside the agent core, so a
// test sees which subsystem a pass served, in which order and with what. The core
// itself (timer, control channel, seam) is the real one, and no saved document parses.
#include <string>
#include <vector>

namespace fakes {

extern std::vector<std::string> trace;  // one entry per call, in call order

// What the fakes answer; reset() puts these defaults back.
struct Answers {
    bool download_running = false;       // download_in_progress()
    bool command_file_fetched = true;    // get_command_file()
    int auto_mode = 1;                   // getAutoOnOffMode() result
    int auto_next_seconds = 100;         // ... and its out-parameter
    int log_timer = 0;                   // compute_log_timer()
    int inf_result = 0;                  // check_inf_file()
    int check_version_result = 0;        // process_check_version()
    int configured_call_home_timer = 0;  // what the action-file readers arm, if not 0
};
extern Answers answers;

// The fakes to their defaults; every flag and countdown, the call-home interval and
// timer_stopped to 0, the configuration empty and the display on; the agent's queues
// drained.
void reset();

}  // namespace fakes
