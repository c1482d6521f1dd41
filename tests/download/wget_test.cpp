// The document fetches through the real wget-compat (the sandbox's wget) from cms-sim on
// loopback, at a tenth of their pace (CmsSim::pace_transfers), and the URL's preparation.
#include "download/wget.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <numeric>
#include <string>

#include "core/text.h"
#include "support/cms_sim.h"
#include "support/fake_platform.h"
#include "support/sandbox.h"

namespace {

// Whether a process named wget is left, given a moment to die after a kill.
bool wget_left()
{
    return !sandbox::wait_until([] { return std::system("killall -0 wget 2>/dev/null") != 0; }, std::chrono::seconds(3));
}

TEST(Transfers, UrlPreparation)
{
    // Only an http URL gets its scheme in lower case and its blanks escaped, and only while
    // the result stays within 511 characters; otherwise it stays as it was.
    const std::string path(490, 'p'), q9(9, 'q'), q10(10, 'q');
    const std::pair<std::string, std::string> cases[] = {
        {"HTTP://host/a b c.mp4", "http://host/a%20b%20c.mp4"}, {"hTtP://host/x", "http://host/x"},
        {"ftp://host/a b.mp4", "ftp://host/a b.mp4"},           {"https://host/a b", "https://host/a b"},
        {"HTTP://h/" + path + q9 + " ", "http://h/" + path + q9 + "%20"},
        {"HTTP://h/" + path + q10 + " ", "HTTP://h/" + path + q10 + " "},
    };
    for (const auto& [in, out] : cases) {
        char url[513];
        copy_text(url, in);
        initialize_wget_transfer(url);
        EXPECT_EQ(std::string(url), out) << in.substr(0, 20);
    }
    // A URL of 513 characters or more starts nothing.
    FakePlatform fake;
    char long_url[600];
    copy_text(long_url, "ftp://h/" + std::string(520, 'x'));
    EXPECT_EQ(ftp_file(long_url, "/tmp/doc", 0, nullptr), 0);
    EXPECT_TRUE(fake.commands().empty());
}

TEST(Transfers, DocumentFetchersKeepToTheirLimits)
{
    CmsSim cms({"--fault", "/stuck/*", "stall=0"});
    FakePlatform fake;
    CmsSim::pace_transfers(fake);
    for (const char* doc : {"command.txt", "dlreq.aspx"}) {
        CmsSim::put(std::string("/ok/") + doc, std::string(16384, 'd'));
        CmsSim::put(std::string("/big/") + doc, std::string(16385, 'd'));
    }
    CmsSim::put("/ok/content.xml", std::string(102400, 'c'));
    CmsSim::put("/big/content.xml", std::string(102401, 'c'));
    CmsSim::put("/stuck/content.xml", std::string(300, 'c'));
    const std::string ok = CmsSim::url("/ok"), big = CmsSim::url("/big"), stuck = CmsSim::url("/stuck");
    const struct {
        const char* what;
        std::function<int()> fetch;
        std::size_t bytes;  // of /tmp/doc after a success; 0: the fetch fails
        bool started;       // wget was run
    } cases[] = {
        {"command list at its limit", [&] { return get_command_file(ok.c_str(), "", "/tmp/doc"); }, 16384, true},
        {"command list one byte over", [&] { return get_command_file(big.c_str(), "", "/tmp/doc"); }, 0, true},
        {"content at its limit", [&] { return get_content_file(ok.c_str(), "", "/tmp/doc"); }, 102400, true},
        {"content one byte over", [&] { return get_content_file(big.c_str(), "", "/tmp/doc"); }, 0, true},
        {"download request", [&] { return get_dl_request_file(ok.c_str(), "001A2B3C4D5E", 2, "/tmp/doc"); }, 16384, true},
        {"download request over", [&] { return get_dl_request_file(big.c_str(), "m", 1, "/tmp/doc"); }, 0, true},
        {"command list, no server", [] { return get_command_file("", "", "/tmp/doc"); }, 0, false},
        {"download request, no server", [] { return get_dl_request_file("", "m", 1, "/tmp/doc"); }, 0, false},
        // The configuration is fetched even from an empty server, which wget then refuses.
        {"config, no server", [] { return get_config_file("", "", "/tmp/doc"); }, 0, true},
        {"missing document", [&] { return get_config_file(ok.c_str(), "", "/tmp/doc"); }, 0, true},
        {"stalled for good", [&] { return get_content_file(stuck.c_str(), "", "/tmp/doc"); }, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        unlink("/tmp/doc");
        fake.clear();
        EXPECT_EQ(c.fetch(), c.bytes ? 1 : 0);
        if (c.bytes) {
            EXPECT_EQ(sandbox::read_file("/tmp/doc").size(), c.bytes);
        }
        // wget is killed on every way out, success included.
        const auto commands = fake.commands();
        EXPECT_EQ(commands.empty() ? "" : commands.back(), c.started ? "killall -9 wget" : "");
        EXPECT_FALSE(wget_left());
    }
    // The last row's stall: one second before the start, then ten 2-second polls without a byte.
    const auto sleeps = fake.sleeps();
    EXPECT_EQ(std::accumulate(sleeps.begin(), sleeps.end(), 0u), 21u);
    EXPECT_EQ(CmsSim::requests("GET /ok/dlreq.aspx?player=001A2B3C4D5E&pri=2 200 16384").size(), 1u);
}

// A URL that fills the transfer's record without an end fails before wget starts, and
// leaves the media partition writable, as it always has. (The outcomes of real media
// transfers are the download manager's test.)
TEST(Transfers, MediaUrlWithoutAnEnd)
{
    FakePlatform fake;
    fake.run_commands(true);
    std::memset(status.url, 'x', sizeof status.url);
    ftp_file_to_hd(nullptr);
    EXPECT_EQ(status.code, 134);
    EXPECT_TRUE(sandbox::is_writable("/mnt/hd4"));
    for (const auto& command : fake.commands()) EXPECT_EQ(command.find("wget"), std::string::npos) << command;
}

}  // namespace
