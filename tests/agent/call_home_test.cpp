// Real calls home: the command list, the configuration document and the version file
// served by cms-sim and fetched through wget-compat (the sandbox's wget), read by the
// real action-file reader, configuration and version check, with player-sim as the
// player; transfers run at a tenth of their pace (CmsSim::pace_transfers).
#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "actions/config.h"
#include "actions/version.h"
#include "agent/agent.h"
#include "content/current_item.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/cms_sim.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/queues.h"
#include "support/sandbox.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using Texts = std::vector<std::string>;

constexpr const char* kSaved = "/mnt/hd3/cfgdata.txt";
const std::string kTimeZoneOnly =
    "<config id=\"cfg-2\"><pri_ts server=\"ntp1.example\"/><sec_ts server=\"ntp2.example\"/>"
    "<timezone tz=\"-5\"/></config>";

// What cms-sim was asked since the last call, as "<target> <status>".
Texts served()
{
    static std::size_t seen;
    Texts all = CmsSim::requests();
    if (seen > all.size()) seen = 0;  // a fresh cms-sim's log
    Texts out;
    for (std::size_t i = seen; i < all.size(); ++i) {
        std::istringstream line(all[i]);
        std::string time, method, target, status;
        line >> time >> method >> target >> status;
        out.push_back(target + " " + status);
    }
    seen = all.size();
    return out;
}

// A player whose time servers are ntp1.example and ntp2.example, time zone 0, logging
// off, firmware 0x210.
PlayerSim player() { return PlayerSim({"--time-server1", "ntp1.example", "--time-server2", "ntp2.example"}); }

class CallHome : public ::testing::Test {
protected:
    void SetUp() override
    {
        CmsSim::pace_transfers(platform);
        queues::drain_all();
        sandbox::set_writable(3, true);
        unlink(kSaved);
        sandbox::set_writable(3, false);
        sandbox::clear_calls();
        currentCHConfig = {};
        std::strcpy(currentCHConfig.id, "cfg-1");
        std::strcpy(currentContent.id, "c-1");
        std::strcpy(call_home_address, CmsSim::url("").c_str());
        call_home_interval = 900;
        call_home_timer = 0;
        initiate_call_home = 0;
        served();
    }

    FakePlatform platform;
};

