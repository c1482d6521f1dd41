#include "agent/agent_fakes.h"

#include "actions/config.h"
#include "actions/version.h"
#include "agent/action_file.h"
#include "content/current_item.h"
#include "content/status.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/download.h"
#include "download/wget.h"
#include "schedule/player_state.h"
#include "storage/cleanup.h"
#include "support/queues.h"
#include "xml/dravikAPI.h"

// Globals owned by the subsystems the fakes stand in for.
DRAVIK_CONFIGURATION_CH currentCHConfig;
int AutoOnOffMode;
DRAVIK_CONTENT currentContent;
char g_saved_content_id[39];
PLAYER_STATE gPlayerState;
char check_version_line[257];

namespace fakes {
std::vector<std::string> trace;
Answers answers;

void reset()
{
    trace.clear();
    answers = {};
    for (auto* word : {&initiate_call_home, &initiate_content_check, &initiate_auto_on_off,
                       &initiate_send_log, &initiate_reboot, &initiate_post_status,
                       &initiate_download_check, &initiate_cleanup, &initiate_call_home_pending,
                       &initiate_send_log_pending, &initiate_post_status_pending,
                       &initiate_cleanup_pending, &call_home_timer, &auto_on_off_timer,
                       &content_check_timer, &download_check_timer, &send_log_timer,
                       &post_status_timer, &reboot_time, &timer_stopped})
        *word = 0;
    call_home_interval = 0;
    currentCHConfig = {};
    AutoOnOffMode = 1;
    queues::drain_all();
}
}  // namespace fakes

using fakes::answers;
using fakes::trace;

namespace {
int traced(const std::string& call, int result = 0)
{
    trace.push_back(call);
    return result;
}
}  // namespace

void dA_Initialize(void) { traced("dA_Initialize"); }
int dA_ParseConfigurationCH(const char* path)
{
    return traced(std::string("dA_ParseConfigurationCH ") + path, -1);
}
DRAVIK_CONFIGURATION_CH* dA_ConfigurationCH(void) { return nullptr; }
int dA_ParseContent(const char* path) { return traced(std::string("dA_ParseContent ") + path, -1); }
DRAVIK_CONTENT* dA_Content(void) { return nullptr; }

void download_init(void) { traced("download_init"); }
void end_leftover_transfers(void) {}  // no wget is ever started here
int download_in_progress(void) { return answers.download_running ? 1 : 0; }
void process_download_check(void) { traced("process_download_check"); }
int get_command_file(const char* server, const char*, const char* destfile)
{
    return traced(std::string("get_command_file ") + server + " " + destfile,
                  answers.command_file_fetched ? 1 : 0);
}

void player_state_clear(PLAYER_STATE*) { traced("player_state_clear"); }
void process_content_check(DRAVIK_CONTENT*) { traced("process_content_check"); }
void process_post_status(const char*, const char*, DRAVIK_CONTENT*, PLAYER_STATE*)
{
    traced("process_post_status");
}
void process_cleanup(DRAVIK_CONTENT*) { traced("process_cleanup"); }

int getAutoOnOffMode(DRAVIK_CONFIGURATION_CH*, int* next_seconds)
{
    *next_seconds = answers.auto_next_seconds;
    return traced("getAutoOnOffMode", answers.auto_mode);
}
void stop_all_play(void) { traced("stop_all_play"); }
int compute_log_timer(DRAVIK_CONFIGURATION_CH*, int first_time, char*)
{
    return traced("compute_log_timer " + std::to_string(first_time), answers.log_timer);
}
void transfer_log_file(DRAVIK_CONFIGURATION_CH*) { traced("transfer_log_file"); }
int check_inf_file(void) { return traced("check_inf_file", answers.inf_result); }
int process_check_version(char* line)
{
    return traced(std::string("process_check_version ") + line, answers.check_version_result);
}

int load_call_home_config(const char* filename, int override_interval, int initial_config_load)
{
    if (answers.configured_call_home_timer) call_home_timer = answers.configured_call_home_timer;
    return traced(std::string("load_call_home_config ") + filename + " " +
                      std::to_string(override_interval) + " " + std::to_string(initial_config_load),
                  1);
}
int parse_action_file(const char* filename)
{
    if (answers.configured_call_home_timer) call_home_timer = answers.configured_call_home_timer;
    return traced(std::string("parse_action_file ") + filename, 1);
}
