#include "core/timer.h"

#include <cstdint>
#include <ctime>

#include "core/seam.h"

std::atomic<int> call_home_timer{0};
std::atomic<int> auto_on_off_timer{0};
std::atomic<int> content_check_timer{0};
std::atomic<int> download_check_timer{0};
std::atomic<int> send_log_timer{0};
std::atomic<int> post_status_timer{0};
std::atomic<int> reboot_time{0};

std::atomic<int> initiate_auto_on_off{0};
std::atomic<int> initiate_call_home{0};
std::atomic<int> initiate_content_check{0};
std::atomic<int> initiate_download_check{0};
std::atomic<int> initiate_reboot{0};
std::atomic<int> initiate_send_log{0};
std::atomic<int> initiate_post_status{0};
std::atomic<int> initiate_cleanup{0};

std::atomic<int> initiate_call_home_pending{0};
std::atomic<int> initiate_send_log_pending{0};
std::atomic<int> initiate_post_status_pending{0};
std::atomic<int> initiate_cleanup_pending{0};

pthread_mutex_t timerMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t rebootMutex = PTHREAD_MUTEX_INITIALIZER;

std::atomic<unsigned> call_home_interval{0};
std::atomic<int> timer_stopped{0};
std::atomic<unsigned> lastTOD{0};

namespace {

// Anything at or before 2007-12-31 23:59:59 UTC means the clock was never set.
constexpr std::int64_t kClockNeverSet = 1199145599;

// Subtracts `elapsed` from a running countdown; at zero or below, raises its flag.
// The countdown may hold any int (an interval that does not fit an int arrives
// negative), so the arithmetic is done in 64 bits.
void count_down(std::atomic<int>& countdown, std::atomic<int>& flag, std::int64_t elapsed)
{
    int value = countdown.load();
    if (value == 0) return;
    std::int64_t left = static_cast<std::int64_t>(value) - elapsed;
    if (left > 0) {
        countdown = static_cast<int>(left);
    } else {
        flag = 1;
        countdown = 0;
    }
}

}  // namespace

int get_tod_in_sec(void) { return static_cast<int>(seam::now()); }

int seconds_until_local_time(int tod)
{
    std::time_t now = seam::now();
    std::tm tm{};
    localtime_r(&now, &tm);
    // The clock time itself: mktime would carry surplus seconds across a change of
    // offset as elapsed time, not as time of day.
    tm.tm_mday += tod / 86400;
    tm.tm_hour = tod % 86400 / 3600;
    tm.tm_min = tod % 3600 / 60;
    tm.tm_sec = tod % 60;
    tm.tm_isdst = -1;  // the offset in force at that time, not now
    std::int64_t left = static_cast<std::int64_t>(mktime(&tm)) - now;
    return left > 0 ? static_cast<int>(left) : 0;
}

void stop_timer(void)
{
    timer_stopped = 1;  // written without the mutex, as its readers expect
    MutexLock lock(timerMutex);
    call_home_timer = 0;
    initiate_call_home = 0;
}

void start_timer(void)
{
    timer_stopped = 0;
    MutexLock lock(timerMutex);
    call_home_timer = static_cast<int>(call_home_interval.load());
}

void kill_timer(void)
{
    MutexLock lock(timerMutex);
    call_home_interval = 0;
}

void unmount_usb_stick(void) { seam::system("umount /mnt/usb"); }

void initialize_reboot_timer(void)
{
    int now = get_tod_in_sec();
    if (now <= kClockNeverSet) {
        MutexLock lock(rebootMutex);
        reboot_time = 86400;
        return;
    }
    std::time_t t = seam::now();
    std::tm tm{};
    localtime_r(&t, &tm);
    tm.tm_sec = 0;
    tm.tm_min = 0;
    tm.tm_hour = 0;
    tm.tm_mday += 1;  // mktime normalises the month and year
    std::int64_t diff = static_cast<std::int64_t>(mktime(&tm)) - now;
    // Compared as unsigned, so a negative difference is capped too.
    if (static_cast<std::uint32_t>(diff) > 86400u) diff = 86400;
    MutexLock lock(rebootMutex);
    reboot_time = static_cast<int>(diff);
}

bool timer_tick(void)
{
    int now = get_tod_in_sec();
    std::int64_t elapsed = static_cast<std::int64_t>(now) - static_cast<int>(lastTOD.load());
    lastTOD = static_cast<unsigned>(now);

    // A clock set back ends the thread; the countdowns freeze from then on. Deliberate.
    if (elapsed < 0) return false;

    // When none of the first four runs, the download and status countdowns are not
    // advanced either and this tick's time is lost for them. Deliberate.
    if (call_home_timer != 0 || auto_on_off_timer != 0 || send_log_timer != 0 ||
        content_check_timer != 0) {
        MutexLock lock(timerMutex);
        count_down(call_home_timer, initiate_call_home, elapsed);
        count_down(auto_on_off_timer, initiate_auto_on_off, elapsed);
        count_down(send_log_timer, initiate_send_log, elapsed);
        count_down(content_check_timer, initiate_content_check, elapsed);
        count_down(download_check_timer, initiate_download_check, elapsed);
        count_down(post_status_timer, initiate_post_status, elapsed);
    }

    if (reboot_time != 0) {
        MutexLock lock(rebootMutex);
        std::int64_t left = static_cast<std::int64_t>(reboot_time.load()) - elapsed;
        if (left > 0) {
            reboot_time = static_cast<int>(left);
        } else {
            // The scheduled reboot is inert: its expiry clears the reboot trigger.
            initiate_reboot = 0;
            reboot_time = 0;
        }
    }
    return true;
}

void* timer_handler(void*)
{
    for (;;) {
        seam::sleep(5);
        if (!timer_tick()) return nullptr;
    }
}
