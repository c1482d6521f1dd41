#pragma once
// Link-time stand-ins for everything the main loop calls outside the agent core, so a
// test sees which subsystem a pass served, in which order and with what. The core
// itself (timer, control channel, seam) is the real one, and no saved document parses.
#include <string>
#include <vector>

namespace fakes {

extern std::vector<std::string> trace;  // one entry per call, in call order

extern bool download_running;     // download_in_progress()
extern bool command_file_fetched; // get_command_file()
extern int auto_mode;             // getAutoOnOffMode() result
extern int auto_next_seconds;     // ... and its out-parameter
extern int log_timer;             // compute_log_timer() result
extern int inf_result;            // check_inf_file()
extern int check_version_result;  // process_check_version()
extern int configured_call_home_timer;  // what load_call_home_config arms, if not 0

// The fakes to their defaults; every flag and countdown, the call-home interval and
// timer_stopped to 0, the configuration empty and the display on; the agent's queues
// drained.
void reset();

}  // namespace fakes
