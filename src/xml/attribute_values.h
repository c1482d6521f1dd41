#pragma once
// Shorthands the document parsers share for the token they stand on: its tag or
// attribute name, and the attribute's value read as a number, flag, text, day, mode or
// time of day. Internal to src/xml.
#include <cstddef>
#include <string_view>

#include "xml/parsers.h"
#include "xml/tokenizer.h"

namespace xml_values {

inline std::string_view tag() { return xt_get_tag_name(); }
inline std::string_view attr() { return xt_get_attr_name(); }

inline int attr_int()
{
    int v;
    getAttributeIntegerVal(&v);
    return v;
}

inline int attr_bool()
{
    int v;
    getAttributeBoolVal(&v);
    return v;
}

template <std::size_t N>
void attr_text(char (&dst)[N])
{
    getAttributeStringVal(dst, N);
}

inline int attr_day()
{
    char text[32];
    attr_text(text);
    return ConvertDay(text);
}

// Only the exact lower-case "off" switches off; "OFF" means on.
inline int attr_mode()
{
    char text[32];
    attr_text(text);
    return std::string_view(text) == "off" ? 0 : 1;
}

inline void attr_time(int* seconds)
{
    char text[32];
    attr_text(text);
    ConvertTime(text, seconds);
}

}  // namespace xml_values
