#include "bridge.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <unistd.h>
#include <utility>

#include "sim_log.h"

namespace sim {
namespace {

constexpr std::string_view kEnterprise = "1.3.6.1.4.1.58321.";
constexpr std::string_view kAccessCode = "rivEnOaks7k2";
constexpr std::string_view kPlaylistAddress = "ram::playlist://r";
constexpr std::string_view kLocalAddress = "ide://";

// Objects the agent reads but the player alone changes.
constexpr std::string_view kReadOnly[] = {"3.1.8.0", "3.3.1.0", "3.4.15.0", "3.5.13.0"};

// The type each object the agent sets must be given with; a set with the other letter
// is refused, as the bridge refuses it. Objects not listed take either.
struct Typed {
    std::string_view oid;
    char letter;
};
constexpr Typed kTyped[] = {
    {"3.2.9.0", 'i'},  {"3.3.9.0", 'i'},  {"3.3.23.0", 'i'}, {"3.3.24.0", 'i'},
    {"3.3.25.0", 'i'}, {"3.3.26.0", 'i'}, {"3.3.27.0", 'i'}, {"3.3.30.0", 'i'},
    {"3.5.7.0", 'i'},  {"3.5.11.0", 'i'}, {"3.5.17.0", 'i'}, {"3.5.35.0", 'i'},
    {"3.3.5.0", 's'},  {"3.3.32.0", 's'}, {"3.5.8.0", 's'},  {"3.5.15.0", 's'},
    {"3.5.16.0", 's'}, {"3.5.21.0", 's'}, {"3.5.22.0", 's'}, {"3.5.80.0", 's'},
};

// Progress values of 3.4.15.0: under way, and the end for success and for failure.
struct ProgressValues {
    int first, last;  // under way: rising from first to last over the reads
    int ok, failed;
};
ProgressValues progress_values(UpgradeKind kind)
{
    switch (kind) {
    case UpgradeKind::Firmware:
    case UpgradeKind::Software: return {241, 244, 240, 245};
    case UpgradeKind::Xapp: return {145, 145, 144, 146};
    case UpgradeKind::Splash: return {255, 255, 1, 2};
    case UpgradeKind::None: break;
    }
    return {0, 0, 0, 0};
}

const char* kind_name(UpgradeKind kind)
{
    switch (kind) {
    case UpgradeKind::Firmware: return "firmware";
    case UpgradeKind::Software: return "software";
    case UpgradeKind::Xapp: return "xapp";
    case UpgradeKind::Splash: return "splash";
    case UpgradeKind::None: break;
    }
    return "none";
}

bool all_digits(std::string_view s)
{
    return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool parse_long(std::string_view s, long& out)
{
    std::string text(s);
    if (text.empty() || text.size() > 20) return false;
    errno = 0;
    char* end = nullptr;
    out = std::strtol(text.c_str(), &end, 10);
    return errno == 0 && end != nullptr && *end == '\0' && end != text.c_str();
}

std::string_view trim(std::string_view s)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// The player's report is split at "," and "%": keep them out of the free texts, and keep
// each text short enough that both layers fit one reply.
std::string report_text(std::string_view s, std::size_t limit)
{
    std::string out(s.substr(0, limit));
    std::replace(out.begin(), out.end(), ',', '_');
    std::replace(out.begin(), out.end(), '%', '_');
    return out;
}

bool ieq(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return (x | 0x20) == (y | 0x20);
           });
}

std::string bad_request(std::string_view why) { return "Error in request: " + std::string(why); }

}  // namespace

std::string short_oid(std::string_view oid)
{
    if (!oid.empty() && oid.front() == '.') oid.remove_prefix(1);
    // Numbers separated by single dots, nothing else.
    std::size_t start = 0;
    for (;;) {
        std::size_t dot = oid.find('.', start);
        if (!all_digits(oid.substr(start, dot == std::string_view::npos ? dot : dot - start)))
            return {};
        if (dot == std::string_view::npos) break;
        start = dot + 1;
    }
    if (oid.substr(0, kEnterprise.size()) == kEnterprise) oid.remove_prefix(kEnterprise.size());
    return std::string(oid);
}

