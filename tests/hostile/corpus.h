#pragma once
// Strings from outside (a server document, a command list, a USB stick, a folder
// listing) written to break out of the shell commands the agent composes. Should one
// reach the shell as code, it would create a file named "pwned" (in the working folder,
// which a test keeps at /tmp) or remove a keep.mpg outside the media folders: ./keep.mpg
// when a blank or a tab splits a name, /mnt/hd4/keep.mpg when a name climbs out of
// /mnt/hd4/video. Each string that tries several ways needs every one of them escaped.
// Those that inject nothing must still arrive unchanged: an expansion, a backslash,
// bytes that are no text. The first entry is ordinary: every place must still do its
// usual work with it.
inline constexpr const char* kHostileCorpus[] = {
    "clip",
    "x';touch pwned;'",                                   // out of '...'
    "x\\';touch pwned;'",                                 // a backslash does not escape in '...'
    "x\";touch pwned;\"",                                 // out of "..."
    "x;touch pwned&touch pwned|touch pwned\ntouch pwned", // separators, unquoted
    "$(touch pwned)`touch pwned`",                        // substitutions
    "x>pwned",                                            // a redirection
    "x keep\tkeep",                                       // words split
    "~x$HOME",                                            // expansions
    "a\\b\xc3\xa9\xff",                                   // a backslash, bytes that are no text
    "-O pwned",                                           // an option
    "../keep", ".?/keep",                                 // out of the media folder
};
