#include "content/current_item.h"

DRAVIK_CONTENT currentContent;
char g_saved_content_id[39];

// Not written yet.
int process_content(char*, char*) { return 1; }
void process_content_check(DRAVIK_CONTENT*) {}
