#include "support/fake_platform.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
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
        return run ? std::system(command) : 0;
    }

    void sleep(unsigned seconds) override
    {
        unsigned ms = scale_ms.load();
        if (std::this_thread::get_id() != owner.load()) {
            if (active && ms != 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(ms) * seconds);
                return;
            }
            for (;;) pause();
        }
        if (!active) {
            ::sleep(seconds);
            return;
        }
        {
            std::lock_guard<std::mutex> lock(mu);
            sleeps.push_back(seconds);
            clock += seconds;
        }
        if (ms != 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms) * seconds);
    }

    std::time_t now() override { return active ? clock.load() : std::time(nullptr); }

    std::atomic<bool> active{false};
    std::atomic<bool> run{false};
    std::atomic<unsigned> scale_ms{0};
    std::atomic<std::time_t> clock{0};
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
    shared().owner = std::this_thread::get_id();
    shared().clock = start;
    shared().run = false;
    shared().scale_ms = 0;
    clear();
    shared().active = true;
    seam::install(&shared());
}

FakePlatform::~FakePlatform() { shared().active = false; }

void FakePlatform::run_commands(bool on) { shared().run = on; }
void FakePlatform::scale_sleeps(unsigned ms_per_second) { shared().scale_ms = ms_per_second; }

void FakePlatform::set_time(std::time_t t) { shared().clock = t; }
void FakePlatform::advance(long seconds) { shared().clock += seconds; }

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
