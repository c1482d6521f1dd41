// soak-run: a device's life for days, in the sandbox, under a random but reproducible
// fault schedule, with invariants checked all the time; a report and a picture at the
// end. tools/soak builds it and runs it in the sandbox. See --help.
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <sys/statvfs.h>
#include <thread>
#include <unistd.h>

#include "checks.h"
#include "plan.h"
#include "report.h"
#include "support/device.h"
#include "world.h"

namespace soak {
namespace {

constexpr const char* kUsage = R"(usage: soak-run [--days N | --hours N] [--seed N] [--speed N] [--calm]
                [--start "YYYY-MM-DD hh:mm:ss"] [--out DIR] [--build TEXT]

Runs one device in this sandbox (tools/soak starts it there): the built signage-agent
on a libfaketime clock N times faster than real time (--speed, default 200), beside
player-sim, cms-sim and wget-compat, for N device days (--days, default 7; --hours for
short runs), from a local start time (default 2026-03-25 06:00:00, Central European
time, so a week crosses the change to summer time). A fault schedule drawn from --seed
(default 1) plays server outages, bad and slow answers, corrupt and new documents,
command lists of every form, USB sticks, call now, power cuts and the reboots upgrades
ask for, clock steps and a full media disk. Invariants are checked throughout.

--calm plays no fault: a new content document every 20 to 40 device minutes, each
with a switch every ten minutes for an hour, the display always on and a call home
every two minutes; it measures how faithful the device-time figures stay at a speed.

Writes DIR/report.txt (also printed), DIR/soak.svg, DIR/plan.txt and the peers' logs
(default DIR: ./soak). SIGINT or SIGTERM ends the run early, with the report of what
ran. Exit status 0 with no violation, 1 with any, 2 for a wrong command line.
)";

// Asked to end early (Ctrl-C, or SIGTERM from whoever runs the soak): the report is still
// written, for what ran, so that a long run can be cut short at its first violation.
volatile std::sig_atomic_t stop_asked = 0;
extern "C" void ask_to_stop(int) { stop_asked = 1; }

constexpr const char* kTz = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kRules = "/tmp/harness/rules";
constexpr double kScanEvery = 10, kSampleEvery = 10, kProgressEvery = 6 * 3600;

struct Options {
    double seconds = 7 * 86400;
    int days = 7;
    std::uint64_t seed = 1;
    int speed = 200;
    std::string start = "2026-03-25 06:00:00";
    std::string out = "soak";
    std::string build = "?";
    bool calm = false;
};

[[noreturn]] void usage_error(const std::string& why)
{
    std::fprintf(stderr, "soak-run: %s (see --help)\n", why.c_str());
    std::exit(2);
}

Options parse_options(int argc, char** argv)
{
    Options o;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) usage_error(a + " needs a value");
            return argv[++i];
        };
        auto number = [&](const std::string& v) {
            char* end = nullptr;
            double d = std::strtod(v.c_str(), &end);
            if (v.empty() || *end != '\0' || !(d > 0)) usage_error(a + " needs a positive number, not '" + v + "'");
            return d;
        };
        if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            std::exit(0);
        } else if (a == "--days") {
            o.seconds = number(value()) * 86400;
            o.days = static_cast<int>(std::ceil(o.seconds / 86400));
        } else if (a == "--hours") {
            o.seconds = number(value()) * 3600;
            o.days = 0;
        } else if (a == "--seed") {
            o.seed = static_cast<std::uint64_t>(number(value()));
        } else if (a == "--speed") {
            o.speed = static_cast<int>(number(value()));
        } else if (a == "--start") {
            o.start = value();
        } else if (a == "--out") {
            o.out = value();
        } else if (a == "--build") {
            o.build = value();
        } else if (a == "--calm") {
            o.calm = true;
        } else {
            usage_error("unknown argument " + a);
        }
    }
    return o;
}

