#pragma once
// What the benchmarks share: a count of heap allocations and a quiet seam.
//
// malloc and its family are replaced in counting.cpp (glibc lets a program do so, and
// libc's own calls then come there too), so everything counts: operator new, stdio,
// opendir. measure() runs one pass per iteration and reports its allocations per pass.
#include <atomic>
#include <benchmark/benchmark.h>
#include <ctime>

#include "core/seam.h"

namespace counting {

extern std::atomic<bool> on;
extern std::atomic<long> allocations;

// Shell commands are not run and nothing sleeps: what is measured is the agent's own
// work.
class Quiet final : public seam::Platform {
public:
    int system(const char*) override { return 0; }
    void sleep(unsigned) override {}
    std::time_t now() override { return std::time(nullptr); }
};

// Runs `pass` once per iteration and reports its allocations per pass; `before` and
// `after` set up and tidy each pass outside the count and the clock.
template <typename Before, typename Pass, typename After>
void measure(benchmark::State& state, Before before, Pass pass, After after)
{
    long total = 0;
    for (auto _ : state) {
        state.PauseTiming();
        before();
        allocations = 0;
        on = true;
        state.ResumeTiming();
        pass();
        state.PauseTiming();
        on = false;
        total += allocations;
        after();
        state.ResumeTiming();
    }
    state.counters["allocs_per_pass"] = static_cast<double>(total) / static_cast<double>(state.iterations());
}

}  // namespace counting
