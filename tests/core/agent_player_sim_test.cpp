// The agent's start-up and main loop against player-sim, over the real queues of one
// sandbox: the agent runs in this process (with instant sleeps and the subsystems
// outside the core replaced by recording fakes), player-sim beside it.
#include <atomic>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "core/agent.h"
#include "core/agent_fakes.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/queues.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr const char* kMacQuery = "recv key=1235 type=770 len=2048 text=\"1.3.6.1.4.1.58321.3.1.8.0\"";
constexpr const char* kConfDone = "recv key=1240 type=30 len=64 cmmd=93 name=USB_CONF_DONE";

class AgentWithPlayerSim : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        for (auto* f : {&initiate_call_home, &initiate_content_check, &initiate_auto_on_off,
                        &initiate_send_log, &initiate_reboot, &initiate_post_status,
                        &initiate_download_check, &initiate_cleanup})
            *f = 0;
        call_home_timer = 0;
        call_home_interval = 0;
        timer_stopped = 0;
        playlist_started = 0;
        for (int key : {kPlayerQueueKey, kBridgeRequestKey, kBridgeReplyKey, kNotifyQueueKey})
            queues::drain(key);
    }

    // Start-up against the running player-sim; the timer thread it starts parks.
    void start_up()
    {
        agent_start_up();
        platform.clear();
        fakes::trace.clear();
    }

    // Has player-sim send a notification, and waits until it is on the queue.
    static void notify(PlayerSim& sim, const std::string& what, const std::string& media = "0")
    {
        std::size_t before = sim.lines("send key=1240 type=31").size();
        ASSERT_EQ(PlayerSim::command({"--notify", what, "--media", media}), 0);
        ASSERT_TRUE(sim.wait_for("send key=1240 type=31", before + 1));
    }

    FakePlatform platform;
};

TEST_F(AgentWithPlayerSim, StartUpTakesTheMacAddressFromThePlayer)
{
    PlayerSim sim({"--mac", "00:11:22:aa:bb:0c"});
    agent_start_up();
    EXPECT_STREQ(macAddress, "001122AABB0C");
    EXPECT_THAT(sim.lines(kMacQuery), SizeIs(1));
    EXPECT_TRUE(sim.wait_for("send key=1236 type=772 len=59 "
                             "text=\"1.3.6.1.4.1.58321.3.1.8.0 = Hex-STRING: 00 11 22 AA BB 0C \""));
}

TEST_F(AgentWithPlayerSim, UsbCopyStopsTheCallHomeCountdownUntilItIsDone)
{
    PlayerSim sim;
    start_up();
    call_home_interval = 600;
    call_home_timer = 42;

    notify(sim, "copy-start");
    agent_main_loop_pass();
    EXPECT_EQ(timer_stopped, 1);
    EXPECT_EQ(call_home_timer, 0);

    notify(sim, "copy-done");
    agent_main_loop_pass();
    EXPECT_EQ(timer_stopped, 0);
    EXPECT_EQ(call_home_timer, 600);
    EXPECT_THAT(platform.sleeps(), ElementsAre(1u, 1u));
}

TEST_F(AgentWithPlayerSim, ConfigurationUpdateIsAnsweredWithConfDone)
{
    PlayerSim sim;
    start_up();

    notify(sim, "conf-update", "0");  // a stick without media
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace,
                ElementsAre("check_inf_file", "load_call_home_config /tmp/temp_USB.CONF 1 0"));
    EXPECT_EQ(playlist_started, 1);
    EXPECT_TRUE(sim.wait_for(kConfDone, 1));

    // "Call now" first copies the disk's own file, then updates the same way.
    fakes::trace.clear();
    notify(sim, "call-now", "1");
    agent_main_loop_pass();
    EXPECT_THAT(platform.commands(), ElementsAre("cp -f /mnt/hd3/USB.CONF /tmp/temp_USB.CONF"));
    EXPECT_THAT(fakes::trace,
                ElementsAre("check_inf_file", "load_call_home_config /tmp/temp_USB.CONF 0 0"));
    EXPECT_EQ(playlist_started, 0);
    EXPECT_TRUE(sim.wait_for(kConfDone, 2));

    // An upgrade from the stick that wants a reboot: the player hears the pre-reboot
    // command through the bridge, the device reboots, and the update still completes.
    platform.clear();
    fakes::inf_result = 1;
    notify(sim, "conf-update", "1");
    agent_main_loop_pass();
    EXPECT_THAT(sim.lines("recv key=1235 type=769 len=2048 text=\".1.3.6.1.4.1.58321.3.5.7.0 i 0\""),
                SizeIs(1));
    // The reply is logged just after it is sent, so possibly after the agent has it.
    EXPECT_TRUE(sim.wait_for("send key=1236 type=772", 2));  // the MAC, then this
    EXPECT_THAT(platform.commands(), ElementsAre("reboot"));
    EXPECT_THAT(platform.sleeps(), ElementsAre(5u, 3600u, 1u));
    EXPECT_TRUE(sim.wait_for(kConfDone, 3));
}

TEST_F(AgentWithPlayerSim, UnknownIdCostsASecondAndOtherTypesAreNotTaken)
{
    PlayerSim sim;
    start_up();
    call_home_interval = 600;
    call_home_timer = 42;

    notify(sim, "98");
    agent_main_loop_pass();
    EXPECT_THAT(platform.sleeps(), ElementsAre(1u));
    EXPECT_THAT(fakes::trace, IsEmpty());
    EXPECT_EQ(queues::count(kNotifyQueueKey), 0) << "the agent took it";

    // Not a notification (type 32): the agent leaves it for whoever it is meant for; here
    // player-sim finds it and logs it as not its own either.
    std::string text(kUsbMsgTextSize, '\0');
    int id = USB_COPY_START;
    std::memcpy(text.data(), &id, sizeof id);
    ASSERT_TRUE(queues::post(kNotifyQueueKey, 32, text));
    agent_main_loop_pass();
    EXPECT_EQ(timer_stopped, 0);
    EXPECT_EQ(call_home_timer, 42);
    EXPECT_THAT(platform.sleeps(), ElementsAre(1u, 1u));
    EXPECT_TRUE(sim.wait_for("drop key=1240 type=32 len=64"));
    // player-sim takes that queue in order, so an answer to 98 would be logged by now.
    EXPECT_THAT(sim.lines("key=1240 type=30"), IsEmpty()) << "an unknown id is not answered";
}

TEST_F(AgentWithPlayerSim, SilentBridgeHoldsTheAgentUntilAReplyComes)
{
    PlayerSim sim({"--never-answer"});
    std::atomic<bool> returned{false};
    char mac[13] = "stale";
    std::thread start_up_query([&] {
        get_mac_address(mac);
        returned = true;
    });

    ASSERT_TRUE(sim.wait_for(kMacQuery));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(returned);
    EXPECT_THAT(sim.lines("send key=1236"), IsEmpty());

    // The bridge going away does not free the agent either: only a reply does.
    sim.process().stop(SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(returned);
    ASSERT_TRUE(queues::post_bridge_reply("1.3.6.1.4.1.58321.3.1.8.0 = Hex-STRING: 0A 0B 0C 0D 0E 0F "));
    start_up_query.join();
    EXPECT_STREQ(mac, "0A0B0C0D0E0F");
}

}  // namespace
