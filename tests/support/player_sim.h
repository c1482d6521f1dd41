#pragma once
// player-sim started beside a test in its sandbox: a fresh log, started and ready
// before the constructor returns, stopped by its process id at the end; second
// invocations of its command line; its log. The test target defines PLAYER_SIM as the
// program's path.
#include <array>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "support/peer.h"
#include "support/sandbox.h"

#ifndef PLAYER_SIM
#error "the test target must define PLAYER_SIM, the path of player-sim"
#endif

class PlayerSim {
public:
    static constexpr const char* kLog = "/tmp/player-sim.log";

    // With `fresh_log` false the log of an earlier player-sim goes on (a device rebooted).
    explicit PlayerSim(std::vector<std::string> options = {}, bool fresh_log = true)
        : starts_before_(fresh_log ? 0 : lines(" start pid=").size()), peer_(start(std::move(options), fresh_log))
    {
        if (!wait_for(" start pid=", starts_before_ + 1)) {
            stop();
            throw std::runtime_error("player-sim did not start; see /tmp/player-sim.out");
        }
    }

    int stop(int sig = SIGTERM) { return peer_.stop(sig); }
    pid_t pid() const { return peer_.pid(); }

    static std::vector<std::string> lines(const std::string& text) { return log_lines(kLog, text); }
    static bool wait_for(const std::string& text, std::size_t count = 1)
    {
        return wait_for_line(kLog, text, count);
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

    // What each layer plays by a "state layer=" line's report ("r0,<name>,Playing,...%..."):
    // the playlist or layout name (content id, star, index), "" when idle or stopped.
    static std::array<std::string, 2> playing(const std::string& state_line)
    {
        std::array<std::string, 2> names;
        auto open = state_line.find("report=\"");
        if (open == std::string::npos) return names;
        std::string report = state_line.substr(open + 8, state_line.find('"', open + 8) - open - 8);
        for (int layer = 0; layer < 2; ++layer) {
            std::string part = layer == 0 ? report.substr(0, report.find('%')) : report.substr(report.find('%') + 1);
            std::vector<std::string> fields;
            std::stringstream in(part);
            for (std::string f; std::getline(in, f, ',');) fields.push_back(f);
            if (fields.size() == 5 && fields[2] == "Playing") names[layer] = fields[1];
        }
        return names;
    }

    // A second invocation through the shell, e.g. "--notify copy-start", run to
    // completion: its exit status, and its standard output and error in `*output`.
    static int command(const std::string& args, std::string* output = nullptr)
    {
        std::string line = PLAYER_SIM " " + args + " > /tmp/player-sim-command.out 2>&1";
        int rc = std::system(line.c_str());
        if (output) *output = sandbox::read_file("/tmp/player-sim-command.out");
        return Peer::exit_status(rc);
    }

private:
    static Peer start(std::vector<std::string> options, bool fresh_log)
    {
        if (fresh_log) unlink(kLog);
        options.insert(options.begin(), {PLAYER_SIM, "--log", kLog});
        return Peer(std::move(options), "/tmp/player-sim.out");
    }

    std::size_t starts_before_;
    Peer peer_;
};
