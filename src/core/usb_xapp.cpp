#include "core/usb_xapp.h"

char macAddress[13];
char call_home_address[513];

// The bridge exchange is not wired yet: every request gets an empty reply.
int init_snmp(void) { return 0; }

char* send_snmp_command(int, const char*, char* reply)
{
    reply[0] = '\0';
    return reply;
}

void send_player_msg(eKVR_CMMD_ID) {}

void send_usbcopy_msg(eKVR_CMMD_ID) {}

int get_mac_address(char* mac)
{
    mac[0] = '\0';
    return 1;
}

char* mac_address(void) { return macAddress; }

char* dcm_server(void) { return call_home_address; }
