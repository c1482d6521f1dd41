// Start-up and passes of the main loop, with the subsystems it calls replaced by
// recording fakes and the real timer, control channel and message queues.
#include "core/agent.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include "actions/config.h"
#include "content/current_item.h"
#include "core/action_file.h"
#include "core/agent_fakes.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/queues.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::atomic<int>* const kAllFlags[] = {
    &initiate_call_home,         &initiate_content_check,    &initiate_auto_on_off,
    &initiate_send_log,          &initiate_reboot,           &initiate_post_status,
    &initiate_download_check,    &initiate_cleanup,          &initiate_call_home_pending,
    &initiate_send_log_pending,  &initiate_post_status_pending, &initiate_cleanup_pending};
std::atomic<int>* const kCountdowns[] = {&call_home_timer,     &auto_on_off_timer,
                                         &content_check_timer, &download_check_timer,
                                         &send_log_timer,      &post_status_timer,
                                         &reboot_time};

// A notification as the player sends it: type 31 (or another), command id, media flag.
void notify(int cmmd, int usb_media_status = 0, long type = kUsbNotifyType)
{
    s_MSG_BUF m{};
    m.type = type;
    m.cmmdId = cmmd;
    std::memcpy(m.buf, &usb_media_status, sizeof usb_media_status);
    int q = msgget(kNotifyQueueKey, IPC_CREAT | 0666);
    ASSERT_EQ(msgsnd(q, &m, sizeof m.cmmdId + sizeof m.buf, IPC_NOWAIT), 0);
}

// Leaves a reply on the bridge's answer queue, so that a real bridge exchange finds one.
void bridge_reply(const char* text) { ASSERT_TRUE(queues::post_bridge_reply(text)); }

// The texts of the requests that reached the bridge, oldest first, each with its type.
std::vector<std::string> bridge_requests()
{
    std::vector<std::string> texts;
    while (auto m = queues::take(kBridgeRequestKey))
        texts.push_back(std::to_string(m->type) + " " + queues::c_text(m->text));
    return texts;
}

class AgentLoop : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        for (auto* f : kAllFlags) *f = 0;
        for (auto* c : kCountdowns) *c = 0;
        call_home_interval = 0;
        timer_stopped = 0;
        currentCHConfig = {};
        AutoOnOffMode = 1;
        playlist_started = 0;
        check_version_line[0] = '\0';
        std::strcpy(call_home_address, "http://cms.example");
        for (int key : {kPlayerQueueKey, kBridgeRequestKey, kBridgeReplyKey, kNotifyQueueKey})
            queues::drain(key);
    }

    // Start-up, as far as the loop needs it: the notification queue is then open. The
    // timer thread it starts parks on its first sleep.
    void start_up()
    {
        bridge_reply(".1.3.6.1.4.1.58321.3.1.8.0 = Hex-STRING: 00 1A 2B 3C 4D 5E ");
        agent_start_up();
        ASSERT_THAT(bridge_requests(), ElementsAre("770 1.3.6.1.4.1.58321.3.1.8.0"));
        ASSERT_STREQ(macAddress, "001A2B3C4D5E");
        platform.clear();
        fakes::trace.clear();
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
    fakes::auto_mode = 0;  // a change from on: the display goes off
    fakes::auto_next_seconds = 3600;
    fakes::log_timer = 14400;
    call_home_interval = 900;
    lastTOD = 5000;
    bridge_reply(".1.3.6.1.4.1.58321.3.5.7.0 = INTEGER: 0");

    agent_main_loop_pass();

    EXPECT_THAT(fakes::trace,
                ElementsAre("get_command_file http://cms.example /tmp/callhome.lst",
                            "parse_action_file /tmp/callhome.lst", "process_content_check",
                            "getAutoOnOffMode", "stop_all_play", "transfer_log_file",
                            "compute_log_timer 0", "process_post_status",
                            "process_download_check", "process_cleanup"));
    // The log waits 2 s before uploading, the reboot step 5 s after its command, and an
    // empty notification queue costs a second.
    EXPECT_THAT(platform.sleeps(), ElementsAre(2u, 5u, 1u));

    EXPECT_EQ(initiate_call_home, 0);
    EXPECT_EQ(call_home_timer, 900);  // re-armed from the interval
    EXPECT_EQ(initiate_auto_on_off, 0);
    EXPECT_EQ(AutoOnOffMode, 0);
    EXPECT_EQ(auto_on_off_timer, 3605);
    EXPECT_EQ(initiate_send_log, 0);
    EXPECT_EQ(send_log_timer, 14400);
    EXPECT_EQ(initiate_cleanup, 0);
    // The reboot step leaves its flag and arms a countdown from the last tick.
    EXPECT_EQ(initiate_reboot, 1);
    EXPECT_EQ(reboot_time, 5120);
    EXPECT_THAT(bridge_requests(), ElementsAre("769 .1.3.6.1.4.1.58321.3.5.7.0 i 0"));
    // Turning the display off asks for no content check.
    EXPECT_EQ(initiate_content_check, 1);  // still the one raised by the test
}

