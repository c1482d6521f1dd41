#pragma once
// Strings from outside (a server document, a command list, a USB stick, a folder
// listing) written to break out of the shell commands the agent composes. Should one
// reach the shell as code, it would create a file named "pwned" (in the working folder,
// which a test keeps at /tmp) or remove a keep.mpg outside the media folders: ./keep.mpg
// when a blank splits a name in two, /mnt/hd4/keep.mpg when a name climbs out of
// /mnt/hd4/video. Those that inject nothing must still arrive unchanged: a quote, a
// backslash, an expansion, a comma, bytes that are no text. The first entry is ordinary:
// every place must still do its usual work with it.
inline constexpr const char* kHostileCorpus[] = {
    "clip",
    "x';touch pwned;'", "x\\';touch pwned;'", "\"x;touch pwned\"",
    "x;touch pwned", "x&touch pwned", "x|touch pwned", "x\ntouch pwned",
    "$(touch pwned)", "`touch pwned`", "x>pwned",
    "x keep", "x\tkeep",
    "~x$HOME", "{a,b}", "a\\b", "caf\xc3\xa9\xff",
    "-O pwned",
    "../keep", ".?/keep",
};
