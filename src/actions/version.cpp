#include "actions/version.h"

// Not written yet: nothing is ever upgraded.
int process_check_version(char*) { return 0; }
int check_inf_file(void) { return 0; }
