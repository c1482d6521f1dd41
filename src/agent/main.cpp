#include <cstdio>

#include "agent/agent.h"

#ifdef AGENT_COVERAGE
#include <csignal>
#include <unistd.h>

extern "C" void __gcov_dump(void);

namespace {

// The agent never returns from its loop, so a coverage build writes its counts when it
// is asked to end; a SIGKILL (a power cut in a scenario) still loses them.
void write_counts_and_end(int) noexcept
{
    __gcov_dump();
    _exit(0);
}

}  // namespace
#endif

int main()
{
    // Standard output is the agent's log; keep it line by line even into a pipe or a
    // file, so nothing is lost when the device is switched off.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
#ifdef AGENT_COVERAGE
    std::signal(SIGTERM, write_counts_and_end);
#endif
    agent_run();
}
