// The timer thread's arithmetic, driven tick by tick with a clock the test sets.
#include "core/timer.h"

#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_platform.h"

namespace {

constexpr std::time_t kStart = 1767268800;  // 2026-01-01 12:00:00 UTC

// Each countdown the tick counts down, with the flag it raises at zero.
const struct {
    std::atomic<int>* countdown;
    std::atomic<int>* flag;
} kCountdowns[] = {{&call_home_timer, &initiate_call_home},
                   {&auto_on_off_timer, &initiate_auto_on_off},
                   {&content_check_timer, &initiate_content_check},
                   {&download_check_timer, &initiate_download_check},
                   {&send_log_timer, &initiate_send_log},
                   {&post_status_timer, &initiate_post_status}};

class Timer : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (auto [countdown, flag] : kCountdowns) *countdown = *flag = 0;
        reboot_time = initiate_reboot = 0;
        lastTOD = static_cast<unsigned>(kStart);
    }

    // One tick `seconds` after the previous one.
    bool tick_after(long seconds)
    {
        clock.advance(seconds);
        return timer_tick();
    }

    FakePlatform clock{kStart};
};

TEST_F(Timer, CountdownsRunDownAndRaiseTheirFlagAtZero)
{
    call_home_timer = 12;
    content_check_timer = 5;
    download_check_timer = 7;
    // An interval beyond INT_MAX arrives as a negative countdown: it fires at once.
    send_log_timer = static_cast<int>(3000000000u);
    reboot_time = 8;
    initiate_reboot = 1;

    ASSERT_TRUE(tick_after(5));
    EXPECT_EQ(call_home_timer, 7);
    EXPECT_EQ(content_check_timer, 0);
    EXPECT_EQ(initiate_content_check, 1);
    EXPECT_EQ(initiate_send_log, 1);
    EXPECT_EQ(download_check_timer, 2);
    EXPECT_EQ(initiate_call_home + initiate_download_check, 0);
    EXPECT_EQ(reboot_time, 3);
    EXPECT_EQ(initiate_reboot, 1);

    ASSERT_TRUE(tick_after(5));
    EXPECT_EQ(initiate_download_check, 1);
    // The scheduled reboot is inert: its expiry clears the reboot trigger.
    EXPECT_EQ(reboot_time, 0);
    EXPECT_EQ(initiate_reboot, 0);
    ASSERT_TRUE(tick_after(5));
    EXPECT_EQ(call_home_timer, 0);
    EXPECT_EQ(initiate_call_home, 1);
    EXPECT_EQ(initiate_auto_on_off, 0) << "an idle countdown raises nothing";
}

TEST_F(Timer, ClockStepForwardFiresEveryRunningCountdownAtOnce)
{
    for (auto [countdown, flag] : kCountdowns) *countdown = 86400;
    ASSERT_TRUE(tick_after(6 * 3600 + 86400));
    for (auto [countdown, flag] : kCountdowns) {
        EXPECT_EQ(*countdown, 0);
        EXPECT_EQ(*flag, 1);
    }
}

TEST_F(Timer, ClockStepBackEndsTheThreadAndRaisesNothing)
{
    call_home_timer = 3;
    reboot_time = 3;
    EXPECT_FALSE(tick_after(-1));
    EXPECT_EQ(call_home_timer, 3);
    EXPECT_EQ(reboot_time, 3);
    EXPECT_EQ(initiate_call_home, 0);
    EXPECT_EQ(lastTOD, static_cast<unsigned>(kStart - 1));  // stored in every case

    // The thread sleeps five seconds, ticks, and ends for good on that step back.
    lastTOD = static_cast<unsigned>(kStart + 60);
    clock.clear();
    EXPECT_EQ(timer_handler(nullptr), nullptr);
    EXPECT_THAT(clock.sleeps(), ::testing::ElementsAre(5u));
}

TEST_F(Timer, DownloadAndStatusCountdownsAdvanceOnlyBesideOneOfTheOtherFour)
{
    download_check_timer = 10;
    post_status_timer = 10;
    ASSERT_TRUE(tick_after(5));
    ASSERT_TRUE(tick_after(50));
    EXPECT_EQ(download_check_timer, 10);
    EXPECT_EQ(post_status_timer, 10);
    EXPECT_EQ(initiate_download_check, 0);

    send_log_timer = 100;  // now they move, and the time lost before stays lost
    ASSERT_TRUE(tick_after(5));
    EXPECT_EQ(download_check_timer, 5);
    EXPECT_EQ(post_status_timer, 5);
    EXPECT_EQ(send_log_timer, 95);
}

TEST(RebootTimer, CountsToTheNextLocalMidnightOrADayWhenTheClockIsUnset)
{
    const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
    const struct {
        const char* tz;
        std::time_t now;
        int expected;
    } cases[] = {
        {"UTC0", 1767225570, 30},                      // 2025-12-31 23:59:30 UTC
        {kCentralEurope, 1767225570, 23 * 3600 + 30},  // the same instant at 00:59:30
        // 23:59:30 on the day the clocks go forward, a day of 23 hours.
        {kCentralEurope, 1774821570, 30},
        {"UTC0", 86400 * 3 + 3600, 86400},  // January 1970
        {"UTC0", 1199145599, 86400},        // the last second that counts as never set
    };
    for (const auto& c : cases) {
        setenv("TZ", c.tz, 1);
        tzset();
        FakePlatform clock(c.now);
        initialize_reboot_timer();
        EXPECT_EQ(reboot_time, c.expected) << c.tz << " " << c.now;
    }
    unsetenv("TZ");
    tzset();
}

}  // namespace
