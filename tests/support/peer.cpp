#include "support/peer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include "support/sandbox.h"

Peer::Peer(std::vector<std::string> argv, const std::string& output, const std::vector<std::string>& env)
{
    std::vector<char*> args;
    for (auto& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    std::vector<std::string> vars = env;
    for (char** e = environ; *e != nullptr; ++e) {
        std::string_view name(*e, std::strcspn(*e, "=") + 1);
        if (std::none_of(env.begin(), env.end(), [&](const std::string& v) { return v.starts_with(name); }))
            vars.emplace_back(*e);
    }
    std::vector<char*> envp;
    for (auto& v : vars) envp.push_back(v.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    int rc = posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) throw std::runtime_error("cannot start " + argv[0]);
}

int Peer::stop(int sig)
{
    if (!ended_) {
        kill(pid_, sig);  // until it is waited for, its id stays its own
        while (waitpid(pid_, &status_, 0) == -1 && errno == EINTR) {
        }
        ended_ = true;
    }
    return exit_status(status_);
}

bool Peer::running()
{
    if (!ended_ && waitpid(pid_, &status_, WNOHANG) == pid_) ended_ = true;
    return !ended_;
}

int Peer::exit_status(int status)
{
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
}

std::vector<std::string> log_lines(const std::string& path, const std::string& text)
{
    std::vector<std::string> found;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        if (line.find(text) != std::string::npos) found.push_back(line);
    return found;
}

bool wait_for_line(const std::string& path, const std::string& text, std::size_t count)
{
    return sandbox::wait_until([&] { return log_lines(path, text).size() >= count; });
}
