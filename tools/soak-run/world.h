#pragma once
// What the soak's server hands out, and the memory of everything it ever handed out:
// content documents (new ids, media, schedules and layouts every few device hours),
// configuration documents (on/off times, time zone, logging, time servers), command
// lists in the forms servers send, version files, and the media the documents name.
//
//   World world(rng_seed, start)          the first content, configuration and list
//   world.publish_content(...) ...        a new document in the server's folder
//   world.served(path, bytes, at)         which published version a fetch got
//   world.media()                         every medium ever named: name, folder, size
//
// Every document is also read with the agent's own parsers, so the soak knows what the
// agent will make of it (a corrupt document is one the agent's parser refuses).
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "xml/dravikAPI.h"

namespace soak {

// The server's folder (cms-sim's root); /site2 is the same folder under a second
// address, so that a command list can move the device to "another server".
inline constexpr const char* kServerRoot = "/tmp/cms";
inline constexpr const char* kServer = "http://127.0.0.1:8080";
inline constexpr const char* kOtherServer = "http://127.0.0.1:8080/site2";
// The soak's own files inside the sandbox; a reboot of the device leaves them alone.
inline constexpr const char* kHarnessDir = "/tmp/harness";

struct Medium {
    std::string name;
    std::string folder;  // where the agent keeps it: video, picture or html/browser
    std::uint32_t size;
};

// One version of a file the server handed out.
struct Served {
    std::string path;  // below the server's root, e.g. "/content.xml"
    std::size_t size;
    double at;  // device second it was published
    std::string bytes;
    // What the agent makes of it: a content or configuration record (null for a
    // document its parser refuses), a command list's lines, a version file's offer.
    std::shared_ptr<DRAVIK_CONTENT> content;
    std::shared_ptr<DRAVIK_CONFIGURATION_CH> config;
    bool upgrade = false;  // a version file that offers newer firmware
};

// The shape of a command list.
enum class ListForm {
    AddressAndInterval,  // the server in use and an interval: the everyday list
    IntervalOnly,
    AddressOnly,         // the server in use, no interval: the interval becomes a day
    NewServer,           // the other address and an interval
    DeleteFile,          // an old medium deleted, besides the everyday lines
    DeleteAllMedia,
    DeleteVideoMedia,
    DeleteImageMedia,
    CheckVersionUpgrade,  // a version file offering newer firmware: upgrade, reboot
    CheckVersionCurrent,  // one offering what the player has: nothing happens
    DeleteUsbConfig,      // USB.CONF removed and calls home stopped
};
const char* list_form_name(ListForm form);

class World {
public:
    // `calm`: for measuring the clock's speed, documents that keep the display on and
    // schedule a switch every few minutes.
    explicit World(std::uint64_t seed, bool calm = false);

    // A new content document (id and media of its own, some media of the last one,
    // schedule items around `now`) or a corrupt one (cut short: the parser refuses it);
    // published with a command list naming it.
    void publish_content(double at, std::time_t now, bool corrupt);
    // A new configuration document, or a corrupt one.
    void publish_config(double at, bool corrupt);
    // A command list of `form`, naming the documents in force; `interval` in seconds.
    void publish_list(double at, ListForm form, int interval);
    // The everyday list again, at the interval last published.
    void publish_everyday_list(double at) { publish_list(at, ListForm::AddressAndInterval, interval_); }
    // The server's address in the lists (kServer or kOtherServer).
    const std::string& address() const { return address_; }
    void set_address(const std::string& address) { address_ = address; }
    int interval() const { return interval_; }

    // The version of `path` (below either address) that a fetch ending at device second
    // `at` with `bytes` in its body got: null when none was whole (cut short).
    const Served* served(const std::string& path, long long bytes, double at) const;
    const Served* latest(const std::string& path) const;
    // The last good content document published with this id, or null.
    std::shared_ptr<DRAVIK_CONTENT> content_by_id(const std::string& id) const;
    const std::vector<Medium>& media() const { return media_; }
    const Medium* medium(const std::string& name) const;
    // A medium named by a content older than the last two, for DeleteFile lines.
    std::string old_medium();
    // Removes from the server's folder the media that the last few contents no longer
    // name: the folder is on the sandbox's small /tmp.
    void prune_server_media();

    // Every version handed out, as files "<device second>-<name>" in `dir`.
    void save(const std::string& dir) const;

    // The agent's parsers on a document's bytes (for the saved copies on the disk too).
    static std::shared_ptr<DRAVIK_CONTENT> parse_content(const std::string& bytes);
    static std::shared_ptr<DRAVIK_CONFIGURATION_CH> parse_config(const std::string& bytes);

private:
    void put(double at, const std::string& path, std::string bytes);
    std::string new_medium(const std::string& folder, std::uint32_t low, std::uint32_t high);
    int pick(int low, int high);  // uniformly, both ends included

    std::mt19937_64 rng_;
    bool calm_;
    int content_count_ = 0, config_count_ = 0, media_count_ = 0, list_count_ = 0;
    std::string content_id_, config_id_;
    std::string address_ = kServer;
    int interval_ = 600;
    std::vector<Medium> media_;
    std::vector<std::vector<std::string>> content_media_;  // the media of each content, in order
    std::map<std::string, std::vector<Served>> served_;    // by path, oldest first
};

}  // namespace soak
