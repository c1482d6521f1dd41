// Version files and the upgrades they start, against player-sim (the installed
// versions, the upgrade's progress and outcome) and the sandbox's real /mnt/usb and
// /tmp, with the real cp and rm.
#include "actions/version.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/queues.h"
#include "support/sandbox.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

class Version : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (int key : {kPlayerQueueKey, kBridgeRequestKey, kBridgeReplyKey, kNotifyQueueKey})
            queues::drain(key);
        for (const char* image : {"fw.bin", "sw.tar", "x.tgz", "splash.jpg"})
            sandbox::write_file(std::string("/mnt/usb/") + image, image);
        std::system("mkdir -p /mnt/hd1/bplayer_app /tmp/xapp");
        sandbox::write_file("/mnt/hd1/bplayer_app/VERSION.txt", "product=player\nbuild = \"4\"\n");
        sandbox::write_file("/tmp/xapp/XAPP_SU.SH", "#!/bin/sh\nXAPP_VERSION='1.2'\n");
        platform.run_commands(true);
    }

    FakePlatform platform;
};

// Each version file on the stick as check_inf_file finds it, against a player with
// firmware 0x210, software build 4 and extension application 1.2 installed.
TEST_F(Version, StickVersionFileUpgradesWhatIsNewer)
{
    const struct {
        const char* what;
        Texts sim_options;
        std::string inf;
        int result;
        Texts upgrades;  // as player-sim saw them start
        Texts copies;    // shell commands after the version file's copy
        Texts to_player; // upgrade messages on the player queue
    } cases[] = {
        {"newer firmware from the stick", {}, "FW : 0x211, /fw.bin\r\n", 1,
         {"url=\"ide:///tmp/firmware.bin\" file=present"},
         {"cp -f /mnt/usb/fw.bin /tmp/firmware.bin", "rm -f /tmp/firmware.bin"}, {}},
        {"the same firmware in the low 16 bits; a splash on its own", {"--firmware-version", "0x10210"},
         "BootSplash: splash.jpg\nFW:0x210, fw.bin\nBootSplash: splash.jpg\n", 0, {}, {}, {}},
        {"software from the network, then the splash with it", {},
         "sw: 0x5,http://updates.example/sw.tar\nBootSplash : splash.jpg\n", 1,
         {"url=\"http://updates.example/sw.tar\"", "url=\"ide:///tmp/newsplash.jpg\" file=present"},
         {"cp -f /mnt/usb/splash.jpg /tmp/newsplash.jpg", "rm -f /tmp/newsplash.jpg"},
         {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_DONE"}},
        {"software not newer; the installed extension offered again", {},
         "SW:0x4, sw.tar\nXAPP:1.2,x.tgz\n", 0, {}, {}, {}},
        {"the extension's version is the text as it stands, blank included", {},
         "XAPP: 1.2, x.tgz \n", 1, {"url=\"ide:///tmp/xapp.tgz\" file=present"},
         {"cp -f /mnt/usb/x.tgz /tmp/xapp.tgz", "rm -f /tmp/xapp.tgz"},
         {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_DONE"}},
        {"a failed firmware upgrade ends the file", {"--firmware", "fail"},
         "FW:0x300,fw.bin\nSW:0x9,sw.tar\n", -1, {"url=\"ide:///tmp/firmware.bin\" file=present"},
         {"cp -f /mnt/usb/fw.bin /tmp/firmware.bin", "rm -f /tmp/firmware.bin"}, {}},
        {"a failed extension", {"--xapp", "fail"}, "xapp:2.0,http://updates.example/x.tgz\nFW:0x300,fw.bin\n",
         -1, {"url=\"http://updates.example/x.tgz\""}, {}, {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_ERROR"}},
        {"a failed splash counts for nothing", {"--splash", "fail"},
         "FW:0x211,http://updates.example/fw.bin\nBootSplash:http://updates.example/s.jpg\n", 1,
         {"url=\"http://updates.example/fw.bin\"", "url=\"http://updates.example/s.jpg\""}, {},
         {"FW_UPGRADE_PROGRESS", "FW_UPGRADE_ERROR"}},
        {"an image the stick does not hold", {}, "FW:0x211,nothing.bin\n", -1,
         {"url=\"ide:///tmp/firmware.bin\" file=missing"},
         {"cp -f /mnt/usb/nothing.bin /tmp/firmware.bin", "rm -f /tmp/firmware.bin"}, {}},
        {"malformed and absurd lines", {},
         "FW:0x\nFW: 0x7fffffffff, fw.bin\nFW:0x300\nSW 0x5, sw.tar\nFW:300,fw.bin\nFW:0x300,\r\n"
         "XAPP 2.0,x.tgz\nXAPP:2.0\nBootSplash splash.jpg\n",
         0, {}, {}, {}},
        {"binary bytes", {}, std::string("FW\0:0x999,a\xff\xfe\n\x01\x02SW:\x80\x00", 21), 0, {}, {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        PlayerSim sim(c.sim_options);
        sandbox::write_file("/mnt/usb/pelk_version_info.inf", c.inf);
        platform.clear();
        call_home_timer = 100;

        EXPECT_EQ(check_inf_file(), c.result);
        Texts commands = platform.commands();
        ASSERT_FALSE(commands.empty());
        EXPECT_EQ(commands.front(), kCopyInf);
        EXPECT_EQ(Texts(commands.begin() + 1, commands.end()), c.copies);
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
}

TEST_F(Version, CheckVersionLineReadsTheStickWhateverTheName)
{
    PlayerSim sim;
    sandbox::write_file("/mnt/usb/pelk_version_info.inf", "FW:0x211,fw.bin\n");
    char short_line[] = "CheckVersio";
    EXPECT_EQ(process_check_version(short_line), 0);
    EXPECT_THAT(platform.commands(), IsEmpty());

    for (std::string line : {"CheckVersion", "CheckVersion,/other.inf\r\n"}) {
        platform.clear();
        EXPECT_EQ(process_check_version(line.data()), 1) << line;
        EXPECT_THAT(platform.commands(), ElementsAre(kCopyInf, "cp -f /mnt/usb/fw.bin /tmp/firmware.bin",
                                                     "rm -f /tmp/firmware.bin"));
    }
    // The poll waits 2 s, then reads every 5 s until the player reports the end.
    EXPECT_THAT(platform.sleeps(), ElementsAre(2u, 5u, 5u, 5u, 5u));

    // No version file on the stick: nothing at all.
    unlink("/mnt/usb/pelk_version_info.inf");
    platform.clear();
    EXPECT_EQ(check_inf_file(), 0);
    EXPECT_THAT(platform.commands(), IsEmpty());
}

TEST(FindValueInFile, BareValueAfterThePattern)
{
    const struct {
        const char* content;
        const char* pattern;
        const char* value;
    } cases[] = {
        {"build=123\n", "build", "123"},
        {"name=x\r\nBUILD = \"123\" \r\nbuild=9", "build", "123"},
        {"XAPP_VERSION='1.2'", "XAPP_VERSION", "1.2"},
        {"version: 7", "build", ""},
        // A mismatch restarts the match without trying that character again.
        {"bbuild=5\n", "build", ""},
        {"build=", "build", ""},
    };
    for (const auto& c : cases) {
        sandbox::write_file("/tmp/values.txt", c.content);
        const char* value = find_value_in_file("/tmp/values.txt", c.pattern);
        ASSERT_NE(value, nullptr);
        EXPECT_STREQ(value, c.value) << c.content;
    }
    EXPECT_EQ(find_value_in_file("/tmp/none.txt", "build"), nullptr);
}

}  // namespace
