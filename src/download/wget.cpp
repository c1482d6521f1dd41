#include "download/wget.h"

TRANSFER_STATUS status;
std::atomic<int> g_stopFileDownload{0};
std::atomic<std::uint64_t> file_transfer_progress{0};

// Not written yet: every fetch fails.
void initialize_wget_transfer(char*) {}
int parse_ftp_status(unsigned int*, int*, unsigned int) { return 0; }
int ftp_file(char*, const char*, unsigned int, const char*) { return 0; }
void* ftp_file_to_hd(void*) { return nullptr; }
int get_command_file(const char*, const char*, const char*) { return 0; }
int get_config_file(const char*, const char*, const char*) { return 0; }
int get_content_file(const char*, const char*, const char*) { return 0; }
int get_dl_request_file(const char*, const char*, int, const char*) { return 0; }
