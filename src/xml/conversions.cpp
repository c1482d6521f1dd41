// Word-to-number conversions shared by the document parsers.
#include <cstdlib>
#include <cstring>

#include "xml/parsers.h"

// Only the first two characters count, lower case only: "mo" and "monday" are 1, "Mo"
// is -1.
int ConvertDay(const char* text)
{
    switch (text[0]) {
    case 'm': return 1;
    case 'w': return 3;
    case 'f': return 5;
    case 't': return text[1] == 'u' ? 2 : 4;
    case 's': return text[1] == 'a' ? 6 : 0;
    default: return -1;
    }
}

// At most five characters are looked at. Without a colon the field keeps its value; the
// parts are not range-checked, so "25:99" is 95,940.
void ConvertTime(const char* text, int* seconds)
{
    char hhmm[6];
    std::strncpy(hhmm, text, 5);
    hhmm[5] = '\0';
    char* colon = std::strchr(hhmm, ':');
    if (colon == nullptr) return;
    *colon = '\0';
    *seconds = 3600 * std::atoi(hhmm) + 60 * std::atoi(colon + 1);
}

// Exact and case-sensitive: "VIDEO" is -1.
int ConvertMediaType(const char* text)
{
    if (std::strcmp(text, "video") == 0 || std::strcmp(text, "vid") == 0) return 0;
    if (std::strcmp(text, "image") == 0 || std::strcmp(text, "img") == 0) return 1;
    if (std::strcmp(text, "html") == 0) return 2;
    return -1;
}
