// wget-compat as the agent meets it: the sandbox's `wget`, fetching from cms-sim on
// loopback, watched through its status files. Its timings are shortened for the tests.
#include <algorithm>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <thread>

#include "support/cms_sim.h"
#include "support/sandbox.h"

namespace {

// Runs a wget command line to its end: its exit status.
int wget(const std::string& args)
{
    unlink("/tmp/wgetStat.txt");
    unlink("/tmp/wgetErr.txt");
    return Peer::exit_status(std::system(("wget " + args + " 2>>/tmp/wget.err").c_str()));
}

long long size_of(const char* path)
{
    struct stat st{};
    return stat(path, &st) == 0 ? st.st_size : -1;
}

class WgetCompat : public ::testing::Test {
protected:
    void SetUp() override
    {
        setenv("WGET_COMPAT_STALL_SECONDS", "0.3", 1);
        setenv("WGET_COMPAT_PROGRESS_SECONDS", "0.05", 1);
    }
    void TearDown() override { std::system("killall -9 wget 2>/dev/null"); }
};

TEST_F(WgetCompat, ProgressLinesAreWholeAndShow100OnlyForTheWholeBody)
{
    CmsSim cms({"--fault", "/slow.mp4", "rate=16k"});
    CmsSim::put("/slow.mp4", std::string(24 * 1024, 's'));
    unlink("/tmp/wgetStat.txt");
    std::system(("wget '" + CmsSim::url("/slow.mp4") + "' -O /tmp/slow.mp4 &").c_str());

    const std::regex line(R"( *(\d+)%\|(\d+)\n)");
    int last_percent = -1, intermediate = 0;
    bool done = false;
    ASSERT_TRUE(sandbox::wait_until(
        [&] {
            std::string text = sandbox::read_file("/tmp/wgetStat.txt");
            if (text.empty()) return false;
            std::smatch m;
            EXPECT_TRUE(std::regex_match(text, m, line)) << text;
            if (m.empty()) return true;
            int percent = std::stoi(m[1]);
            long long bytes = std::stoll(m[2]);
            EXPECT_GE(percent, last_percent) << text;
            if (percent != last_percent && percent < 100) ++intermediate;
            last_percent = percent;
            if (percent < 100) {
                EXPECT_EQ(percent, bytes * 100 / (24 * 1024)) << text;
                return false;
            }
            // The body is whole in its file before 100 % shows.
            EXPECT_EQ(size_of("/tmp/slow.mp4"), 24 * 1024);
            EXPECT_EQ(text, "100%|24576\n");
            done = true;
            return true;
        },
        std::chrono::seconds(20)));
    EXPECT_TRUE(done);
    EXPECT_GE(intermediate, 3);
    EXPECT_FALSE(sandbox::exists("/tmp/wgetErr.txt"));
}

TEST_F(WgetCompat, EveryOutcomeHasItsLineAndExitStatus)
{
    CmsSim cms({"--fault", "/e404", "status=404", "--fault", "/e500", "status=500", "--fault", "/e401",
                "status=401", "--fault", "/secret", "auth=agent:pw", "--fault", "/cut", "drop=500", "--fault",
                "/extra", "extra=10", "--fault", "/late", "delay=0.8", "--fault", "/pause", "stall=100/0.8"});
    for (const char* path : {"/e404", "/e500", "/e401", "/secret", "/cut", "/extra", "/late", "/pause", "/ok"})
        CmsSim::put(path, std::string(1000, 'b'));

    const std::string base = CmsSim::url("");
    const struct {
        std::string args;
        int exit;
        const char* error;     // the line in wgetErr.txt, from its start ("": no file)
        const char* progress;  // the last progress line
        const char* logged;    // cms-sim's log line for it, after the time
    } cases[] = {
        {"'" + base + "/ok' -O /tmp/out", 0, "", "100%|1000", "GET /ok 200 1000 -"},
        {"'" + base + "/e404' -O /tmp/out", 1, "ERROR 404", "  0%|0", "GET /e404 404 13 status=404"},
        {"'" + base + "/e500' -O /tmp/out", 1, "ERROR 500", "  0%|0", "GET /e500 500 13 status=500"},
        {"'" + base + "/e401' -O /tmp/out", 1, "login:", "  0%|0", "GET /e401 401 13 status=401"},
        {"'" + base + "/secret' -O /tmp/out", 1, "login:", "  0%|0", "GET /secret 401 13 auth=agent:pw"},
        {"'" + base + "/secret' -O /tmp/out --header 'Authorization: Basic YWdlbnQ6cHc='", 0, "", "100%|1000",
         "GET /secret 200 1000 auth=agent:pw"},
        {"'http://agent:pw@127.0.0.1:8080/secret' -O/tmp/out", 0, "", "100%|1000",
         "GET /secret 200 1000 auth=agent:pw"},
        {"'" + base + "/cut' --output-document=/tmp/out", 1, "ERROR: body cut short after 500 of 1000 bytes",
         " 50%|500", "GET /cut 200 500 drop=500"},
        // Bytes past the declared length are not taken.
        {"'" + base + "/extra' -O /tmp/out", 0, "", "100%|1000", "GET /extra 200 1010 extra=10"},
        // A stall is reported while it lasts and the report goes when bytes flow again.
        {"'" + base + "/late' -O /tmp/out", 0, "", "100%|1000", "GET /late 200 1000 delay=0.8"},
        {"'" + base + "/pause' -O /tmp/out", 0, "", "100%|1000", "GET /pause 200 1000 stall=100/0.8"},
        {"'http://127.0.0.1:9/x' -O /tmp/out", 1, "ERROR: connection refused", "  0%|0", nullptr},
        {"'http://no-such-host.invalid/x' -O /tmp/out", 1, "ERROR: unknown host", "  0%|0", nullptr},
        {"'" + base + "/ok' -O /mnt/hd4/out", 1, "ERROR: cannot write the output file", nullptr, nullptr},
    };
    std::size_t requests = 0;
    for (const auto& c : cases) {
        unlink("/tmp/out");
        EXPECT_EQ(wget(c.args), c.exit) << c.args;
        std::string error = sandbox::read_file("/tmp/wgetErr.txt");
        if (*c.error) {
            EXPECT_EQ(error.rfind(c.error, 0), 0u) << c.args << ": " << error;
            EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), 1) << error;
        } else {
            EXPECT_FALSE(sandbox::exists("/tmp/wgetErr.txt")) << c.args << ": " << error;
            EXPECT_EQ(sandbox::read_file("/tmp/out"), std::string(1000, 'b')) << c.args;
        }
        if (c.progress) {
            EXPECT_EQ(sandbox::read_file("/tmp/wgetStat.txt"), std::string(c.progress) + "\n") << c.args;
        }
        if (c.logged) {
            // The server logs an answer once it has ended, which may be after wget's end.
            ++requests;
            EXPECT_TRUE(sandbox::wait_until([&] { return CmsSim::requests().size() >= requests; }));
            auto last = CmsSim::requests().back();
            EXPECT_EQ(last.substr(last.find(' ') + 1), c.logged);
        }
    }
}

