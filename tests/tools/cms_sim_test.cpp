// cms-sim's own behaviour, seen through curl and its log: what it serves, its rules
// file and how it changes, its start and end. How each fault looks to a client is
// tested with wget-compat (wget_compat_test).
#include <gtest/gtest.h>
#include <regex>
#include <string>

#include "support/cms_sim.h"
#include "support/sandbox.h"

namespace {

// The status curl got for `path`, sent as it is ("/../x" not tidied away).
std::string status_of(const std::string& path, int port = CmsSim::kPort)
{
    std::string command = "curl -s --path-as-is -o /dev/null -w '%{http_code}' 'http://127.0.0.1:" +
                           std::to_string(port) + path + "' > /tmp/curl.out";
    std::system(command.c_str());
    return sandbox::read_file("/tmp/curl.out");
}

// The output of a cms-sim command line run to its end, and its exit status.
int cms_sim(const std::string& args, std::string* output)
{
    int status = std::system((std::string(CMS_SIM) + " " + args + " > /tmp/cms-sim.cmd 2>&1").c_str());
    *output = sandbox::read_file("/tmp/cms-sim.cmd");
    return Peer::exit_status(status);
}

TEST(CmsSim, ServesItsFolderAndLogsEachRequestOnOneLine)
{
    CmsSim cms;
    CmsSim::put("/dlreq.aspx", "<dlreq/>");
    CmsSim::put("/media/a b.mp4", std::string(3000, 'm'));
    std::system("mkdir -p /tmp/cms/folder && echo secret > /tmp/secret.txt");

    const struct {
        const char* path;
        const char* status;
        const char* logged;  // the log line after its time
    } cases[] = {
        {"/dlreq.aspx?player=001A2B3C4D5E&pri=1", "200", "GET /dlreq.aspx?player=001A2B3C4D5E&pri=1 200 8 -"},
        {"/media/a%20b.mp4", "200", "GET /media/a%20b.mp4 200 3000 -"},
        {"/media/none.mp4", "404", "GET /media/none.mp4 404 13 -"},
        {"/folder", "404", "GET /folder 404 13 -"},
        {"/../secret.txt", "404", "GET /../secret.txt 404 13 -"},
        {"/media/../../secret.txt", "404", "GET /media/../../secret.txt 404 13 -"},
    };
    const std::regex stamp(R"(\d{10}\.\d{3} .*)");
    for (const auto& c : cases) {
        EXPECT_EQ(status_of(c.path), c.status) << c.path;
        ASSERT_TRUE(sandbox::wait_until([&] { return !CmsSim::requests(c.logged).empty(); })) << c.logged;
        std::string line = CmsSim::requests(c.logged).back();
        EXPECT_TRUE(std::regex_match(line, stamp)) << line;
        EXPECT_EQ(line.substr(15), c.logged);
    }
    EXPECT_EQ(CmsSim::requests().size(), std::size(cases));
}

TEST(CmsSim, RulesFileIsReadAgainOnHangUpAndTimesLimitsARule)
{
    sandbox::write_file("/tmp/rules", "# first the server fails twice\n/doc.xml  status=500,times=2\n\n");
    CmsSim cms({"--rules", "/tmp/rules", "--fault", "/media/*", "status=404"});
    CmsSim::put("/doc.xml", "<doc/>");
    CmsSim::put("/media/a.mp4", "a");
    EXPECT_EQ(status_of("/doc.xml"), "500");
    EXPECT_EQ(status_of("/doc.xml"), "500");
    EXPECT_EQ(status_of("/doc.xml"), "200");
    EXPECT_EQ(status_of("/media/a.mp4"), "404");  // the command line's rule

    sandbox::write_file("/tmp/rules", "/doc.xml status=401\n/media/a.mp4 status=503\n");
    kill(cms.pid(), SIGHUP);
    ASSERT_TRUE(wait_for_line(CmsSim::kLog, "# rules /tmp/rules: loaded", 2));
    EXPECT_EQ(status_of("/doc.xml"), "401");
    EXPECT_EQ(status_of("/media/a.mp4"), "404");  // command-line rules come first

    // A broken file is reported and the rules in force stay.
    sandbox::write_file("/tmp/rules", "/doc.xml status=5000\n");
    kill(cms.pid(), SIGHUP);
    ASSERT_TRUE(wait_for_line(CmsSim::kLog, "# rules /tmp/rules: error /tmp/rules:1: bad fault 'status=5000'"));
    EXPECT_EQ(status_of("/doc.xml"), "401");
}

TEST(CmsSim, StartsEndsAndRefusesWhatItCannotDo)
{
    std::string out;
    EXPECT_EQ(cms_sim("--help", &out), 0);
    for (const char* text : {"--fault PATTERN FAULTS", "stall=BYTES[/SECONDS]", "drop=BYTES", "rate=BYTES",
                             "delay=SECONDS", "extra=BYTES", "status=CODE", "# stop signal=N requests=N"})
        EXPECT_NE(out.find(text), std::string::npos) << text;

    const struct {
        const char* args;
        const char* says;
    } errors[] = {
        {"--fault /x slow=1", "--fault /x: unknown fault 'slow=1'"},
        {"--fault /x", "--fault needs a value"},
        {"--port 70000", "--port needs 0..65535"},
        {"--root /tmp/none", "--root /tmp/none is not a folder"},
        {"--rules /tmp/none", "/tmp/none: cannot be read"},
        {"--verbose", "unknown argument --verbose"},
    };
    for (const auto& e : errors) {
        EXPECT_EQ(cms_sim(e.args, &out), 2) << e.args;
        EXPECT_NE(out.find(e.says), std::string::npos) << out;
    }

    CmsSim cms;
    EXPECT_EQ(cms_sim("--root /tmp --port 8080 --log /tmp/second.log", &out), 1);
    EXPECT_EQ(out, "cms-sim: cannot listen on 127.0.0.1:8080: the port is in use\n");

    // SIGTERM ends it cleanly, even with an answer stalled for good.
    CmsSim::put("/big", std::string(5000, 'b'));
    Peer other({CMS_SIM, "--root", CmsSim::kRoot, "--port", "0", "--log", "/tmp/other.log", "--fault", "/big",
                "stall=1000"},
               "/tmp/other.out");
    ASSERT_TRUE(wait_for_line("/tmp/other.log", "# start pid="));
    std::smatch port;
    std::string start = log_lines("/tmp/other.log", "# start")[0];
    ASSERT_TRUE(std::regex_search(start, port, std::regex("port=(\\d+)"))) << start;
    EXPECT_NE(port[1], "8080");
    std::system(("curl -s -N -o /tmp/big http://127.0.0.1:" + std::string(port[1]) + "/big &").c_str());
    ASSERT_TRUE(sandbox::wait_until([] { return sandbox::read_file("/tmp/big").size() == 1000; }));
    EXPECT_EQ(other.stop(), 0);
    EXPECT_EQ(log_lines("/tmp/other.log", "GET /big 200 1000 stall=1000").size(), 1u);
    EXPECT_EQ(log_lines("/tmp/other.log", "# stop signal=15 requests=1").size(), 1u);
    std::system("killall -9 curl 2>/dev/null");
}

}  // namespace
