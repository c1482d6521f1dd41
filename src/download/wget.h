#pragma once
// Transfers through the device's wget, started in the background and watched through
// its status files in /tmp.
//
//   ftp_file(url, dest, max, header)     blocking fetch of a small document
//   ftp_file_to_hd                       body of the detached media-download thread
//   get_command_file, get_config_file, get_content_file, get_dl_request_file
//   initialize_wget_transfer, parse_ftp_status   shared by both drivers
//   end_leftover_transfers               at start-up: a wget an earlier run left behind
//   status, g_stopFileDownload, file_transfer_progress   shared with the thread
#include <atomic>
#include <cstdint>

// The one media transfer in hand. The download manager fills it before it starts the
// transfer thread; afterwards the thread writes only `code` and the main loop only
// reads it, so `code` is the one word the two share.
struct TRANSFER_STATUS {
    std::atomic<int> code;  // 0 idle, 255 running, 1 done, 132..135 failures
    char url[513];
    int media_index;  // into kvr_media_path
    char fname[256];
    char auth[128];  // Basic credentials; empty: no header
};

extern TRANSFER_STATUS status;
extern std::atomic<int> g_stopFileDownload;  // nonzero: the running thread abandons (135)
extern std::atomic<std::uint64_t> file_transfer_progress;  // bytes of the current transfer

void initialize_wget_transfer(char* url);
void end_leftover_transfers(void);
int parse_ftp_status(unsigned int* last_bytes, int* countdown, unsigned int max_bytes);
int ftp_file(char* url, const char* destfile, unsigned int max_bytes, const char* header);
void* ftp_file_to_hd(void*);
int get_command_file(const char* server, const char* mac, const char* destfile);
int get_config_file(const char* server, const char* mac, const char* destfile);
int get_content_file(const char* server, const char* mac, const char* destFile);
int get_dl_request_file(const char* server, const char* mac, int pri, const char* destfile);
