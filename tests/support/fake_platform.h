#pragma once
// A stand-in for the seam: records shell commands and sleeps, and keeps a clock the
// test sets. Installed for the lifetime of the object.
//
// Sleeps on the thread that created it are recorded and advance the clock. Sleeps on
// any other thread (the agent's detached timer thread, say) park that thread for good
// unless background sleeps are allowed, so nothing ticks behind a test's back.
#include <atomic>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/seam.h"

class FakePlatform final : public seam::Platform {
public:
    explicit FakePlatform(std::time_t start = 1767268800);  // 2026-01-01 12:00:00 UTC
    ~FakePlatform();
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    int system(const char* command) override;
    void sleep(unsigned seconds) override;
    std::time_t now() override;

    void set_time(std::time_t t) { clock_ = t; }
    void advance(long seconds) { clock_ += seconds; }

    // Also hand commands to the real shell (inside the sandbox, with its stand-ins).
    void run_commands_for_real(bool on) { for_real_ = on; }
    // Let other threads' sleeps advance the clock and return instead of parking.
    void allow_background_sleeps(bool on) { background_ = on; }

    std::vector<std::string> commands() const;
    std::vector<unsigned> sleeps() const;  // the owner thread's sleeps, in order
    void clear();

private:
    std::atomic<std::time_t> clock_;
    std::atomic<bool> for_real_{false};
    std::atomic<bool> background_{false};
    std::thread::id owner_;
    mutable std::mutex mu_;
    std::vector<std::string> commands_;
    std::vector<unsigned> sleeps_;
};
