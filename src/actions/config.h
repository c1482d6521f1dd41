#pragma once
// Configuration processing and device settings: adopt a new channel configuration and
// push its settings to the player; display on/off by the week; resolution; log upload.
//
//   currentCHConfig, AutoOnOffMode       the configuration in force, the last on/off
//   process_config(line, id)             a ConfigID line of the command list: fetch,
//                                        parse, push, adopt, save, reboot if needed
//   adopt_config_document()              the same after the fetch
//   getAutoOnOffMode, stop_all_play, set_resolution
//   compute_log_timer, randomNumberFromMAC, transfer_log_file
#include "xml/dravikAPI.h"

extern DRAVIK_CONFIGURATION_CH currentCHConfig;
extern int AutoOnOffMode;  // 1 on, 0 off; -1 at start-up so the first evaluation counts
extern int log_offset_seconds;

// 0 for a malformed line or a document that does not parse, else 1 (or it reboots).
int process_config(char* line, char* currentID);
// The steps of process_config that follow a successful fetch of /tmp/daconfig.xml.
int adopt_config_document(void);
void set_resolution(char* line);
// 1 display on, 0 off; `next_seconds` gets the time to the next evaluation point
// (untouched when auto on/off is off or has no items).
int getAutoOnOffMode(DRAVIK_CONFIGURATION_CH* cfg, int* next_seconds);
void stop_all_play(void);
void transfer_log_file(DRAVIK_CONFIGURATION_CH* cfg);
// Seconds to the next log upload, 0 for none.
int compute_log_timer(DRAVIK_CONFIGURATION_CH* cfg, int first_time, char* MAC);
int randomNumberFromMAC(char* MAC, int min, int max);
