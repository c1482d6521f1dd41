// The top of the agent with every subsystem behind it the real one: passes of the main
// loop, notifications from player-sim, and the action files (a stick's USB.CONF, the
// server's command list) read from real files, with deletions on the sandbox's media
// partition and /mnt/hd3/USB.CONF through its mount stand-in. The shell's commands are
// run and recorded, sleeps are instant.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "actions/config.h"
#include "agent/action_file.h"
#include "agent/agent.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/download.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/queues.h"
#include "support/sandbox.h"


namespace {

using Texts = std::vector<std::string>;

constexpr const char* kUsbConf = "/mnt/hd3/USB.CONF";
constexpr const char* kStickConf = "/tmp/temp_USB.CONF";
constexpr const char* kList = "/tmp/callhome.lst";
constexpr const char* kOldConf = "CallHomeAddress,http://old.example\nCallHomeInterval,900\n";
const Texts kMedia = {"video/a.ts", "video/clip.MPG", "picture/keep.jpg", "picture/page.html"};

class Agent : public ::testing::Test {
protected:
    void SetUp() override
    {
        queues::drain_all();
        sandbox::set_writable(3, true);
        sandbox::write_file(kUsbConf, kOldConf);
        sandbox::set_writable(4, true);
        std::system("rm -rf /mnt/hd4/video/* /mnt/hd4/picture/* /tmp/pelk_version_info.inf");
        for (const std::string& f : kMedia) sandbox::write_file("/mnt/hd4/" + f, f);
        sandbox::write_file("/mnt/usb/pelk_version_info.inf", "FW:0x211,fw.bin\n");  // newer firmware
        sandbox::write_file("/mnt/usb/fw.bin", "firmware");
        sandbox::set_writable(3, false);
        sandbox::set_writable(4, false);
        std::strcpy(call_home_address, "http://old.example");
        call_home_interval = 900;
        call_home_timer = timer_stopped = 0;
        initiate_call_home = 1;  // a command list is read while the call home is on
        platform.run_commands(true);
        platform.clear();
    }

    static Texts media_left()
    {
        Texts left;
        for (const std::string& f : kMedia)
            if (sandbox::exists("/mnt/hd4/" + f)) left.push_back(f);
        return left;
    }

    long reboots() const { return std::ranges::count(platform.commands(), "reboot"); }

