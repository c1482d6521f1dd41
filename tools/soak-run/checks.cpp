#include "checks.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <strings.h>
#include <sys/stat.h>

#include "actions/config.h"
#include "schedule/content.h"
#include "core/seam.h"

namespace soak {
namespace {

constexpr double kDay = 86400;
// How long the device may take to show what it must, by what made it due.
constexpr double kEventGrace = 15;     // a schedule event, a display on/off time, a clock step
// A call home whose documents stall or come slowly holds the main loop for up to a
// fetch's stall limit (20 device s) and the rest of its list: a switch due meanwhile waits.
constexpr double kSlowFetch = 30;
constexpr double kDocumentGrace = 30;  // a new document, the scheduled files' arrival
constexpr double kBootGrace = 45;      // a boot (first call home 10 s, first content check 20 s)
// Missing scheduled files: the content check comes back every 605 s at most and starts
// the queue, so some transfer is seen within this.
constexpr double kFetchQuiet = 660;
// Calls home: the timer ticks every 5 s, so a countdown may run out up to 5 s early.
constexpr double kCallEarly = 6;
constexpr double kCallLate = 30;
// The footprint: the last window's resident memory may exceed the first's by this much.
constexpr double kMemoryTolerance = 0.05;
constexpr long kMemorySlackKb = 256;

// The agent's schedule evaluation and on/off times read the clock through the seam:
// this one stands still at the moment asked about.
class FixedClock final : public seam::Platform {
public:
    explicit FixedClock(std::time_t at) : at_(at) {}
    int system(const char*) override { return -1; }
    void sleep(unsigned) override {}
    std::time_t now() override { return at_; }

private:
    std::time_t at_;
};

std::string name_of(const DRAVIK_CONTENT& c, int index) { return std::string(c.id) + "*" + std::to_string(index); }

// One layer of a player report "<layer 0>%<layer 1>": its playlist name when it plays,
// and its state text.
struct Layer {
    std::string name, state;
};
Layer layer_of(const std::string& report, int layer)
{
    auto cut = report.find('%');
    std::string part = layer == 0 ? report.substr(0, cut) : cut == std::string::npos ? "" : report.substr(cut + 1);
    std::vector<std::string> fields;
    std::stringstream in(part);
    for (std::string f; std::getline(in, f, ',');) fields.push_back(f);
    if (fields.size() == 5) return {fields[2] == "Playing" ? fields[1] : "", fields[2]};
    return {"", fields.empty() ? "" : fields[0]};
}

// The keyword at the start of a line, matched as the agent matches it: without regard
// to case, over the keyword's length.
bool keyword(const std::string& line, const char* k) { return strncasecmp(line.c_str(), k, std::strlen(k)) == 0; }

std::string value_of(const std::string& line, const char* k)
{
    auto comma = line.find(',', std::strlen(k));
    if (comma == std::string::npos) return "";
    std::string v = line.substr(comma + 1);
    return v.substr(0, v.find_first_of("\r\n"));
}

long interval_rule(const std::string& value)
{
    long v = std::atol(value.c_str());
    return v >= 1 && v <= 59 ? 60 : v;
}

std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    std::stringstream in(text);
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    return lines;
}

std::string media_folder(int type) { return type == 0 ? "video" : type == 1 ? "picture" : "html/browser"; }

std::string path_of(const std::string& target) { return target.substr(0, target.find('?')); }

std::string clock_text(double seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.0f s", seconds);
    return text;
}

}  // namespace

