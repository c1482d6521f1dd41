// schedule-inspect CONTENT_XML [--at YYYY-MM-DDTHH:MM:SS | --from YYYY-MM-DD ...] [--dump]: see --help
#include <cstdio>

#include "schedule-inspect/inspect.h"

int main(int argc, char** argv) { return inspect::run(argc, argv, stdout, stderr); }
