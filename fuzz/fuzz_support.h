#pragma once
// What the fuzz targets share: the libFuzzer initialisation (sandbox only, records
// emptied), the input written to a file on the sandbox's tmpfs and parsed from there
// (the parsers read documents by path), and checks that stop the run loudly.
//
// Each target is one translation unit that includes this header once, so the header
// defines LLVMFuzzerInitialize for it.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "xml/dravikAPI.h"

#define FUZZ_CHECK(cond) \
    do { \
        if (!(cond)) fuzz::fail(#cond, __FILE__, __LINE__); \
    } while (0)

namespace fuzz {

[[noreturn]] inline void fail(const char* what, const char* file, int line)
{
    std::fprintf(stderr, "fuzz check failed at %s:%d: %s\n", file, line, what);
    std::abort();
}

// Every fixed character array given holds its terminator.
template <typename... Texts>
bool terminated(const Texts&... texts)
{
    return (... && (std::memchr(texts, '\0', sizeof texts) != nullptr));
}

inline bool within(int value, int low, int high) { return value >= low && value <= high; }

// Writes the input to a file of this process's own under /tmp (parallel runs never
// share one) and returns its path.
inline const char* write_document(const std::uint8_t* data, std::size_t size)
{
    static const std::string path = "/tmp/fuzz-document-" + std::to_string(getpid()) + ".xml";
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    bool ok = fd >= 0;
    for (std::size_t done = 0; ok && done < size;) {
        ssize_t n = write(fd, data + done, size - done);
        ok = n > 0;
        done += ok ? static_cast<std::size_t>(n) : 0;
    }
    if (!ok || close(fd) != 0) {
        std::perror(path.c_str());
        std::abort();
    }
    return path.c_str();
}

// Parses the input as a document with `parse` and checks the outcome: 0 or -1, and the
// validity flag set exactly when the parse succeeded. Returns the outcome.
template <typename Parse>
int parse(const std::uint8_t* data, std::size_t size, Parse parse_path, int (*valid)())
{
    int r = parse_path(write_document(data, size));
    FUZZ_CHECK(r == 0 || r == -1);
    FUZZ_CHECK(valid() == (r == 0 ? 1 : 0));
    return r;
}

// The same for a parser whose failure must leave `record` byte for byte as it was.
template <typename Parse, typename Record>
int parse_keeping(const std::uint8_t* data, std::size_t size, Parse parse_path, int (*valid)(),
                  const Record& record)
{
    static Record before;
    std::memcpy(&before, &record, sizeof before);
    int r = parse(data, size, parse_path, valid);
    if (r != 0) FUZZ_CHECK(std::memcmp(&before, &record, sizeof before) == 0);
    return r;
}

// The callback of the player and plain configuration parsers: every item terminated.
inline void check_item(DRAVIK_NAME_DATA* item) { FUZZ_CHECK(terminated(item->name, item->data)); }

}  // namespace fuzz

// Like the tests, the targets run only in the sandbox.
extern "C" int LLVMFuzzerInitialize(int*, char*** argv)
{
    if (std::getenv("SIGNAGE_SANDBOX") == nullptr || access("/run/sandbox/calls.log", W_OK) != 0) {
        std::fprintf(stderr, "%s: fuzz targets run only inside the sandbox: tools/fuzz\n", (*argv)[0]);
        std::exit(2);
    }
    dA_Initialize();
    return 0;
}
