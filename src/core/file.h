#pragma once
// A C stream that closes itself: every early return of a reader or writer closes it.
#include <cstdio>
#include <memory>

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;