// The bytes of `path` from `offset` on; empty when it cannot be read.
std::string read_file(const std::string& path, std::size_t offset = 0)
{
    std::string bytes;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return bytes;
    char buffer[65536];
    for (ssize_t n; (n = pread(fd, buffer, sizeof buffer, static_cast<off_t>(offset + bytes.size()))) > 0;)
        bytes.append(buffer, static_cast<std::size_t>(n));
    close(fd);
    return bytes;
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// The complete lines a log gained since the last call.
class LogTail {
public:
    explicit LogTail(std::string path) : path_(std::move(path)) {}
    std::vector<std::string> lines()
    {
        std::vector<std::string> out;
        std::string chunk = read_file(path_, offset_);
        std::size_t start = 0;
        for (std::size_t nl; (nl = chunk.find('\n', start)) != std::string::npos; start = nl + 1)
            out.push_back(chunk.substr(start, nl - start));
        offset_ += start;
        return out;
    }

private:
    std::string path_;
    std::size_t offset_ = 0;
};

// Processes in the sandbox: id, parent, name.
struct Process {
    pid_t pid, ppid;
    std::string comm;
    char state;
    double age;  // real seconds since it started
};
std::vector<Process> processes()
{
    std::vector<Process> all;
    double uptime = std::atof(read_file("/proc/uptime").c_str());
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        pid_t pid = static_cast<pid_t>(std::atoi(entry.path().filename().c_str()));
        if (pid <= 0) continue;
        std::string stat = read_file(entry.path().string() + "/stat");
        auto open = stat.find('('), close = stat.rfind(')');
        if (open == std::string::npos || close == std::string::npos || close + 4 > stat.size()) continue;
        // Field 22, the start in clock ticks since the boot, is the 20th after the name.
        std::istringstream rest(stat.substr(close + 2));
        std::string field;
        for (int i = 0; i < 20 && rest >> field; ++i) {
        }
        double started = std::atof(field.c_str()) / static_cast<double>(sysconf(_SC_CLK_TCK));
        all.push_back({pid, static_cast<pid_t>(std::atoi(stat.c_str() + close + 4)),
                       stat.substr(open + 1, close - open - 1), stat[close + 2], uptime - started});
    }
    return all;
}

class Soak {
public:
    explicit Soak(Options o) : o_(std::move(o)), world_(o_.seed * 1000003 + 1, o_.calm), checks_(world_)
    {
        run_.days_asked = o_.days;
        run_.seed = o_.seed;
        run_.speed = o_.speed;
        run_.build = o_.build;
        run_.start = o_.start;
        run_.tz = kTz;
        run_.load_before = loadavg();
    }

    int run();

private:
    void apply(const Step& s);
    void end_lasting(double now);
    void write_rules();
    void reboot(double now, const std::string& cause);
    void read_logs();
    Disk disk(bool with_documents);
    Sample sample();
    void fill_disk(const Step& s, bool fill);
    void notify(const std::string& what, int media = 0);
    static std::string loadavg();

    Options o_;
    World world_;
    Checks checks_;
    Run run_;
    std::optional<Device> device_;
    std::vector<Step> lasting_;  // faults in force until their `until`
    bool one_shot_list_ = false;
    std::string one_shot_bytes_;  // the one-shot list's text
    LogTail cms_log_{CmsSim::kLog}, player_log_{PlayerSim::kLog};
    LogTail calls_log_{std::getenv("SANDBOX_LOG") ? std::getenv("SANDBOX_LOG") : "/run/sandbox/calls.log"};
    double upgrade_end_ = -1e9;
    std::string shown_[2];
    bool reboot_wanted_ = false;
    std::size_t shown_violations_ = 0;
};

std::string Soak::loadavg()
{
    std::string text = read_file("/proc/loadavg");
    std::istringstream in(text);
    std::string a, b, c;
    in >> a >> b >> c;
    return a + " " + b + " " + c;
}

void Soak::notify(const std::string& what, int media) { device_->notify(what, media); }

