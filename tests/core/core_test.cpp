// The leaves: the timer's tick with a clock the test sets, the control channel over the
// sandbox's real queues with the test as the bridge, and the quoting helper's limits.
#include <gtest/gtest.h>
#include <sys/msg.h>
#include <thread>

#include "core/shell.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/queues.h"
#include "support/sandbox.h"

namespace {

TEST(Timer, TicksCountDownRaiseFlagsAndStopWhenTheClockGoesBack)
{
    FakePlatform clock;
    lastTOD = static_cast<unsigned>(get_tod_in_sec());
    auto tick = [&](long seconds) {
        clock.advance(seconds);
        return timer_tick();
    };
    // Beside none of the other four, the download and status countdowns do not move:
    // that time is lost for them.
    download_check_timer = post_status_timer = 10;
    ASSERT_TRUE(tick(50));
    EXPECT_EQ(download_check_timer + post_status_timer, 20);

    call_home_timer = 12;
    content_check_timer = 5;
    send_log_timer = static_cast<int>(3000000000u);  // an interval beyond an int: at once
    reboot_time = 8;
    initiate_reboot = 1;
    ASSERT_TRUE(tick(5));
    EXPECT_EQ(call_home_timer, 7);
    EXPECT_EQ(initiate_call_home, 0);
    EXPECT_EQ(initiate_content_check + initiate_send_log, 2);
    EXPECT_EQ(download_check_timer, 5);
    ASSERT_TRUE(tick(5));
    EXPECT_EQ(initiate_download_check, 1);
    // The scheduled reboot is inert: its expiry clears the reboot trigger.
    EXPECT_EQ(reboot_time + initiate_reboot, 0);

    // A clock set back ends the thread, leaving every countdown where it was.
    EXPECT_FALSE(tick(-1));
    EXPECT_EQ(call_home_timer, 2);

    clock.set_time(86400 * 3 + 3600);  // a clock never set: the reboot countdown is a day
    initialize_reboot_timer();
    EXPECT_EQ(reboot_time, 86400);
}

TEST(ControlChannel, RequestCutAndTerminatedReplyReadAsItArrived)
{
    char reply[kSnmpTextSize];
    ASSERT_TRUE(queues::post(kBridgeReplyKey, kSnmpReplyType, "X = INTEGER: 7"));  // no NUL
    send_snmp_command(kSnmpGetType, std::string(5000, 'c').c_str(), reply);
    EXPECT_STREQ(reply, "7") << "the rest of the shared record must not leak into the value";
    auto request = queues::take(kBridgeRequestKey);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->type, kSnmpGetType);
    EXPECT_EQ(request->text, std::string(kSnmpTextSize - 1, 'c') + '\0') << "cut, terminated";

    send_player_msg(START_IMAGE);  // the player hears upgrade progress only
    EXPECT_EQ(queues::count(kPlayerQueueKey), 0);

    // No time limit: only the reply queue going away ends the wait, with an empty reply.
    std::thread remove([] {
        sandbox::wait_until([] { return queues::count(kBridgeRequestKey) == 1; });
        msgctl(msgget(kBridgeReplyKey, 0), IPC_RMID, nullptr);
    });
    send_snmp_command(kSnmpGetType, "1.3.6.1.4.1.58321.3.5.13.0", reply);
    remove.join();
    EXPECT_STREQ(reply, "");
}

// (A wild card kept for the shell is a DeleteFile line's, in the agent's test; one kept
// from it, the hostile strings'.)
TEST(Shell, NothingThatDoesNotFit)
{
    char out[8];
    EXPECT_FALSE(shell_escaped(out, "a b c d") || *out);
    EXPECT_FALSE(shell_quoted(out, "ab'cd") || *out);  // needs 8 characters and the terminator
}

}  // namespace