Checks::Checks(const World& world) : world_(world)
{
    auto add = [&](const char* name, std::string rule) { invariants_.push_back({name, std::move(rule), 0, 0, {}}); };
    add("started lists are whole",
        "every playlist or layout the player is told to start plays, and has all its files in the media folders "
        "at the sizes its document gives");
    add("plays what the schedule says",
        "each layer shows what the agent's own schedule evaluation gives for the content and configuration in "
        "force (while the scheduled files are still coming: the default, or what played before), switching "
        "within 15 device s of a schedule event, a display on/off time or a clock step, 30 s of a new document "
        "or of the scheduled files' arrival, 45 s of a boot; a start is of the content in force and of the "
        "scheduled playlist or layout, or of the default while the scheduled files are incomplete; and missing "
        "scheduled files are on their way: some media transfer at least every 11 device minutes while the "
        "server is up and the media disk not filled by others");
    add("nothing starts while the display is off",
        "no playlist or layout starts while the configuration's on/off times say off (and have said so for "
        "15 device s: the agent looks at them 5 s after each on/off time)");
    add("calls home at the interval",
        "each call home goes to the server in force, never sooner than 6 s before the interval in force has "
        "passed since the last one ended (the timer ticks every 5 s) and no later than 30 s after it (or after "
        "the media transfer running then); a new server, a stick without media, call now with an interval in "
        "USB.CONF, and a boot within 30 s; none after DeleteUSBConfigFile");
    add("USB.CONF keeps the server",
        "after each call home and at each boot /mnt/hd3/USB.CONF names the server in force");
    add("no partial media",
        "a file under a medium's name in the media folders always has that medium's size");
    add("no temporary file outlives its transfer",
        "a transfer's tempfile.xxx, /tmp/temp_USB.CONF or /tmp/temp_stored_USB.CONF is not there for 60 device "
        "s while no transfer runs");
    add("footprint flat",
        "the agent's maximum resident memory over the last device day is within 5 % (at least 256 kB) of the "
        "first day's (not judged on a build with AddressSanitizer, whose quarantine of freed memory grows by "
        "design); its descriptors (open in two looks a millisecond apart), threads and lingering children "
        "(still running after 2 device minutes) at most the first day's; runs under two days hold the last "
        "quarter's least counts to the first quarter's most");
    add("agent running", "the agent runs the whole time, except across the reboots the soak plays");
}

long Checks::violations() const
{
    long n = 0;
    for (const Invariant& i : invariants_) n += static_cast<long>(i.violations.size());
    return n;
}

void Checks::check(Id id, bool ok, double at, const std::string& what)
{
    ++invariants_[id].checks;
    if (ok) return;
    std::time_t t = epoch(at);
    std::tm tm{};
    localtime_r(&t, &tm);
    char local[40];
    std::strftime(local, sizeof local, "%a %Y-%m-%d %H:%M:%S %Z", &tm);
    invariants_[id].violations.push_back({at, what, local});
}

void Checks::clock_set(double at, std::time_t epoch)
{
    // A step as the agent's clock sees it: what must show may change at once.
    if (content_) follow_playback(at);
    clock_.push_back({at, epoch});
    if (clock_.size() > 1 && content_) expect_anew(at, kEventGrace);
}

// What must show is worked out again at `at`: a layer whose expectation changed has
// `grace` seconds from then to follow it.
void Checks::expect_anew(double at, double grace)
{
    Expected e = expected_at(epoch(at));
    for (int l = 0; l < 2; ++l)
        if (e.layer[l] != expected_.layer[l]) {
            due_[l] = at;
            grace_[l] = grace;
            event_[l] = false;
            flagged_[l] = false;
        }
    expected_ = e;
    followed_to_ = at;
}

std::time_t Checks::epoch(double at) const
{
    auto it = std::upper_bound(clock_.begin(), clock_.end(), at,
                               [](double t, const std::pair<double, std::time_t>& c) { return t < c.first; });
    if (it == clock_.begin()) return clock_.empty() ? 0 : clock_.front().second;
    --it;
    return it->second + static_cast<std::time_t>(std::floor(at - it->first));
}

void Checks::timer_ended(double at)
{
    if (content_) follow_playback(at);
    timer_alive_ = false;
    due_call_ = Due::None;
}

