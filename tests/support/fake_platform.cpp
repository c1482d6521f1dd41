#include "support/fake_platform.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

#include "core/seam.h"

namespace {

class Shared final : public seam::Platform {
public:
    int system(const char* command) override
    {
        if (!active) return std::system(command);
        {
            std::lock_guard<std::mutex> lock(mu);
            commands.emplace_back(command);
        }
        return for_real ? std::system(command) : 0;
    }

    void sleep(unsigned seconds) override
    {
        if (std::this_thread::get_id() == owner) {
            if (!active) {
                ::sleep(seconds);
                return;
            }
            std::lock_guard<std::mutex> lock(mu);
            sleeps.push_back(seconds);
            clock += seconds;
            return;
        }
        if (active && background) {
            clock += seconds;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            return;
        }
        for (;;) pause();
    }

    std::time_t now() override
    {
        if (active) return clock;
        timeval tv{};
        gettimeofday(&tv, nullptr);
        return tv.tv_sec;
    }

    std::atomic<bool> active{false};
    std::atomic<std::time_t> clock{0};
    std::atomic<bool> for_real{false};
    std::atomic<bool> background{false};
    std::atomic<std::thread::id> owner;
    mutable std::mutex mu;
    std::vector<std::string> commands;
    std::vector<unsigned> sleeps;
};

// Never destroyed: parked or late threads may still reach it at exit.
Shared& shared()
{
    static Shared* s = new Shared;
    return *s;
}

}  // namespace

FakePlatform::FakePlatform(std::time_t start)
{
    Shared& s = shared();
    s.owner = std::this_thread::get_id();
    s.clock = start;
    s.for_real = false;
    s.background = false;
    clear();
    s.active = true;
    seam::install(&s);
}

FakePlatform::~FakePlatform()
{
    shared().active = false;
    shared().background = false;
}

void FakePlatform::set_time(std::time_t t) { shared().clock = t; }
void FakePlatform::advance(long seconds) { shared().clock += seconds; }
void FakePlatform::run_commands_for_real(bool on) { shared().for_real = on; }
void FakePlatform::allow_background_sleeps(bool on) { shared().background = on; }

std::vector<std::string> FakePlatform::commands() const
{
    std::lock_guard<std::mutex> lock(shared().mu);
    return shared().commands;
}

std::vector<unsigned> FakePlatform::sleeps() const
{
    std::lock_guard<std::mutex> lock(shared().mu);
    return shared().sleeps;
}

void FakePlatform::clear()
{
    std::lock_guard<std::mutex> lock(shared().mu);
    shared().commands.clear();
    shared().sleeps.clear();
}