void Soak::write_rules()
{
    std::string rules;
    bool slow = false;
    for (const Step& s : lasting_) {
        if (s.kind != Kind::DocumentFault && s.kind != Kind::MediaFault) continue;
        slow = slow || (s.kind == Kind::DocumentFault &&
                        (s.fault.find("stall") != std::string::npos || s.fault.find("delay") != std::string::npos));
        // The faults' times are device seconds; cms-sim keeps real time.
        std::string fault;
        std::stringstream items(s.fault);
        for (std::string item; std::getline(items, item, ',');) {
            if (item.starts_with("delay="))
                item = "delay=" + std::to_string(std::atof(item.c_str() + 6) / o_.speed);
            else if (item.starts_with("rate="))
                item = "rate=" + std::to_string(std::atoll(item.c_str() + 5) * o_.speed);
            fault += (fault.empty() ? "" : ",") + item;
        }
        rules += s.target + " " + fault + "\n";
    }
    std::string part = std::string(kRules) + ".new";
    std::ofstream(part, std::ios::trunc) << rules;
    std::filesystem::rename(part, kRules);
    if (device_ && device_->server_pid() > 0) kill(device_->server_pid(), SIGHUP);
    if (device_) checks_.documents_slow(device_->now(), slow);
}

void Soak::fill_disk(const Step& s, bool fill)
{
    std::string path = s.target + "/fill-" + std::to_string(static_cast<long>(s.at)) + ".bin";
    bool writable = [] {
        struct statvfs fs{};
        return statvfs("/mnt/hd4", &fs) == 0 && (fs.f_flag & ST_RDONLY) == 0;
    }();
    // Written in a moment (the agent remounts the partition for its own writes).
    if (!writable) sandbox::set_writable(4, true);
    if (fill) {
        std::filesystem::create_directories(s.target);
        struct statvfs fs{};
        statvfs("/mnt/hd4", &fs);
        long long free_bytes = static_cast<long long>(fs.f_bavail) * static_cast<long long>(fs.f_frsize);
        long long size = free_bytes - 20ll * 1024 * 1024;  // less than a download must leave
        int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd >= 0) {
            if (size > 0 && posix_fallocate(fd, 0, size) != 0)
                std::fprintf(stderr, "soak: could not fill %s\n", path.c_str());
            close(fd);
        }
    } else {
        std::filesystem::remove(path);
    }
    if (!writable) sandbox::set_writable(4, false);
}

void Soak::apply(const Step& s)
{
    double now = device_->now();
    run_.applied.push_back(s);
    run_.applied.back().at = now;
    switch (s.kind) {
    case Kind::NewContent:
    case Kind::CorruptContent:
        world_.publish_content(now, device_->clock(now), s.kind == Kind::CorruptContent);
        world_.prune_server_media();
        break;
    case Kind::NewConfig:
    case Kind::CorruptConfig: world_.publish_config(now, s.kind == Kind::CorruptConfig); break;
    case Kind::CommandList: {
        world_.publish_list(now, s.form, s.number);
        ++run_.list_forms[list_form_name(s.form)];
        bool lasting = s.form == ListForm::AddressAndInterval || s.form == ListForm::IntervalOnly ||
                       s.form == ListForm::NewServer;
        one_shot_list_ = !lasting;
        one_shot_bytes_ = world_.latest("/command.txt")->bytes;
        break;
    }
    case Kind::ServerDown:
        device_->stop_server();
        checks_.server(now, false);
        lasting_.push_back(s);
        break;
    case Kind::DocumentFault:
    case Kind::MediaFault:
        lasting_.push_back(s);
        write_rules();
        break;
    case Kind::CallNow: {
        std::string conf = read_file("/mnt/hd3/USB.CONF");
        notify("call-now");
        checks_.notified(now, "call-now", 0, conf);
        break;
    }
    case Kind::UsbStick: {
        // A technician's stick: the server and interval the server hands out.
        std::string conf = "CallHomeAddress," + world_.address() + "\r\nCallHomeInterval," +
                           std::to_string(world_.interval()) + "\r\n";
        notify("copy-start", s.number);
        Device::put("/tmp/temp_USB.CONF", conf);
        notify("copy-done", s.number);
        notify("conf-update", s.number);
        checks_.notified(now, "stick", s.number, conf);
        break;
    }
    case Kind::PowerCut: reboot(now, "power cut"); break;
    case Kind::ClockForward:
    case Kind::ClockBack:
        device_->step_clock(s.number);
        checks_.clock_set(now, device_->clock(now));
        if (s.kind == Kind::ClockBack) checks_.timer_ended(now);
        break;
    case Kind::Reboot: reboot(now, "the next reboot after the clock stepped back"); break;
    case Kind::DiskFull:
        fill_disk(s, true);
        checks_.disk_filled(now, true);
        lasting_.push_back(s);
        break;
    }
}

