#pragma once
// Timer: the countdowns, trigger flags and their mutexes, and the thread that turns
// wall-clock time into work for the main loop.
//
//   timer_handler        the thread body: every 5 s, timer_tick()
//   timer_tick           one tick: count every running countdown down, raise flags
//   start_timer / stop_timer / kill_timer   the call-home countdown
//   initialize_reboot_timer, get_tod_in_sec
//
// Every word here is shared between the main thread and the timer thread, so each is
// a std::atomic; the mutexes are still taken exactly where the design takes them, so
// that a countdown and its flag change together.
#include <atomic>
#include <pthread.h>

// Countdowns in seconds; 0 is idle. Guarded by timerMutex, except reboot_time.
extern std::atomic<int> call_home_timer;
extern std::atomic<int> auto_on_off_timer;
extern std::atomic<int> content_check_timer;
extern std::atomic<int> download_check_timer;
extern std::atomic<int> send_log_timer;
extern std::atomic<int> post_status_timer;
extern std::atomic<int> reboot_time;  // guarded by rebootMutex

// Trigger flags (0 or 1), raised by the timer thread and other modules, served by
// the main loop.
extern std::atomic<int> initiate_auto_on_off;
extern std::atomic<int> initiate_call_home;
extern std::atomic<int> initiate_content_check;
extern std::atomic<int> initiate_download_check;
extern std::atomic<int> initiate_reboot;
extern std::atomic<int> initiate_send_log;
extern std::atomic<int> initiate_post_status;
extern std::atomic<int> initiate_cleanup;

// Work put off while a download runs; the download manager turns them back into
// triggers when the transfer has ended.
extern std::atomic<int> initiate_call_home_pending;
extern std::atomic<int> initiate_send_log_pending;
extern std::atomic<int> initiate_post_status_pending;
extern std::atomic<int> initiate_cleanup_pending;

extern pthread_mutex_t timerMutex;
extern pthread_mutex_t rebootMutex;

extern std::atomic<unsigned> call_home_interval;  // start_timer reloads the countdown from it
extern std::atomic<int> timer_stopped;            // 1 between stop_timer and start_timer
extern std::atomic<unsigned> lastTOD;             // wall clock at the last tick

// Holds a pthread mutex for the lifetime of a scope.
class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t& m) : m_(m) { pthread_mutex_lock(&m_); }
    ~MutexLock() { pthread_mutex_unlock(&m_); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    pthread_mutex_t& m_;
};

// Seconds since the epoch (not since midnight, despite the name).
int get_tod_in_sec(void);
// Seconds from now until the local clock reads `tod` seconds after midnight today
// (86400: the coming midnight), 0 when it has passed. On the day summer time begins or
// ends this is `tod` minus the time of day plus or minus the hour the clock jumps: a
// countdown armed with the plain difference would fire an hour late or early.
int seconds_until_local_time(int tod);

void stop_timer(void);
void start_timer(void);
void kill_timer(void);
void initialize_reboot_timer(void);
void unmount_usb_stick(void);

// One tick of the timer thread. Returns false when the clock went backwards: the
// thread then ends for good and every countdown freezes.
bool timer_tick(void);

// Thread body: sleep 5 s, tick, until a tick says stop. The argument is unused.
void* timer_handler(void*);
