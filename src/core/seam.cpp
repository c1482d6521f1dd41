#include "core/seam.h"

#include <atomic>
#include <cstdlib>
#include <sys/time.h>
#include <unistd.h>

namespace seam {
namespace {
// Read by the timer thread as well as the main thread.
std::atomic<Platform*> installed{nullptr};
}  // namespace

int system(const char* command)
{
    if (Platform* p = installed.load()) return p->system(command);
    return std::system(command);
}

void sleep(unsigned seconds)
{
    if (Platform* p = installed.load()) {
        p->sleep(seconds);
        return;
    }
    ::sleep(seconds);
}

std::time_t now()
{
    if (Platform* p = installed.load()) return p->now();
    timeval tv{};
    gettimeofday(&tv, nullptr);
    return tv.tv_sec;
}

void install(Platform* platform) { installed.store(platform); }

}  // namespace seam
