#pragma once
// Content check and playback control: adopts new content documents, and keeps the
// player playing what the schedule asks for.
//
//   currentContent                       the content in force (the id saved on disk,
//                                        g_saved_content_id, is in xml/dravikAPI.h)
//   process_content(line, id)            a ContentID line of the command list
//   process_content_check(content)       the main loop's content step
//   get_current_item_layers(&l0, &l1)    what the player's two layers report
//   stop_play, start_ram_playlist, start_ram_playlist_with_layout   player commands
//   convertResToMode(code)               resolution code to 1080, 720, 480 or 0 lines
#include "xml/dravikAPI.h"

extern DRAVIK_CONTENT currentContent;

// What the player reports for one layer. The player has two: 0 plays video and
// pictures, 1 is the browser that shows a layout.
struct CURRENT_ITEM_LAYER {
    int valid;                  // 1: the report was well formed
    char PlayListFileName[8];   // the RAM playlist playing, "r0" ... ("h" for the player's own)
    char PlayListName[128];     // its Name line: content id, "*", index
    char StateText[28];
    char ItemName[255];
    int StateCode;              // non-zero: the layer plays something
};

// 1 when handled or nothing to do, 0 for a malformed line or a document that does
// not parse.
int process_content(char* line, char* currentID);
void process_content_check(DRAVIK_CONTENT* pContent);

void get_current_item_layers(CURRENT_ITEM_LAYER* CL1, CURRENT_ITEM_LAYER* CL2);
void stop_play(int layer1, int layer2);
void start_ram_playlist(int ramIndex, int layer);
void start_ram_playlist_with_layout(int ramIndex, DRAVIK_CONTENT* pContent, int layoutIndex);
int convertResToMode(int res);
void save_default_startup(int ramIndex);  // a hook for the player's own start-up list; empty
