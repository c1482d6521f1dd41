// The content check against player-sim, which plays the lists the agent writes and logs
// what the screen shows, with media on the sandbox's real /mnt/hd4. (The flow from a
// new document through its downloads to its playback is the scenarios'.)
#include "content/current_item.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "actions/config.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/download.h"
#include "schedule/player_state.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/queues.h"
#include "support/record_text.h"
#include "support/sandbox.h"

using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using Texts = std::vector<std::string>;

namespace {

constexpr const char* kLayersGet = "1.3.6.1.4.1.58321.3.3.1.0";
constexpr const char* kResolutionGet = ".1.3.6.1.4.1.58321.3.2.9.0";
const std::string kStop = "1.3.6.1.4.1.58321.3.3.9.0 i ";
constexpr const char* kMedia[] = {"welcome.mpg", "menu.jpg", "news.mpg", "late.mpg", "board.jpg"};

// The sets that start RAM list `slot` on `layer`: full screen, or with a coordinate mode
// (0 or 1) in an area.
Texts starts(int layer, int slot, int mode = -1, int w = 100, int h = 100, int x = 0, int y = 0)
{
    const std::string o = "1.3.6.1.4.1.58321.3.3.";
    Texts t = {o + "30.0 i " + std::to_string(layer)};
    if (mode >= 0) t.push_back(o + "23.0 i " + std::to_string(mode));
    for (auto [object, v] : {std::pair{"26.0", w}, {"27.0", h}, {"24.0", x}, {"25.0", y}})
        t.push_back(o + object + " i " + std::to_string(v));
    t.push_back(o + "32.0 s ram::playlist://r" + std::to_string(slot));
    return t;
}
Texts operator+(Texts a, const Texts& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// One schedule item runs today, 2026-01-01, until 18:00 with playlist `pl` and layout
// `layout`; the default is playlist 0. Every file is 5 bytes.
std::string document(int pl, int layout)
{
    return R"(<content id="c-7" name="Lobby">
  <servers><server_item id="0" addr="http://127.0.0.1:8080/media/$FILE$"/></servers>
  <playlist pindex="0" name="Welcome"><pl_item type="video" findex="0"/></playlist>
  <playlist pindex="1" name="Menu"><pl_item type="image" findex="1" dur="10"/><pl_item findex="2"/></playlist>
  <playlist pindex="2" name="News"><pl_item type="video" findex="2"/></playlist>
  <playlist pindex="3" name="Late"><pl_item type="video" findex="3"/></playlist>
  <files><f_item server_id="0" file="welcome.mpg" size="5"/>
    <f_item server_id="0" type="image" file="menu.jpg" size="5"/><f_item server_id="0" file="news.mpg" size="5"/>
    <f_item server_id="0" file="late.mpg" size="5"/><f_item server_id="0" type="image" file="board.jpg" size="5"/>
  </files>
  <schedule default_pindex="0"><sched_item pindex=")" + std::to_string(pl) + R"(" lindex=")" +
           std::to_string(layout) + R"(" start="2026-01-01T00:00:00" end="2026-01-01T18:00:00"/></schedule>
  <layout lindex="0" name="Board"><vid_area_1080 x="0" y="0" width="1280" height="720"/>
    <vid_area_720 x="10" y="20" width="853" height="480"/><vid_area_pct x="5" y="6" width="67" height="68"/>
    <layout_files><lo_file findex="4" type="image"/></layout_files>
    <layout_playlist><lo_pl_item url="http://127.0.0.1/board.html" dur="0"/></layout_playlist></layout>
</content>)";
}

// Makes `doc` the document in force, as fetched, with the media not `missing` on the disk.
void adopt(const std::string& doc, const Texts& missing = {})
{
    std::system("rm -f /tmp/playlists/* /mnt/hd4/video/* /mnt/hd4/picture/*");
    for (std::string f : kMedia)
        if (std::find(missing.begin(), missing.end(), f) == missing.end())
            sandbox::write_file((f.ends_with(".jpg") ? "/mnt/hd4/picture/" : "/mnt/hd4/video/") + f, "12345");
    sandbox::write_file("/tmp/dacontent.xml", doc);
    ASSERT_EQ(dA_ParseContent("/tmp/dacontent.xml"), 0);
    currentContent = *dA_Content();
}

// Has player-sim play a list named `name` from RAM slot `slot` on `layer`.
void player_plays(int layer, int slot, const std::string& name)
{
    sandbox::write_file("/tmp/playlists/r" + std::to_string(slot),
                        std::string("[Control]\r\nLayerType = ") + (layer ? "Browser" : "Video") + "\r\nName = " +
                            name + "\r\n[List]\r\nENTRY1 = VIDEO, before.mpg\r\n");
    char reply[kSnmpTextSize];
    std::string select = "1.3.6.1.4.1.58321.3.3.30.0 i " + std::to_string(layer);
    std::string play = "1.3.6.1.4.1.58321.3.3.32.0 s ram::playlist://r" + std::to_string(slot);
    send_snmp_command(kSnmpSetType, select.c_str(), reply);
    send_snmp_command(kSnmpSetType, play.c_str(), reply);
}

std::string layers_now()
{
    char reply[kSnmpTextSize];
    return send_snmp_command(kSnmpGetType, kLayersGet, reply);
}

// scheduled_pl_active, no_pl_scheduled, the active names, then the pending ones.
std::string state()
{
    const PLAYER_STATE& s = gPlayerState;
    return fields(s.scheduled_pl_active, s.no_pl_scheduled, s.active_content_name, s.active_playlist_name,
                  s.active_layout_name, "|", s.pending_content_name, s.pending_playlist_name, s.pending_layout_name);
}

class ContentCheck : public ::testing::Test {
protected:
    void SetUp() override
    {
        queues::drain_all();
        setenv("TZ", "UTC0", 1);
        platform.run_commands(true);
        for (auto* word : {&initiate_content_check, &initiate_post_status, &initiate_download_check,
                           &content_check_timer, &post_status_timer, &download_check_timer})
            *word = 0;
        sandbox::set_writable(4, true);
        download_init();
        player_state_clear(&gPlayerState);
        std::strcpy(g_saved_content_id, "c-7");
        AutoOnOffMode = 1;
    }