    FakePlatform platform;
};

// A real start-up, then passes of the main loop with the flags raised by hand.
TEST_F(Agent, StartUpAndMainLoopPasses)
{
    PlayerSim sim({"--mac", "00:11:22:AA:BB:0C"});
    // A CheckVersion line in the disk's own USB.CONF is only kept at start-up, for a
    // firmware check later. The first log upload is spread over the hour by the last four
    // digits of the MAC address: BB0C gives 30 + 3570 * 47884 / 65535 seconds.
    sandbox::set_writable(3, true);
    sandbox::write_file(kUsbConf, std::string(kOldConf) + "CheckVersion,/v.inf\n");
    sandbox::write_file("/mnt/hd3/cfgdata.txt", "<config id=\"c\"><logging enable=\"true\" auto_offset=\"true\"/></config>");
    agent_start_up();  // the timer thread it starts parks on its first sleep
    EXPECT_EQ(sim.lines("phase=start").size(), 0u);
    EXPECT_EQ(send_log_timer, 2638);
    initiate_call_home = call_home_timer = currentCHConfig.loggingEnable = 0;
    // With logging disabled the log flag stands for ever and nothing is done.
    initiate_send_log = 1;
    agent_main_loop_pass();
    EXPECT_EQ(initiate_send_log, 1);

    // A running download puts off the call home, the log and the cleanup; the call-home
    // countdown is not re-armed meanwhile. Then the log goes, the next in four hours.
    gActiveDownload.active = 1;
    currentCHConfig.loggingEnable = 1;
    initiate_call_home = initiate_cleanup = 1;
    agent_main_loop_pass();
    gActiveDownload.active = 0;
    EXPECT_EQ(initiate_call_home + initiate_send_log + initiate_cleanup, 0);
    EXPECT_EQ(initiate_call_home_pending + initiate_send_log_pending + initiate_cleanup_pending, 3);
    EXPECT_EQ(call_home_timer, 0);
    initiate_send_log = 1;
    agent_main_loop_pass();
    EXPECT_EQ(send_log_timer, 14400);

    // Nothing on a device raises the reboot flag; the step is kept as it always was: the
    // player hears the pre-reboot command, a countdown starts from the last tick, and
    // the flag stays.
    lastTOD = 5000;
    initiate_reboot = 1;
    agent_main_loop_pass();
    EXPECT_EQ(initiate_reboot.exchange(0), 1);
    EXPECT_EQ(PlayerSim::requests(kSnmpSetType), Texts{".1.3.6.1.4.1.58321.3.5.7.0 i 0"});
    EXPECT_EQ(reboot_time, 5120);

    // From off to on (without items, always on): a content check is asked for.
    AutoOnOffMode = 0;
    initiate_auto_on_off = 1;
    agent_main_loop_pass();
    EXPECT_EQ(AutoOnOffMode, 1);
    EXPECT_EQ(initiate_content_check.exchange(0), 1);

    // A firmware check from the player runs the line: an upgrade, then the reboot.
    ASSERT_EQ(PlayerSim::command("--notify firmware-check"), 0);
    ASSERT_TRUE(sim.wait_for("send key=1240 type=31"));
    agent_main_loop_pass();
    EXPECT_EQ(sim.lines("upgrade kind=firmware phase=start").size(), 1u);
    EXPECT_EQ(reboots(), 1);
}

TEST_F(Agent, CommandListLines)
{
    PlayerSim sim;
    const struct {
        const char* what;
        std::string list;
        int result;
        unsigned interval;
        int timer;
        const char* usb_conf;  // afterwards; nullptr: gone
        Texts media;           // what is left of kMedia
        std::size_t stops = 0;  // the player told to stop first
    } rows[] = {
        // Pictures and videos go under a running player; whatever is no video is a picture.
        {"an interval under a minute; a wild card acts as in the shell", "CallHomeInterval,30\nDeleteFile,*.ts\nDeleteImageMedia\n",
         1, 60, 60, kOldConf, {"video/clip.MPG"}},
        {"keywords in the first column only, as prefixes",
         "  CallHomeAddress,http://x.example\n\tDeleteFile,keep.jpg\nDeleteFile,page.html\nDeleteVideoMediaXYZ\n", 1,
         900, 0, kOldConf, {"picture/keep.jpg"}},
        {"DeleteAllMedia stops the player first", "DeleteAllMedia\n", 1, 900, 0, kOldConf, {}, 1},
        {"DeleteUSBConfigFile ends the list and the stored settings",
         "CallHomeInterval,600\nDeleteUSBConfigFile\nDeleteImageMedia\n", 1, 0, 0, nullptr, kMedia},
        {"an address without its comma ends the reading", "DeleteFile,clip.MPG\nCallHomeAddress\nDeleteImageMedia\n", 0,
         900, 0, kOldConf, {"video/a.ts", "picture/keep.jpg", "picture/page.html"}},
        {"malformed lines, binary bytes",
         "ConfigID,\nConfigID,a b\n" + std::string("\x7f" "ELF\x02\x01\0\0CallHomeAddress\xff\xfe\r\x80\n\0\0\x01", 24),
         1, 900, 0, kOldConf, kMedia},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        SetUp();
        std::size_t sets = PlayerSim::requests(kSnmpSetType).size();
        sandbox::write_file(kList, row.list);
        initiate_content_check = 0;
        EXPECT_EQ(parse_action_file(kList), row.result);
        // Whatever removed media asks for a content check: what the schedule needs is
        // fetched again, and a player that DeleteAllMedia stopped starts again.
        EXPECT_EQ(initiate_content_check.load(), row.media != kMedia ? 1 : 0);
        EXPECT_EQ(call_home_interval, row.interval);
        EXPECT_EQ(call_home_timer, row.timer);
        EXPECT_EQ(sandbox::exists(kUsbConf) ? sandbox::read_file(kUsbConf) : "(none)", row.usb_conf ? row.usb_conf : "(none)");
        EXPECT_EQ(media_left(), row.media);
        EXPECT_EQ(PlayerSim::requests(kSnmpSetType).size() - sets, row.stops);
    }

    // A content line is known by its first 8 characters, "ContentI", as ConfigID is.
    SetUp();
    sandbox::write_file(kList, "ContentIX,c-2\n");
    parse_action_file(kList);
    EXPECT_THAT(platform.commands(), ::testing::Contains(::testing::HasSubstr("'http://old.example/content.xml'")));
}

// An upgrade that a command list or a stick's configuration starts ends the reading of
// the list: success reboots, the player told first; a failure leaves the player to
// recover on its own while the agent sleeps five seconds at a time for ever.
TEST_F(Agent, UpgradeEndsTheListThenRebootsOrWaitsForEver)
{
    sandbox::write_file(kList, "CheckVersion,/v.inf\nDeleteImageMedia\n");
    sandbox::write_file(kStickConf, "CheckVersion,/v.inf\n");
    {
        PlayerSim sim;
        EXPECT_EQ(parse_action_file(kList), 1);
        EXPECT_EQ(load_call_home_config(kStickConf, 0, 0), 1);
        EXPECT_EQ(reboots(), 2);  // the player told first: the firmware scenario's
        EXPECT_EQ(media_left(), kMedia);
    }

    PlayerSim sim({"--firmware", "fail"});
    initiate_call_home = 1;
    static std::atomic<FakePlatform*> waiting{nullptr};
    std::thread([] {
        FakePlatform own;  // this thread's sleeps recorded, 1 ms a second
        own.run_commands(true);
        own.scale_sleeps(1);
        waiting = &own;
        parse_action_file(kList);
    }).detach();
    ASSERT_TRUE(sandbox::wait_until([] { return waiting && waiting.load()->sleeps().size() >= 30; }));
    std::vector<unsigned> sleeps = waiting.load()->sleeps();
    EXPECT_EQ(std::count(sleeps.begin() + 1, sleeps.end(), 5u), static_cast<long>(sleeps.size()) - 1);
    EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), 3600u), 0) << "no reboot";
    FakePlatform take_back;  // the waiting thread parks at its next sleep
}

}  // namespace
