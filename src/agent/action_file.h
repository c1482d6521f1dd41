#pragma once
// Action files: the USB configuration file (/mnt/hd3/USB.CONF and the stick's copy)
// and the command list the server hands out at each call home. Both are keyword lines
// that set where and how often to call home and order maintenance; both keep the
// call-home lines in /mnt/hd3/USB.CONF.
//
//   load_call_home_config(file, override_interval, initial_config_load)
//   parse_action_file(file)
//   check_version_line    the last CheckVersion line, acted on by USB_FIRMWARE_CHECK
//   trimwhitespace(str)   white space off both ends, in place
//
// Each returns 1 when the file was read through, 0 when it cannot be opened or holds a
// malformed call-home line; an upgrade that wants a reboot reboots, and a failed one
// never returns.

extern char check_version_line[257];

int load_call_home_config(const char* filename, int override_interval, int initial_config_load);
int parse_action_file(const char* filename);
char* trimwhitespace(char* str);