    FakePlatform platform;  // 2026-01-01 12:00:00 UTC: six hours before the item ends
};

TEST_F(ContentCheck, PlayerShowsWhatTheScheduleAsks)
{
    const std::string board = ",c-7*0,Playing,http://127.0.0.1/board.html,1";
    const struct {
        const char* why;
        int pl, layout;
        Texts missing;                // media not on the disk
        const char *video, *browser;  // what r0 and r2 play before (nullptr: idle)
        int resolution, auto_mode;
        Texts sets;                   // the agent's sets, whole, in order
        std::string report;           // 3.3.1.0 afterwards
        int timer;                    // content_check_timer
        const char* state;
        const char* area = nullptr;   // of layer 0's start, in player-sim's log
    } cases[] = {
        {"already playing", 2, -1, {}, "c-7*2", nullptr, 8, 1, {}, "r0,c-7*2,Playing,before.mpg,1%Idle,,0", 21605,
         "1,0,Lobby,News,,|,,,"},
        {"the default while files are missing", 3, -1, {"late.mpg"}, "c-7*2", nullptr, 8, 1, starts(0, 1),
         "r1,c-7*0,Playing,welcome.mpg,1%Idle,,0", 605, "0,0,Lobby,Late,,|,,,"},
        {"the default missing too", 3, -1, {"late.mpg", "welcome.mpg"}, "c-7*2", nullptr, 8, 1, {},
         "r0,c-7*2,Playing,before.mpg,1%Idle,,0", 605, "0,0,,,,|,Lobby,Late,"},
        {"display off: written, not started", 1, -1, {}, nullptr, nullptr, 8, 0, {}, "Idle,,0%Idle,,0", 21605,
         "1,0,Lobby,Menu,,|,,,"},
        {"display off since start-up", 1, -1, {}, nullptr, nullptr, 8, -1, {}, "Idle,,0%Idle,,0", 21605,
         "1,0,Lobby,Menu,,|,,,"},
        {"nothing scheduled", -1, -1, {}, "c-7*2", "c-7*0", 8, 1, {kStop + "7"}, "Idle,,0%Idle,,0", 21605,
         "0,1,Lobby,,,|,,,"},
        {"a layout left on the browser goes", 2, -1, {}, "c-7*2", "c-7*0", 8, 1, Texts{kStop + "33"} + starts(0, 1),
         "r1,c-7*2,Playing,news.mpg,1%Idle,,0", 21605, "1,0,Lobby,News,,|,,,", "100x100+0+0 units=percent"},
        {"layout at 1080", 1, 0, {}, nullptr, nullptr, 8, 1, starts(1, 2) + starts(0, 0, 1, 1280, 720, 0, 0),
         "r0,c-7*1,Playing,menu.jpg,1%r2" + board, 21605, "1,0,Lobby,Menu,Menu,|,,,", "1280x720+0+0 units=pixels"},
        {"layout at 720", 1, 0, {}, "c-7*9", "c-7*0", 45, 1, starts(1, 3) + starts(0, 1, 1, 853, 480, 10, 20),
         "r1,c-7*1,Playing,menu.jpg,1%r3" + board, 21605, "1,0,Lobby,Menu,Menu,|,,,", "853x480+10+20 units=pixels"},
        {"layout in percent", 1, 0, {}, nullptr, nullptr, 20, 1, starts(1, 2) + starts(0, 0, 0, 67, 68, 5, 6),
         "r0,c-7*1,Playing,menu.jpg,1%r2" + board, 21605, "1,0,Lobby,Menu,Menu,|,,,", "67x68+5+6 units=percent"},
        {"layout and playlist playing", 1, 0, {}, "c-7*1", "c-7*0", 8, 1, {},
         "r0,c-7*1,Playing,before.mpg,1%r2,c-7*0,Playing,before.mpg,1", 21605, "1,0,Lobby,Menu,Board,|,,,"},
        {"layout files missing: no default", 1, 0, {"board.jpg"}, nullptr, nullptr, 8, 1, {}, "Idle,,0%Idle,,0", 605,
         "0,0,,,,|,Lobby,Menu,Board"},
        {"layout alone: an idle browser counts as showing it", -1, 0, {}, "c-7*2", nullptr, 8, 1, {kStop + "17"},
         "Idle,,0%Idle,,0", 21605, "1,0,Lobby,,Board,|,,,"},
        {"layout alone: the video slot is not written", -1, 0, {}, nullptr, "c-7*5", 8, 1,
         starts(1, 3) + starts(0, 0, 1, 1280, 720, 0, 0),
         "r0,,Error,cannot open /tmp/playlists/r0,0%r3" + board, 21605, "1,0,Lobby,,,|,,,"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        adopt(document(c.pl, c.layout), c.missing);
        player_state_clear(&gPlayerState);
        AutoOnOffMode = c.auto_mode;
        initiate_download_check = 0;
        PlayerSim sim({"--resolution", std::to_string(c.resolution)});
        if (c.video) player_plays(0, 0, c.video);
        if (c.browser) player_plays(1, 2, c.browser);
        auto before = static_cast<long>(PlayerSim::requests(kSnmpSetType).size());

        process_content_check(&currentContent);
        Texts sets = PlayerSim::requests(kSnmpSetType);
        EXPECT_THAT(Texts(sets.begin() + before, sets.end()), ElementsAreArray(c.sets));
        bool in_layout = std::ranges::any_of(c.sets, [](auto& s) { return s.find("3.3.23.0") != s.npos; });
        Texts gets = in_layout ? Texts{kLayersGet, kResolutionGet} : Texts{kLayersGet};
        EXPECT_EQ(PlayerSim::requests(kSnmpGetType), gets);
        EXPECT_EQ(layers_now(), c.report);
        EXPECT_EQ(content_check_timer, c.timer);
        EXPECT_EQ(post_status_timer, 10);
        EXPECT_EQ(initiate_download_check, c.missing.empty() ? 0 : 1);
        EXPECT_EQ(state(), c.state);
        if (c.area) {
            EXPECT_THAT(PlayerSim::lines("state layer=0 report=").back(), EndsWith(c.area));
        }
        if (c.auto_mode <= 0) {  // the list is ready for when the display comes on
            EXPECT_THAT(sandbox::read_file("/tmp/playlists/r0"), HasSubstr("Name = c-7*1\r\n"));
        }
    }
}

TEST_F(ContentCheck, DocumentSavedOnceAtItsFirstStartAndOnlyTheOneInForce)
{
    PlayerSim sim;
    const std::string doc = document(2, -1);
    adopt(doc);
    std::strcpy(g_saved_content_id, "c-1");
    const Texts copy = {"mount -o remount,noatime,nodiratime,rw /dev/ide/host0/bus0/target0/lun0/part3 /mnt/hd3",
                        "mount -o remount,noatime,nodiratime,ro /dev/ide/host0/bus0/target0/lun0/part3 /mnt/hd3"};
    // The first start, the next, and one after a later fetch left another document.
    const std::string broken = "<content id=\"c-8\"><files x=\"1\"/></content>";
    const std::pair<std::string, Texts> rounds[] = {{doc, copy}, {doc, {}}, {broken, {}}};
    for (const auto& [fetched, calls] : rounds) {
        SCOPED_TRACE(fetched);
        sandbox::write_file("/tmp/dacontent.xml", fetched);
        if (fetched != doc) std::strcpy(g_saved_content_id, "c-1");
        sandbox::clear_calls();
        stop_play(1, 1);
        process_content_check(&currentContent);
        EXPECT_EQ(layers_now(), "r0,c-7*2,Playing,news.mpg,1%Idle,,0");
        EXPECT_THAT(sandbox::calls(), ElementsAreArray(calls));
        EXPECT_EQ(sandbox::read_file("/mnt/hd3/contentdata.txt"), doc);
        EXPECT_FALSE(sandbox::is_writable("/mnt/hd3"));
    }
    EXPECT_STREQ(g_saved_content_id, "c-1");  // kept until the document in force is there
}

}  // namespace
