#pragma once
// Programs a test starts beside itself in its sandbox (player-sim, the agent): start
// one, stop it by its process id, run one to completion, and read the log it writes.
#include <chrono>
#include <csignal>
#include <string>
#include <sys/types.h>
#include <vector>

namespace sandbox {

class Process {
public:
    // Starts argv[0] (a path) with the rest as its arguments; its standard output and
    // error are appended to `output`.
    Process(const std::vector<std::string>& argv, const std::string& output);
    // Stops it with SIGTERM if it still runs.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return pid_; }
    bool running();
    // Sends `sig` to this process (by its id) and waits for its end; returns its exit
    // status (128 + the signal when one ended it). Once ended, it only reports.
    int stop(int sig = SIGTERM);

private:
    pid_t pid_;
    bool ended_ = false;
    int status_ = 0;
};

// Runs argv to completion and returns its exit status (128 + the signal when one ended
// it); its standard output and error go to `*output` when given.
int run(const std::vector<std::string>& argv, std::string* output = nullptr);

// The lines of a text file, oldest first; none when it does not exist.
std::vector<std::string> read_lines(const std::string& path);

// The lines of `path` that contain `text`.
std::vector<std::string> lines_with(const std::string& path, const std::string& text);

// Waits until `path` holds at least `count` lines containing `text`.
bool wait_for_lines(const std::string& path, const std::string& text, std::size_t count = 1,
                    std::chrono::milliseconds timeout = std::chrono::seconds(10));

}  // namespace sandbox
