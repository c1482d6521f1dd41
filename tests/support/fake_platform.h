#pragma once
// A stand-in for the seam: records shell commands and sleeps, and keeps a clock the
// test sets. A FakePlatform object is a handle: while one lives, the seam is fake.
//
// Sleeps on the thread that created it are recorded and advance the clock. Sleeps on
// any other thread (the agent's detached timer thread, say) park that thread for good,
// so nothing ticks behind a test's back.
//
// The state behind the handles lives for the whole process and stays installed once
// a handle was made: a detached thread may still be on its way into a sleep when the
// test that started it ends. With no handle alive, commands, the owner's sleeps and the
// clock are the real ones again and other threads still park.
//
// Two options, both off for a new handle, let a test run real peers under the fake:
// run_commands(true) also hands every recorded command to the real shell, and
// scale_sleeps(ms) makes every thread's sleeps really last `ms` milliseconds per second
// asked (the owner's are still recorded and advance the clock), so a detached transfer
// thread polls wget at a tenth of its pace instead of parking.
#include <ctime>
#include <string>
#include <vector>

class FakePlatform {
public:
    explicit FakePlatform(std::time_t start = 1767268800);  // 2026-01-01 12:00:00 UTC
    ~FakePlatform();
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    void run_commands(bool on);
    void scale_sleeps(unsigned ms_per_second);

    void set_time(std::time_t t);
    void advance(long seconds);

    std::vector<std::string> commands() const;
    std::vector<unsigned> sleeps() const;  // the owner thread's sleeps, in order
    void clear();
};
