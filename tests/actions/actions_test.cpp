// The configuration's settings and the upgrades against player-sim, which holds the
// player's settings and versions and logs what it was told, with the sandbox's real
// /mnt/usb and /tmp. (Deletions are driven by the action files: tests/agent.)
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "actions/config.h"
#include "actions/version.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/sandbox.h"

using Texts = std::vector<std::string>;

namespace {

TEST(Config, AdoptedDocumentTellsThePlayerWhatDiffers)
{
    PlayerSim sim({"--time-server1", "ntp1.example", "--time-server2", "ntp2.example"});
    FakePlatform platform;
    const std::string head = "<config id=\"cfg-2\"><pri_ts server=\"ntp1.example\"/><sec_ts server=\"ntp2.example\"/>";
    // Logging switched on: the player is told and stores it, and the device reboots.
    sandbox::write_file("/tmp/daconfig.xml", head + "<logging enable=\"true\" interval=\"6\"/></config>");
    EXPECT_EQ(adopt_config_document(), 1);
    EXPECT_EQ(PlayerSim::requests(kSnmpSetType),
              (Texts{"1.3.6.1.4.1.58321.3.5.35.0 i 1", "1.3.6.1.4.1.58321.3.5.11.0 i 1"}));
    EXPECT_THAT(platform.commands(), ::testing::Contains("reboot"));

    // Logging on already, another interval: the record in force is replaced before the
    // comparison, so the log timer keeps its time. Auto on/off is looked at soon.
    platform.clear();
    send_log_timer = 777;
    sandbox::write_file("/tmp/daconfig.xml", head + "<logging enable=\"true\" interval=\"12\"/>"
                        "<auto_on_off enable=\"true\"><aoo_item day=\"mo\" mode=\"off\" time=\"22:00\"/></auto_on_off></config>");
    EXPECT_EQ(adopt_config_document(), 1);
    EXPECT_EQ(currentCHConfig.logInterval, 12);
    EXPECT_EQ(send_log_timer, 777);
    EXPECT_EQ(auto_on_off_timer, 10);
    EXPECT_EQ(PlayerSim::requests(kSnmpSetType).size(), 2u);
    EXPECT_THAT(platform.commands(), ::testing::Not(::testing::Contains("reboot")));

    // On/off times dropped while the display is off: looked at again soon all the same,
    // since nothing else turns the display back on.
    auto_on_off_timer = 0;
    AutoOnOffMode = 0;
    sandbox::write_file("/tmp/daconfig.xml", head + "<logging enable=\"true\" interval=\"12\"/></config>");
    EXPECT_EQ(adopt_config_document(), 1);
    EXPECT_EQ(auto_on_off_timer, 10);
    AutoOnOffMode = 1;

    // On the days summer time begins and ends, the next on/off time comes by the clock:
    // Sunday 09:00 seen from five past midnight is an hour nearer, then an hour further.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    DRAVIK_CONFIGURATION_CH cfg{};
    cfg.autoOnOffEnable = 1;
    cfg.aooItemCount = 1;
    cfg.aooItems[0] = {0, 1, 9 * 3600};
    for (auto [at, expected] : {std::pair<std::time_t, int>{1774738805, 28795}, {1792879205, 35995}}) {
        platform.set_time(at);
        int next = -7;
        EXPECT_EQ(getAutoOnOffMode(&cfg, &next), 1) << at;  // on since last Sunday
        EXPECT_EQ(next, expected) << at;
    }
    setenv("TZ", "UTC0", 1);
}

// Version files on the stick against a player with firmware 0x210, software build 4
// and extension application 1.2.
TEST(Version, StickVersionFileUpgradesWhatIsNewer)
{
    for (const char* image : {"fw.bin", "splash.jpg", "x.tgz"}) sandbox::write_file(std::string("/mnt/usb/") + image, image);
    std::system("mkdir -p /mnt/hd1/bplayer_app /tmp/xapp");
    // A mismatch restarts the search without trying that character again: "bbuild" is
    // no "build".
    sandbox::write_file("/mnt/hd1/bplayer_app/VERSION.txt", "bbuild=9\nbuild = \"4\"\n");
    sandbox::write_file("/tmp/xapp/XAPP_SU.SH", "#!/bin/sh\nXAPP_VERSION='1.2'\n");
    FakePlatform platform;
    platform.run_commands(true);
    const struct {
        const char* what;
        Texts sim_options;
        std::string inf;
        int result;
        Texts upgrades;   // as player-sim saw them start
        Texts to_player;  // upgrade messages on the player queue
    } cases[] = {
        // The firmware's version is in its low 16 bits; a splash comes only with an
        // upgrade before it in the same file.
        {"newer firmware and software, then the splash with them", {"--firmware-version", "0x10210"},
         "FW:0x211,fw.bin\nsw: 0x5,http://updates.example/sw.tar\nBootSplash : splash.jpg\n", 1,
         {"url=\"ide:///tmp/firmware.bin\" file=present", "url=\"http://updates.example/sw.tar\"",
          "url=\"ide:///tmp/newsplash.jpg\" file=present"},
         {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_DONE"}},
        {"nothing newer, nothing malformed, a splash on its own", {},
         "BootSplash: splash.jpg\nFW:0x210, fw.bin\nSW:0x4, sw.tar\nXAPP:1.2,x.tgz\nFW: 0x7fffffffff, fw.bin\n"
         "FW:0x300\nSW 0x5, sw.tar\nFW:300,fw.bin\nXAPP:2.0\n" + std::string("FW\0:0x999,\xff\n", 12), 0, {}, {}},
        {"the extension's version is the text as it stands, blank included", {}, "XAPP: 1.2, x.tgz \n", 1,
         {"url=\"ide:///tmp/xapp.tgz\" file=present"}, {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_DONE"}},
        {"a failed extension ends the file", {"--xapp", "fail"}, "xapp:2.0,http://updates.example/x.tgz\nFW:0x300,fw.bin\n",
         -1, {"url=\"http://updates.example/x.tgz\""}, {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_ERROR"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        PlayerSim sim(c.sim_options);
        sandbox::write_file("/mnt/usb/pelk_version_info.inf", c.inf);
        call_home_timer = 100;
        EXPECT_EQ(check_inf_file(), c.result);
        Texts upgrades, names;
        for (const std::string& line : PlayerSim::lines("phase=start")) upgrades.push_back(line.substr(line.find("url=")));
        EXPECT_EQ(upgrades, c.upgrades);
        EXPECT_EQ(call_home_timer, c.upgrades.empty() ? 100 : 0) << "an upgrade stops calls home";
        sim.wait_for("recv key=1234", c.to_player.size());
        for (const std::string& line : PlayerSim::lines("recv key=1234")) names.push_back(line.substr(line.find("name=") + 5));
        EXPECT_EQ(names, c.to_player);
    }
}

}  // namespace
