#include "content/playlist.h"

// Not written yet: no file is written.
int MakeRAMVideoPlaylist(int, int, DRAVIK_CONTENT*) { return 1; }
int MakeRAMLayoutPlaylist(int, int, DRAVIK_CONTENT*) { return 1; }
int MakeTEMPPlaylist(int, DRAVIK_CONTENT*) { return 0; }
int MakeTEMPLayoutFileList(int, DRAVIK_CONTENT*) { return 0; }
const char* playlist_temp_playlist_filename(void) { return "/tmp/currentpl"; }
const char* playlist_temp_layout_filename(void) { return "/tmp/currentlo"; }
