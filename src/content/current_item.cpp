#include "content/current_item.h"

DRAVIK_CONTENT currentContent;

// Not written yet.
int process_content(char*, char*) { return 1; }
void process_content_check(DRAVIK_CONTENT*) {}
