// Version files and the upgrades they start, against player-sim (the installed
// versions, the upgrade's progress and outcome) and the sandbox's real /mnt/usb and
// /tmp, with the real cp and rm.
#include "actions/version.h"

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/queues.h"
#include "support/sandbox.h"

namespace {

using Texts = std::vector<std::string>;

constexpr const char* kCopyInf = "cp -f /mnt/usb/pelk_version_info.inf /tmp/pelk_version_info.inf";

// What player-sim logged after `field` on its lines holding `text`, in order.
Texts logged(const std::string& text, const std::string& field)
{
    Texts out;
    for (const std::string& line : PlayerSim::lines(text)) out.push_back(line.substr(line.find(field)));
    return out;
}

// Each version file on the stick, reached through a CheckVersion line or by
// check_inf_file (no line), against a player with firmware 0x210, software build 4
// and extension application 1.2 installed.
TEST(Version, StickVersionFileUpgradesWhatIsNewer)
{
    queues::drain_all();
    for (const char* image : {"fw.bin", "sw.tar", "x.tgz", "splash.jpg"})
        sandbox::write_file(std::string("/mnt/usb/") + image, image);
    std::system("mkdir -p /mnt/hd1/bplayer_app /tmp/xapp");
    // A mismatch restarts the search without trying that character again: "bbuild" is
    // no "build".
    sandbox::write_file("/mnt/hd1/bplayer_app/VERSION.txt", "bbuild=9\nbuild = \"4\"\n");
    sandbox::write_file("/tmp/xapp/XAPP_SU.SH", "#!/bin/sh\nXAPP_VERSION='1.2'\n");
    FakePlatform platform;
    platform.run_commands(true);
    const Texts copy_firmware = {kCopyInf, "cp -f /mnt/usb/fw.bin /tmp/firmware.bin", "rm -f /tmp/firmware.bin"};
    const struct {
        const char* what;
        const char* line;  // nullptr: check_inf_file
        Texts sim_options;
        std::string inf;
        int result;
        Texts upgrades;   // as player-sim saw them start
        Texts commands;
        Texts to_player;  // upgrade messages on the player queue
    } cases[] = {
        {"newer firmware; the line's name is not used", "CheckVersion,/other.inf\r\n", {},
         "FW : 0x211, /fw.bin\r\n", 1, {"url=\"ide:///tmp/firmware.bin\" file=present"}, copy_firmware, {}},
        {"a bare CheckVersion reads the stick too", "CheckVersion", {}, "FW:0x211,fw.bin\n", 1,
         {"url=\"ide:///tmp/firmware.bin\" file=present"}, copy_firmware, {}},
        {"a line too short", "CheckVersio", {}, "FW:0x211,fw.bin\n", 0, {}, {}, {}},
        {"the same firmware in the low 16 bits; a splash on its own", nullptr, {"--firmware-version", "0x10210"},
         "BootSplash: splash.jpg\nFW:0x210, fw.bin\nBootSplash: splash.jpg\n", 0, {}, {kCopyInf}, {}},
        {"software from the network, then the splash with it", nullptr, {},
         "sw: 0x5,http://updates.example/sw.tar\nBootSplash : splash.jpg\n", 1,
         {"url=\"http://updates.example/sw.tar\"", "url=\"ide:///tmp/newsplash.jpg\" file=present"},
         {kCopyInf, "cp -f /mnt/usb/splash.jpg /tmp/newsplash.jpg", "rm -f /tmp/newsplash.jpg"},
         {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_DONE"}},
        {"software not newer; the installed extension offered again", nullptr, {},
         "SW:0x4, sw.tar\nXAPP:1.2,x.tgz\n", 0, {}, {kCopyInf}, {}},
        {"the extension's version is the text as it stands, blank included", nullptr, {},
         "XAPP: 1.2, x.tgz \n", 1, {"url=\"ide:///tmp/xapp.tgz\" file=present"},
         {kCopyInf, "cp -f /mnt/usb/x.tgz /tmp/xapp.tgz", "rm -f /tmp/xapp.tgz"},
         {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_DONE"}},
        {"a failed firmware upgrade ends the file", nullptr, {"--firmware", "fail"},
         "FW:0x300,fw.bin\nSW:0x9,sw.tar\n", -1, {"url=\"ide:///tmp/firmware.bin\" file=present"},
         copy_firmware, {}},
        {"a failed extension", nullptr, {"--xapp", "fail"},
         "xapp:2.0,http://updates.example/x.tgz\nFW:0x300,fw.bin\n", -1,
         {"url=\"http://updates.example/x.tgz\""}, {kCopyInf}, {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_ERROR"}},
        {"a failed splash counts for nothing", nullptr, {"--splash", "fail"},
         "FW:0x211,http://updates.example/fw.bin\nBootSplash:http://updates.example/s.jpg\n", 1,
         {"url=\"http://updates.example/fw.bin\"", "url=\"http://updates.example/s.jpg\""}, {kCopyInf},
         {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_ERROR"}},
        {"an image the stick does not hold", nullptr, {}, "FW:0x211,nothing.bin\n", -1,
         {"url=\"ide:///tmp/firmware.bin\" file=missing"},
         {kCopyInf, "cp -f /mnt/usb/nothing.bin /tmp/firmware.bin", "rm -f /tmp/firmware.bin"}, {}},
        {"malformed and absurd lines", nullptr, {},
         "FW:0x\nFW: 0x7fffffffff, fw.bin\nFW:0x300\nSW 0x5, sw.tar\nFW:300,fw.bin\nFW:0x300,\r\n"
         "XAPP 2.0,x.tgz\nXAPP:2.0\nBootSplash splash.jpg\n",
         0, {}, {kCopyInf}, {}},
        {"binary bytes", nullptr, {}, std::string("FW\0:0x999,a\xff\xfe\n\x01\x02SW:\x80\x00", 21), 0, {},
         {kCopyInf}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        PlayerSim sim(c.sim_options);
        sandbox::write_file("/mnt/usb/pelk_version_info.inf", c.inf);
        platform.clear();
        call_home_timer = 100;

        std::string line = c.line ? c.line : "";
        EXPECT_EQ(c.line ? process_check_version(line.data()) : check_inf_file(), c.result);
        EXPECT_EQ(platform.commands(), c.commands);
        EXPECT_EQ(logged("phase=start", "url="), c.upgrades);
        // Every upgrade that starts stops calls home.
        EXPECT_EQ(call_home_timer, c.upgrades.empty() ? 100 : 0);
        if (!c.to_player.empty()) {
            EXPECT_TRUE(sim.wait_for("recv key=1234", c.to_player.size()));
        }
        Texts names;
        for (const std::string& m : logged("recv key=1234", "name=")) names.push_back(m.substr(5));
        EXPECT_EQ(names, c.to_player);
    }
    // No version file on the stick: nothing at all.
    unlink("/mnt/usb/pelk_version_info.inf");
    platform.clear();
    EXPECT_EQ(check_inf_file(), 0);
    EXPECT_TRUE(platform.commands().empty());
}

}  // namespace