void Checks::server(double at, bool up)
{
    if (up) server_up_at_ = at;
    else server_down_since_ = at;
}

void Checks::disk_filled(double at, bool full)
{
    disk_full_ = full;
    if (!full) disk_full_until_ = at;
}

// ---------------------------------------------------------------------------------------
// Playback

Checks::Expected Checks::expected_at(std::time_t t, bool display) const
{
    Expected e;
    if (!content_) return e;
    FixedClock clock(t);
    seam::install(&clock);
    PL_EVENT ev{};
    content_get_pl_event(content_.get(), &ev);
    int next = 0;
    DRAVIK_CONFIGURATION_CH none{};
    e.on = !display || getAutoOnOffMode(config_ ? config_.get() : &none, &next) != 0;
    seam::install(nullptr);
    if (!e.on || ev.currentPL < 0) return e;  // both layers stopped
    e.layer[0] = name_of(*content_, ev.currentPL);
    if (ev.currentLayout >= 0) e.layer[1] = name_of(*content_, ev.currentLayout);
    bool complete = whole(ev.currentPL, ev.currentLayout);
    e.waiting[0] = !complete;
    e.waiting[1] = ev.currentLayout >= 0 && !complete;
    return e;
}

bool Checks::files_whole(const std::vector<int>& findexes) const
{
    for (int f : findexes) {
        if (f < 0 || f >= content_->filecount) return false;
        const DRAVIK_FILE_ITEM& file = content_->files[f];
        auto it = disk_.media.find(file.fname);
        if (it == disk_.media.end() || it->second != file.fsize) return false;
    }
    return true;
}

bool Checks::whole(int playlist, int layout) const
{
    std::vector<int> files;
    if (playlist >= 0 && playlist < content_->plcount)
        for (int i = 0; i < content_->playlists[playlist].itemCount; ++i)
            files.push_back(content_->playlists[playlist].PlItems[i].findex);
    else if (playlist >= 0)
        return false;
    if (layout >= 0 && layout < content_->layoutcount)
        for (int i = 0; i < content_->layouts[layout].fileCount; ++i)
            files.push_back(content_->layouts[layout].layoutFiles[i].findex);
    else if (layout >= 0)
        return false;
    return files_whole(files);
}

// Moves what must show forward to device second `at`, second by second, so that a
// schedule event is known to the second.
void Checks::follow_playback(double at)
{
    if (!content_) {
        followed_to_ = at;
        return;
    }
    if (followed_to_ < 0 || at - followed_to_ > 600) {
        expected_ = expected_at(epoch(at));
        followed_to_ = at;
        return;
    }
    for (double t = std::floor(followed_to_) + 1; t <= at; t += 1) {
        Expected e = expected_at(epoch(t));
        for (int l = 0; l < 2; ++l) {
            if (e.layer[l] != expected_.layer[l]) {
                due_[l] = t;
                grace_[l] = kEventGrace;
                event_[l] = timer_alive_;
                flagged_[l] = false;
            } else if (expected_.waiting[l] && !e.waiting[l]) {
                // The scheduled files are all there now: the download manager asks for
                // a content check at the last of them.
                due_[l] = std::max(due_[l], t);
                grace_[l] = std::max(grace_[l], kDocumentGrace);
            }
        }
        expected_ = e;
    }
    followed_to_ = std::max(followed_to_, at);
}

void Checks::adopt_content(double at, std::shared_ptr<DRAVIK_CONTENT> content)
{
    follow_playback(at);
    if (!content_ || std::strcmp(content_->id, content->id) != 0) adopted_at_.insert({content->id, at});
    content_ = std::move(content);
    expect_anew(at, kDocumentGrace);
}

