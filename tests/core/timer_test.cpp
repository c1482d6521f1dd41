// The timer thread's arithmetic, driven tick by tick with a clock the test sets.
#include "core/timer.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <thread>

#include "support/fake_platform.h"

namespace {

constexpr std::time_t kStart = 1767268800;  // 2026-01-01 12:00:00 UTC

std::atomic<int>* const kCountdowns[] = {&call_home_timer, &auto_on_off_timer,
                                         &content_check_timer, &download_check_timer,
                                         &send_log_timer, &post_status_timer};
std::atomic<int>* const kFlags[] = {&initiate_call_home, &initiate_auto_on_off,
                                    &initiate_content_check, &initiate_download_check,
                                    &initiate_send_log, &initiate_post_status,
                                    &initiate_reboot, &initiate_cleanup};

class Timer : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (auto* c : kCountdowns) *c = 0;
        for (auto* f : kFlags) *f = 0;
        reboot_time = 0;
        call_home_interval = 0;
        timer_stopped = 0;
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

TEST(TimerClock, TodInSecIsSecondsSinceTheEpoch)
{
    FakePlatform clock(1234567890);
    EXPECT_EQ(get_tod_in_sec(), 1234567890);
}

TEST_F(Timer, CountdownsRunDownAndRaiseTheirFlagAtZero)
{
    call_home_timer = 12;
    content_check_timer = 5;
    download_check_timer = 7;

    ASSERT_TRUE(tick_after(5));
    EXPECT_EQ(call_home_timer, 7);
    EXPECT_EQ(content_check_timer, 0);
    EXPECT_EQ(initiate_content_check, 1);
    EXPECT_EQ(download_check_timer, 2);
    EXPECT_EQ(initiate_call_home, 0);
    EXPECT_EQ(initiate_download_check, 0);
    EXPECT_EQ(lastTOD, static_cast<unsigned>(kStart + 5));

    ASSERT_TRUE(tick_after(5));
    EXPECT_EQ(call_home_timer, 2);
    EXPECT_EQ(download_check_timer, 0);
    EXPECT_EQ(initiate_download_check, 1);

    ASSERT_TRUE(tick_after(5));
    EXPECT_EQ(call_home_timer, 0);
    EXPECT_EQ(initiate_call_home, 1);
    // An idle countdown stays idle and raises nothing.
    EXPECT_EQ(auto_on_off_timer, 0);
    EXPECT_EQ(initiate_auto_on_off, 0);
}

TEST_F(Timer, ClockStepForwardFiresEveryRunningCountdownAtOnce)
{
    for (auto* c : kCountdowns) *c = 86400;
    ASSERT_TRUE(tick_after(6 * 3600 + 86400));
    for (auto* c : kCountdowns) EXPECT_EQ(*c, 0);
    EXPECT_EQ(initiate_call_home, 1);
    EXPECT_EQ(initiate_auto_on_off, 1);
    EXPECT_EQ(initiate_send_log, 1);
    EXPECT_EQ(initiate_content_check, 1);
    EXPECT_EQ(initiate_download_check, 1);
    EXPECT_EQ(initiate_post_status, 1);
}

TEST_F(Timer, ClockStepBackEndsTheTickerAndRaisesNothing)
{
    call_home_timer = 3;
    reboot_time = 3;
    EXPECT_FALSE(tick_after(-1));
    EXPECT_EQ(call_home_timer, 3);
    EXPECT_EQ(reboot_time, 3);
    EXPECT_EQ(initiate_call_home, 0);
    EXPECT_EQ(lastTOD, static_cast<unsigned>(kStart - 1));  // stored in every case
}

TEST_F(Timer, DownloadAndStatusCountdownsAdvanceOnlyBesideOneOfTheOtherFour)
{
    download_check_timer = 10;
    post_status_timer = 10;
    ASSERT_TRUE(tick_after(5));
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

TEST_F(Timer, NegativeCountdownIsCountedDownToo)
{
    // An interval beyond INT_MAX arrives as a negative countdown: it fires at once.
    call_home_interval = 3000000000u;
    start_timer();
    EXPECT_LT(call_home_timer, 0);
    ASSERT_TRUE(tick_after(5));
    EXPECT_EQ(initiate_call_home, 1);
    EXPECT_EQ(call_home_timer, 0);
}

TEST_F(Timer, RebootCountdownExpiryClearsTheRebootTrigger)
{
    reboot_time = 8;
    initiate_reboot = 1;
    ASSERT_TRUE(tick_after(5));
    EXPECT_EQ(reboot_time, 3);
    EXPECT_EQ(initiate_reboot, 1);
    ASSERT_TRUE(tick_after(5));
    EXPECT_EQ(reboot_time, 0);
    EXPECT_EQ(initiate_reboot, 0);
}

TEST_F(Timer, StartStopAndKillTheCallHomeCountdown)
{
    call_home_interval = 600;
    start_timer();
    EXPECT_EQ(call_home_timer, 600);
    EXPECT_EQ(timer_stopped, 0);

    initiate_call_home = 1;
    stop_timer();
    EXPECT_EQ(timer_stopped, 1);
    EXPECT_EQ(call_home_timer, 0);
    EXPECT_EQ(initiate_call_home, 0);

    kill_timer();
    start_timer();
    EXPECT_EQ(timer_stopped, 0);
    EXPECT_EQ(call_home_timer, 0);  // the interval is gone: the countdown stays idle
}

class RebootTimer : public ::testing::Test {
protected:
    void SetUp() override
    {
        const char* tz = std::getenv("TZ");
        saved_tz_ = tz ? tz : "";
        had_tz_ = tz != nullptr;
    }
    void TearDown() override
    {
        if (had_tz_) setenv("TZ", saved_tz_.c_str(), 1);
        else unsetenv("TZ");
        tzset();
    }
    static void use_tz(const char* tz)
    {
        setenv("TZ", tz, 1);
        tzset();
    }

private:
    std::string saved_tz_;
    bool had_tz_ = false;
};

TEST_F(RebootTimer, CountsToTheNextLocalMidnight)
{
    use_tz("UTC0");
    FakePlatform clock(1767225570);  // 2025-12-31 23:59:30 UTC
    initialize_reboot_timer();
    EXPECT_EQ(reboot_time, 30);

    // The same instant is 00:59:30 in Central Europe: 23 hours to go.
    use_tz("CET-1CEST,M3.5.0,M10.5.0/3");
    initialize_reboot_timer();
    EXPECT_EQ(reboot_time, 23 * 3600 + 30);

    // On the day the clocks go forward (2026-03-29), local 23:59:30 is 30 s before
    // midnight although the day had only 23 hours.
    clock.set_time(1774821570);  // 2026-03-29 21:59:30 UTC = 23:59:30 CEST
    initialize_reboot_timer();
    EXPECT_EQ(reboot_time, 30);
}

TEST_F(RebootTimer, UnsetClockGivesOneDay)
{
    use_tz("UTC0");
    FakePlatform clock(86400 * 3 + 3600);  // some time in January 1970
    reboot_time = 0;
    initialize_reboot_timer();
    EXPECT_EQ(reboot_time, 86400);

    clock.set_time(1199145599);  // the last second that still counts as never set
    initialize_reboot_timer();
    EXPECT_EQ(reboot_time, 86400);
}

TEST_F(Timer, ThreadTicksEveryFiveSecondsAndEndsWhenTheClockGoesBack)
{
    clock.allow_background_sleeps(true);
    call_home_timer = 12;
    std::thread ticker(timer_handler, nullptr);
    while (initiate_call_home == 0) std::this_thread::yield();
    EXPECT_EQ(call_home_timer, 0);

    clock.set_time(kStart - 3600);
    ticker.join();  // returns: the thread ended for good
}

}  // namespace
