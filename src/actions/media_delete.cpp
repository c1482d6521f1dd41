#include "actions/media_delete.h"

// Not written yet: nothing is deleted.
void delete_file(char*) {}
void delete_video(void) {}
void delete_image(void) {}
void delete_all(void) {}
void delete_usb_config(void) {}
int check_if_video(const char*) { return 0; }