void Soak::end_lasting(double now)
{
    bool rules = false;
    for (auto it = lasting_.begin(); it != lasting_.end();) {
        if (it->until > now) {
            ++it;
            continue;
        }
        if (it->kind == Kind::ServerDown) {
            device_->start_server();
            checks_.server(now, true);
        }
        if (it->kind == Kind::DiskFull) {
            fill_disk(*it, false);
            checks_.disk_filled(now, false);
        }
        rules = rules || it->kind == Kind::DocumentFault || it->kind == Kind::MediaFault;
        it = lasting_.erase(it);
    }
    if (rules) write_rules();
}

Disk Soak::disk(bool with_documents)
{
    Disk d;
    for (const char* folder : {"/mnt/hd4/video", "/mnt/hd4/picture", "/mnt/hd4/html/browser"}) {
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
            if (!entry.is_regular_file(ec)) continue;
            std::string name = entry.path().filename();
            if (name == "tempfile.xxx") d.temporary.push_back(entry.path());
            else d.media[name] = entry.file_size(ec);
        }
    }
    for (const char* path : {"/tmp/temp_USB.CONF", "/tmp/temp_stored_USB.CONF"})
        if (exists(path)) d.temporary.push_back(path);
    for (const Process& p : processes()) d.transfer_running = d.transfer_running || p.comm == "wget";
    d.usb_conf_present = exists("/mnt/hd3/USB.CONF");
    d.usb_conf = read_file("/mnt/hd3/USB.CONF");
    if (with_documents) {
        d.saved_content = read_file("/mnt/hd3/contentdata.txt");
        d.saved_config = read_file("/mnt/hd3/cfgdata.txt");
    }
    return d;
}

Sample Soak::sample()
{
    Sample s{device_->agent_running(), 0, 0, 0, 0};
    pid_t pid = device_->agent_pid();
    std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
    auto field = [&](const char* name) {
        auto at = status.find(name);
        return at == std::string::npos ? 0L : std::atol(status.c_str() + at + std::strlen(name));
    };
    s.rss_kb = field("VmRSS:");
    s.threads = static_cast<int>(field("Threads:"));
    // A descriptor counts when it is open in two looks a moment apart: one opened to
    // read a status file for a few microseconds is no leak.
    auto count = [&] {
        int n = 0;
        std::error_code ec;
        for (auto it = std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ec);
             !ec && it != std::filesystem::directory_iterator(); it.increment(ec))
            ++n;
        return n;
    };
    int first = count();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    s.descriptors = std::min(first, count());
    for (const Process& p : processes()) {
        if (p.pid == pid && p.state == 'Z') s.alive = false;
        // A transfer ends within its stall limit of 20 device s, a command at once.
        bool started_by_agent = p.ppid == pid || (p.comm == "wget" && p.state != 'Z');
        if (started_by_agent && p.age * o_.speed > 120) ++s.children;
    }
    return s;
}

