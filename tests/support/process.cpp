#include "support/process.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "support/sandbox.h"

extern char** environ;

namespace sandbox {
namespace {

pid_t spawn(const std::vector<std::string>& argv, const std::string& output)
{
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) throw std::runtime_error("cannot start " + argv[0]);
    return pid;
}

int exit_status(int status)
{
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

}  // namespace

Process::Process(const std::vector<std::string>& argv, const std::string& output)
    : pid_(spawn(argv, output))
{
}

Process::~Process()
{
    if (!ended_) stop(SIGTERM);
}

bool Process::running()
{
    if (ended_) return false;
    if (waitpid(pid_, &status_, WNOHANG) == pid_) ended_ = true;
    return !ended_;
}

int Process::stop(int sig)
{
    if (running()) {
        kill(pid_, sig);
        while (waitpid(pid_, &status_, 0) == -1 && errno == EINTR) {
        }
        ended_ = true;
    }
    return exit_status(status_);
}

int run(const std::vector<std::string>& argv, std::string* output)
{
    char path[] = "/tmp/run-output-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) throw std::runtime_error("mkstemp failed");
    close(fd);
    pid_t pid = spawn(argv, path);
    int status = 0;
    while (waitpid(pid, &status, 0) == -1 && errno == EINTR) {
    }
    if (output) *output = read_file(path);
    unlink(path);
    return exit_status(status);
}

std::vector<std::string> read_lines(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> lines_with(const std::string& path, const std::string& text)
{
    std::vector<std::string> found;
    for (auto& line : read_lines(path))
        if (line.find(text) != std::string::npos) found.push_back(line);
    return found;
}

bool wait_for_lines(const std::string& path, const std::string& text, std::size_t count,
                    std::chrono::milliseconds timeout)
{
    return wait_until([&] { return lines_with(path, text).size() >= count; }, timeout);
}

}  // namespace sandbox
