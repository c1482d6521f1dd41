#pragma once
// What the fuzz targets share: the input written to a file on the sandbox's tmpfs (the
// parsers read documents by path), and checks that stop the run loudly.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace fuzz {

// A file of this process's own under /tmp, so parallel runs never share one.
inline const char* document_path()
{
    static const std::string path = "/tmp/fuzz-document-" + std::to_string(getpid()) + ".xml";
    return path.c_str();
}

inline const char* write_document(const std::uint8_t* data, std::size_t size)
{
    const char* path = document_path();
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0) {
        std::perror(path);
        std::abort();
    }
    std::size_t done = 0;
    while (done < size) {
        ssize_t n = write(fd, data + done, size - done);
        if (n <= 0) {
            std::perror(path);
            std::abort();
        }
        done += static_cast<std::size_t>(n);
    }
    close(fd);
    return path;
}

[[noreturn]] inline void fail(const char* what, int line)
{
    std::fprintf(stderr, "fuzz check failed at line %d: %s\n", line, what);
    std::abort();
}

// A fixed character array holds its terminator.
template <std::size_t N>
bool terminated(const char (&text)[N])
{
    return std::memchr(text, '\0', N) != nullptr;
}

// Called from LLVMFuzzerInitialize: like the tests, the targets run only in the sandbox.
inline void require_sandbox(const char* program)
{
    if (std::getenv("SIGNAGE_SANDBOX") == nullptr || access("/run/sandbox/calls.log", W_OK) != 0) {
        std::fprintf(stderr, "%s: fuzz targets run only inside the sandbox: tools/fuzz\n", program);
        std::exit(2);
    }
}

}  // namespace fuzz

#define FUZZ_CHECK(cond) \
    do { \
        if (!(cond)) fuzz::fail(#cond, __LINE__); \
    } while (0)
