#include "actions/config.h"

DRAVIK_CONFIGURATION_CH currentCHConfig;
int AutoOnOffMode;
int log_offset_seconds;

// Not written yet: the display counts as always on and no log is ever uploaded.
int process_config(char*, char*) { return 1; }
void set_resolution(char*) {}
int getAutoOnOffMode(DRAVIK_CONFIGURATION_CH*, int*) { return 1; }
void stop_all_play(void) {}
void transfer_log_file(DRAVIK_CONFIGURATION_CH*) {}
int compute_log_timer(DRAVIK_CONFIGURATION_CH*, int, char*) { return 0; }
int randomNumberFromMAC(char*, int min, int) { return min; }
