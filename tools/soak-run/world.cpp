#include "world.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

namespace soak {
namespace {

const char* const kDays[] = {"su", "mo", "tu", "we", "th", "fr", "sa"};

void write_file(const std::string& path, const std::string& bytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    // Beside it, then renamed: the server never hands out half a file.
    std::string part = path + ".part";
    if (!(std::ofstream(part, std::ios::binary | std::ios::trunc) << bytes))
        throw std::runtime_error("cannot write " + part);
    std::filesystem::rename(part, path);
}

// A medium's bytes: its name over and over, so a file cut short or mixed up with
// another shows.
std::string medium_bytes(const Medium& m)
{
    std::string unit = m.name + " soak medium\n", bytes;
    bytes.reserve(m.size);
    while (bytes.size() < m.size) bytes += unit;
    bytes.resize(m.size);
    return bytes;
}

std::string md5_of(const std::string& path)
{
    std::string command = "md5sum '" + path + "'";
    std::FILE* p = popen(command.c_str(), "r");
    if (p == nullptr) return "";
    char digest[33] = "";
    if (std::fscanf(p, "%32s", digest) != 1) digest[0] = '\0';
    pclose(p);
    return digest;
}

std::string stamp(std::time_t t)
{
    std::tm tm{};
    localtime_r(&t, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &tm);
    return text;
}

std::string clock_time(int minutes) { return std::to_string(minutes / 60) + ":" + (minutes % 60 < 10 ? "0" : "") + std::to_string(minutes % 60); }

std::string type_word(const std::string& folder)
{
    return folder == "video" ? "video" : folder == "picture" ? "image" : "html";
}

std::string strip_second_address(const std::string& path)
{
    return path.starts_with("/site2/") ? path.substr(6) : path;
}

}  // namespace

const char* list_form_name(ListForm form)
{
    switch (form) {
    case ListForm::AddressAndInterval: return "address in use and interval";
    case ListForm::IntervalOnly: return "interval only";
    case ListForm::AddressOnly: return "address in use, no interval";
    case ListForm::NewServer: return "a new server";
    case ListForm::DeleteFile: return "DeleteFile";
    case ListForm::DeleteAllMedia: return "DeleteAllMedia";
    case ListForm::DeleteVideoMedia: return "DeleteVideoMedia";
    case ListForm::DeleteImageMedia: return "DeleteImageMedia";
    case ListForm::CheckVersionUpgrade: return "CheckVersion with an upgrade";
    case ListForm::CheckVersionCurrent: return "CheckVersion, nothing newer";
    case ListForm::DeleteUsbConfig: return "DeleteUSBConfigFile";
    }
    return "?";
}

World::World(std::uint64_t seed, bool calm) : rng_(seed), calm_(calm)
{
    std::filesystem::create_directories(kServerRoot);
    std::filesystem::create_directories(kHarnessDir);
    // The second address is the same folder.
    std::filesystem::create_directory_symlink(".", std::string(kServerRoot) + "/site2");
    // The version files a CheckVersion line names: newer firmware than the player's
    // 0x210, and the firmware it has.
    put(0, "/version/up.inf", "FW:0x0300," + std::string(kServer) + "/version/fw.bin\r\n");
    put(0, "/version/same.inf", "FW:0x0210," + std::string(kServer) + "/version/fw.bin\r\n");
}

int World::pick(int low, int high)
{
    return low + static_cast<int>(rng_() % static_cast<std::uint64_t>(high - low + 1));
}

std::string World::new_medium(const std::string& folder, std::uint32_t low, std::uint32_t high)
{
    const char* ext = folder == "video" ? ".mp4" : folder == "picture" ? ".jpg" : ".html";
    Medium m{"m" + std::to_string(++media_count_) + ext, folder,
             static_cast<std::uint32_t>(pick(static_cast<int>(low), static_cast<int>(high)))};
    media_.push_back(m);
    write_file(std::string(kServerRoot) + "/media/" + m.name, medium_bytes(m));
    return m.name;
}

const Medium* World::medium(const std::string& name) const
{
    auto it = std::find_if(media_.begin(), media_.end(), [&](const Medium& m) { return m.name == name; });
    return it == media_.end() ? nullptr : &*it;
}

void World::publish_content(double at, std::time_t now, bool corrupt)
{
    int k = ++content_count_;
    std::string id = "soak-content-" + std::to_string(k);

    // Media: some of the last content's, and new ones.
    std::vector<std::string> names;
    if (!content_media_.empty())
        for (const std::string& name : content_media_.back())
            if (medium(name)->folder != "html/browser" && pick(0, 1) == 1) names.push_back(name);
    for (int n = pick(1, 3); n > 0; --n)
        names.push_back(pick(0, 2) == 0 ? new_medium("picture", 10000, 300000) : new_medium("video", 20000, 1500000));
    std::vector<std::string> files;  // in the document's order
    auto findex = [&](const std::string& name) {
        auto it = std::find(files.begin(), files.end(), name);
        if (it != files.end()) return static_cast<int>(it - files.begin());
        files.push_back(name);
        return static_cast<int>(files.size() - 1);
    };

    std::string doc = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<content id=\"" + id + "\" name=\"Soak " +
                      std::to_string(k) + "\">\n";
    int playlists = pick(2, 4);
    for (int p = 0; p < playlists; ++p) {
        doc += "  <playlist pindex=\"" + std::to_string(p) + "\" name=\"List " + std::to_string(p) + "\">\n";
        for (int n = pick(1, 3); n > 0; --n) {
            const std::string& name = names[static_cast<std::size_t>(pick(0, static_cast<int>(names.size()) - 1))];
            bool picture = medium(name)->folder == "picture";
            doc += "    <pl_item type=\"" + std::string(picture ? "image" : "video") + "\" findex=\"" +
                   std::to_string(findex(name)) + "\" dur=\"" + (picture ? "10" : "0") + "\"/>\n";
        }
        doc += "  </playlist>\n";
    }
    int layouts = pick(0, 2);
    std::string layout_text;
    for (int l = 0; l < layouts; ++l) {
        std::string page = new_medium("html/browser", 600, 3000);
        layout_text += "  <layout lindex=\"" + std::to_string(l) + "\" name=\"Board " + std::to_string(l) +
                       "\">\n    <vid_area_1080 x=\"0\" y=\"0\" width=\"1280\" height=\"1080\"/>\n"
                       "    <vid_area_720 x=\"0\" y=\"0\" width=\"853\" height=\"720\"/>\n"
                       "    <vid_area_pct x=\"0\" y=\"0\" width=\"67\" height=\"100\"/>\n"
                       "    <layout_files><lo_file findex=\"" +
                       std::to_string(findex(page)) +
                       "\" type=\"html\"/></layout_files>\n"
                       "    <layout_playlist><lo_pl_item url=\"ide:///mnt/hd4/html/browser/" +
                       page + "\" dur=\"0\"/></layout_playlist>\n  </layout>\n";
    }

    doc += "  <files>\n";
    for (std::size_t i = 0; i < files.size(); ++i) {
        const Medium& m = *medium(files[i]);
        std::string path = std::string(kServerRoot) + "/media/" + m.name;
        doc += "    <f_item findex=\"" + std::to_string(i) + "\" type=\"" + type_word(m.folder) +
               "\" server_id=\"0\" file=\"" + m.name + "\" size=\"" + std::to_string(m.size) +
               "\" path=\"/media\" md5=\"" + md5_of(path) + "\"/>\n";
    }
    doc += "  </files>\n";

    // The schedule: the default between items; daily windows by day items over a
    // period around now, and single stretches in the coming hours.
    doc += "  <schedule default_pindex=\"0\" default_lindex=\"-1\">\n";
    std::time_t day = now - now % 86400;
    // Calm: a few minutes of one playlist or another every ten minutes, for an hour.
    for (int n = 0; calm_ && n < 6; ++n) {
        std::time_t from = now + (10 * n + pick(3, 6)) * 60;
        from -= from % 60;
        doc += "    <sched_item pindex=\"" + std::to_string(pick(1, playlists - 1)) + "\" lindex=\"-1\" start=\"" +
               stamp(from) + "\" end=\"" + stamp(from + pick(2, 4) * 60) + "\"/>\n";
    }
    for (int items = calm_ ? 0 : pick(3, 6); items > 0; --items) {
        int pindex = pick(1, playlists - 1);
        int lindex = layouts > 0 && pick(0, 2) == 0 ? pick(0, layouts - 1) : -1;
        std::string head = "    <sched_item pindex=\"" + std::to_string(pindex) + "\" lindex=\"" +
                           std::to_string(lindex) + "\" ";
        if (pick(0, 1) == 0) {
            doc += head + "start=\"" + stamp(day - 86400) + "\" end=\"" + stamp(day + 15 * 86400) + "\">\n";
            int on = pick(6 * 60, 21 * 60), off = on + pick(20, 180);
            if (off >= 24 * 60) off = 24 * 60 - 1;
            for (const char* d : kDays)
                doc += std::string("      <day_item day=\"") + d + "\" mode=\"on\" time=\"" + clock_time(on) +
                       "\"/>\n      <day_item day=\"" + d + "\" mode=\"off\" time=\"" + clock_time(off) + "\"/>\n";
            doc += "    </sched_item>\n";
        } else {
            // A stretch in the coming hours, most likely before the next document.
            std::time_t from = now + pick(10, 5 * 60) * 60;
            from -= from % 60;
            doc += head + "start=\"" + stamp(from) + "\" end=\"" + stamp(from + pick(15, 120) * 60) + "\"/>\n";
        }
    }
    doc += "  </schedule>\n  <servers><server_item id=\"0\" addr=\"$DCMSERVER$/media/$FILE$\"/></servers>\n" +
           layout_text + "</content>\n";

    if (corrupt) doc.resize(doc.size() * static_cast<std::size_t>(pick(30, 80)) / 100);
    else content_media_.push_back(files);
    put(at, "/content.xml", doc);
    content_id_ = id;
    publish_everyday_list(at);
}

void World::publish_config(double at, bool corrupt)
{
    int k = ++config_count_;
    std::string id = "soak-config-" + std::to_string(k);
    std::string doc = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<configuration id=\"" + id + "\">\n";
    // The player's own time server, now and then another: set, stored, and a reboot.
    doc += std::string("  <pri_ts server=\"") + (!calm_ && pick(0, 5) == 0 ? "ntp.soak.example" : "pool.ntp.org") + "\"/>\n";
    doc += "  <timezone tz=\"" + std::to_string(pick(0, 3)) + "\"/>\n";
    // Logging switched on is a reboot too, and a log upload every few hours.
    if (!calm_ && pick(0, 5) == 0)
        doc += "  <logging enable=\"true\" server=\"ftp://logs.soak.example\" interval=\"" + std::to_string(pick(1, 6)) +
               "\" auto_offset=\"true\"/>\n";
    else
        doc += "  <logging enable=\"false\"/>\n";
    if (!calm_ && pick(0, 3) > 0) {
        doc += "  <auto_on_off enable=\"true\">\n";
        for (const char* d : kDays) {
            int on = pick(4 * 60, 8 * 60), off = pick(20 * 60, 23 * 60 + 50);
            doc += std::string("    <aoo_item day=\"") + d + "\" mode=\"on\" time=\"" + clock_time(on) +
                   "\"/>\n    <aoo_item day=\"" + d + "\" mode=\"off\" time=\"" + clock_time(off) + "\"/>\n";
        }
        doc += "  </auto_on_off>\n";
    } else {
        doc += "  <auto_on_off enable=\"false\"></auto_on_off>\n";
    }
    doc += "</configuration>\n";
    if (corrupt) doc.resize(doc.size() * static_cast<std::size_t>(pick(30, 80)) / 100);
    put(at, "/config.xml", doc);
    config_id_ = id;
    publish_everyday_list(at);
}

void World::publish_list(double at, ListForm form, int interval)
{
    ++list_count_;
    if (form == ListForm::NewServer) address_ = address_ == kServer ? kOtherServer : kServer;
    bool address = form != ListForm::IntervalOnly;
    bool with_interval = form != ListForm::AddressOnly;
    if (form == ListForm::AddressAndInterval || form == ListForm::IntervalOnly || form == ListForm::NewServer)
        interval_ = interval;
    std::string list;
    if (form == ListForm::DeleteUsbConfig) {
        // Nothing after it is read.
        list = "DeleteUSBConfigFile\r\n";
    } else {
        if (address) list += "CallHomeAddress," + address_ + "\r\n";
        if (with_interval) list += "CallHomeInterval," + std::to_string(interval_) + "\r\n";
        switch (form) {
        case ListForm::DeleteFile: list += "DeleteFile," + old_medium() + "\r\n"; break;
        case ListForm::DeleteAllMedia: list += "DeleteAllMedia\r\n"; break;
        case ListForm::DeleteVideoMedia: list += "DeleteVideoMedia\r\n"; break;
        case ListForm::DeleteImageMedia: list += "DeleteImageMedia\r\n"; break;
        default: break;
        }
        if (!config_id_.empty()) list += "ConfigID," + config_id_ + "\r\n";
        if (!content_id_.empty()) list += "ContentID," + content_id_ + "\r\n";
        // Last: an upgrade ends the list where it stands.
        if (form == ListForm::CheckVersionUpgrade) list += "CheckVersion," + address_ + "/version/up.inf\r\n";
        if (form == ListForm::CheckVersionCurrent) list += "CheckVersion," + address_ + "/version/same.inf\r\n";
    }
    put(at, "/command.txt", list);
}

std::string World::old_medium()
{
    if (content_media_.size() < 3) return "none.jpg";
    const auto& old = content_media_[static_cast<std::size_t>(pick(0, static_cast<int>(content_media_.size()) - 3))];
    std::set<std::string> recent(content_media_.back().begin(), content_media_.back().end());
    recent.insert(content_media_.end()[-2].begin(), content_media_.end()[-2].end());
    for (const std::string& name : old)
        if (!recent.contains(name)) return name;
    return "none.jpg";
}

void World::prune_server_media()
{
    std::set<std::string> keep;
    for (std::size_t i = content_media_.size() > 4 ? content_media_.size() - 4 : 0; i < content_media_.size(); ++i)
        keep.insert(content_media_[i].begin(), content_media_[i].end());
    // The latest document, corrupt or not, may name media no whole document names yet.
    for (const Medium& m : media_)
        if (static_cast<int>(&m - media_.data()) >= static_cast<int>(media_.size()) - 6) keep.insert(m.name);
    for (const Medium& m : media_)
        if (!keep.contains(m.name)) std::filesystem::remove(std::string(kServerRoot) + "/media/" + m.name);
}

void World::put(double at, const std::string& path, std::string bytes)
{
    auto& versions = served_[path];
    // A fetch is matched to its version by its size: two versions in a row differ.
    if (!versions.empty() && versions.back().size == bytes.size()) bytes += "\n";
    write_file(kServerRoot + path, bytes);
    Served s{path, bytes.size(), at, bytes, nullptr, nullptr, false};
    if (path == "/content.xml") s.content = parse_content(bytes);
    if (path == "/config.xml") s.config = parse_config(bytes);
    if (path.ends_with(".inf")) s.upgrade = bytes.starts_with("FW:0x0300");
    versions.push_back(std::move(s));
}

const Served* World::served(const std::string& path, long long bytes, double at) const
{
    auto it = served_.find(strip_second_address(path));
    if (it == served_.end()) return nullptr;
    for (auto v = it->second.rbegin(); v != it->second.rend(); ++v) {
        if (v->at > at + 1) continue;  // published after the answer went out
        if (static_cast<long long>(v->size) == bytes) return &*v;
        if (v->at < at - 10) return nullptr;  // the version then in force, not sent whole
    }
    return nullptr;
}

void World::save(const std::string& dir) const
{
    std::filesystem::create_directories(dir);
    for (const auto& [path, versions] : served_)
        for (const Served& v : versions)
            std::ofstream(dir + "/" + std::to_string(static_cast<long>(v.at)) + "-" +
                          std::filesystem::path(path).filename().string(), std::ios::binary)
                << v.bytes;
}

const Served* World::latest(const std::string& path) const
{
    auto it = served_.find(strip_second_address(path));
    return it == served_.end() || it->second.empty() ? nullptr : &it->second.back();
}

std::shared_ptr<DRAVIK_CONTENT> World::content_by_id(const std::string& id) const
{
    auto it = served_.find("/content.xml");
    if (it == served_.end()) return nullptr;
    for (auto v = it->second.rbegin(); v != it->second.rend(); ++v)
        if (v->content && id == v->content->id) return v->content;
    return nullptr;
}

std::shared_ptr<DRAVIK_CONTENT> World::parse_content(const std::string& bytes)
{
    std::string path = std::string(kHarnessDir) + "/parse.xml";
    write_file(path, bytes);
    if (dA_ParseContent(path.c_str()) != 0 || dA_Content()->id[0] == '\0') return nullptr;
    return std::make_shared<DRAVIK_CONTENT>(*dA_Content());
}

std::shared_ptr<DRAVIK_CONFIGURATION_CH> World::parse_config(const std::string& bytes)
{
    std::string path = std::string(kHarnessDir) + "/parse.xml";
    write_file(path, bytes);
    if (dA_ParseConfigurationCH(path.c_str()) != 0 || dA_ConfigurationCH()->id[0] == '\0') return nullptr;
    return std::make_shared<DRAVIK_CONFIGURATION_CH>(*dA_ConfigurationCH());
}

}  // namespace soak
