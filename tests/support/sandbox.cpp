#include "support/sandbox.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

namespace sandbox {
namespace {
std::string log_path()
{
    const char* p = std::getenv("SANDBOX_LOG");
    return p ? p : "/run/sandbox/calls.log";
}
}  // namespace

std::vector<std::string> calls()
{
    std::vector<std::string> lines;
    std::ifstream in(log_path());
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

void clear_calls() { std::ofstream(log_path(), std::ios::trunc); }

void set_writable(int partition, bool writable)
{
    std::string dir = "/mnt/hd" + std::to_string(partition);
    if (mount(nullptr, dir.c_str(), nullptr, MS_REMOUNT | (writable ? 0 : MS_RDONLY), nullptr) != 0)
        throw std::runtime_error("remount of " + dir + " failed");
}

bool is_writable(const std::string& dir)
{
    std::string probe = dir + "/.write-probe";
    if (!std::ofstream(probe)) return false;
    unlink(probe.c_str());
    return true;
}

void write_file(const std::string& path, const std::string& content)
{
    if (!(std::ofstream(path, std::ios::binary | std::ios::trunc) << content))
        throw std::runtime_error("cannot write " + path);
}

std::string read_file(const std::string& path)
{
    std::ostringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

bool wait_until(const std::function<bool()>& done, std::chrono::milliseconds timeout)
{
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return done();
}

}  // namespace sandbox