void Soak::reboot(double now, const std::string& cause)
{
    device_->reboot();
    ++run_.reboots[cause];
    reboot_wanted_ = false;
    read_logs();  // what the old agent and player-sim wrote, before the boot
    for (int l = 0; l < 2; ++l) {
        shown_[l].clear();
        run_.shown.push_back({now, l, ""});
    }
    // The boot counts from the new agent's start: bringing the device down and up takes
    // some real time, many device seconds at speed.
    checks_.rebooted(device_->now(), disk(true));
}

void Soak::read_logs()
{
    for (const std::string& line : cms_log_.lines()) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream in(line);
        double stamp;
        std::string method, target, faults;
        int status = 0;
        long long bytes = 0;
        if (!(in >> stamp >> method >> target >> status >> bytes >> faults)) continue;
        double at = device_->device_time(stamp);
        run_.logs.push_back({at, "cms-sim", line.substr(line.find(' ') + 1)});
        checks_.request({at, target, status, bytes, faults});
        // A one-shot list is replaced by the everyday one once it has been fetched.
        const Served* list = target.ends_with("/command.txt") && status == 200 ? world_.served(target, bytes, at) : nullptr;
        if (one_shot_list_ && list && list->bytes == one_shot_bytes_) {
            one_shot_list_ = false;
            world_.publish_everyday_list(device_->now());
        }
    }
    for (const std::string& line : player_log_.lines()) {
        double stamp = std::atof(line.c_str());
        double at = device_->device_time(stamp);
        std::string text = line.substr(line.find(' ') + 1);
        run_.logs.push_back({at, "player-sim", text});
        if (text.starts_with("upgrade ") && text.find("phase=start") != std::string::npos) checks_.upgrade(true);
        if (text.starts_with("upgrade ") && text.find("phase=end outcome=ok") != std::string::npos) upgrade_end_ = at;
        if (text.starts_with("upgrade ") && text.find("phase=end outcome=fail") != std::string::npos) checks_.upgrade(false);
        if (!text.starts_with("state layer=")) continue;
        int layer = text[12] - '0';
        auto open = text.find("report=\"") + 8;
        std::string report = text.substr(open, text.find('"', open) - open);
        bool started = text.find(" area=") != std::string::npos;
        checks_.player_state(at, layer, report, started);
        std::array<std::string, 2> playing = PlayerSim::playing(text);
        for (int l = 0; l < 2; ++l)
            if (playing[static_cast<std::size_t>(l)] != shown_[l]) {
                shown_[l] = playing[static_cast<std::size_t>(l)];
                run_.shown.push_back({at, l, shown_[l]});
            }
    }
    for (const std::string& line : calls_log_.lines())
        if (line == "reboot") reboot_wanted_ = true;
}