void Checks::player_state(double at, int layer, const std::string& report, bool started)
{
    follow_playback(at);
    for (int l = 0; l < 2; ++l) {
        std::string now = layer_of(report, l).name;
        if (now != playing_[l] && !now.empty() && now == expected_.layer[l] && event_[l]) {
            latencies_.push_back({due_[l], at - due_[l]});
            event_[l] = false;
        }
        playing_[l] = now;
    }
    if (!started) return;

    Layer started_layer = layer_of(report, layer);
    // Started: the name is "<content id>*<index>" whatever the player made of the list.
    std::string part = layer == 0 ? report.substr(0, report.find('%')) : report.substr(report.find('%') + 1);
    std::vector<std::string> fields;
    std::stringstream in(part);
    for (std::string f; std::getline(in, f, ',');) fields.push_back(f);
    std::string name = fields.size() >= 2 ? fields[1] : "";
    auto star = name.rfind('*');
    std::string id = star == std::string::npos ? name : name.substr(0, star);
    int index = star == std::string::npos ? -1 : std::atoi(name.c_str() + star + 1);
    std::string what = "layer " + std::to_string(layer) + " started " + (name.empty() ? "?" : name);
    if (auto adopted = adopted_at_.find(id); adopted != adopted_at_.end()) {
        // Only while the display was on throughout: an off time holds a start back by design.
        bool on = true;
        for (double t = adopted->second; t <= at && on; t += 60) on = expected_at(epoch(t)).on;
        if (on && timer_alive_) content_latencies_.push_back({adopted->second, at - adopted->second});
        adopted_at_.erase(adopted);
    }

    // The player could read it, and its files are all there.
    auto content = content_ && id == content_->id ? content_ : world_.content_by_id(id);
    std::string missing;
    if (started_layer.state != "Playing") missing = "the player reports " + started_layer.state;
    else if (!content) missing = "no document has that id";
    else {
        std::vector<int> files;
        if (layer == 0 && index >= 0 && index < content->plcount)
            for (int i = 0; i < content->playlists[index].itemCount; ++i)
                files.push_back(content->playlists[index].PlItems[i].findex);
        if (layer == 1 && index >= 0 && index < content->layoutcount)
            for (int i = 0; i < content->layouts[index].fileCount; ++i)
                files.push_back(content->layouts[index].layoutFiles[i].findex);
        for (int f : files) {
            const DRAVIK_FILE_ITEM& file = content->files[f];
            std::string path = "/mnt/hd4/" + media_folder(file.type) + "/" + file.fname;
            struct stat st{};
            if (stat(path.c_str(), &st) != 0) missing += " " + path + " missing;";
            else if (static_cast<std::uint64_t>(st.st_size) != file.fsize)
                missing += " " + path + " is " + std::to_string(st.st_size) + " bytes, not " +
                           std::to_string(file.fsize) + ";";
        }
    }
    if (!missing.empty() && at - deletion_at_ < 30 && started_layer.state == "Playing")
        suspend(kStartedWhole);  // a command list deleted media a moment ago
    else
        check(kStartedWhole, missing.empty(), at, what + ":" + missing);

    // Not while the display is off.
    if (content_ && config_) {
        int next = 0;
        auto on_at = [&](std::time_t t) {
            FixedClock clock(t);
            seam::install(&clock);
            int on = getAutoOnOffMode(config_.get(), &next);
            seam::install(nullptr);
            return on != 0;
        };
        check(kDisplayOff, on_at(epoch(at)) || on_at(epoch(at - kEventGrace)), at,
              what + " while the display's on/off times say off");
    }

    // The content in force, and what its schedule asked for when the agent evaluated it:
    // up to a switch's allowance before the player said so. Two events seconds apart
    // have the first one's playlist start after the second has passed; the switch to the
    // second is held to its own allowance by the layer's continuous check.
    if (!content_) return;
    bool ok = id == content_->id;
    std::string why = ok ? "" : " (the content in force is " + std::string(content_->id) + ")";
    if (ok && timer_alive_) {
        bool scheduled = false;
        for (double t = at - kEventGrace; t <= at && !scheduled; t += 1) {
            // Whatever the display: an off time and a schedule event together have the
            // content check start the event's playlist a moment before the display's
            // evaluation stops it (the display's own invariant holds that moment).
            Expected e = expected_at(epoch(t), false);
            scheduled = e.layer[layer] == name;
        }
        bool fallback = layer == 0 && index == content_->schedule.defaultpl_index && at - incomplete_at_ < 30;
        ok = scheduled || fallback;
        if (!ok) why = " (the schedule gives " + (expected_.layer[layer].empty() ? "nothing" : expected_.layer[layer]) + ")";
    }
    check(kSchedule, ok, at, what + why);
}

