#pragma once
// Schedule evaluation: which playlist and layout the content in force asks for now,
// and when today that next changes. Also the schedule and download bookkeeping
// records shared by the content check and the download manager.
//
//   content_get_pl_event(content, &ev)   fills a PL_EVENT for the present moment
//   MakeTime(text, isdst)                schedule date-time text to calendar seconds
//   g_PSI, content_event_count()         today's sorted events of the last evaluation
#include <ctime>

#include "xml/dravikAPI.h"

// The result of one schedule evaluation.
struct PL_EVENT {
    int currentPL;       // playlist index to play now, or the default
    int currentLayout;   // layout index to use now, or the default
    int nextEventTime;   // seconds after local midnight of the next change; 86400 none
    int timeNowSeconds;  // the evaluation time, seconds after local midnight
};

// Download bookkeeping for one content document.
struct CONTENT_DL_STATUS {
    char contentID[39];
    int dlcount;             // files still to fetch
    int dlcount_current_pl;  // of them, files of the current playlist or layout
    unsigned char FileFlag[kMaxFiles];          // 1: the file is on the disk, complete
    unsigned char completePL[kMaxPlaylists];    // 1: every file of the playlist is there
    unsigned char completeLayout[kMaxLayouts];  // 1: every file of the layout is there
};

// One start or stop of today, as the evaluation builds and sorts them.
struct SCHEDULE_EVENT {
    int mode;     // 1 start, 0 stop, or the mode a day item gives (any non-zero starts)
    int seconds;  // seconds after local midnight
    int item;     // position in schedItems of the schedule item that produced it
};

// Ten schedule items of 28 day items each.
constexpr int kMaxScheduleEvents = kMaxScheduleItems * kMaxDayItems;

// Working storage of the evaluation, overwritten by every call: only the first
// content_event_count() entries of g_PSI are meaningful.
extern SCHEDULE_EVENT g_PSI[kMaxScheduleEvents];
extern int endList[kMaxScheduleEvents];

void content_get_pl_event(DRAVIK_CONTENT* content, PL_EVENT* ev);
// 0 for a text not of the form; -1 for a moment the device's 32-bit time_t cannot hold.
std::time_t MakeTime(const char* text, int isdst);

// Of the last evaluation: how many events g_PSI holds, how many did not fit and were
// dropped, and which entry chose the playlist (-1: the defaults apply).
int content_event_count(void);
int content_dropped_event_count(void);
int content_selected_event(void);
