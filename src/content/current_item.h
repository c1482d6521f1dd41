#pragma once
// Content check and playback control: adopts new content documents, and keeps the
// player playing what the schedule asks for.
//
//   currentContent                       the content in force (the id saved on disk,
//                                        g_saved_content_id, is in xml/dravikAPI.h)
//   process_content(line, id)            a ContentID line of the command list
//   process_content_check(content)       the main loop's content step
#include "xml/dravikAPI.h"

extern DRAVIK_CONTENT currentContent;

int process_content(char* line, char* currentID);
void process_content_check(DRAVIK_CONTENT* pContent);
