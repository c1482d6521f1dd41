#pragma once
// The playlist files the player reads: numbered RAM playlists in /tmp/playlists, and
// the side files listing the media now in use (read by the disk cleanup).
//
//   MakeRAMVideoPlaylist, MakeRAMLayoutPlaylist    /tmp/playlists/r<N>
//   MakeTEMPPlaylist, MakeTEMPLayoutFileList       /tmp/currentpl, /tmp/currentlo
//   playlist_temp_playlist_filename, playlist_temp_layout_filename
#include "xml/dravikAPI.h"

int MakeRAMVideoPlaylist(int ramIndex, int plIndex, DRAVIK_CONTENT* content);
int MakeRAMLayoutPlaylist(int ramIndex, int layoutIndex, DRAVIK_CONTENT* content);
int MakeTEMPPlaylist(int plIndex, DRAVIK_CONTENT* content);
int MakeTEMPLayoutFileList(int layoutIndex, DRAVIK_CONTENT* content);
const char* playlist_temp_playlist_filename(void);
const char* playlist_temp_layout_filename(void);