Bridge::Bridge(std::string playlist_dir, std::string startup_dir, UpgradeOutcomes outcomes)
    : playlist_dir_(std::move(playlist_dir)), startup_dir_(std::move(startup_dir)), outcomes_(outcomes)
{
    store_["3.4.15.0"] = {Kind::Integer, "0"};  // no upgrade under way
}

bool Bridge::set_value(std::string_view oid, Value value)
{
    std::string key = short_oid(oid);
    if (key.empty()) return false;
    store_[key] = std::move(value);
    return true;
}

std::string Bridge::layers_report() const
{
    auto one = [](const Layer& l) {
        std::string code = std::to_string(l.code);
        if (!l.loaded) return l.state + "," + l.item + "," + code;
        return l.file + "," + l.name + "," + l.state + "," + l.item + "," + code;
    };
    return one(layers_[0]) + "%" + one(layers_[1]);
}

std::string Bridge::get(std::string_view oid)
{
    std::string key = short_oid(oid);
    if (key.empty()) return bad_request("not an object identifier");
    std::string head = std::string(oid) + " = ";
    if (key == "3.3.1.0") return head + "STRING: \"" + layers_report() + "\"";
    if (key == "3.4.15.0" && upgrade_ != UpgradeKind::None)
        return head + "INTEGER: " + std::to_string(progress());
    auto it = store_.find(key);
    if (it == store_.end()) return head + "No Such Object available on this agent at this OID";
    const Value& v = it->second;
    switch (v.kind) {
    case Kind::Integer: return head + "INTEGER: " + v.text;
    case Kind::String: return head + "STRING: \"" + v.text + "\"";
    case Kind::HexString: return head + "Hex-STRING: " + v.text + " ";
    }
    return head;
}

