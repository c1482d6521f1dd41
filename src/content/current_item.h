#pragma once
// Content check and playback control: adopts new content documents, and keeps the
// player playing what the schedule asks for.
//
//   currentContent, g_saved_content_id   the content in force and the id saved on disk
//   process_content(line, id)            a ContentID line of the command list
//   process_content_check(content)       the main loop's content step
#include "xml/dravikAPI.h"

extern DRAVIK_CONTENT currentContent;
extern char g_saved_content_id[39];

int process_content(char* line, char* currentID);
void process_content_check(DRAVIK_CONTENT* pContent);
