// Configuration documents and device settings against player-sim, which holds the
// player's settings and logs what it was told, with the sandbox's real /mnt/hd3.
#include "actions/config.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/queues.h"
#include "support/sandbox.h"

namespace {

using Texts = std::vector<std::string>;

// The sets the player received since the last call.
Texts new_sets()
{
    static std::size_t seen;
    Texts sets = PlayerSim::requests(kSnmpSetType);
    if (seen > sets.size()) seen = 0;  // a fresh player-sim's log
    Texts fresh(sets.begin() + static_cast<long>(seen), sets.end());
    seen = sets.size();
    return fresh;
}

class Config : public ::testing::Test {
protected:
    void SetUp() override
    {
        queues::drain_all();
        setenv("TZ", "UTC0", 1);
        platform.run_commands(true);
        currentCHConfig = {};
        std::strcpy(currentCHConfig.id, "cfg-1");
        auto_on_off_timer = 0;
        AutoOnOffMode = 1;
    }

    FakePlatform platform;
};

TEST_F(Config, AutoOnOffFollowsTheWeek)
{
    constexpr std::time_t kMonday = 1767571200;  // 2026-01-05 00:00:00 UTC
    DRAVIK_CONFIGURATION_CH cfg{};
    cfg.autoOnOffEnable = 1;
    cfg.aooItemCount = 2;
    cfg.aooItems[0] = {1, 1, 8 * 3600};   // Monday 08:00 on
    cfg.aooItems[1] = {1, 0, 20 * 3600};  // Monday 20:00 off
    const struct {
        std::time_t at;
        int mode, next;
    } cases[] = {
        {kMonday + 86400 + 10 * 3600, 0, 50400},  // Tuesday 10:00: Monday's off, till midnight
        {kMonday + 8 * 3600 - 1, 0, 1},           // Monday 07:59:59: last week's end
        {kMonday + 8 * 3600, 1, 12 * 3600},       // Monday 08:00: on until 20:00
        {kMonday + 20 * 3600, 0, 4 * 3600},       // Monday 20:00: off, look again at midnight
        {kMonday - 12 * 3600, 0, 12 * 3600},      // Sunday noon: Monday is another day
    };
    for (const auto& c : cases) {
        platform.set_time(c.at);
        int next = -7;
        EXPECT_EQ(getAutoOnOffMode(&cfg, &next), c.mode) << c.at;
        EXPECT_EQ(next, c.next) << c.at;
    }
    // On the days summer time begins and ends the next point comes by the clock, an hour
    // sooner or later than the times of day say: Sunday 09:00 from five past midnight.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    cfg.aooItemCount = 1;
    cfg.aooItems[0] = {0, 1, 9 * 3600};
    for (auto [at, expected] : {std::pair<std::time_t, int>{1774738805, 28795}, {1792879205, 35995}}) {
        platform.set_time(at);
        int next = -7;
        EXPECT_EQ(getAutoOnOffMode(&cfg, &next), 1) << at;  // on since last Sunday
        EXPECT_EQ(next, expected) << at;
    }
    setenv("TZ", "UTC0", 1);
    // Without items: always on, and the next point untouched.
    int next = -7;
    cfg.aooItemCount = 0;
    EXPECT_EQ(getAutoOnOffMode(&cfg, &next), 1);
    EXPECT_EQ(next, -7);
}

TEST(LogTimer, IntervalOffsetAndTheSpreadByMacAddress)
{
    const struct {
        int enable, interval, offset, auto_offset, first;
        const char* mac;
        int seconds;
    } cases[] = {
        {0, 6, 0, 0, 0, "", 0},           {1, 6, 0, 0, 0, "", 21600},
        {1, 0, 0, 0, 0, "", 14400},       {1, 25, 0, 0, 0, "", 14400},
        {1, 6, 900, 0, 1, "", 930},       {1, 6, 2147483647, 0, 1, "", 2147483647},
        {1, 6, 0, 1, 1, "001122AABB0C", 2638},  // BB0C: 30 + 3570 * 47884 / 65535
        {1, 6, 0, 1, 1, "001122AA0000", 30},    {1, 6, 0, 1, 1, "001122AAFFFF", 3600},
        {1, 6, 0, 1, 1, "001122AA8000", 1815},  {1, 6, 0, 1, 1, "001122aabb0c", 30},
        {1, 6, 0, 1, 1, "0011", 30},  // a short address is read no further
    };
    for (const auto& c : cases) {
        DRAVIK_CONFIGURATION_CH cfg{};
        cfg.loggingEnable = c.enable;
        cfg.logInterval = c.interval;
        cfg.logOffset = c.offset;
        cfg.logAutoOffset = c.auto_offset;
        std::string mac = c.mac;
        EXPECT_EQ(compute_log_timer(&cfg, c.first, mac.data()), c.seconds) << c.interval << " " << c.mac;
    }
}

TEST_F(Config, LogUploadAndStopReachThePlayer)
{
    PlayerSim sim;
    DRAVIK_CONFIGURATION_CH cfg{};
    transfer_log_file(&cfg);  // no logging server: nothing
    std::strcpy(cfg.loggingServer, "ftp://logs.example/in");
    transfer_log_file(&cfg);
    stop_all_play();
    EXPECT_EQ(PlayerSim::requests(kSnmpSetType), (Texts{"1.3.6.1.4.1.58321.3.5.21.0 s ftp://logs.example/in",
                                                       "1.3.6.1.4.1.58321.3.3.9.0 i 7"}));
    EXPECT_EQ(platform.sleeps(), (std::vector<unsigned>{2, 2}));
}

// process_config up to its fetch: lines that are malformed, name the configuration in
// force, or name one that cannot be fetched change nothing and tell the player nothing.
TEST_F(Config, ConfigIdLineBeforeTheFetch)
{
    PlayerSim sim;
    std::strcpy(call_home_address, "http://127.0.0.1:9");  // nobody listens there
    for (auto [line, result] : {std::pair<std::string, int>{"ConfigID,", 0}, {"ConfigID,a b", 0},
                                {"ConfigID,cfg-1", 1}, {"ConfigID,   cfg-1", 1}, {"ConfigID,cfg-2", 1}})
        EXPECT_EQ(process_config(line.data(), currentCHConfig.id), result) << line;
    EXPECT_TRUE(PlayerSim::requests(kSnmpGetType).empty());
    EXPECT_STREQ(currentCHConfig.id, "cfg-1");
    EXPECT_FALSE(sandbox::exists("/mnt/hd3/cfgdata.txt"));
}

// A fetched configuration document, adopted against a player whose time servers are
// ntp1.example and ntp2.example, time zone 0, logging off.
TEST_F(Config, FetchedDocumentPushesWhatDiffersAndRebootsOnlyForServersOrLogging)
{
    const std::string head = "<config id=\"cfg-2\"><pri_ts server=\"ntp1.example\"/>";
    const std::string sec = "<sec_ts server=\"ntp2.example\"/>";
    const std::string store = "1.3.6.1.4.1.58321.3.5.11.0 i 1";
    const struct {
        const char* what;
        std::string doc;
        int result;
        Texts sets;
        bool reboot, saved;
        int auto_on_off = 0;
        int display = 1;  // AutoOnOffMode before
    } cases[] = {
        {"only the time zone", head + sec + "<timezone tz=\"-5\"/></config>", 1,
         {"1.3.6.1.4.1.58321.3.5.17.0 i -5", store}, false, true},
        {"the primary time server", "<config id=\"cfg-2\"><pri_ts server=\"ntp.example\"/>" + sec + "</config>",
         1, {"1.3.6.1.4.1.58321.3.5.15.0 s \"ntp.example\"", store}, true, true},
        {"no secondary server: a quoted blank", head + "</config>", 1,
         {"1.3.6.1.4.1.58321.3.5.16.0 s \" \"", store}, true, true},
        {"logging", head + sec + "<logging enable=\"true\" interval=\"6\"/></config>", 1,
         {"1.3.6.1.4.1.58321.3.5.35.0 i 1", store}, true, true},
        {"nothing differs; auto on/off re-evaluated soon",
         head + sec + "<auto_on_off enable=\"true\"><aoo_item day=\"mo\" mode=\"off\" time=\"22:00\"/>"
                      "</auto_on_off></config>",
         1, {}, false, true, 10},
        {"no on/off times while the display is off: looked at again soon, so it comes on", head + sec + "</config>",
         1, {}, false, true, 10, 0},
        {"a document without an id", "<config><timezone tz=\"3\"/></config>", 1, {}, false, false},
        {"a document that does not parse", head + "<timezone tz=\"3\">", 0, {}, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        PlayerSim sim({"--time-server1", "ntp1.example", "--time-server2", "ntp2.example"});
        new_sets();  // counted from this player's start
        sandbox::set_writable(3, true);
        unlink("/mnt/hd3/cfgdata.txt");
        sandbox::set_writable(3, false);
        sandbox::write_file("/tmp/daconfig.xml", c.doc);
        SetUp();
        AutoOnOffMode = c.display;
        platform.clear();
        sandbox::clear_calls();

        EXPECT_EQ(adopt_config_document(), c.result);
        EXPECT_EQ(new_sets(), c.sets);
        EXPECT_EQ(sandbox::read_file("/mnt/hd3/cfgdata.txt"), c.saved ? c.doc : "");
        EXPECT_STREQ(currentCHConfig.id, c.saved ? "cfg-2" : "cfg-1");
        Texts calls = sandbox::calls();
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "reboot"), c.reboot ? 1 : 0);
        // Each set comes two seconds after its read; a reboot ten seconds after the save.
        std::vector<unsigned> sleeps(c.sets.size(), 2u);
        if (c.reboot) sleeps.insert(sleeps.end(), {10u, 60u});
        EXPECT_EQ(platform.sleeps(), sleeps);
        EXPECT_EQ(auto_on_off_timer, c.auto_on_off);
        // The player now holds every setting: the same document again sends nothing.
        if (c.saved) {
            adopt_config_document();
            EXPECT_EQ(new_sets(), Texts{});
        }
    }
}

}  // namespace
