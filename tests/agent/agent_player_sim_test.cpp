// The agent's start-up and main loop against player-sim, over the real queues of one
// sandbox: the agent runs in this process (with instant sleeps and the subsystems
// outside the core replaced by recording fakes), player-sim beside it.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <thread>

#include "actions/config.h"
#include "agent/action_file.h"
#include "agent/agent.h"
#include "agent/agent_fakes.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/queues.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr const char* kMacQuery =
    "recv key=1235 type=770 len=2048 text=\"1.3.6.1.4.1.58321.3.1.8.0\"";
constexpr const char* kConfDone = "recv key=1240 type=30 len=64 cmmd=93 name=USB_CONF_DONE";
constexpr const char* kUpdate = "load_call_home_config /tmp/temp_USB.CONF";

class AgentWithPlayerSim : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
    }

    // Start-up against the running player-sim; the timer thread it starts parks.
    void start_up()
    {
        agent_start_up();
        platform.clear();
        fakes::trace.clear();
    }

    // Has player-sim send a notification, waits until it is on the queue, and lets the
    // agent make one pass.
    static void notify_and_pass(PlayerSim& sim, const std::string& what, const char* media = "0")
    {
        std::size_t before = sim.lines("send key=1240 type=31").size();
        ASSERT_EQ(PlayerSim::command("--notify " + what + " --media " + media), 0);
        ASSERT_TRUE(sim.wait_for("send key=1240 type=31", before + 1));
        agent_main_loop_pass();
    }

    // The player heard the pre-reboot command through the bridge, then the device rebooted.
    void expect_reboot(PlayerSim& sim, std::size_t nth)
    {
        EXPECT_TRUE(sim.wait_for(
            "recv key=1235 type=769 len=2048 text=\".1.3.6.1.4.1.58321.3.5.7.0 i 0\"", nth));
        EXPECT_THAT(platform.commands(), ElementsAre("reboot"));
        // 5 s after the player's command, an hour for the reboot, then the second a
        // notification costs.
        EXPECT_THAT(platform.sleeps(), ElementsAre(5u, 3600u, 1u));
        platform.clear();
        fakes::trace.clear();
    }

    FakePlatform platform;
};

TEST_F(AgentWithPlayerSim, StartUpTakesTheMacAddressFromThePlayerAndArmsTheCountdowns)
{
    PlayerSim sim({"--mac", "00:11:22:aa:bb:0c"});
    fakes::answers.auto_mode = 0;                      // the display is to be off now
    fakes::answers.configured_call_home_timer = 3600;  // USB.CONF asks for calls home
    setenv("TZ", "UTC0", 1);
    tzset();
    agent_start_up();

    EXPECT_STREQ(macAddress, "001122AABB0C");
    EXPECT_THAT(sim.lines(kMacQuery), SizeIs(1));
    EXPECT_THAT(fakes::trace,
                ElementsAre("dA_Initialize", "download_init", "player_state_clear",
                            "dA_ParseConfigurationCH /mnt/hd3/cfgdata.txt", "getAutoOnOffMode",
                            "dA_ParseContent /mnt/hd3/contentdata.txt", "compute_log_timer 1",
                            "load_call_home_config /mnt/hd3/USB.CONF 0 1"));
    EXPECT_EQ(AutoOnOffMode, -1);    // "off" at start-up so the first evaluation counts
    EXPECT_EQ(call_home_timer, 10);  // the first call home ten seconds after start
    EXPECT_EQ(lastTOD, 1767268800u);
    EXPECT_EQ(reboot_time, 43200);   // 12:00 UTC: to the next midnight
}

