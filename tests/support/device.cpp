#include "support/device.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>
#include <vector>

#if !defined(SIGNAGE_AGENT) || !defined(FAKETIME_LIBRARY)
#error "the device library must define SIGNAGE_AGENT and FAKETIME_LIBRARY"
#endif

namespace {

// libfaketime reads the agent's clock from this file at every call, so a new line sets
// the clock at once.
const std::string kClockFile = "/tmp/faketime.rc";
constexpr const char* kMacQuery = "recv key=1235 type=770 len=2048 text=\"1.3.6.1.4.1.58321.3.1.8.0\"";

// What a reboot leaves in /tmp: the harness's own files (the server's folder, the clock,
// the peers' logs and outputs) and a folder of the harness's user.
const std::set<std::string> kHarnessFiles = {
    "cms", "faketime.rc", "cms-sim.log", "cms-sim.out", "player-sim.log",
    "player-sim.out", "player-sim-command.out", "agent.out", "harness"};

double real_now()
{
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

// Local date and time in the zone `tz` to seconds since the epoch and back. The
// harness runs in a zone of its own, so the device's is put in place for the call.
template <typename F>
auto in_zone(const std::string& tz, F f)
{
    const char* old = std::getenv("TZ");
    std::string saved = old ? old : "";
    setenv("TZ", tz.c_str(), 1);
    tzset();
    auto result = f();
    if (old) setenv("TZ", saved.c_str(), 1);
    else unsetenv("TZ");
    tzset();
    return result;
}

std::time_t epoch_of(const std::string& local, const std::string& tz)
{
    std::tm tm{};
    if (!strptime(local.c_str(), "%Y-%m-%d %H:%M:%S", &tm)) throw std::runtime_error("not a local time: " + local);
    tm.tm_isdst = -1;
    return in_zone(tz, [&] { return std::mktime(&tm); });
}

std::string local_text(std::time_t at, const std::string& tz)
{
    return in_zone(tz, [&] {
        std::tm tm{};
        localtime_r(&at, &tm);
        char text[32];
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &tm);
        return std::string(text);
    });
}

// The process ids of this process and of those it runs under.
std::set<pid_t> this_process_and_ancestors()
{
    std::set<pid_t> ids;
    for (pid_t pid = getpid(); pid > 0 && ids.insert(pid).second;) {
        std::string stat = sandbox::read_file("/proc/" + std::to_string(pid) + "/stat");
        auto close = stat.rfind(')');
        if (close == std::string::npos) break;
        pid = static_cast<pid_t>(std::atoi(stat.c_str() + close + 4));  // ") S <ppid>"
    }
    return ids;
}

}  // namespace

// "@<local time> x<speed>": the clock starts at that time when libfaketime first reads
// the line, and again whenever the line changes. Written beside the file and renamed,
// since a half-written line would read as no faked time at all: a jump to the host's date.
void Device::write_clock(std::time_t at)
{
    sandbox::write_file(kClockFile + ".new",
                        "@" + local_text(at, start_.tz) + " x" + std::to_string(start_.speed) + "\n");
    std::filesystem::rename(kClockFile + ".new", kClockFile);
}

Device::Device(DeviceStart start) : start_(std::move(start))
{
    player_.emplace(start_.player);
    if (!start_.media_disk.empty() &&
        mount(nullptr, "/mnt/hd4", nullptr, MS_REMOUNT | MS_RDONLY, ("size=" + start_.media_disk).c_str()) != 0)
        throw std::runtime_error("/mnt/hd4 could not be resized to " + start_.media_disk);
    for (const auto& [path, bytes] : start_.files) put(path, bytes);
    if (start_.server_up) start_server();
    clock_set_to_ = epoch_of(start_.clock, start_.tz);
    write_clock(clock_set_to_);
    start_agent();
    start_real_ = std::stod(PlayerSim::lines(kMacQuery).front());
}

void Device::start_agent()
{
    std::size_t started = PlayerSim::lines(kMacQuery).size();
    // libfaketime is loaded ahead of a sanitizer's runtime, which AddressSanitizer
    // would otherwise refuse.
    std::string asan = "verify_asan_link_order=0";
    if (const char* options = std::getenv("ASAN_OPTIONS")) asan = options + (":" + asan);
    agent_.emplace(std::vector<std::string>{SIGNAGE_AGENT}, "/tmp/agent.out",
                   std::vector<std::string>{"LD_PRELOAD=" FAKETIME_LIBRARY,
                                            "FAKETIME_TIMESTAMP_FILE=" + kClockFile,
                                            "FAKETIME_NO_CACHE=1", "TZ=" + start_.tz, "ASAN_OPTIONS=" + asan});
    if (!PlayerSim::wait_for(kMacQuery, started + 1))
        throw std::runtime_error("the agent did not start:\n" + sandbox::read_file("/tmp/agent.out"));
}

