#include "sim_log.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace sim {

bool Log::open(const std::string& path)
{
    if (path == "-") {
        fd_ = STDOUT_FILENO;
        return true;
    }
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    return fd_ >= 0;
}

void Log::write(std::string_view event, std::string_view fields)
{
    using namespace std::chrono;
    long long ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "%lld.%03lld ", ms / 1000, ms % 1000);
    std::string line = stamp;
    line += event;
    if (!fields.empty()) {
        line += ' ';
        line += fields;
    }
    line += '\n';
    std::lock_guard<std::mutex> lock(mu_);
    std::size_t done = 0;
    while (done < line.size()) {
        ssize_t n = ::write(fd_, line.data() + done, line.size() - done);
        if (n <= 0) return;  // a log that cannot be written is not worth stopping for
        done += static_cast<std::size_t>(n);
    }
}

std::string quoted(std::string_view bytes, std::size_t limit)
{
    std::string out = "\"";
    bool cut = bytes.size() > limit;
    if (cut) bytes = bytes.substr(0, limit);
    for (unsigned char c : bytes) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\r': out += "\\r"; break;
        case '\n': out += "\\n"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20 || c >= 0x7f) {
                char hex[8];
                std::snprintf(hex, sizeof hex, "\\x%02X", c);
                out += hex;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    if (cut) out += "...";
    out += '"';
    return out;
}

}  // namespace sim
