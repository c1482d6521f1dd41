#pragma once
// cms-sim started beside a test in its sandbox: it serves kRoot on 127.0.0.1:kPort with
// the fault options given, ready before the constructor returns, stopped by its process
// id at the end; files put under its folder; its request log; the pace of real
// transfers under a FakePlatform. The test target defines CMS_SIM as the program's path.
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "support/fake_platform.h"
#include "support/peer.h"
#include "support/sandbox.h"

#ifndef CMS_SIM
#error "the test target must define CMS_SIM, the path of cms-sim"
#endif

class CmsSim {
public:
    static constexpr const char* kLog = "/tmp/cms-sim.log";
    static constexpr const char* kRoot = "/tmp/cms";
    static constexpr int kPort = 8080;

    // Has `platform` run transfers for real at a tenth of their pace: every command runs
    // and each second the agent sleeps lasts 100 ms, so its 2-second polls take 0.2 s and
    // its 20-second stall time-out 2 s; wget-compat's own timings are shortened to match.
    static void pace_transfers(FakePlatform& platform)
    {
        setenv("WGET_COMPAT_STALL_SECONDS", "0.3", 1);
        setenv("WGET_COMPAT_PROGRESS_SECONDS", "0.05", 1);
        platform.run_commands(true);
        platform.scale_sleeps(100);
    }

    // `options` after --root, --port and --log, e.g. {"--fault", "/media/*", "stall=100"}.
    // With `fresh_log` false the log of an earlier cms-sim goes on (a server back up).
    explicit CmsSim(std::vector<std::string> options = {}, bool fresh_log = true)
        : starts_before_(fresh_log ? 0 : log_lines(kLog, "# start pid=").size()),
          peer_(start(std::move(options), fresh_log))
    {
        if (!wait_for_line(kLog, "# start pid=", starts_before_ + 1)) {
            stop();
            throw std::runtime_error("cms-sim did not start; see /tmp/cms-sim.out");
        }
    }

    int stop(int sig = SIGTERM) { return peer_.stop(sig); }
    pid_t pid() const { return peer_.pid(); }

    static std::string url(const std::string& path)
    {
        return "http://127.0.0.1:" + std::to_string(kPort) + path;
    }

    // Writes `content` as the file that `path` ("/media/a.mp4") names, folders included.
    static void put(const std::string& path, const std::string& content)
    {
        std::string file = kRoot + path;
        std::system(("mkdir -p '" + file.substr(0, file.rfind('/')) + "'").c_str());
        sandbox::write_file(file, content);
    }

    // Request lines of the log that contain `text` (the "#" lines left out).
    static std::vector<std::string> requests(const std::string& text = "")
    {
        std::vector<std::string> found;
        for (auto& line : log_lines(kLog, text))
            if (line.rfind('#', 0) != 0) found.push_back(line);
        return found;
    }

private:
    static Peer start(std::vector<std::string> options, bool fresh_log)
    {
        if (fresh_log) unlink(kLog);
        std::system((std::string("mkdir -p ") + kRoot).c_str());
        options.insert(options.begin(),
                       {CMS_SIM, "--root", kRoot, "--port", std::to_string(kPort), "--log", kLog});
        return Peer(std::move(options), "/tmp/cms-sim.out");
    }

    std::size_t starts_before_;
    Peer peer_;
};