TEST_F(AgentLoop, CallHomeLogAndCleanupWaitWhileADownloadRuns)
{
    fakes::download_running = true;
    initiate_call_home = 1;
    initiate_send_log = 1;
    initiate_cleanup = 1;
    currentCHConfig.loggingEnable = 1;
    call_home_interval = 900;

    agent_main_loop_pass();

    EXPECT_THAT(fakes::trace, IsEmpty());
    EXPECT_EQ(initiate_call_home, 0);
    EXPECT_EQ(initiate_call_home_pending, 1);
    EXPECT_EQ(call_home_timer, 0);  // not re-armed: the pending flag brings it back
    EXPECT_EQ(initiate_send_log, 0);
    EXPECT_EQ(initiate_send_log_pending, 1);
    EXPECT_EQ(initiate_cleanup, 0);
    EXPECT_EQ(initiate_cleanup_pending, 1);
    EXPECT_THAT(platform.sleeps(), ElementsAre(1u));

    // Once the download is over the same triggers run and the pending flags drop.
    fakes::download_running = false;
    initiate_call_home = 1;
    initiate_send_log = 1;
    initiate_cleanup = 1;
    agent_main_loop_pass();
    EXPECT_EQ(initiate_call_home_pending, 0);
    EXPECT_EQ(initiate_send_log_pending, 0);
    EXPECT_EQ(initiate_cleanup_pending, 0);
    EXPECT_EQ(call_home_timer, 900);
    EXPECT_THAT(fakes::trace,
                ElementsAre("get_command_file http://cms.example /tmp/callhome.lst",
                            "parse_action_file /tmp/callhome.lst", "transfer_log_file",
                            "compute_log_timer 0", "process_cleanup"));
}

TEST_F(AgentLoop, FailedCommandListFetchIsSilentAndReArms)
{
    fakes::command_file_fetched = false;
    initiate_call_home = 1;
    call_home_interval = 300;
    timer_stopped = 1;
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace, ElementsAre("get_command_file http://cms.example /tmp/callhome.lst"));
    EXPECT_EQ(initiate_call_home, 0);
    EXPECT_EQ(call_home_timer, 300);
    EXPECT_EQ(timer_stopped, 0);
}

TEST_F(AgentLoop, LogFlagStandsForEverWhileLoggingIsDisabled)
{
    initiate_send_log = 1;
    currentCHConfig.loggingEnable = 0;
    agent_main_loop_pass();
    agent_main_loop_pass();
    EXPECT_EQ(initiate_send_log, 1);
    EXPECT_THAT(fakes::trace, IsEmpty());
}

TEST_F(AgentLoop, AutoOnOffActsOnlyOnAChangeOfMode)
{
    currentCHConfig.autoOnOffEnable = 1;
    AutoOnOffMode = 1;
    fakes::auto_mode = 1;
    fakes::auto_next_seconds = 50;
    initiate_auto_on_off = 1;
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace, ElementsAre("getAutoOnOffMode"));
    EXPECT_EQ(initiate_content_check, 0);
    EXPECT_EQ(auto_on_off_timer, 55);

    // Off to on: a content check starts playback again.
    AutoOnOffMode = 0;
    initiate_auto_on_off = 1;
    currentCHConfig.autoOnOffEnable = 0;  // and with auto on/off disabled, no re-arm
    fakes::trace.clear();
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace, ElementsAre("getAutoOnOffMode"));
    EXPECT_EQ(AutoOnOffMode, 1);
    EXPECT_EQ(initiate_auto_on_off, 0);
    EXPECT_EQ(initiate_content_check, 1);
    EXPECT_EQ(auto_on_off_timer, 0);
    // The content step comes before the auto on/off step: it runs in the next pass.
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace, ElementsAre("getAutoOnOffMode", "process_content_check"));
}

