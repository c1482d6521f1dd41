#pragma once
// The management bridge and the player behind it, as the agent sees them through the
// bridge's command texts:
//
//   a store of object values, answered as "<oid> = INTEGER: 5", "<oid> = STRING: "abc""
//   or "<oid> = Hex-STRING: 00 1A 2B 3C 4D 5E ";
//   two playback layers (0 video, 1 browser) that play RAM playlists read from the
//   playlist folder, each in the screen area set before its start (in pixels after a
//   coordinate mode of 1, else in percent), and are reported together on 3.3.1.0; the
//   player's own start-up list hN, played on the video layer after a set of 3.3.5.0;
//   upgrade progress on 3.4.15.0 after a firmware, software, extension-application or
//   boot-splash command, ending in the outcome chosen for that kind (a failure when
//   an "ide://" image is not on the disk);
//   time servers cleared by a lone blank.
//
// Object identifiers may be given in full ("1.3.6.1.4.1.58321.3.5.17.0", with or without
// a leading dot) or below the enterprise arc ("3.5.17.0"). Not thread-safe: one thread
// serves the bridge queue.
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

enum class Kind { Integer, String, HexString };

struct Value {
    Kind kind;
    std::string text;  // decimal for Integer; octets as "00 1A 2B" for HexString
};

enum class UpgradeKind { None, Firmware, Software, Xapp, Splash };

struct UpgradeOutcomes {
    bool firmware_ok = true;
    bool software_ok = true;
    bool xapp_ok = true;
    bool splash_ok = true;
    int polls = 3;  // progress reads that report "under way" before the end
};

class Bridge {
public:
    // RAM playlists rN are read from `playlist_dir`, the player's own lists hN from
    // `startup_dir`.
    Bridge(std::string playlist_dir, std::string startup_dir, UpgradeOutcomes outcomes);

    // A start value (or any value) of the store. False for a malformed identifier.
    bool set_value(std::string_view oid, Value value);

    // The reply line to a get (the identifier alone) or to a set ("<oid> i|s <value>").
    // A request the bridge cannot serve gets a line without a value in it.
    std::string get(std::string_view oid);
    std::string set(std::string_view command);

    // What the requests since the last call changed, one log line's fields each
    // (layer started or stopped, upgrade started or ended).
    std::vector<std::string> take_events();

    // Layer report as sent on 3.3.1.0 ("<layer 0>%<layer 1>").
    std::string layers_report() const;

private:
    struct Layer {
        bool loaded = false;  // five-field report when set, else the idle three
        std::string file, name, state = "Idle", item;
        int code = 0;
    };

    // Reads `dir`/`file` as the list layer `layer` is to play.
    Layer read_playlist(const std::string& dir, const std::string& file, int layer) const;
    // Plays `dir`/`file` on `layer`, logging the report and `area` (as "WxH+X+Y units=U").
    void play(int layer, const std::string& dir, const std::string& file, const std::string& area);
    void stop_layer(int layer);
    void start_upgrade(UpgradeKind kind, std::string_view url);
    int progress();

    std::string playlist_dir_, startup_dir_;
    UpgradeOutcomes outcomes_;
    std::map<std::string, Value> store_;  // by identifier below the enterprise arc
    Layer layers_[2];
    int selected_layer_ = 0;
    bool pixels_ = false;  // the coordinate mode for the next start only (3.3.23.0 = 1)
    UpgradeKind upgrade_ = UpgradeKind::None;
    int progress_reads_ = 0;
    bool source_missing_ = false;  // an "ide://" image that was not there
    std::vector<std::string> events_;
};

// "3.5.17.0" for any accepted spelling of an identifier under the enterprise arc; the
// full identifier without its leading dot for others; empty when it is not one.
std::string short_oid(std::string_view oid);

}  // namespace sim
