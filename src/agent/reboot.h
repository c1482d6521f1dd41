#pragma once
// What an upgrade's result asks of the main thread, wherever the upgrade was started
// (a command list, a USB configuration file, a stick's version file):
//
//   1   the reboot sequence: tell the player, wait 5 s, reboot, wait an hour
//   -1  sleep five seconds at a time for ever, leaving the player to finish or
//       recover on its own; the timer thread keeps ticking but nothing is served
//   else nothing
void follow_upgrade_result(int result);

// Sent to the player before every reboot.
constexpr const char* kRebootCommand = ".1.3.6.1.4.1.58321.3.5.7.0 i 0";

void reboot_sequence(void);
[[noreturn]] void sleep_forever(void);
