#pragma once
// player-sim's log: one line per event, written whole with one write() so that lines
// from its threads never mix and a reader never sees half a line.
//
//   <seconds.millis> <event> <key>=<value> ...
//
// Values are bare words or numbers, or texts in double quotes with C escapes for the
// quote, the backslash, CR, LF, tab and other bytes (as \xNN). Events: start, recv,
// send, drop, state, upgrade, stop.
#include <mutex>
#include <string>
#include <string_view>

namespace sim {

class Log {
public:
    // "-" writes to standard output. False when the file cannot be opened.
    bool open(const std::string& path);
    void write(std::string_view event, std::string_view fields);

private:
    int fd_ = -1;
    std::mutex mu_;
};

// `bytes` in double quotes with escapes, cut to `limit` bytes ("..." marks a cut).
std::string quoted(std::string_view bytes, std::size_t limit = 2048);

}  // namespace sim