// One pass of the main loop with the call-home flag raised: the list fetched from the
// server in force and each line sent to its reader.
TEST_F(CallHome, MainLoopFetchesTheCommandListAndFollowsIt)
{
    CmsSim cms;
    PlayerSim sim = player();
    CmsSim::put("/config.xml", kTimeZoneOnly);
    CmsSim::put("/same.inf", "FW:0x210,http://127.0.0.1:8080/fw.bin\n");  // what the player has
    const struct {
        const char* why;
        const char* list;  // nullptr: the server has none
        Texts served;
        const char* config_id;  // in force afterwards
    } rows[] = {
        {"a new configuration", "ConfigID,cfg-2\r\n", {"/command.txt 200", "/config.xml 200"}, "cfg-2"},
        {"the configuration in force", "ConfigID,cfg-1\n", {"/command.txt 200"}, "cfg-1"},
        {"a version file, then the list read on", "CheckVersion,http://127.0.0.1:8080/same.inf\nConfigID,cfg-2\n",
         {"/command.txt 200", "/same.inf 200", "/config.xml 200"}, "cfg-2"},
        // The server has no content document: the content in force stays.
        {"content lines compared over 8 characters", "ContentIX,c-2\nContentID,c-1\ncontent,c-3\nConfigID,cfg-2\n",
         {"/command.txt 200", "/content.xml 404", "/config.xml 200"}, "cfg-2"},
        {"no list on the server", nullptr, {"/command.txt 404"}, "cfg-1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        SetUp();
        if (row.list) {
            CmsSim::put("/command.txt", row.list);
        } else {
            unlink((std::string(CmsSim::kRoot) + "/command.txt").c_str());
        }
        initiate_call_home = 1;
        agent_main_loop_pass();
        EXPECT_EQ(served(), row.served);
        EXPECT_STREQ(currentCHConfig.id, row.config_id);
        EXPECT_STREQ(currentContent.id, "c-1");
        EXPECT_EQ(sandbox::exists(kSaved), std::string(row.config_id) == "cfg-2");
        EXPECT_EQ(initiate_call_home, 0);
        EXPECT_EQ(call_home_timer, 900);  // re-armed from the interval, a failed fetch too
    }
}

// The documents behind a ConfigID or CheckVersion line, fetched from cms-sim. A
// CheckVersion line naming exactly the default update server asks for the version file
// below it; that host does not exist in the sandbox, so the row checks the fetch's
// command line and that the failed fetch does nothing.
TEST_F(CallHome, ConfigurationAndVersionFilesFetchedForTheirLines)
{
    CmsSim cms({"--fault", "/down/*", "status=500"});
    const std::string store = "1.3.6.1.4.1.58321.3.5.11.0 i 1";
    const std::string fw_upgrade = "1.3.6.1.4.1.58321.3.5.8.0 s http://127.0.0.1:8080/fw.bin";
    CmsSim::put("/ok/config.xml", kTimeZoneOnly);
    CmsSim::put("/broken/config.xml", "<config id=\"cfg-2\"><timezone tz=\"3\">");
    CmsSim::put("/new.inf", "FW:0x211,http://127.0.0.1:8080/fw.bin\n");
    CmsSim::put("/same.inf", "FW:0x210,http://127.0.0.1:8080/fw.bin\n");
    CmsSim::put("/big.inf", "FW:0x211,http://127.0.0.1:8080/fw.bin\n" + std::string(8192, '#'));
    const std::string default_fetch = std::string("wget '") + kDefaultUpdateServer +
                                      "AVB_348092/TEST_213/pelk_version_info.inf' -O /tmp/pelk_version_info.inf &";
    const struct {
        const char* why;
        std::string line;
        const char* server;  // call_home_address below cms-sim, for a ConfigID line
        int result;
        Texts served;
        Texts sets;  // what the player was told
        bool saved;
        const char* wget = nullptr;  // a fetch's command line, where cms-sim cannot see it
    } rows[] = {
        {"a new configuration changing the time zone", "ConfigID,cfg-2", "/ok", 1, {"/ok/config.xml 200"},
         {"1.3.6.1.4.1.58321.3.5.17.0 i -5", store}, true},
        {"a configuration that does not parse", "ConfigID,cfg-2", "/broken", 0, {"/broken/config.xml 200"}, {},
         false},
        {"a configuration that cannot be fetched", "ConfigID,cfg-2", "/down", 1, {"/down/config.xml 500"}, {}, false},
        {"newer firmware", "CheckVersion," + CmsSim::url("/new.inf"), nullptr, 1, {"/new.inf 200"}, {fw_upgrade},
         false},
        {"firmware the player has", "CheckVersion," + CmsSim::url("/same.inf"), nullptr, 0, {"/same.inf 200"}, {},
         false},
        {"a version file over 8192 bytes", "CheckVersion," + CmsSim::url("/big.inf"), nullptr, 0,
         {"/big.inf 200"}, {}, false},
        {"a version file the server lacks", "CheckVersion," + CmsSim::url("/none.inf"), nullptr, 0,
         {"/none.inf 404"}, {}, false},
        {"exactly the default update server", std::string("CheckVersion,") + kDefaultUpdateServer, nullptr, 0, {}, {},
         false, default_fetch.c_str()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        PlayerSim sim = player();
        SetUp();
        unlink("/tmp/pelk_version_info.inf");
        platform.clear();
        std::string line = row.line;
        if (row.server) {
            std::strcpy(call_home_address, CmsSim::url(row.server).c_str());
            EXPECT_EQ(process_config(line.data(), currentCHConfig.id), row.result);
        } else {
            EXPECT_EQ(process_check_version(line.data()), row.result);
        }
        EXPECT_EQ(served(), row.served);
        EXPECT_EQ(PlayerSim::requests(kSnmpSetType), row.sets);
        EXPECT_EQ(sandbox::read_file(kSaved), row.saved ? kTimeZoneOnly : "");
        EXPECT_STREQ(currentCHConfig.id, row.saved ? "cfg-2" : "cfg-1");
        if (row.wget) {
            EXPECT_THAT(platform.commands(), Contains(row.wget));
        }
        EXPECT_THAT(sandbox::calls(), ::testing::Not(Contains("reboot")));
    }
}

}  // namespace