TEST_F(AgentWithPlayerSim, ConfigurationUpdateIsAnsweredWithConfDone)
{
    PlayerSim sim;
    start_up();

    notify_and_pass(sim, "conf-update", "0");  // a stick without media
    EXPECT_THAT(fakes::trace, ElementsAre("check_inf_file", std::string(kUpdate) + " 1 0"));
    EXPECT_EQ(playlist_started, 1);
    EXPECT_TRUE(sim.wait_for(kConfDone, 1));

    // "Call now" first copies the disk's own file, then updates the same way.
    fakes::trace.clear();
    notify_and_pass(sim, "call-now", "1");
    EXPECT_THAT(platform.commands(), ElementsAre("cp -f /mnt/hd3/USB.CONF /tmp/temp_USB.CONF"));
    EXPECT_THAT(fakes::trace, ElementsAre("check_inf_file", std::string(kUpdate) + " 0 0"));
    EXPECT_EQ(playlist_started, 0);
    EXPECT_TRUE(sim.wait_for(kConfDone, 2));

    // An upgrade from the stick that wants a reboot: the update still completes after it.
    platform.clear();
    fakes::answers.inf_result = 1;
    notify_and_pass(sim, "conf-update", "1");
    EXPECT_TRUE(sim.wait_for(kConfDone, 3));
    expect_reboot(sim, 1);

    // So does a firmware check that started an upgrade.
    fakes::answers.check_version_result = 1;
    std::strcpy(check_version_line, "CheckVersion,http://updates.example/");
    notify_and_pass(sim, "firmware-check");
    EXPECT_THAT(fakes::trace,
                ElementsAre("process_check_version CheckVersion,http://updates.example/"));
    expect_reboot(sim, 2);
}

TEST_F(AgentWithPlayerSim, UsbCopyStopsCallsHomeAndOtherNotificationsCostASecond)
{
    PlayerSim sim;
    start_up();
    call_home_interval = 600;
    call_home_timer = 42;

    notify_and_pass(sim, "copy-done");  // without a start: nothing
    EXPECT_EQ(call_home_timer, 42);
    notify_and_pass(sim, "copy-start");
    EXPECT_EQ(timer_stopped, 1);
    EXPECT_EQ(call_home_timer, 0);
    notify_and_pass(sim, "copy-done");
    EXPECT_EQ(timer_stopped, 0);
    EXPECT_EQ(call_home_timer, 600);

    notify_and_pass(sim, "98");  // an unknown id
    EXPECT_THAT(platform.sleeps(), ElementsAre(1u, 1u, 1u, 1u));
    EXPECT_THAT(fakes::trace, IsEmpty());
    // player-sim takes every message but notifications from this queue. With it gone, an
    // answer or a message the agent left would still be there.
    sim.stop();
    EXPECT_THAT(sim.lines("key=1240 type=30"), IsEmpty()) << "an unknown id is not answered";
    EXPECT_EQ(queues::count(kNotifyQueueKey), 0);

    // A USB copy start of type 32 is no notification: it stays for whoever it is meant for.
    std::string text(kUsbMsgTextSize, '\0');
    int id = USB_COPY_START;
    std::memcpy(text.data(), &id, sizeof id);
    ASSERT_TRUE(queues::post(kNotifyQueueKey, 32, text));
    agent_main_loop_pass();
    EXPECT_EQ(timer_stopped, 0);
    EXPECT_EQ(queues::count(kNotifyQueueKey), 1);
    EXPECT_EQ(platform.sleeps().size(), 5u);
}

TEST_F(AgentWithPlayerSim, SilentBridgeHoldsTheAgentUntilItsReplyQueueGoes)
{
    PlayerSim sim({"--never-answer"});
    std::atomic<bool> returned{false};
    char mac[13] = "stale";
    testing::internal::CaptureStderr();
    std::thread start_up_query([&] {
        get_mac_address(mac);
        returned = true;
    });

    ASSERT_TRUE(sim.wait_for(kMacQuery));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(returned);
    EXPECT_THAT(sim.lines("send key=1236"), IsEmpty());

    // The bridge going away does not free the agent either: there is no time limit.
    sim.stop(SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(returned);
    // Only the end of the reply queue itself ends the wait, with an empty reply.
    ASSERT_EQ(msgctl(msgget(kBridgeReplyKey, 0), IPC_RMID, nullptr), 0);
    start_up_query.join();
    EXPECT_STREQ(mac, "");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("msgrcv in snmplc failed"));
}

}  // namespace