TEST_F(WgetCompat, StallIsReportedAndTheProcessIsNamedWget)
{
    CmsSim cms({"--fault", "/stuck", "stall=100"});
    CmsSim::put("/stuck", std::string(1000, 'b'));
    unlink("/tmp/wgetErr.txt");
    std::system(("wget '" + CmsSim::url("/stuck") + "' -O /tmp/out 2>/dev/null &").c_str());
    // Reported once the first 100 bytes are in. A loaded machine may take longer than the
    // stall time to answer at all, which is reported as a stall at 0 bytes first.
    ASSERT_TRUE(sandbox::wait_until([] {
        return sandbox::read_file("/tmp/wgetStat.txt") == " 10%|100\n" &&
               sandbox::read_file("/tmp/wgetErr.txt").rfind("Stalled", 0) == 0;
    }));
    // It goes on reporting after the agent deletes the line.
    unlink("/tmp/wgetErr.txt");
    EXPECT_TRUE(sandbox::wait_until([] { return sandbox::exists("/tmp/wgetErr.txt"); }));
    // The agent ends it by name.
    EXPECT_EQ(std::system("killall -9 wget"), 0);
    EXPECT_TRUE(sandbox::wait_until([] { return std::system("killall -0 wget 2>/dev/null") != 0; }));
}

TEST(WgetCompatCommandLine, HelpAndUsageErrors)
{
    std::system("wget --help > /tmp/help.txt");
    std::string help = sandbox::read_file("/tmp/help.txt");
    for (const char* text : {"wget 'URL' -O FILE", "--header", "/tmp/wgetStat.txt", "Stalled", "login:",
                             "WGET_COMPAT_STALL_SECONDS", "WGET_COMPAT_PROGRESS_SECONDS"})
        EXPECT_NE(help.find(text), std::string::npos) << text;

    const struct {
        const char* args;
        const char* says;
    } errors[] = {
        {"", "no URL"},
        {"http://h/x", "no -O FILE"},
        {"http://h/x -O", "-O needs a value"},
        {"http://h/x -O f --tries=3", "unknown option --tries=3"},
        {"http://h/x http://h/y -O f", "more than one URL"},
    };
    for (const auto& e : errors) {
        unlink("/tmp/wget.err");
        EXPECT_EQ(wget(e.args), 2) << e.args;
        std::string err = sandbox::read_file("/tmp/wget.err");
        EXPECT_NE(err.find(e.says), std::string::npos) << err;
        EXPECT_NE(err.find("usage: wget 'URL' -O FILE"), std::string::npos) << err;
    }
    setenv("WGET_COMPAT_STALL_SECONDS", "soon", 1);
    EXPECT_EQ(wget("http://h/x -O f"), 2);
    unsetenv("WGET_COMPAT_STALL_SECONDS");
}

}  // namespace
