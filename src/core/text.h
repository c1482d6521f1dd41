#pragma once
// Bounded text helpers shared by every module that fills the fixed character arrays
// of the agent's records, and the few pieces every reader of the device's text files
// needs: numbers as atoi reads them, white space, keywords.
#include <climits>
#include <cstddef>
#include <cstdlib>
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

// atoi with the undefined overflow pinned down: leading blanks, digits up to the first
// other character, 0 for none; a value beyond int stops at its limit.
inline int text_to_int(const char* text)
{
    long long v = std::strtoll(text, nullptr, 10);
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return static_cast<int>(v);
}

// White space as the C locale's isspace knows it: blank, tab, LF, VT, FF, CR.
constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// `s` without its leading and trailing white space.
constexpr std::string_view trim_space(std::string_view s)
{
    while (!s.empty() && is_space(s.front())) s.remove_prefix(1);
    while (!s.empty() && is_space(s.back())) s.remove_suffix(1);
    return s;
}

// Cuts the white space off the end of `s` in place and returns its first character
// that is not white space.
inline char* trim_in_place(char* s)
{
    std::string_view kept = trim_space(s);
    char* first = s + (kept.empty() ? 0 : kept.data() - s);
    first[kept.size()] = '\0';
    return first;
}

// A keyword of the device's text files (action files, version files): it must stand
// at the very start of the line and is compared, without regard to case, over its
// first `length` characters only, so it is a prefix of whatever the line holds there.
template <typename Action>
struct Keyword {
    std::string_view word;
    std::size_t length;  // characters compared
    Action action;
};

constexpr bool same_letters(std::string_view a, std::string_view b)
{
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] - 'A' + 'a') : a[i];
        char y = b[i] >= 'A' && b[i] <= 'Z' ? static_cast<char>(b[i] - 'A' + 'a') : b[i];
        if (x != y) return false;
    }
    return true;
}

// The first keyword of `table`, in its order, that `line` begins with; nullptr for none.
template <typename Action, std::size_t N>
constexpr const Keyword<Action>* match_keyword(const Keyword<Action> (&table)[N], std::string_view line)
{
    for (const Keyword<Action>& k : table)
        if (line.size() >= k.length && same_letters(line.substr(0, k.length), k.word.substr(0, k.length)))
            return &k;
    return nullptr;
}