// ---------------------------------------------------------------------------------------
// Calls home

void Checks::arm(double at, Due due)
{
    due_call_ = interval_ > 0 || due == Due::Soon ? due : Due::None;
    armed_at_ = at;
}

void Checks::read_list(double at, const std::string& list)
{
    std::string before = address_;
    bool address_seen = false, interval_seen = false;
    for (std::string line : lines_of(list)) {
        while (!line.empty() && std::strchr(" \t\r\n", line.back())) line.pop_back();
        if (keyword(line, "CallHomeAddress")) {
            address_ = value_of(line, "CallHomeAddress");
            address_seen = true;
            usb_conf_deleted_ = false;
        } else if (keyword(line, "CallHomeInterval")) {
            interval_ = interval_rule(value_of(line, "CallHomeInterval"));
            interval_seen = true;
        } else if (keyword(line, "DeleteFile") || keyword(line, "DeleteAllMedia") ||
                   keyword(line, "DeleteVideoMedia") || keyword(line, "DeleteImageMedia")) {
            deletion_at_ = at;
            // DeleteAllMedia stops the player first, by design, and deletes 5 s later;
            // from then on the scheduled files are missing until they are fetched again.
            if (keyword(line, "DeleteAllMedia"))
                for (int l = 0; l < 2; ++l) {
                    due_[l] = std::max(due_[l], at);
                    grace_[l] = kDocumentGrace;
                    flagged_[l] = false;
                }
        } else if (keyword(line, "DeleteUSBConfigFile")) {
            interval_ = 0;
            usb_conf_deleted_ = true;
            break;  // the list ends there
        } else if (keyword(line, "CheckVersion")) {
            std::string address = value_of(line, "CheckVersion");
            const Served* inf = world_.latest(address.substr(std::min(address.find("/version/"), address.size())));
            if (inf && inf->upgrade) {
                // The upgrade stops calls home; the device reboots when it is done.
                due_call_ = Due::None;
                return;
            }
        }
    }
    if (address_seen && !interval_seen) interval_ = 86400;
    bool soon = address_seen && address_ != before;
    arm(at, soon ? Due::Soon : Due::Interval);
    // An interval line re-arms the countdown where it stands in the list; otherwise it
    // is re-armed (or set to 5 s for a new server) once the list's documents are in.
    arm_at_end_ = soon || !interval_seen;
}

void Checks::read_usb_conf(double at, const std::string& conf, bool soon, bool stick)
{
    bool address_seen = false, interval_seen = false;
    for (const std::string& line : lines_of(conf)) {
        if (keyword(line, "CallHomeAddress")) {
            address_ = value_of(line, "CallHomeAddress");
            address_seen = true;
        } else if (keyword(line, "CallHomeInterval")) {
            interval_ = interval_rule(value_of(line, "CallHomeInterval"));
            interval_seen = true;
        }
    }
    if (address_seen) usb_conf_deleted_ = false;
    if (interval_seen) arm(at, soon ? Due::Soon : Due::Interval);
    else if (address_seen) {
        interval_ = 86400;  // an address alone: a call home a day
        arm(at, Due::Interval);
    } else if (stick) {
        arm(at, Due::Interval);  // the end of the copy re-armed the countdown
    }
}