std::string Bridge::set(std::string_view command)
{
    // "<oid> <letter> <value>"; the value may hold blanks, or be empty.
    std::size_t blank = command.find(' ');
    if (blank == std::string_view::npos || blank + 2 > command.size() ||
        (blank + 2 < command.size() && command[blank + 2] != ' '))
        return bad_request("expected an identifier, a type letter and a value");
    std::string_view oid = command.substr(0, blank);
    char letter = command[blank + 1];
    std::string_view text = blank + 3 <= command.size() ? command.substr(blank + 3) : "";
    std::string key = short_oid(oid);
    if (key.empty()) return bad_request("not an object identifier");
    if (std::find(std::begin(kReadOnly), std::end(kReadOnly), key) != std::end(kReadOnly))
        return "Error in packet: notWritable (that object does not support modification)";
    for (const Typed& t : kTyped)
        if (t.oid == key && t.letter != letter)
            return "Error in packet: wrongType (the object takes the type letter " +
                   std::string(1, t.letter) + ")";

    Value value;
    long number = 0;
    if (letter == 'i') {
        if (!parse_long(text, number)) return bad_request("not an integer value");
        value = {Kind::Integer, std::to_string(number)};
    } else if (letter == 's') {
        // The bridge takes a quoted text as the text inside the quotes.
        if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
            text = text.substr(1, text.size() - 2);
        value = {Kind::String, std::string(text)};
    } else {
        return bad_request("unknown type letter");
    }

    if (key == "3.3.30.0") {
        if (number != 0 && number != 1) return bad_request("no such layer");
        selected_layer_ = static_cast<int>(number);
    } else if (key == "3.3.23.0") {
        if (number != 0 && number != 1) return bad_request("no such coordinate mode");
        pixels_ = number == 1;
    } else if (key == "3.3.32.0") {
        std::string_view rest = text.substr(0, kPlaylistAddress.size()) == kPlaylistAddress
                                    ? text.substr(kPlaylistAddress.size())
                                    : std::string_view();
        long slot = 0;
        if (!all_digits(rest) || !parse_long(rest, slot) || slot > 999)
            return bad_request("not a RAM playlist address");
        // The area set before the start, in the coordinate mode set for it: a mode
        // applies to the one start that follows it, after which percent holds again.
        auto stored = [this](const char* object, const char* unset) {
            auto it = store_.find(object);
            return it == store_.end() ? std::string(unset) : it->second.text;
        };
        std::string area = stored("3.3.26.0", "100") + "x" + stored("3.3.27.0", "100") + "+" +
                           stored("3.3.24.0", "0") + "+" + stored("3.3.25.0", "0") +
                           (pixels_ ? " units=pixels" : " units=percent");
        pixels_ = false;
        play(selected_layer_, playlist_dir_, "r" + std::to_string(slot), area);
    } else if (key == "3.3.5.0") {
        // The player's own start-up list, full screen on the video layer: what it plays
        // after a resolution change has stopped both layers.
        if (text.size() < 2 || text.front() != 'h' || !all_digits(text.substr(1)))
            return bad_request("not a start-up list");
        play(0, startup_dir_, std::string(text), "100x100+0+0 units=percent");
    } else if (key == "3.3.9.0") {
        // 7 stops both layers, 17 the video layer, 33 the browser layer; 1 comes before
        // all media is deleted and stops both as well.
        if (number == 7 || number == 1 || number == 17) stop_layer(0);
        if (number == 7 || number == 1 || number == 33) stop_layer(1);
    } else if ((key == "3.5.15.0" || key == "3.5.16.0") && text == " ") {
        value.text.clear();  // a lone blank clears the time server: it reports none
    } else if (key == "3.5.8.0") {
        start_upgrade(UpgradeKind::Firmware, text);
    } else if (key == "3.5.22.0") {
        start_upgrade(UpgradeKind::Software, text);
    } else if (key == "3.5.80.0") {
        // "<access code>;downloadxapp;<url>" or "<access code>;downloadsplash;<url>"
        std::size_t first = text.find(';');
        std::size_t second = first == std::string_view::npos ? first : text.find(';', first + 1);
        if (second == std::string_view::npos || text.substr(0, first) != kAccessCode)
            return bad_request("privileged command refused");
        std::string_view verb = text.substr(first + 1, second - first - 1);
        if (verb == "downloadxapp") start_upgrade(UpgradeKind::Xapp, text.substr(second + 1));
        else if (verb == "downloadsplash") start_upgrade(UpgradeKind::Splash, text.substr(second + 1));
        else return bad_request("unknown privileged command");
    }

    store_[key] = value;
    if (value.kind == Kind::Integer) return std::string(oid) + " = INTEGER: " + value.text;
    return std::string(oid) + " = STRING: \"" + value.text + "\"";
}

std::vector<std::string> Bridge::take_events() { return std::exchange(events_, {}); }

void Bridge::play(int layer, const std::string& dir, const std::string& file, const std::string& area)
{
    layers_[layer] = read_playlist(dir, file, layer);
    events_.push_back("state layer=" + std::to_string(layer) + " report=" + quoted(layers_report()) +
                      " area=" + area);
}

void Bridge::stop_layer(int layer)
{
    layers_[layer] = Layer{};
    events_.push_back("state layer=" + std::to_string(layer) + " report=" + quoted(layers_report()));
}

void Bridge::start_upgrade(UpgradeKind kind, std::string_view url)
{
    upgrade_ = kind;
    progress_reads_ = 0;
    // An "ide://" address is a file the player reads from its own disk, there and then:
    // without it the upgrade fails, whatever outcome was chosen.
    std::string source;
    source_missing_ = false;
    if (url.substr(0, kLocalAddress.size()) == kLocalAddress) {
        std::string path(url.substr(kLocalAddress.size()));
        source_missing_ = access(path.c_str(), R_OK) != 0;
        source = source_missing_ ? " file=missing" : " file=present";
    }
    events_.push_back(std::string("upgrade kind=") + kind_name(kind) + " phase=start url=" +
                      quoted(url) + source);
}

