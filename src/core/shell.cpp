#include "core/shell.h"

#include <cstring>

namespace {

// Characters that mean nothing to the shell anywhere in a word.
bool plain(char c)
{
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::strchr("._-/+,:@%=", c) != nullptr && c != '\0';
}

bool glob(char c) { return c == '*' || c == '?' || c == '[' || c == ']'; }

// Appends `piece` to dst[0..n), keeping room for the terminator.
bool put(char* dst, std::size_t size, std::size_t& n, std::string_view piece)
{
    if (n + piece.size() >= size) return false;
    std::memcpy(dst + n, piece.data(), piece.size());
    n += piece.size();
    return true;
}

}  // namespace

bool shell_quoted(char* dst, std::size_t size, std::string_view src)
{
    if (size == 0) return false;
    std::size_t n = 0;
    for (char c : src) {
        // Inside '...' only a ' ends the quoting: close, add an escaped ', reopen.
        if (!put(dst, size, n, c == '\'' ? std::string_view("'\\''") : std::string_view(&c, 1))) {
            dst[0] = '\0';
            return false;
        }
    }
    dst[n] = '\0';
    return true;
}

bool shell_escaped(char* dst, std::size_t size, std::string_view src, bool globs)
{
    if (size == 0) return false;
    std::size_t n = 0;
    for (char c : src) {
        bool ok;
        if (plain(c) || (globs && glob(c))) {
            ok = put(dst, size, n, std::string_view(&c, 1));
        } else if (c == '\n') {
            // A backslash before a line end joins lines; quote the line end instead.
            ok = put(dst, size, n, "'\n'");
        } else {
            const char escaped[2] = {'\\', c};
            ok = put(dst, size, n, std::string_view(escaped, 2));
        }
        if (!ok) {
            dst[0] = '\0';
            return false;
        }
    }
    dst[n] = '\0';
    return true;
}
