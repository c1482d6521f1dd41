// Passes of the main loop, with the subsystems it calls replaced by recording fakes and
// the real timer, control channel and message queues. The notifications it takes are
// tested against player-sim in agent_player_sim_test.
#include "agent/agent.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "actions/config.h"
#include "agent/agent_fakes.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/queues.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* kFetch = "get_command_file http://cms.example /tmp/callhome.lst";

class AgentLoop : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        std::strcpy(call_home_address, "http://cms.example");
    }

    FakePlatform platform;
};

TEST_F(AgentLoop, ServesEveryRaisedFlagInTheFixedOrder)
{
    for (auto* f : {&initiate_call_home, &initiate_content_check, &initiate_auto_on_off,
                    &initiate_send_log, &initiate_reboot, &initiate_post_status,
                    &initiate_download_check, &initiate_cleanup})
        *f = 1;
    currentCHConfig.loggingEnable = 1;
    currentCHConfig.autoOnOffEnable = 1;
    fakes::answers.auto_mode = 0;  // a change from on: the display goes off
    fakes::answers.auto_next_seconds = 3600;
    fakes::answers.log_timer = 14400;
    call_home_interval = 900;
    lastTOD = 5000;
    ASSERT_TRUE(queues::post_bridge_reply(".1.3.6.1.4.1.58321.3.5.7.0 = INTEGER: 0"));

    agent_main_loop_pass();

    EXPECT_THAT(fakes::trace,
                ElementsAre(kFetch, "parse_action_file /tmp/callhome.lst", "process_content_check",
                            "getAutoOnOffMode", "stop_all_play", "transfer_log_file",
                            "compute_log_timer 0", "process_post_status",
                            "process_download_check", "process_cleanup"));
    // The log waits 2 s before uploading, the reboot step 5 s after its command, and an
    // empty notification queue costs a second.
    EXPECT_THAT(platform.sleeps(), ElementsAre(2u, 5u, 1u));

    EXPECT_EQ(call_home_timer, 900);  // re-armed from the interval
    EXPECT_EQ(AutoOnOffMode, 0);
    EXPECT_EQ(auto_on_off_timer, 3605);
    EXPECT_EQ(send_log_timer, 14400);
    EXPECT_EQ(initiate_call_home + initiate_auto_on_off + initiate_send_log + initiate_cleanup, 0);
    // The reboot step leaves its flag and arms a countdown from the last tick.
    EXPECT_EQ(initiate_reboot, 1);
    EXPECT_EQ(reboot_time, 5120);
    auto request = queues::take(kBridgeRequestKey);
    ASSERT_TRUE(request);
    EXPECT_EQ(queues::c_text(request->text), ".1.3.6.1.4.1.58321.3.5.7.0 i 0");
    // Turning the display off asks for no content check.
    EXPECT_EQ(initiate_content_check, 1);  // still the one raised by the test
}

TEST_F(AgentLoop, CallHomeLogAndCleanupWaitWhileADownloadRuns)
{
    // With logging disabled the log flag stands for ever and nothing is done.
    initiate_send_log = 1;
    agent_main_loop_pass();
    EXPECT_EQ(initiate_send_log, 1);
    EXPECT_THAT(fakes::trace, IsEmpty());

    fakes::answers.download_running = true;
    initiate_call_home = 1;
    initiate_cleanup = 1;
    currentCHConfig.loggingEnable = 1;
    call_home_interval = 900;
    timer_stopped = 1;
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace, IsEmpty());
    EXPECT_EQ(initiate_call_home + initiate_send_log + initiate_cleanup, 0);
    EXPECT_EQ(initiate_call_home_pending, 1);
    EXPECT_EQ(initiate_send_log_pending, 1);
    EXPECT_EQ(initiate_cleanup_pending, 1);
    EXPECT_EQ(call_home_timer, 0);  // not re-armed: the pending flag brings it back

    // Once the download is over the same triggers run and the pending flags drop; a
    // failed command-list fetch re-arms the countdown just the same.
    fakes::answers.download_running = false;
    fakes::answers.command_file_fetched = false;
    initiate_call_home = initiate_send_log = initiate_cleanup = 1;
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace,
                ElementsAre(kFetch, "transfer_log_file", "compute_log_timer 0", "process_cleanup"));
    EXPECT_EQ(initiate_call_home_pending + initiate_send_log_pending + initiate_cleanup_pending, 0);
    EXPECT_EQ(call_home_timer, 900);
    EXPECT_EQ(timer_stopped, 0);
    EXPECT_THAT(platform.sleeps(), ElementsAre(1u, 1u, 2u, 1u));
}

