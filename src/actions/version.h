#pragma once
// Version check and upgrades: player firmware, player software, an extension
// application and the boot splash, from the network or a USB stick, described by a
// version-information file (pelk_version_info.inf).
//
//   process_check_version(line)   a CheckVersion line: fetch or copy the version file
//   check_inf_file()              the stick's version file, if there is one
//   process_inf_file()            /tmp/pelk_version_info.inf, line by line
//       results: 1 an upgrade was carried out (reboot), -1 one failed (stop for
//       good), 0 nothing was done
//   check_and_update_firmware/software/xapp, update_bootsplash   one line's upgrade
//   parse_update_line, get_upgrade_address, find_value_in_file, read_info_file
//   poll_for_transfer_end/firmware_end/xapp_end   the player's progress, no time limit
//
// Every upgrade that starts stops calls home (stop_timer).

// The update server asked for when a CheckVersion line names no server of its own:
// a CheckVersion line holding exactly this address fetches the version file below it.
constexpr const char* kDefaultUpdateServer = "http://updates.signage.example/";

int process_check_version(char* inf_line);
int check_inf_file(void);
int process_inf_file(void);
char* parse_update_line(char* line, int* version);
int check_and_update_firmware(char* line);
int check_and_update_software(char* line);
int check_and_update_xapp(char* line);
int update_bootsplash(char* line);
// `url` holds 512 bytes. 1 for a network address ("http://", "ftp://"), 0 for a file at
// the root of the stick, given as the address the player reads ("ide:///tmp/<name>").
int get_upgrade_address(char* ptr, char* url);
int poll_for_transfer_end(void);
int poll_for_firmware_end(void);
int poll_for_xapp_end(void);
// The value after `pattern` in `file` (a static buffer of 1024 bytes), empty when the
// pattern is absent; nullptr when the file cannot be opened.
char* find_value_in_file(const char* file, const char* pattern);
int read_info_file(const char* filename);