int Soak::run()
{
    setenv("TZ", kTz, 1);
    tzset();
    std::filesystem::create_directories(kHarnessDir);
    std::ofstream(kRules, std::ios::trunc).flush();
    std::tm tm{};
    strptime(o_.start.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
    tm.tm_isdst = -1;
    run_.start_epoch = std::mktime(&tm);

    Plan plan = o_.calm ? make_calm_plan(o_.seed, o_.seconds) : make_plan(o_.seed, o_.seconds);
    int interval = o_.calm ? 120 : 600;
    world_.publish_config(0, false);
    world_.publish_content(0, run_.start_epoch, false);
    world_.publish_list(0, ListForm::AddressAndInterval, interval);
    auto wall_start = std::chrono::steady_clock::now();
    device_.emplace(DeviceStart{.clock = o_.start,
                                .tz = kTz,
                                .speed = o_.speed,
                                .files = {{"/mnt/hd3/USB.CONF", std::string("CallHomeAddress,") + kServer +
                                                                    "\r\nCallHomeInterval," +
                                                                    std::to_string(interval) + "\r\n"}},
                                .server = {"--rules", kRules}});
    checks_.judge_memory(read_file("/proc/" + std::to_string(device_->agent_pid()) + "/maps").find("libasan") ==
                         std::string::npos);
    checks_.clock_set(0, device_->clock(0));
    checks_.rebooted(0, disk(true));
    std::printf("soak: %d device s at %d times real speed, seed %llu, %zu planned steps\n",
                static_cast<int>(o_.seconds), o_.speed, static_cast<unsigned long long>(o_.seed), plan.size());
    std::fflush(stdout);

    std::size_t next = 0;
    double next_scan = 0, next_sample = 0, next_progress = kProgressEvery;
    std::signal(SIGINT, ask_to_stop);
    std::signal(SIGTERM, ask_to_stop);
    for (double now = device_->now(); now < o_.seconds && !stop_asked; now = device_->now()) {
        while (next < plan.size() && plan[next].at <= now) apply(plan[next++]);
        end_lasting(now);
        read_logs();
        if (reboot_wanted_)
            reboot(now, now - upgrade_end_ < 120 ? "an upgrade's reboot" : "a new configuration's reboot");
        if (now >= next_scan) {
            checks_.scan(now, disk(false));
            next_scan = now + kScanEvery;
        }
        if (now >= next_sample) {
            Sample s = sample();
            checks_.sample(now, s);
            if (!s.alive) reboot(now, "the agent ended by itself");
            next_sample = now + kSampleEvery;
        }
        // Violations as they are found, so that a long run can be looked into at once.
        for (std::size_t i = 0, n = 0; i < checks_.invariants().size(); ++i)
            for (const Violation& v : checks_.invariants()[i].violations)
                if (n++ >= shown_violations_) {
                    std::printf("soak: violation at device second %.0f (%s): %s: %s\n", v.at, v.local.c_str(),
                                checks_.invariants()[i].name.c_str(), v.what.c_str());
                    std::fflush(stdout);
                    ++shown_violations_;
                }
        if (now >= next_progress) {
            std::printf("soak: device day %.2f, %ld violation(s) so far\n", now / 86400, checks_.violations());
            std::fflush(stdout);
            next_progress += kProgressEvery;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
    double end = device_->now();
    read_logs();
    checks_.finish(end);
    run_.seconds = end;
    run_.wall_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_start).count();
    run_.load_after = loadavg();
    std::string output = read_file("/tmp/agent.out");
    std::erase(output, '\0');
    // killall's complaint when no wget is left to end is the device's normal noise.
    std::string kept;
    std::istringstream lines(output);
    for (std::string l; std::getline(lines, l);)
        if (l != "wget: no process found") kept += l + "\n";
    if (kept.size() > 4000) kept = kept.substr(kept.size() - 4000);
    run_.agent_output = kept;
    device_.reset();

    std::filesystem::create_directories(o_.out);
    std::string text = report_text(run_, checks_);
    std::ofstream(o_.out + "/report.txt") << text;
    std::ofstream(o_.out + "/soak.svg") << report_svg(run_, checks_);
    std::ofstream planned(o_.out + "/plan.txt");
    for (const Step& s : run_.applied)
        planned << s.at << " " << kind_name(s.kind) << (s.kind == Kind::CommandList ? std::string(": ") + list_form_name(s.form) : "")
                << (s.target.empty() ? "" : " " + s.target) << (s.fault.empty() ? "" : " " + s.fault)
                << (s.until > s.at ? " until " + std::to_string(static_cast<long>(s.until)) : "")
                << (s.number ? " " + std::to_string(s.number) : "") << "\n";
    world_.save(o_.out + "/served");
    for (const char* log : {CmsSim::kLog, PlayerSim::kLog, "/tmp/agent.out"})
        std::filesystem::copy_file(log, o_.out + "/" + std::filesystem::path(log).filename().string(),
                                   std::filesystem::copy_options::overwrite_existing);
    std::fputs(text.c_str(), stdout);
    return checks_.violations() == 0 ? 0 : 1;
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv)
{
    if (std::getenv("SIGNAGE_SANDBOX") == nullptr) {
        std::fprintf(stderr, "soak-run: runs only inside the sandbox: tools/soak\n");
        return 2;
    }
    return soak::Soak(soak::parse_options(argc, argv)).run();
}