TEST_F(AgentLoop, StartUpRestoresSavedDocumentsAndArmsTheFirstCountdowns)
{
    fakes::config_saved = true;    // with auto on/off enabled
    fakes::content_saved = true;
    fakes::auto_mode = 0;
    fakes::configured_call_home_timer = 3600;
    bridge_reply(".1.3.6.1.4.1.58321.3.1.8.0 = Hex-STRING: 00 1A 2B 3C 4D 5E ");
    platform.set_time(1767268800);  // 12:00 UTC
    setenv("TZ", "UTC0", 1);
    tzset();

    agent_start_up();

    EXPECT_THAT(fakes::trace,
                ElementsAre("dA_Initialize", "download_init", "player_state_clear",
                            "dA_ParseConfigurationCH /mnt/hd3/cfgdata.txt", "getAutoOnOffMode",
                            "dA_ParseContent /mnt/hd3/contentdata.txt", "compute_log_timer 1",
                            "load_call_home_config /mnt/hd3/USB.CONF 0 1"));
    EXPECT_STREQ(currentCHConfig.id, "cfg-1");
    EXPECT_EQ(AutoOnOffMode, -1);  // "off" at start-up so the first evaluation counts
    EXPECT_EQ(auto_on_off_timer, 30);
    EXPECT_STREQ(currentContent.id, "content-7");
    EXPECT_STREQ(g_saved_content_id, "content-7");
    EXPECT_EQ(content_check_timer, 20);
    EXPECT_EQ(call_home_timer, 10);  // the first call home ten seconds after start
    EXPECT_EQ(lastTOD, 1767268800u);
    EXPECT_EQ(reboot_time, 43200);  // to the next midnight
}

TEST_F(AgentLoop, StartUpWithoutSavedDocumentsKeepsEmptyRecords)
{
    currentContent.plcount = 3;
    std::strcpy(currentContent.id, "stale");
    std::strcpy(g_saved_content_id, "stale");
    currentCHConfig.loggingEnable = 1;
    bridge_reply(".1.3.6.1.4.1.58321.3.1.8.0 = Hex-STRING: 00 1A 2B 3C 4D 5E ");

    agent_start_up();

    EXPECT_STREQ(currentContent.id, "");
    EXPECT_EQ(currentContent.plcount, 0);
    EXPECT_STREQ(g_saved_content_id, "");
    EXPECT_EQ(currentCHConfig.loggingEnable, 0);
    EXPECT_EQ(content_check_timer, 0);
    EXPECT_EQ(auto_on_off_timer, 0);
    EXPECT_EQ(call_home_timer, 0);  // no USB.CONF armed it: no call home at all
    EXPECT_EQ(AutoOnOffMode, 1);
}

TEST_F(AgentLoop, UsbCopyStopsAndRestartsTheCallHomeCountdown)
{
    start_up();
    call_home_interval = 600;
    call_home_timer = 42;

    notify(USB_COPY_DONE);  // without a start: nothing
    agent_main_loop_pass();
    EXPECT_EQ(call_home_timer, 42);

    notify(USB_COPY_START);
    agent_main_loop_pass();
    EXPECT_EQ(timer_stopped, 1);
    EXPECT_EQ(call_home_timer, 0);

    notify(USB_COPY_DONE);
    agent_main_loop_pass();
    EXPECT_EQ(timer_stopped, 0);
    EXPECT_EQ(call_home_timer, 600);
    EXPECT_THAT(platform.sleeps(), ElementsAre(1u, 1u, 1u));
}

