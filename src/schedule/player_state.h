#pragma once
// What the agent knows the player is doing (gPlayerState), kept up to date by the
// content check and the download manager, and the record a status report is made of.
//
//   gPlayerState, player_state_clear
//   PLAYER_STATE, DRAVIK_PLAYER_STATUS

enum DOWNLOAD_STATE {
    DL_STATE_IDLE = 0,
    DL_STATE_ACTIVE = 1,
    DL_STATE_COMPLETE = 2,
    DL_STATE_ERROR = 3,
};

struct PLAYER_STATE {
    int out_of_memory_error;
    int too_many_download_errors;
    DOWNLOAD_STATE dl_state;
    int dl_total_count;     // files still to download
    int dl_priority_count;  // of them, priority files
    int no_pl_scheduled;
    int scheduled_pl_active;
    int no_layout_scheduled;
    int scheduled_layout_active;
    char pending_content_name[66];
    char pending_playlist_name[66];
    char pending_layout_name[66];
    char active_content_name[66];
    char active_playlist_name[66];
    char active_layout_name[66];
    int dl_error;
    char download_file[256];
};

enum PLAYER_STATUS_DL_STATES {
    PS_DL_STATE_IDLE = 0,
    PS_DL_STATE_ACTIVE = 1,
    PS_DL_STATE_COMPLETE = 2,
    PS_DL_STATE_ERROR = 3,
};

// What a status document is made from.
struct DRAVIK_PLAYER_STATUS {
    char playerID[13];
    int isPlaying;
    int haveError;
    char tstamp[21];
    int auto_off;
    int no_pl_scheduled;
    int scheduled_pl_active;
    char active_content_name[66];
    char active_playlist_name[66];
    char active_layout_name[66];
    char pending_content_name[66];
    char pending_playlist_name[66];
    char pending_layout_name[66];
    int error_count;  // 0 to 3
    char err_code[3][3];
    char err_text[3][64];
    int totalMB;
    int freeMB;
    char playing_video[256];
    char playing_layout[256];
    PLAYER_STATUS_DL_STATES download_state;
    int download_error_code;
    int download_enabled;
    char download_file[256];
    int download_total;
    int download_priority;
};

extern PLAYER_STATE gPlayerState;

void player_state_clear(PLAYER_STATE* s);
