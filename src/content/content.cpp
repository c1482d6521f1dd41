#include "content/content.h"

// Schedule evaluation is not written yet: nothing is scheduled.
void content_get_pl_event(DRAVIK_CONTENT*, PL_EVENT* ev)
{
    ev->currentPL = -1;
    ev->currentLayout = -1;
    ev->nextEventTime = 86400;
    ev->timeNowSeconds = 0;
}

std::time_t MakeTime(const char*, int) { return 0; }
