#pragma once
// Bounded text helpers shared by every module that fills the fixed character arrays
// of the agent's records.
#include <cstddef>
#include <cstring>
#include <string_view>

// Copies at most size-1 characters of `src` into `dst` and always terminates it.
// Returns the number of characters copied.
inline std::size_t copy_text(char* dst, std::size_t size, std::string_view src)
{
    if (size == 0) return 0;
    std::size_t n = src.size() < size - 1 ? src.size() : size - 1;
    if (n) std::memmove(dst, src.data(), n);
    dst[n] = '\0';
    return n;
}

template <std::size_t N>
inline std::size_t copy_text(char (&dst)[N], std::string_view src)
{
    return copy_text(dst, N, src);
}

// The text of a fixed array up to its terminator, never past the array.
template <std::size_t N>
inline std::string_view text_of(const char (&src)[N])
{
    return std::string_view(src, strnlen(src, N));
}
