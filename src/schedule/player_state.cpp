#include "schedule/player_state.h"

PLAYER_STATE gPlayerState;

void player_state_clear(PLAYER_STATE* s)
{
    // Every number 0 (dl_state DL_STATE_IDLE), every text empty.
    *s = PLAYER_STATE{};
}
