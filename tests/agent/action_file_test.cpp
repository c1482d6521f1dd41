// The USB configuration file and the server's command list, read from real files, with
// every subsystem they call the real one: deletions on the sandbox's media partition,
// /mnt/hd3/USB.CONF through its mount stand-in, player-sim as the player.
#include "agent/action_file.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
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

constexpr const char* kUsbConf = "/mnt/hd3/USB.CONF";
constexpr const char* kStickConf = "/tmp/temp_USB.CONF";
constexpr const char* kList = "/tmp/callhome.lst";
constexpr const char* kOldConf = "CallHomeAddress,http://old.example\nCallHomeInterval,900\n";

bool rebooted()
{
    Texts calls = sandbox::calls();
    return std::find(calls.begin(), calls.end(), "reboot") != calls.end();
}

class ActionFile : public ::testing::Test {
protected:
    void SetUp() override
    {
        queues::drain_all();
        sandbox::set_writable(3, true);
        sandbox::write_file(kUsbConf, kOldConf);
        sandbox::set_writable(3, false);
        sandbox::set_writable(4, true);
        std::system("rm -rf /mnt/hd4/video/* /mnt/hd4/picture/*");
        for (const char* f : {"video/clip.mpg", "video/other.ts", "picture/keep.jpg"})
            sandbox::write_file(std::string("/mnt/hd4/") + f, f);
        sandbox::set_writable(4, false);
        sandbox::write_file("/mnt/usb/fw.bin", "firmware");
        sandbox::clear_calls();
        std::strcpy(call_home_address, "http://old.example");
        call_home_interval = 900;
        call_home_timer = 0;
        timer_stopped = 0;
        initiate_call_home = 1;  // a command list is read while the call home is on
        check_version_line[0] = '\0';
        platform.run_commands(true);
    }

    static Texts media_left()
    {
        Texts found;
        for (const char* f : {"video/clip.mpg", "video/other.ts", "picture/keep.jpg"})
            if (sandbox::exists(std::string("/mnt/hd4/") + f)) found.push_back(f);
        return found;
    }

    FakePlatform platform;
};

TEST_F(ActionFile, UsbConfigurationKeepsOnlyItsCallHomeLines)
{
    PlayerSim sim({"--resolution", "8"});
    const std::string stick =
        "callhomeaddress,http://cms.example/a\r\n"
        "# a comment, then a keyword that is a prefix of the line\r\n"
        "CallHomeIntervalXYZ,30\r\n"
        "SetResolution,5\r\n"
        "SetResolution, 5\r\n"  // the player has it already
        "SetResolution,256\r\nSetResolution,-1\r\nSetResolution,\r\n"
        "DeleteFile,clip.mpg\r\n"
        " CallHomeAddress,http://indented.example\r\n"
        "CheckVersion,/pelk_version_info.inf\r\n"
        "ConfigID,cfg-9\r\n";
    sandbox::write_file(kStickConf, stick);

    // A stick that brings no media: the first call home five seconds later. The stick
    // carries no version file, so its CheckVersion upgrades nothing.
    EXPECT_EQ(load_call_home_config(kStickConf, 1, 0), 1);
    EXPECT_STREQ(call_home_address, "http://cms.example/a");
    EXPECT_EQ(call_home_interval, 60u);
    EXPECT_EQ(call_home_timer, 5);
    EXPECT_EQ(sandbox::read_file(kUsbConf), "callhomeaddress,http://cms.example/a\r\nCallHomeIntervalXYZ,30\r\n"
                                            "CheckVersion,/pelk_version_info.inf\r\n");
    EXPECT_STREQ(check_version_line, "CheckVersion,/pelk_version_info.inf");
    EXPECT_FALSE(sandbox::exists("/tmp/temp_stored_USB.CONF"));
    EXPECT_THAT(media_left(), ElementsAre("video/other.ts", "picture/keep.jpg"));
    EXPECT_THAT(PlayerSim::requests(kSnmpSetType),
                ElementsAre(".1.3.6.1.4.1.58321.3.2.9.0 i 5", ".1.3.6.1.4.1.58321.3.5.11.0 i 0",
                            ".1.3.6.1.4.1.58321.3.3.9.0 i 7", ".1.3.6.1.4.1.58321.3.3.5.0 s h0"));
    EXPECT_EQ(PlayerSim::requests(kSnmpGetType).size(), 4u);  // none for an empty value
    EXPECT_THAT(platform.commands(),
                ::testing::Contains("cp -f /mnt/usb/pelk_version_info.inf /tmp/pelk_version_info.inf"));

    // The disk's own file at start-up: the CheckVersion line is only kept, the interval
    // arms the countdown in full, and nothing is written back.
    sandbox::write_file("/tmp/own.conf", "CallHomeInterval,7200\nCheckVersion,http://updates.example/v.inf\n");
    platform.clear();
    EXPECT_EQ(load_call_home_config("/tmp/own.conf", 0, 1), 1);
    EXPECT_EQ(call_home_timer, 7200);
    EXPECT_STREQ(check_version_line, "CheckVersion,http://updates.example/v.inf");
    EXPECT_THAT(platform.commands(), IsEmpty());

    // An address alone calls home once a day; an address without its comma stops the
    // reading there, leaves the stored file behind and keeps USB.CONF.
    sandbox::write_file(kStickConf, "CallHomeAddress,http://b.example\n");
    EXPECT_EQ(load_call_home_config(kStickConf, 0, 0), 1);
    EXPECT_EQ(call_home_interval, 86400u);
    EXPECT_EQ(call_home_timer, 86400);
    sandbox::write_file(kStickConf, "CallHomeAddress,http://c.example\nCallHomeAddress http://d\n");
    EXPECT_EQ(load_call_home_config(kStickConf, 0, 0), 0);
    EXPECT_STREQ(call_home_address, "http://c.example");
    EXPECT_EQ(sandbox::read_file("/tmp/temp_stored_USB.CONF"), "CallHomeAddress,http://c.example\n");
    EXPECT_EQ(sandbox::read_file(kUsbConf), "CallHomeAddress,http://b.example\n");
}

