#pragma once
// Text helpers for the document and record tests:
//   fields(a, b, ...)   the values joined by commas, so that one EXPECT_EQ compares a
//                       whole record entry ("0,1,intro.mp4,,/v": an empty text shows)
//   repeat(n, pattern)  n copies of pattern, each "#" in a copy replaced by its index
#include <sstream>
#include <string>

template <typename First, typename... Rest>
std::string fields(const First& first, const Rest&... rest)
{
    std::ostringstream out;
    out << first;
    ((out << ',' << rest), ...);
    return out.str();
}

inline std::string repeat(int n, const std::string& pattern)
{
    std::string out;
    for (int i = 0; i < n; ++i)
        for (char c : pattern) out += c == '#' ? std::to_string(i) : std::string(1, c);
    return out;
}
