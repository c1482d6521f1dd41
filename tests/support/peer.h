#pragma once
// A program started beside a test in its sandbox (player-sim, cms-sim, an FTP server),
// its output appended to a file, and stopped by its process id, never by name.
#include <csignal>
#include <string>
#include <sys/types.h>
#include <vector>

class Peer {
public:
    // Starts `argv[0]` with `argv` and this process's environment, in which `env`
    // ("NAME=VALUE" each) adds or replaces variables; throws when it cannot be started.
    Peer(std::vector<std::string> argv, const std::string& output, const std::vector<std::string>& env = {});
    ~Peer() { stop(); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    // Sends `sig` to it and waits for its end; returns its exit status (128 + the signal
    // when one ended it). Once it has ended, it only reports.
    int stop(int sig = SIGTERM);
    pid_t pid() const { return pid_; }
    bool running();  // not ended yet (an end is noted, as stop() would)

    // The exit status behind a wait status, as the shell counts it.
    static int exit_status(int status);

private:
    pid_t pid_ = -1;
    bool ended_ = false;
    int status_ = 0;
};

// Log lines of `path` that contain `text`, and waiting for `count` of them.
std::vector<std::string> log_lines(const std::string& path, const std::string& text);
bool wait_for_line(const std::string& path, const std::string& text, std::size_t count = 1);
