#include "scenarios/device.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <ctime>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <thread>

#ifndef SIGNAGE_AGENT
#error "the test target must define SIGNAGE_AGENT and FAKETIME_LIBRARY"
#endif

namespace {

// libfaketime reads the agent's clock from this file at every call, so a new line sets
// the clock at once.
const std::string kClockFile = "/tmp/faketime.rc";
constexpr const char* kMacQuery = "recv key=1235 type=770 len=2048 text=\"1.3.6.1.4.1.58321.3.1.8.0\"";

double real_now()
{
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

// "@<local time> x<speed>": the clock starts at that time when libfaketime first reads
// the line, and again whenever the line changes. Written beside the file and renamed,
// since a half-written line would read as no faked time at all: a jump to the host's date.
void write_clock(const std::string& local, int speed)
{
    sandbox::write_file(kClockFile + ".new", "@" + local + " x" + std::to_string(speed) + "\n");
    std::filesystem::rename(kClockFile + ".new", kClockFile);
}

// "2026-03-25 12:00:00" to seconds and back, on a clock without zones: only the
// difference between two times matters.
long long local_seconds(const std::string& local)
{
    std::tm tm{};
    if (!strptime(local.c_str(), "%Y-%m-%d %H:%M:%S", &tm)) throw std::runtime_error("not a local time: " + local);
    return timegm(&tm);
}

std::string local_text(long long seconds)
{
    std::time_t t = seconds;
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &tm);
    return text;
}

}  // namespace

Device::Device(DeviceStart start) : start_(std::move(start)), player_(start_.player)
{
    if (!start_.media_disk.empty() &&
        mount(nullptr, "/mnt/hd4", nullptr, MS_REMOUNT | MS_RDONLY, ("size=" + start_.media_disk).c_str()) != 0)
        throw std::runtime_error("/mnt/hd4 could not be resized to " + start_.media_disk);
    for (const auto& [path, bytes] : start_.files) put(path, bytes);
    if (start_.server_up) start_server();
    write_clock(start_.clock, start_.speed);
    clock_set_to_ = local_seconds(start_.clock);
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
    write_clock(local_text(clock_set_to_ + static_cast<long long>(now() - clock_set_at_)), start_.speed);
    start_agent();
}

Device::~Device()
{
    // Asked to end, as a service manager would: a coverage build writes its counts then.
    if (agent_) agent_->stop(SIGTERM);
    if (!::testing::Test::HasFailure()) return;
    std::printf("---- device seconds: cms-sim and player-sim\n");
    for (const Event& e : timeline()) std::printf("%8.1f %s\n", e.at, e.line.c_str());
    std::printf("---- the agent's output\n%s", sandbox::read_file("/tmp/agent.out").c_str());
    std::printf("---- stand-in calls\n");
    for (const std::string& call : sandbox::calls()) std::printf("%s\n", call.c_str());
}

double Device::now() const { return (real_now() - start_real_) * start_.speed; }

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
    write_clock(local, start_.speed);
    clock_set_to_ = local_seconds(local);
    clock_set_at_ = now();
}

void Device::notify(const std::string& what, int media)
{
    std::string output;
    if (PlayerSim::command("--notify " + what + " --media " + std::to_string(media), &output) != 0)
        throw std::runtime_error("player-sim --notify " + what + ": " + output);
}

void Device::start_server() { server_.emplace(start_.server); }

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
    for (const std::string& line : lines)
        found.push_back({(std::stod(line) - start_real_) * start_.speed, line});
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
