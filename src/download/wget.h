#pragma once
// Transfers through the device's wget, started in the background and watched through
// its status files in /tmp.
//
//   ftp_file(url, dest, max, header)     blocking fetch of a small document
//   ftp_file_to_hd                       body of the detached media-download thread
//   get_command_file, get_config_file, get_content_file, get_dl_request_file
#include <cstdint>

// The one transfer in hand, shared between the download manager and the transfer thread.
struct TRANSFER_STATUS {
    int code;  // 0 idle, 255 running, 1 done, 132..135 failures
    char url[513];
    int media_index;  // into kvr_media_path
    char fname[256];
    char auth[128];
};

int ftp_file(char* url, const char* destfile, unsigned int max_bytes, const char* header);
void* ftp_file_to_hd(void*);
int get_command_file(const char* server, const char* mac, const char* destfile);
int get_config_file(const char* server, const char* mac, const char* destfile);
int get_content_file(const char* server, const char* mac, const char* destFile);
int get_dl_request_file(const char* server, const char* mac, int pri, const char* destfile);