void Device::restart()
{
    agent_->stop(SIGKILL);
    agent_.reset();
    double at = now();
    clock_set_to_ = clock(at);
    clock_set_at_ = at;
    write_clock(clock_set_to_);
    start_agent();
}

void Device::end_agent_and_leftovers()
{
    if (agent_) agent_->stop(SIGKILL);
    agent_.reset();
    // Whatever else runs in the sandbox the agent started (a wget, the shell of a
    // command): everything but this process, those it runs under and the peers.
    std::set<pid_t> keep = this_process_and_ancestors();
    if (player_) keep.insert(player_->pid());
    if (server_) keep.insert(server_->pid());
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        pid_t pid = static_cast<pid_t>(std::atoi(entry.path().filename().c_str()));
        if (pid > 0 && !keep.contains(pid)) kill(pid, SIGKILL);
    }
}

void Device::reboot()
{
    double down = now();
    end_agent_and_leftovers();
    player_.reset();
    // Only what lives on the RAM disk itself: a folder the sandbox mounted under /tmp (the
    // project tree, when it was checked out there) is the host's, and stays.
    std::vector<std::string> mounts;
    {
        std::ifstream info("/proc/self/mountinfo");
        for (std::string line; std::getline(info, line);) {
            std::istringstream fields(line);
            std::string id, parent, device, root, point;
            if (fields >> id >> parent >> device >> root >> point && point.starts_with("/tmp/")) mounts.push_back(point);
        }
    }
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        std::string path = entry.path();
        bool holds_mount = std::any_of(mounts.begin(), mounts.end(), [&](const std::string& m) {
            return m == path || m.starts_with(path + "/");
        });
        if (!holds_mount && !kHarnessFiles.contains(entry.path().filename())) std::filesystem::remove_all(entry.path());
    }
    std::filesystem::create_directories("/tmp/playlists");
    // A partition that was writable when the power went comes up read-only.
    sandbox::set_writable(3, false);
    sandbox::set_writable(4, false);
    player_.emplace(start_.player, false);
    clock_set_to_ = clock(down);
    clock_set_at_ = down;
    write_clock(clock_set_to_);
    start_agent();
}

Device::~Device()
{
    // Asked to end, as a service manager would: a coverage build writes its counts then.
    if (agent_) agent_->stop(SIGTERM);
    if (!show_logs_at_end || !show_logs_at_end()) return;
    std::printf("---- device seconds: cms-sim and player-sim\n");
    for (const Event& e : timeline()) std::printf("%8.1f %s\n", e.at, e.line.c_str());
    std::printf("---- the agent's output\n%s", sandbox::read_file("/tmp/agent.out").c_str());
    std::printf("---- stand-in calls\n");
    for (const std::string& call : sandbox::calls()) std::printf("%s\n", call.c_str());
}

double Device::now() const { return device_time(real_now()); }

std::time_t Device::clock(double at) const
{
    return clock_set_to_ + static_cast<std::time_t>(at - clock_set_at_);
}

bool Device::wait_until(double until, const std::function<bool()>& done) const
{
    while (!done()) {
        if (now() >= until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

void Device::set_clock(const std::string& local)
{
    clock_set_to_ = epoch_of(local, start_.tz);
    clock_set_at_ = now();
    write_clock(clock_set_to_);
}

void Device::step_clock(long long seconds)
{
    double at = now();
    clock_set_to_ = clock(at) + seconds;
    clock_set_at_ = at;
    write_clock(clock_set_to_);
}

void Device::notify(const std::string& what, int media)
{
    std::string output;
    if (PlayerSim::command("--notify " + what + " --media " + std::to_string(media), &output) != 0)
        throw std::runtime_error("player-sim --notify " + what + ": " + output);
}

void Device::start_server()
{
    server_.emplace(start_.server, !server_started_);
    server_started_ = true;
}

void Device::stop_server() { server_.reset(); }

std::vector<Event> Device::requests(const std::string& text) const { return events(CmsSim::requests(text)); }

std::vector<Event> Device::player(const std::string& text) const { return events(PlayerSim::lines(text)); }

std::vector<Event> Device::timeline() const
{
    std::vector<Event> all = requests("");
    for (Event& e : player("")) all.push_back(std::move(e));
    std::stable_sort(all.begin(), all.end(), [](const Event& a, const Event& b) { return a.at < b.at; });
    for (Event& e : all) e.line.erase(0, e.line.find(' ') + 1);
    return all;
}

std::vector<Event> Device::events(const std::vector<std::string>& lines) const
{
    std::vector<Event> found;
    for (const std::string& line : lines) found.push_back({device_time(std::stod(line)), line});
    return found;
}

void Device::put(const std::string& path, const std::string& bytes)
{
    int partition = path.starts_with("/mnt/hd3/") ? 3 : path.starts_with("/mnt/hd4/") ? 4 : 0;
    if (partition) sandbox::set_writable(partition, true);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    sandbox::write_file(path, bytes);
    if (partition) sandbox::set_writable(partition, false);
}
