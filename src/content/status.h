#pragma once
// The status report: the pstatus document, its HTTP POST, and the main loop's status
// step.
//
//   process_post_status      the main loop's step
//   da_CreatePlayerXMLStatus, perform_post_status, make_time_stamp
#include <ctime>

#include "schedule/player_state.h"
#include "xml/dravikAPI.h"

void process_post_status(const char* server, const char* mac, DRAVIK_CONTENT* pContent,
                         PLAYER_STATE* pState);
int da_CreatePlayerXMLStatus(char* buf, int size, DRAVIK_PLAYER_STATUS* status);
int perform_post_status(char* url, DRAVIK_PLAYER_STATUS* status);
void make_time_stamp(char* tstampBuf, std::time_t rawtime);
