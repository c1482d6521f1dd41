#pragma once
// Version check and upgrades: firmware, software, extension application and boot
// splash, from the update server or a USB stick.
//
//   process_check_version(line)   a CheckVersion line: 1 reboot, -1 stop, 0 carry on
//   check_inf_file()              the stick's version file, same results
int process_check_version(char* inf_line);
int check_inf_file(void);