int Bridge::progress()
{
    ProgressValues v = progress_values(upgrade_);
    int read = progress_reads_;
    if (progress_reads_ <= outcomes_.polls) ++progress_reads_;
    if (read < outcomes_.polls) return v.first + (v.last - v.first + 1) * read / outcomes_.polls;

    bool ok = upgrade_ == UpgradeKind::Firmware   ? outcomes_.firmware_ok
              : upgrade_ == UpgradeKind::Software ? outcomes_.software_ok
              : upgrade_ == UpgradeKind::Xapp     ? outcomes_.xapp_ok
                                                  : outcomes_.splash_ok;
    ok = ok && !source_missing_;
    int end = ok ? v.ok : v.failed;
    if (read == outcomes_.polls)
        events_.push_back(std::string("upgrade kind=") + kind_name(upgrade_) +
                          " phase=end outcome=" + (ok ? "ok" : "fail") +
                          " value=" + std::to_string(end));
    return end;
}

Bridge::Layer Bridge::read_playlist(const std::string& dir, const std::string& file, int on_layer) const
{
    Layer layer;
    layer.loaded = true;
    layer.file = file;
    // Anything wrong with the file shows as the layer's error state, never as a crash.
    auto error = [&layer](std::string why) {
        layer.state = "Error";
        layer.item = report_text(why, 100);
        layer.code = 0;
        return layer;
    };

    std::string path = dir + "/" + file;
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) return error("cannot open " + path);
    if (in.tellg() > std::streamoff{1} << 20) return error("file too large");
    in.seekg(0);
    constexpr std::size_t kMaxLine = 1024;
    constexpr int kMaxLines = 10000;

    enum class Section { None, Control, List } section = Section::None;
    bool has_name = false, has_list = false, has_entry = false;
    std::string line;
    for (int number_of_line = 1; std::getline(in, line); ++number_of_line) {
        if (number_of_line > kMaxLines) return error("too many lines");
        if (line.size() > kMaxLine) return error("line " + std::to_string(number_of_line) + " too long");
        std::string_view l = trim(line);
        if (std::any_of(l.begin(), l.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\t'; }))
            return error("unreadable line " + std::to_string(number_of_line));
        if (l.empty()) continue;
        if (section == Section::None && l != "[Control]") return error("no [Control] section");
        if (l == "[Control]") { section = Section::Control; continue; }
        if (l == "[List]") { section = Section::List; has_list = true; continue; }
        std::size_t eq = l.find('=');
        if (eq == std::string_view::npos) return error("bad line " + std::to_string(number_of_line));
        std::string_view key = trim(l.substr(0, eq));
        std::string_view value = trim(l.substr(eq + 1));
        if (section == Section::Control && ieq(key, "Name")) {
            layer.name = report_text(value, 128);
            has_name = true;
        } else if (section == Section::Control && ieq(key, "LayerType")) {
            // A video list plays on the video layer only, a layout on the browser layer.
            const char* wanted = on_layer == 0 ? "Video" : "Browser";
            if (!ieq(value, wanted))
                return error(report_text(value, 20) + " list on the " + (on_layer == 0 ? "video" : "browser") +
                             " layer");
        } else if (section == Section::List && !has_entry) {
            // "ENTRYn = VIDEO, a.mpg", "... = PICTURE, b.jpg,duration=10", "... = BROWSER, url,..."
            std::size_t comma = value.find(',');
            std::string_view type = trim(value.substr(0, comma));
            if (comma != std::string_view::npos &&
                (ieq(type, "VIDEO") || ieq(type, "PICTURE") || ieq(type, "BROWSER"))) {
                std::string_view rest = value.substr(comma + 1);
                layer.item = report_text(trim(rest.substr(0, rest.find(','))), 255);
                has_entry = true;
            }
        }
    }
    if (!has_name) return error("no Name line");
    if (!has_list) return error("no [List] section");
    if (has_entry) {
        layer.state = "Playing";
        layer.code = 1;
    } else {
        layer.state = "Empty";  // a playlist of nothing but its LOOP line
        layer.code = 0;
    }
    return layer;
}

}  // namespace sim
