#pragma once
// The invariants the soak holds the device to, checked all the time from what the
// peers log, what is on the disks and what /proc says. Each is a counted check; a check
// that cannot be made (the timer thread ended, the server down) is counted as suspended;
// a violation keeps its device time. The soak's run feeds in what it sees:
//
//   checks.request(r)             a line of cms-sim's log
//   checks.player_state(at, ...)  a layer started or stopped (player-sim's log)
//   checks.notified(at, ...)      call now, a USB stick's configuration
//   checks.clock_set(at, epoch)   the device's clock set (start, a step)
//   checks.timer_ended(at)        the clock went back: the timer thread ends
//   checks.rebooted(at, disk)     the device came up again on its disks
//   checks.scan(at, disk)         the media folders and the temporary files
//   checks.sample(at, s)          the agent's memory, descriptors, threads, children
//   checks.finish(at)             the end: memory and descriptors over the days
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "world.h"

namespace soak {

struct Violation {
    double at;          // device second
    std::string what;
    std::string local;  // the device's wall clock then
};

struct Invariant {
    std::string name;
    std::string rule;  // what is held, with its tolerances
    long checks = 0;
    long suspended = 0;
    std::vector<Violation> violations;
};

// A line of cms-sim's log.
struct Request {
    double at;
    std::string target;  // as sent, with its query
    int status;
    long long bytes;
    std::string faults;
};

// What is on the disks at one moment.
struct Disk {
    std::map<std::string, std::uint64_t> media;  // name -> size, in the media folders
    std::vector<std::string> temporary;          // temporary files found (paths)
    bool transfer_running = false;               // a wget is running
    bool usb_conf_present = false;
    std::string usb_conf;
    std::string saved_content, saved_config;  // /mnt/hd3's documents (at a boot)
};

// The agent's footprint at one moment.
struct Sample {
    bool alive;
    long rss_kb;
    int descriptors;
    int threads;
    int children;  // processes it started still running after 2 device minutes (a wget, a shell)
};

struct Latency {
    double at;       // the event
    double seconds;  // to the player's switch
};

class Checks {
public:
    explicit Checks(const World& world);

    void clock_set(double at, std::time_t epoch);
    void timer_ended(double at);
    // The player upgrades: the agent's main loop waits for it, then the device reboots.
    void upgrade(bool running) { upgrading_ = running; }
    // The server's documents stall or come slowly (from `at` on, or no longer).
    void documents_slow(double at, bool slow)
    {
        if (slow && slow_until_ < 1e18) std::tie(slow_from_, slow_until_) = std::pair(at, 1e18);
        if (!slow && slow_until_ >= 1e18) slow_until_ = at;
    }
    void server(double at, bool up);
    void disk_filled(double at, bool full);
    void request(const Request& r);
    void player_state(double at, int layer, const std::string& report, bool started);
    void notified(double at, const std::string& what, int media, const std::string& conf);
    void rebooted(double at, const Disk& disk);
    void scan(double at, const Disk& disk);
    void sample(double at, const Sample& s);
    void finish(double at);
    // AddressSanitizer keeps freed memory in quarantine (up to 256 MB), so an agent built
    // with it grows by design: its resident memory is then shown but not judged.
    void judge_memory(bool judged) { judge_memory_ = judged; }

    const std::vector<Invariant>& invariants() const { return invariants_; }
    long violations() const;
    const std::vector<Latency>& switch_latencies() const { return latencies_; }
    // A new content document's adoption to its first start; a call home's lateness
    // against its interval (negative: early), both in device seconds.
    const std::vector<Latency>& content_latencies() const { return content_latencies_; }
    const std::vector<double>& call_lateness() const { return call_lateness_; }
    int failed_transfers() const { return failed_transfers_; }
    const std::vector<std::pair<double, Sample>>& samples() const { return samples_; }
    // Calls home and downloads (whole media transfers) per device day.
    const std::map<int, int>& calls_per_day() const { return calls_per_day_; }
    const std::map<int, int>& downloads_per_day() const { return downloads_per_day_; }
    // The first and last windows' maxima of the footprint, for the report.
    struct Window {
        double from, to;
        Sample max, min;
    };
    const std::vector<Window>& windows() const { return windows_; }

private:
    enum Id { kStartedWhole, kSchedule, kDisplayOff, kCallsHome, kUsbConf, kPartialMedia, kTemporary,
              kFootprint, kRunning, kCount };
    void check(Id id, bool ok, double at, const std::string& what);
    void suspend(Id id) { ++invariants_[id].suspended; }
    std::time_t epoch(double at) const;

    // Playback.
    struct Expected {
        std::string layer[2];
        bool waiting[2] = {false, false};  // the scheduled files are not all there yet
        bool on = true;
    };
    // What must show at `t`; with `display` false, what the schedule gives whatever the
    // display's on/off times say.
    Expected expected_at(std::time_t t, bool display = true) const;
    bool whole(int playlist, int layout) const;
    bool files_whole(const std::vector<int>& findexes) const;
    void follow_playback(double at);
    void adopt_content(double at, std::shared_ptr<DRAVIK_CONTENT> content);
    void expect_anew(double at, double grace);

    // Calls home.
    enum class Due { None, Soon, Interval };
    void arm(double at, Due due);
    void call_home(const Request& r);
    void read_list(double at, const std::string& list);
    void read_usb_conf(double at, const std::string& conf, bool soon, bool stick);

    const World& world_;
    std::vector<Invariant> invariants_;
    std::vector<std::pair<double, std::time_t>> clock_;  // device second -> epoch set then
    bool timer_alive_ = true;
    bool upgrading_ = false;
    double slow_from_ = 1e18, slow_until_ = -1e18;  // the last stretch of slow documents
    Disk disk_;
    std::map<std::string, std::pair<double, bool>> stray_;  // temporary file -> since, flagged

    std::shared_ptr<DRAVIK_CONTENT> content_;
    std::shared_ptr<DRAVIK_CONFIGURATION_CH> config_;
    std::string playing_[2];
    double followed_to_ = -1;     // the device second the playback was last followed to
    Expected expected_;
    double due_[2] = {0, 0};      // since when each layer must show expected_
    double grace_[2] = {15, 15};  // how long it may take from due_
    bool event_[2] = {false, false};  // due_ is a schedule event (or a display change)
    bool flagged_[2] = {false, false};
    double incomplete_at_ = -1e9;  // the last moment the scheduled files were not all there
    double deletion_at_ = -1e9;    // the last command list that deleted media
    double waiting_since_ = -1;    // the scheduled files have been missing since (display on)
    bool waiting_flagged_ = false;
    bool disk_full_ = false;
    double disk_full_until_ = -1e9;
    std::vector<Latency> latencies_, content_latencies_;
    std::map<std::string, double> adopted_at_;  // content id -> adoption awaiting its first start
    std::vector<double> call_lateness_;
    int failed_transfers_ = 0;

    std::string address_;  // the server the device calls, as USB.CONF or a list named it
    long interval_ = 0;
    Due due_call_ = Due::None;
    double armed_at_ = 0;
    bool arm_at_end_ = false;  // the list's documents, as they come in, move armed_at_
    double last_call_ = -1;
    double server_down_since_ = -1, server_up_at_ = 0;
    double last_media_ = -1e9;
    bool usb_conf_deleted_ = false;
    bool call_pending_check_ = false;
    std::map<int, int> calls_per_day_, downloads_per_day_;

    std::vector<std::pair<double, Sample>> samples_;
    std::vector<Window> windows_;
    bool judge_memory_ = true;
};

}  // namespace soak
