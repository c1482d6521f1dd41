#pragma once
// player-sim started beside a test in its sandbox: a fresh log, started and ready
// before the constructor returns, stopped by its process id at the end. The test
// target defines PLAYER_SIM as the program's path.
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "support/process.h"

#ifndef PLAYER_SIM
#error "the test target must define PLAYER_SIM, the path of player-sim"
#endif

class PlayerSim {
public:
    explicit PlayerSim(std::vector<std::string> options = {},
                       std::string log = "/tmp/player-sim.log")
        : log_(std::move(log)), process_(start(options, log_), "/tmp/player-sim.out")
    {
        if (!sandbox::wait_for_lines(log_, " start pid="))
            throw std::runtime_error("player-sim did not start; see /tmp/player-sim.out");
    }

    const std::string& log() const { return log_; }
    sandbox::Process& process() { return process_; }

    // Log lines that contain `text`, and waiting for `count` of them.
    std::vector<std::string> lines(const std::string& text) const
    {
        return sandbox::lines_with(log_, text);
    }
    bool wait_for(const std::string& text, std::size_t count = 1) const
    {
        return sandbox::wait_for_lines(log_, text, count);
    }

    // A second invocation of the command line, e.g. {"--notify", "copy-start"}.
    static int command(std::vector<std::string> args, std::string* output = nullptr)
    {
        args.insert(args.begin(), PLAYER_SIM);
        return sandbox::run(args, output);
    }

private:
    static std::vector<std::string> start(std::vector<std::string> options, const std::string& log)
    {
        unlink(log.c_str());
        options.insert(options.begin(), {PLAYER_SIM, "--log", log});
        return options;
    }

    std::string log_;
    sandbox::Process process_;
};