void Checks::notified(double at, const std::string& what, int media, const std::string& conf)
{
    if (!timer_alive_) return;  // no countdown runs out any more
    read_usb_conf(at, conf, media == 0, what != "call-now");
}

void Checks::call_home(const Request& r)
{
    std::string path = path_of(r.target);
    std::string server = std::string(kServer) + path.substr(0, path.size() - std::strlen("/command.txt"));
    ++calls_per_day_[static_cast<int>(r.at / kDay)];
    call_pending_check_ = true;
    if (!timer_alive_) {
        suspend(kCallsHome);
    } else {
        bool ok = true, unseen = false;
        std::string why;
        if (!address_.empty() && server != address_) {
            ok = false;
            why += ", not to the server in force " + address_;
        }
        // Calls made while the server was down went unseen: the one after may be
        // late against the last one seen, never early.
        bool down_between = server_down_since_ > armed_at_ || server_up_at_ > armed_at_;
        double gap = static_cast<double>(epoch(r.at) - epoch(armed_at_));
        // When the countdown ran out, in device seconds: a clock step forward brings it on.
        double due_at = armed_at_ + static_cast<double>(interval_);
        for (const auto& [t, e] : clock_)
            if (t > armed_at_ && e >= epoch(armed_at_) + interval_) {
                due_at = std::min(due_at, t);
                break;
            }
        if (due_call_ == Due::Soon) due_at = armed_at_;
        // A call home falls due during a download waits for its end.
        double latest = std::max(due_at, last_media_ >= due_at - kCallLate ? last_media_ : due_at) + kCallLate;
        if (due_call_ == Due::None) {
            ok = false;
            why += ", while none is due (interval " + std::to_string(interval_) + ")";
        } else if (due_call_ == Due::Interval && gap < static_cast<double>(interval_) - kCallEarly) {
            ok = false;
            why += ", " + clock_text(gap) + " after the last, the interval " + std::to_string(interval_) + " s";
        } else if (r.at > latest && down_between) {
            unseen = true;
        } else if (r.at > latest) {
            ok = false;
            why += ", " + clock_text(r.at - due_at) + " after it was due";
        }
        bool stepped = !clock_.empty() && clock_.back().first > armed_at_;
        if (due_call_ == Due::Interval && !down_between && !stepped)
            call_lateness_.push_back(gap - static_cast<double>(interval_));
        if (unseen && ok) suspend(kCallsHome);
        else check(kCallsHome, ok, r.at, "call home to " + server + why);
    }
    last_call_ = r.at;
    const Served* list = r.status == 200 ? world_.served(path, r.bytes, r.at) : nullptr;
    arm_at_end_ = false;
    if (list) read_list(r.at, list->bytes);
    else if (due_call_ != Due::None) arm(r.at, Due::Interval);
}

// ---------------------------------------------------------------------------------------

void Checks::request(const Request& r)
{
    std::string path = path_of(r.target);
    if (path.ends_with("/command.txt")) {
        call_home(r);
        return;
    }
    if (arm_at_end_ && (path.ends_with(".xml") || path.ends_with(".inf"))) armed_at_ = std::max(armed_at_, r.at);
    if (path.find("/media/") != std::string::npos) {
        last_media_ = r.at;
        const Medium* m = world_.medium(path.substr(path.rfind('/') + 1));
        if (r.status == 200 && m && r.bytes == m->size) ++downloads_per_day_[static_cast<int>(r.at / kDay)];
        else if (r.faults == "-") ++failed_transfers_;  // cut short with no fault of the server's
        return;
    }
    if (r.status != 200) return;
    const Served* doc = world_.served(path, r.bytes, r.at);
    if (!doc) return;
    if (path.ends_with("/content.xml") && doc->content) adopt_content(r.at, doc->content);
    if (path.ends_with("/config.xml") && doc->config) {
        follow_playback(r.at);
        config_ = doc->config;
        expect_anew(r.at, kDocumentGrace);
    }
}

