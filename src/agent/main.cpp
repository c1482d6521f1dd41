#include <cstdio>

#include "agent/agent.h"

int main()
{
    // Standard output is the agent's log; keep it line by line even into a pipe or a
    // file, so nothing is lost when the device is switched off.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    agent_run();
}