TEST_F(AgentLoop, UnknownIdCostsASecondAndOtherTypesAreNeverTaken)
{
    start_up();
    notify(CMMD_NONE);
    agent_main_loop_pass();
    EXPECT_THAT(platform.sleeps(), ElementsAre(1u));
    EXPECT_THAT(fakes::trace, IsEmpty());

    // The agent's own answers (type 30) sit on the same queue and stay there.
    notify(USB_CONF_DONE, 0, kUsbAnswerType);
    agent_main_loop_pass();
    agent_main_loop_pass();
    s_MSG_BUF m{};
    int q = msgget(kNotifyQueueKey, IPC_CREAT | 0666);
    ASSERT_GE(msgrcv(q, &m, 60, kUsbAnswerType, IPC_NOWAIT), 0);
    EXPECT_EQ(m.cmmdId, USB_CONF_DONE);
}

TEST_F(AgentLoop, UsbConfigurationUpdateAdoptsTheSticksFile)
{
    start_up();
    notify(USB_CONF_UPDATE, 0);  // a stick without media
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace,
                ElementsAre("check_inf_file", "load_call_home_config /tmp/temp_USB.CONF 1 0"));
    EXPECT_EQ(playlist_started, 1);
    EXPECT_THAT(platform.commands(), IsEmpty());
    // The player hears that the update is processed.
    auto answer = queues::take(kNotifyQueueKey, kUsbAnswerType);
    ASSERT_TRUE(answer);
    int answered;
    std::memcpy(&answered, answer->text.data(), sizeof answered);
    EXPECT_EQ(answered, USB_CONF_DONE);

    fakes::trace.clear();
    notify(USB_CONF_UPDATE, 1);  // with media: the interval is not overridden
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace,
                ElementsAre("check_inf_file", "load_call_home_config /tmp/temp_USB.CONF 0 0"));
    EXPECT_EQ(playlist_started, 0);
}

TEST_F(AgentLoop, CallNowCopiesTheDisksFileAndUpdatesFromIt)
{
    start_up();
    notify(USB_CALL_NOW, 1);
    agent_main_loop_pass();
    EXPECT_THAT(platform.commands(), ElementsAre("cp -f /mnt/hd3/USB.CONF /tmp/temp_USB.CONF"));
    EXPECT_THAT(fakes::trace,
                ElementsAre("check_inf_file", "load_call_home_config /tmp/temp_USB.CONF 0 0"));
}

TEST_F(AgentLoop, UpgradeAskingForARebootRebootsThenCarriesOn)
{
    start_up();
    fakes::inf_result = 1;
    bridge_reply(".1.3.6.1.4.1.58321.3.5.7.0 = INTEGER: 0");
    notify(USB_CONF_UPDATE, 0);
    agent_main_loop_pass();
    EXPECT_THAT(platform.commands(), ElementsAre("reboot"));
    EXPECT_THAT(bridge_requests(), ElementsAre("769 .1.3.6.1.4.1.58321.3.5.7.0 i 0"));
    // 5 s after the player's pre-reboot command, an hour for the reboot, then a second.
    EXPECT_THAT(platform.sleeps(), ElementsAre(5u, 3600u, 1u));
    EXPECT_THAT(fakes::trace,
                ElementsAre("check_inf_file", "load_call_home_config /tmp/temp_USB.CONF 1 0"));

    platform.clear();
    fakes::trace.clear();
    fakes::check_version_result = 1;
    std::strcpy(check_version_line, "CheckVersion,http://updates.example/");
    bridge_reply(".1.3.6.1.4.1.58321.3.5.7.0 = INTEGER: 0");
    notify(USB_FIRMWARE_CHECK);
    agent_main_loop_pass();
    EXPECT_THAT(fakes::trace,
                ElementsAre("process_check_version CheckVersion,http://updates.example/"));
    EXPECT_THAT(platform.commands(), ElementsAre("reboot"));
    EXPECT_THAT(bridge_requests(), ElementsAre("769 .1.3.6.1.4.1.58321.3.5.7.0 i 0"));
    EXPECT_THAT(platform.sleeps(), ElementsAre(5u, 3600u, 1u));
}

}  // namespace