void Checks::rebooted(double at, const Disk& disk)
{
    disk_ = disk;
    if (at > 0 && !usb_conf_deleted_ && !address_.empty())
        check(kUsbConf, disk.usb_conf.find("CallHomeAddress," + address_) != std::string::npos, at,
              "at the boot USB.CONF holds \"" + disk.usb_conf + "\", not the server in force " + address_);
    timer_alive_ = true;
    upgrading_ = false;
    content_ = disk.saved_content.empty() ? nullptr : World::parse_content(disk.saved_content);
    config_ = disk.saved_config.empty() ? nullptr : World::parse_config(disk.saved_config);
    playing_[0] = playing_[1] = "";
    expected_ = expected_at(epoch(at));
    followed_to_ = at;
    for (int l = 0; l < 2; ++l) {
        due_[l] = at;
        grace_[l] = kBootGrace;
        event_[l] = flagged_[l] = false;
    }
    // The calls home as start-up sets them: USB.CONF read, the first call 10 s on.
    address_.clear();
    interval_ = 0;
    due_call_ = Due::None;
    read_usb_conf(at, disk.usb_conf_present ? disk.usb_conf : "", false, false);
    if (interval_ > 0) arm(at, Due::Soon);
    else due_call_ = Due::None;
    call_pending_check_ = false;
}

void Checks::scan(double at, const Disk& disk)
{
    disk_ = disk;
    std::string partial;
    for (const auto& [name, size] : disk.media) {
        const Medium* m = world_.medium(name);
        if (m && size != m->size)
            partial += " " + name + " is " + std::to_string(size) + " bytes, not " + std::to_string(m->size) + ";";
    }
    check(kPartialMedia, partial.empty(), at, "media folders:" + partial);

    std::map<std::string, std::pair<double, bool>>& stray = stray_;
    std::string outlived;
    for (auto it = stray.begin(); it != stray.end();)
        it = std::find(disk.temporary.begin(), disk.temporary.end(), it->first) == disk.temporary.end() ||
                     disk.transfer_running
                 ? stray.erase(it)
                 : std::next(it);
    if (!disk.transfer_running)
        for (const std::string& path : disk.temporary) {
            auto [it, fresh] = stray.insert({path, {at, false}});
            if (!fresh && !it->second.second && at - it->second.first >= 60) {
                outlived += " " + path + " since " + clock_text(it->second.first) + ";";
                it->second.second = true;
            }
        }
    check(kTemporary, outlived.empty(), at, "left behind:" + outlived);

    // USB.CONF, once the last call home's list has been read.
    if (call_pending_check_ && at - last_call_ >= 30) {
        call_pending_check_ = false;
        if (usb_conf_deleted_ || address_.empty())
            suspend(kUsbConf);
        else
            check(kUsbConf, disk.usb_conf.find("CallHomeAddress," + address_) != std::string::npos, at,
                  "USB.CONF holds \"" + disk.usb_conf + "\", not the server in force " + address_);
    }

    if (!content_) return;
    follow_playback(at);
    if (expected_.waiting[0]) incomplete_at_ = at;
    // Nothing time-driven runs after the clock was set back, nor while the main loop
    // waits for an upgrade that ends in a reboot.
    if (!timer_alive_ || upgrading_) {
        suspend(kSchedule);
        return;
    }
    // Missing files must be on their way: while they are, the content check comes back
    // at least every 605 s and the queue is worked through.
    if (!expected_.waiting[0]) {
        waiting_since_ = -1;
        waiting_flagged_ = false;
    } else if (waiting_since_ < 0) {
        waiting_since_ = at;
    } else {
        double quiet_since = std::max({waiting_since_, last_media_, server_up_at_, disk_full_until_});
        bool excused = disk_full_ || server_down_since_ > server_up_at_;
        if (excused) suspend(kSchedule);
        else if (at - quiet_since > kFetchQuiet && !waiting_flagged_ && !disk_.transfer_running) {
            waiting_flagged_ = true;
            check(kSchedule, false, at,
                  "the scheduled files of " + expected_.layer[0] + " are missing and none has been fetched since " +
                      clock_text(quiet_since));
        }
    }
    for (int l = 0; l < 2; ++l) {
        if (expected_.waiting[l]) continue;
        bool held = due_[l] >= slow_from_ - kSlowFetch && due_[l] <= slow_until_ + kSlowFetch;
        bool ok = playing_[l] == expected_.layer[l] || at - due_[l] <= grace_[l] + (held ? kSlowFetch : 0);
        if (playing_[l] == expected_.layer[l]) flagged_[l] = false;
        if (!ok && flagged_[l]) continue;  // one violation for one stretch
        if (!ok) flagged_[l] = true;
        check(kSchedule, ok, at,
              "layer " + std::to_string(l) + " shows " + (playing_[l].empty() ? "nothing" : playing_[l]) +
                  " since " + clock_text(due_[l]) + "; the schedule gives " +
                  (expected_.layer[l].empty() ? "nothing" : expected_.layer[l]));
    }
}

