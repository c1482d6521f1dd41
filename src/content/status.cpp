#include "content/status.h"

// Not written yet.
void process_post_status(const char*, const char*, DRAVIK_CONTENT*, PLAYER_STATE*) {}

int da_CreatePlayerXMLStatus(char* buf, int, DRAVIK_PLAYER_STATUS*)
{
    buf[0] = '\0';
    return 0;
}

int perform_post_status(char*, DRAVIK_PLAYER_STATUS*) { return 0; }

void make_time_stamp(char* tstampBuf, std::time_t) { tstampBuf[0] = '\0'; }
