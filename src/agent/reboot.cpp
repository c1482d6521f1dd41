#include "agent/reboot.h"

#include "core/seam.h"
#include "core/usb_xapp.h"

void reboot_sequence(void)
{
    static char reply[kSnmpTextSize];
    send_snmp_command(kSnmpSetType, kRebootCommand, reply);
    seam::sleep(5);
    seam::system("reboot");
    seam::sleep(3600);
}

void sleep_forever(void)
{
    for (;;) seam::sleep(5);
}

void follow_upgrade_result(int result)
{
    if (result == 1) reboot_sequence();
    else if (result == -1) sleep_forever();
}
