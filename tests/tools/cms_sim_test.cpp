// cms-sim's own behaviour, seen through curl and its log: what it refuses to serve, its
// rules file and how it changes, its command line. (Its faults, as a client sees them,
// are wget-compat's test; its log, every scenario's.)
#include <gtest/gtest.h>
#include <string>

#include "support/cms_sim.h"
#include "support/sandbox.h"

namespace {

// The status curl got for `path`, sent as it is ("/../x" not tidied away).
std::string status_of(const std::string& path)
{
    std::system(("curl -s --path-as-is -o /dev/null -w '%{http_code}' '" + CmsSim::url(path) + "' > /tmp/curl.out").c_str());
    return sandbox::read_file("/tmp/curl.out");
}

TEST(CmsSim, ServesItsFolderOnlyAndReadsItsRulesAgainOnHangUp)
{
    sandbox::write_file("/tmp/rules", "# first the server fails twice\n/doc.xml  status=500,times=2\n\n");
    CmsSim cms({"--rules", "/tmp/rules", "--fault", "/media/*", "status=404"});
    CmsSim::put("/doc.xml", "<doc/>");
    CmsSim::put("/media/a.mp4", "a");
    std::system("mkdir -p /tmp/cms/folder && echo secret > /tmp/secret.txt");
    for (const char* path : {"/folder", "/../secret.txt", "/media/../../secret.txt"}) EXPECT_EQ(status_of(path), "404") << path;
    for (const char* status : {"500", "500", "200"}) EXPECT_EQ(status_of("/doc.xml"), status);
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

    // A wrong command line, or a port in use, is refused.
    const std::pair<const char*, const char*> errors[] = {
        {"--fault /x slow=1", "--fault /x: unknown fault 'slow=1'"}, {"--port 70000", "--port needs 0..65535"},
        {"--root /tmp/none", "--root /tmp/none is not a folder"},   {"--verbose", "unknown argument --verbose"},
        {"--root /tmp --port 8080 --log /tmp/second.log", "cms-sim: cannot listen on 127.0.0.1:8080: the port is in use"}};
    for (const auto& [args, says] : errors) {
        EXPECT_NE(Peer::exit_status(std::system((CMS_SIM " " + std::string(args) + " > /tmp/cms-sim.cmd 2>&1").c_str())), 0);
        EXPECT_NE(sandbox::read_file("/tmp/cms-sim.cmd").find(says), std::string::npos) << args;
    }
    EXPECT_EQ(cms.stop(), 0);
    EXPECT_EQ(log_lines(CmsSim::kLog, "# stop signal=15 requests=").size(), 1u);
}

}  // namespace