// After a call home the countdown is re-armed from the interval, unless the command list
// armed it itself: a list naming a new server has it called five seconds later.
TEST_F(AgentLoop, CallHomeKeepsACountdownTheCommandListArmed)
{
    call_home_interval = 900;
    for (int armed : {0, 5}) {
        fakes::answers.configured_call_home_timer = armed;
        initiate_call_home = 1;
        timer_stopped = 1;
        agent_main_loop_pass();
        EXPECT_EQ(call_home_timer, armed ? armed : 900);
        EXPECT_EQ(timer_stopped, 0);
        EXPECT_EQ(initiate_call_home, 0);
    }
}

TEST_F(AgentLoop, AutoOnOffActsOnlyOnAChangeOfMode)
{
    currentCHConfig.autoOnOffEnable = 1;
    fakes::answers.auto_next_seconds = 50;
    initiate_auto_on_off = 1;
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace, ElementsAre("getAutoOnOffMode"));
    EXPECT_EQ(initiate_content_check, 0);
    EXPECT_EQ(auto_on_off_timer, 55);

    // Off to on: a content check starts playback again.
    AutoOnOffMode = 0;
    initiate_auto_on_off = 1;
    currentCHConfig.autoOnOffEnable = 0;  // and with auto on/off disabled, no re-arm
    agent_main_loop_pass();
    EXPECT_EQ(AutoOnOffMode, 1);
    EXPECT_EQ(initiate_auto_on_off, 0);
    EXPECT_EQ(initiate_content_check, 1);
    EXPECT_EQ(auto_on_off_timer, 0);
    // The content step comes before the auto on/off step: it runs in the next pass.
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace,
                ElementsAre("getAutoOnOffMode", "getAutoOnOffMode", "process_content_check"));
}

// The real timer thread beside the loop, as on the device: each pass's second of sleep
// moves the clock, the thread turns the time into the call-home flag, the loop serves it
// and re-arms the countdown from the interval. (The tsan preset watches the two threads
// meet here.)
TEST_F(AgentLoop, TheTimerThreadRaisesTheFlagTheLoopServes)
{
    call_home_interval = 30;
    call_home_timer = 10;
    lastTOD = static_cast<unsigned>(get_tod_in_sec());
    platform.scale_sleeps(2);  // a pass takes 2 ms, and the thread ticks every 10 ms
    std::thread timer(timer_handler, nullptr);

    std::vector<int> served_in;  // the passes that called home
    for (int pass = 0; pass < 5000 && served_in.size() < 2; ++pass) {
        std::size_t before = fakes::trace.size();
        agent_main_loop_pass();
        if (fakes::trace.size() > before) served_in.push_back(pass);
    }
    platform.advance(-3600);  // a clock set back ends the thread
    timer.join();

    const char* kParse = "parse_action_file /tmp/callhome.lst";
    EXPECT_THAT(fakes::trace, ElementsAre(kFetch, kParse, kFetch, kParse));
    ASSERT_EQ(served_in.size(), 2u);
    // Not before ten seconds of the clock have passed; the second about an interval
    // later (a tick counts whole stretches of time, so a little less may do).
    EXPECT_GE(served_in[0], 10);
    EXPECT_GE(served_in[1] - served_in[0], 15);
    EXPECT_GT(call_home_timer, 0);
    EXPECT_LE(call_home_timer, 30);
}

}  // namespace