void Checks::sample(double at, const Sample& s)
{
    samples_.push_back({at, s});
    check(kRunning, s.alive, at, "the agent is not running");
}

void Checks::finish(double at)
{
    double span = std::max(at, 1.0);
    // A day's maximum holds every state the agent passes through daily (a command list
    // open while its documents are fetched, a transfer thread). A window of minutes may
    // miss such a state, so shorter runs hold the last window's least counts to the first
    // window's most: a leak raises the least counts too.
    bool days = span >= 2 * kDay;
    double window = days ? kDay : span / 4;
    for (auto [from, to] : {std::pair{0.0, window}, std::pair{span - window, span}}) {
        Window w{from, to, {true, 0, 0, 0, 0}, {true, 0, 0, 0, 0}};
        bool first = true;
        for (const auto& [t, s] : samples_) {
            if (t < from || t > to || !s.alive) continue;
            w.max.rss_kb = std::max(w.max.rss_kb, s.rss_kb);
            w.max.descriptors = std::max(w.max.descriptors, s.descriptors);
            w.max.threads = std::max(w.max.threads, s.threads);
            w.max.children = std::max(w.max.children, s.children);
            w.min = first ? s : w.min;
            w.min.descriptors = std::min(w.min.descriptors, s.descriptors);
            w.min.threads = std::min(w.min.threads, s.threads);
            w.min.children = std::min(w.min.children, s.children);
            first = false;
        }
        windows_.push_back(w);
    }
    const Sample& first = windows_[0].max;
    const Sample& last = days ? windows_[1].max : windows_[1].min;
    long first_rss = windows_[0].max.rss_kb, last_rss = windows_[1].max.rss_kb;
    long memory_limit = std::max(static_cast<long>(static_cast<double>(first_rss) * (1 + kMemoryTolerance)),
                                 first_rss + kMemorySlackKb);
    if (judge_memory_)
        check(kFootprint, last_rss <= memory_limit, at,
              "resident memory " + std::to_string(last_rss) + " kB at most in the last window, " +
                  std::to_string(first_rss) + " kB in the first");
    else
        suspend(kFootprint);
    const std::string how = days ? " at most" : " at least";  // as compared
    check(kFootprint, last.descriptors <= first.descriptors, at,
          "descriptors" + how + " " + std::to_string(last.descriptors) + " in the last window, " +
              std::to_string(first.descriptors) + " in the first");
    check(kFootprint, last.threads <= first.threads, at,
          "threads" + how + " " + std::to_string(last.threads) + " in the last window, " +
              std::to_string(first.threads) + " in the first");
    check(kFootprint, last.children <= first.children, at,
          "lingering child processes" + how + " " + std::to_string(last.children) + " in the last window, " +
              std::to_string(first.children) + " in the first");
}

}  // namespace soak
