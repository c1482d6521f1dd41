#include "download/wget.h"

// Not written yet: every fetch fails.
int ftp_file(char*, const char*, unsigned int, const char*) { return 0; }
void* ftp_file_to_hd(void*) { return nullptr; }
int get_command_file(const char*, const char*, const char*) { return 0; }
int get_config_file(const char*, const char*, const char*) { return 0; }
int get_content_file(const char*, const char*, const char*) { return 0; }
int get_dl_request_file(const char*, const char*, int, const char*) { return 0; }
