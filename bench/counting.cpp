// The replaced malloc family that counts the heap allocations while counting::on.
#include "counting.h"

#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t n, std::size_t size);
void* __libc_realloc(void* p, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* p);
}

namespace counting {
std::atomic<bool> on{false};
std::atomic<long> allocations{0};
}  // namespace counting

namespace {

void* counted(void* p)
{
    if (counting::on.load(std::memory_order_relaxed)) counting::allocations.fetch_add(1, std::memory_order_relaxed);
    return p;
}

}  // namespace

extern "C" {
void* malloc(std::size_t size) noexcept { return counted(__libc_malloc(size)); }
void* calloc(std::size_t n, std::size_t size) noexcept { return counted(__libc_calloc(n, size)); }
void* realloc(void* p, std::size_t size) noexcept { return counted(__libc_realloc(p, size)); }
void* memalign(std::size_t alignment, std::size_t size) noexcept
{
    return counted(__libc_memalign(alignment, size));
}
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    return counted(__libc_memalign(alignment, size));
}
int posix_memalign(void** out, std::size_t alignment, std::size_t size) noexcept
{
    *out = counted(__libc_memalign(alignment, size));
    return *out ? 0 : ENOMEM;
}
void free(void* p) noexcept { __libc_free(p); }
}
