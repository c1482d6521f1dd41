#pragma once
// What the allocation benchmarks share: a count of heap allocations and a quiet seam.
// Included by one file of each benchmark program, since it defines the program's malloc.
//
// malloc and its family are replaced here (glibc lets a program do so, and libc's own
// calls then come here too), so everything counts: operator new, stdio, opendir.
// measure() runs one pass per iteration and reports its allocations per pass.
#include <atomic>
#include <benchmark/benchmark.h>
#include <cerrno>
#include <cstddef>
#include <ctime>

#include "core/seam.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t n, std::size_t size);
void* __libc_realloc(void* p, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* p);
}

namespace counting {

inline std::atomic<bool> on{false};
inline std::atomic<long> allocations{0};

inline void* counted(void* p)
{
    if (on.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
    return p;
}

// Shell commands are not run and nothing sleeps: what is measured is the agent's own work.
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

extern "C" {
void* malloc(std::size_t size) noexcept { return counting::counted(__libc_malloc(size)); }
void* calloc(std::size_t n, std::size_t size) noexcept { return counting::counted(__libc_calloc(n, size)); }
void* realloc(void* p, std::size_t size) noexcept { return counting::counted(__libc_realloc(p, size)); }
void* memalign(std::size_t alignment, std::size_t size) noexcept { return counting::counted(__libc_memalign(alignment, size)); }
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept { return memalign(alignment, size); }
int posix_memalign(void** out, std::size_t alignment, std::size_t size) noexcept
{
    *out = memalign(alignment, size);
    return *out ? 0 : ENOMEM;
}
void free(void* p) noexcept { __libc_free(p); }
}
