#pragma once
// Quoting for the shell commands the agent composes from strings it does not control:
// URLs and names from the server's documents, command lists, a USB stick, or a folder
// listing. Every such string goes into a command through one of these two, so that it
// reaches its program as one intact word and never runs a command of its own. An
// ordinary string (letters, digits, "._-/+,:@%=") comes out unchanged, so the commands
// keep their familiar text.
//
//   shell_quoted(dst, size, src)        for a place inside '...': a ' becomes '\''
//   shell_escaped(dst, size, src, globs) for an unquoted place: every other character
//                                       is escaped; with `globs` * ? [ ] stay active
//
// Both return false, with `dst` emptied, when the result does not fit in `size`.
#include <cstddef>
#include <string_view>

bool shell_quoted(char* dst, std::size_t size, std::string_view src);
bool shell_escaped(char* dst, std::size_t size, std::string_view src, bool globs = false);

template <std::size_t N>
bool shell_quoted(char (&dst)[N], std::string_view src)
{
    return shell_quoted(dst, N, src);
}

template <std::size_t N>
bool shell_escaped(char (&dst)[N], std::string_view src, bool globs = false)
{
    return shell_escaped(dst, N, src, globs);
}
