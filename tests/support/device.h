#pragma once
// One whole device in the sandbox its user runs in (a scenario, the soak): the real
// signage-agent, its wall clock placed at a local date and time and sped up by
// libfaketime, beside player-sim (the player) and cms-sim (the content server, kRoot on
// 127.0.0.1:8080), with wget-compat as the sandbox's wget.
//
// The agent's children (the shell, wget, cp ...) inherit its clock, so a transfer's
// stall and progress timings stay in step with the agent's polls, as on the device.
// player-sim and cms-sim keep real time, so their fault timings are real seconds; their
// log lines are read back in device seconds since the agent started, which a clock set
// by set_clock() does not change.
//
// The library that builds this (`device`) names the programs it starts through
// SIGNAGE_AGENT, FAKETIME_LIBRARY, PLAYER_SIM and CMS_SIM; it holds no test framework.
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "support/cms_sim.h"
#include "support/player_sim.h"

struct DeviceStart {
    std::string clock = "2026-03-25 12:00:00";      // local time at start: a Wednesday noon
    std::string tz = "CET-1CEST,M3.5.0,M10.5.0/3";  // the device's zone, Central Europe
    int speed = 20;                                 // device seconds per real second
    // Files in place before the start, path to bytes: /mnt/hd3/USB.CONF, the saved
    // documents, a stick under /mnt/usb, what the player left in /tmp, the server's
    // folder under /tmp/cms ...
    std::map<std::string, std::string> files = {};
    std::vector<std::string> server = {};  // cms-sim options, e.g. {"--fault", "/config.xml", "status=500"}
    bool server_up = true;            // false: down until start_server()
    std::vector<std::string> player = {};  // player-sim options
    std::string media_disk = "";      // the size of /mnt/hd4 ("64m"); empty: the sandbox's
};

// A log line and when it was written, in device seconds since the agent started.
struct Event {
    double at;
    std::string line;
};

class Device {
public:
    // Ready once the agent has asked player-sim for the MAC address, the first thing it
    // does, which is taken as device second 0. Throws when a peer does not start.
    explicit Device(DeviceStart start);
    // Ends the agent, player-sim and cms-sim; when `show_logs_at_end` says so (a failed
    // test), first shows the timeline, the agent's output and the stand-in calls.
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    static inline std::function<bool()> show_logs_at_end;

    double now() const;  // device seconds since the start
    // Waits until `done` holds (true) or device second `until` has passed (false).
    bool wait_until(double until, const std::function<bool()>& done = [] { return false; }) const;
    // Sets the agent's wall clock to local time `local` ("2026-03-25 22:00:00"); it
    // runs on from there at the same speed.
    void set_clock(const std::string& local);
    // Moves the agent's wall clock by `seconds` (back when negative).
    void step_clock(long long seconds);
    // The agent's wall clock at device second `at` (not before the last clock set), in
    // seconds since the epoch.
    std::time_t clock(double at) const;
    // Kills the agent with SIGKILL, as a power cut would, and starts it again on the same
    // disks and peers, its clock going on from the local time it had reached. Returns
    // once the new agent has asked for the MAC address; device seconds still count from
    // the first start.
    void restart();
    // The whole device goes down and comes up again on the same disks, as after a power
    // cut or the reboot an upgrade asks for: the agent (SIGKILL) and whatever it left
    // running end, the player starts afresh with nothing on its layers, the RAM disk
    // (/tmp) loses the agent's and the player's files, and the partitions come up
    // read-only. The peers' logs go on.
    void reboot();
    // Has player-sim send a notification (call-now, conf-update, copy-start ...).
    void notify(const std::string& what, int media = 0);
    void start_server();
    void stop_server();  // the server goes down: connections are refused until start_server()
    bool agent_running() { return agent_ && agent_->running(); }
    pid_t agent_pid() const { return agent_ ? agent_->pid() : -1; }
    pid_t server_pid() const { return server_ ? server_->pid() : -1; }
    int speed() const { return start_.speed; }

    // cms-sim's request lines and player-sim's log lines that hold `text`.
    std::vector<Event> requests(const std::string& text) const;
    std::vector<Event> player(const std::string& text) const;
    // Both logs in one, in the order of device time, each line's own time left out.
    std::vector<Event> timeline() const;
    // A log line's time stamp (real seconds, as the peers write it) in device seconds.
    double device_time(double stamp) const { return (stamp - start_real_) * start_.speed; }

    // Writes `bytes` to `path`, folders included, /mnt/hd3 and /mnt/hd4 made writable
    // around it.
    static void put(const std::string& path, const std::string& bytes);
private:
    std::vector<Event> events(const std::vector<std::string>& lines) const;
    void start_agent();
    void end_agent_and_leftovers();

    void write_clock(std::time_t at);

    // The agent's wall clock when it was last set, and the device second it was set at.
    std::time_t clock_set_to_ = 0;
    double clock_set_at_ = 0;

    DeviceStart start_;
    std::optional<PlayerSim> player_;
    std::optional<CmsSim> server_;
    bool server_started_ = false;
    std::optional<Peer> agent_;
    double start_real_ = 0;  // the real time of device second 0
};
