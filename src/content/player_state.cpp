#include "content/player_state.h"

PLAYER_STATE gPlayerState;

// Not written yet.
void player_state_clear(PLAYER_STATE*) {}