TEST_F(ActionFile, CommandListLines)
{
    const struct {
        const char* what;
        std::string list;
        int result;
        const char* address;
        unsigned interval;
        int timer;
        const char* usb_conf;  // what /mnt/hd3/USB.CONF holds after; nullptr: gone
        Texts media;
    } cases[] = {
        // An interval alone changes the interval in force; USB.CONF keeps its server.
        {"a short interval", "CallHomeInterval,30\n", 1, "http://old.example", 60, 60, kOldConf,
         {"video/clip.mpg", "video/other.ts", "picture/keep.jpg"}},
        {"no more calls home", "callhomeinterval,0 \r\n", 1, "http://old.example", 0, 0, kOldConf,
         {"video/clip.mpg", "video/other.ts", "picture/keep.jpg"}},
        {"a new server alone: daily, and the first call in 5 s", "CallHomeAddress,http://new.example  \r\n",
         1, "http://new.example", 86400, 5, "CallHomeAddress,http://new.example\n",
         {"video/clip.mpg", "video/other.ts", "picture/keep.jpg"}},
        // The server in use is called again at the interval, not in 5 s.
        {"the server in use names itself", "CallHomeInterval,600\nCallHomeAddress,http://old.example\n", 1,
         "http://old.example", 600, 600, "CallHomeInterval,600\nCallHomeAddress,http://old.example\n",
         {"video/clip.mpg", "video/other.ts", "picture/keep.jpg"}},
        {"keywords in the first column only, as prefixes",
         "  CallHomeAddress,http://x.example\n\tDeleteFile,keep.jpg\nDeleteVideoMediaXYZ\n", 1,
         "http://old.example", 900, 0, kOldConf, {"picture/keep.jpg"}},
        {"a long line arrives in pieces of 254", std::string(254, 'x') + "DeleteImageMedia\n", 1,
         "http://old.example", 900, 0, kOldConf, {"video/clip.mpg", "video/other.ts"}},
        {"DeleteUSBConfigFile ends the list and the stored settings",
         "CallHomeInterval,600\nDeleteUSBConfigFile\nDeleteAllMedia\n", 1, "http://old.example", 0, 0,
         nullptr, {"video/clip.mpg", "video/other.ts", "picture/keep.jpg"}},
        {"an address without its comma", "DeleteFile,clip.mpg\nCallHomeAddress\nDeleteImageMedia\n", 0,
         "http://old.example", 900, 0, kOldConf, {"video/other.ts", "picture/keep.jpg"}},
        {"binary bytes", std::string("\x7f" "ELF\x02\x01\0\0CallHomeAddress\xff\xfe\r\x80\n\0\0\x01", 24), 1,
         "http://old.example", 900, 0, kOldConf, {"video/clip.mpg", "video/other.ts", "picture/keep.jpg"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        sandbox::write_file(kList, c.list);
        EXPECT_EQ(parse_action_file(kList), c.result);
        EXPECT_STREQ(call_home_address, c.address);
        EXPECT_EQ(call_home_interval, c.interval);
        EXPECT_EQ(call_home_timer, c.timer);
        EXPECT_EQ(sandbox::exists(kUsbConf) ? sandbox::read_file(kUsbConf) : "(none)",
                  c.usb_conf ? c.usb_conf : "(none)");
        EXPECT_FALSE(sandbox::exists("/tmp/temp_stored_USB.CONF"));
        EXPECT_EQ(media_left(), c.media);
    }
}

// An upgrade that a command list or a stick's configuration starts ends the reading of
// the list; success reboots, with the player told first.
TEST_F(ActionFile, UpgradeRebootsAfterSuccess)
{
    PlayerSim sim;
    sandbox::write_file("/mnt/usb/pelk_version_info.inf", "FW:0x211,fw.bin\n");
    sandbox::write_file(kList, "CheckVersion,/v.inf\nDeleteImageMedia\n");
    sandbox::write_file(kStickConf, "CheckVersion,/v.inf\nCallHomeInterval,600\n");
    for (auto read : {+[] { return parse_action_file(kList); },
                      +[] { return load_call_home_config(kStickConf, 0, 0); }}) {
        SetUp();
        EXPECT_EQ(read(), 1);
        EXPECT_TRUE(rebooted());
        EXPECT_EQ(PlayerSim::requests(kSnmpSetType).back(), ".1.3.6.1.4.1.58321.3.5.7.0 i 0");
        std::vector<unsigned> sleeps = platform.sleeps();
        EXPECT_THAT(std::vector<unsigned>(sleeps.end() - 2, sleeps.end()), ElementsAre(5u, 3600u));
        EXPECT_THAT(media_left(), ::testing::Contains("picture/keep.jpg"));  // not read on
    }
}

// A failed upgrade leaves the player to recover on its own: the agent sleeps five
// seconds at a time for ever. The reading runs on a thread of its own, which owns the
// fake seam (so its sleeps are recorded, 1 ms a second) until the test takes it back.
TEST_F(ActionFile, UpgradeWaitsForEverAfterAFailure)
{
    PlayerSim sim({"--firmware", "fail"});
    sandbox::write_file("/mnt/usb/pelk_version_info.inf", "FW:0x211,fw.bin\n");
    sandbox::write_file(kList, "CheckVersion,/v.inf\n");
    static std::atomic<FakePlatform*> waiting{nullptr};
    static std::atomic<bool> returned{false};
    std::thread([] {
        FakePlatform own;
        own.run_commands(true);
        own.scale_sleeps(1);
        waiting = &own;
        parse_action_file(kList);
        returned = true;
    }).detach();

    // 2 s before the first of four progress reads, 5 s before each; then 5 s for ever.
    ASSERT_TRUE(sandbox::wait_until([] { return waiting && waiting.load()->sleeps().size() >= 30; }));
    std::vector<unsigned> sleeps = waiting.load()->sleeps();
    EXPECT_EQ(sleeps.front(), 2u);
    EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), 5u), static_cast<long>(sleeps.size()) - 1);
    EXPECT_FALSE(returned);
    EXPECT_FALSE(rebooted());
    EXPECT_EQ(PlayerSim::requests(kSnmpGetType).size(), 5u);  // the version, four reads

    FakePlatform take_back;  // the waiting thread parks at its next sleep
}

}  // namespace
