#pragma once
// player-sim started beside a test in its sandbox: a fresh log, started and ready
// before the constructor returns, stopped by its process id at the end; second
// invocations of its command line; its log. The test target defines PLAYER_SIM as the
// program's path.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/sandbox.h"

#ifndef PLAYER_SIM
#error "the test target must define PLAYER_SIM, the path of player-sim"
#endif

class PlayerSim {
public:
    static constexpr const char* kLog = "/tmp/player-sim.log";

    explicit PlayerSim(std::vector<std::string> options = {})
    {
        unlink(kLog);
        options.insert(options.begin(), {PLAYER_SIM, "--log", kLog});
        std::vector<char*> argv;
        for (auto& o : options) argv.push_back(o.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/tmp/player-sim.out",
                                         O_WRONLY | O_CREAT | O_APPEND, 0644);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        int rc = posix_spawn(&pid_, PLAYER_SIM, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (rc != 0) throw std::runtime_error("cannot start " PLAYER_SIM);
        if (!wait_for(" start pid=")) {
            stop();
            throw std::runtime_error("player-sim did not start; see /tmp/player-sim.out");
        }
    }
    ~PlayerSim() { stop(); }
    PlayerSim(const PlayerSim&) = delete;
    PlayerSim& operator=(const PlayerSim&) = delete;

    // Sends `sig` to it (by its id) and waits for its end; returns its exit status (128 +
    // the signal when one ended it). Once it has ended, it only reports.
    int stop(int sig = SIGTERM)
    {
        if (!ended_) {
            kill(pid_, sig);  // until it is waited for, its id stays its own
            while (waitpid(pid_, &status_, 0) == -1 && errno == EINTR) {
            }
            ended_ = true;
        }
        return exit_status(status_);
    }

    // Log lines that contain `text`, and waiting for `count` of them.
    static std::vector<std::string> lines(const std::string& text)
    {
        std::vector<std::string> found;
        std::ifstream in(kLog);
        for (std::string line; std::getline(in, line);)
            if (line.find(text) != std::string::npos) found.push_back(line);
        return found;
    }
    static bool wait_for(const std::string& text, std::size_t count = 1)
    {
        return sandbox::wait_until([&] { return lines(text).size() >= count; });
    }

    // The texts of the agent's bridge requests of `type` (769 sets, 770 gets), in the
    // order they came, with the log's escapes of quotes and backslashes undone.
    static std::vector<std::string> requests(int type)
    {
        std::string head = "recv key=1235 type=" + std::to_string(type) + " len=2048 text=\"";
        std::vector<std::string> texts;
        for (const std::string& line : lines(head)) {
            std::string text;
            for (std::size_t i = line.find(head) + head.size(); i + 1 < line.size(); ++i) {
                if (line[i] == '\\' && i + 2 < line.size()) ++i;
                text += line[i];
            }
            texts.push_back(text);
        }
        return texts;
    }

    // A second invocation through the shell, e.g. "--notify copy-start", run to
    // completion: its exit status, and its standard output and error in `*output`.
    static int command(const std::string& args, std::string* output = nullptr)
    {
        std::string line = PLAYER_SIM " " + args + " > /tmp/player-sim-command.out 2>&1";
        int status = std::system(line.c_str());
        if (output) *output = sandbox::read_file("/tmp/player-sim-command.out");
        return exit_status(status);
    }

private:
    static int exit_status(int status)
    {
        if (WIFEXITED(status)) return WEXITSTATUS(status);
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
    }

    pid_t pid_ = -1;
    bool ended_ = false;
    int status_ = 0;
};
