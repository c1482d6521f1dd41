// The content check against player-sim, which plays the lists the agent writes and logs
// what the screen shows, with media on the sandbox's real /mnt/hd4. (The flow from a new
// document through its downloads to its playback is the scenarios'.)
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

using Texts = std::vector<std::string>;

namespace {

const std::string kOid = "1.3.6.1.4.1.58321.3.3.";

// The sets that start RAM list `slot` on `layer`: full screen, or with a coordinate mode
// (0 or 1) in an area.
Texts starts(int layer, int slot, int mode = -1, int w = 100, int h = 100, int x = 0, int y = 0)
{
    Texts t = {kOid + "30.0 i " + std::to_string(layer)};
    if (mode >= 0) t.push_back(kOid + "23.0 i " + std::to_string(mode));
    for (auto [object, v] : {std::pair{"26.0", w}, {"27.0", h}, {"24.0", x}, {"25.0", y}}) t.push_back(kOid + object + " i " + std::to_string(v));
    t.push_back(kOid + "32.0 s ram::playlist://r" + std::to_string(slot));
    return t;
}
Texts operator+(Texts a, const Texts& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// lobby.xml with playlist `pl` and layout `layout` scheduled until 18:00.
std::string document(int pl, int layout)
{
    std::string doc = sandbox::read_file(LOBBY);
    doc.replace(doc.find("\"PL\""), 4, "\"" + std::to_string(pl) + "\"");
    return doc.replace(doc.find("\"LAYOUT\""), 8, "\"" + std::to_string(layout) + "\"");
}

// Makes `doc` the document in force, as fetched, with the media not `missing` on the disk.
void adopt(const std::string& doc, const Texts& missing = {})
{
    std::system("rm -f /tmp/playlists/* /mnt/hd4/video/* /mnt/hd4/picture/*");
    for (std::string f : {"welcome.mpg", "menu.jpg", "news.mpg", "late.mpg", "board.jpg"})
        if (std::find(missing.begin(), missing.end(), f) == missing.end())
            sandbox::write_file((f.ends_with(".jpg") ? "/mnt/hd4/picture/" : "/mnt/hd4/video/") + f, "12345");
    sandbox::write_file("/tmp/dacontent.xml", doc);
    ASSERT_EQ(dA_ParseContent("/tmp/dacontent.xml"), 0);
    currentContent = *dA_Content();
}

// Sends the player a set or a get as the agent does; the value of its reply.
std::string snmp(const std::string& command)
{
    char reply[kSnmpTextSize];
    return send_snmp_command(command.find(' ') == std::string::npos ? kSnmpGetType : kSnmpSetType, (kOid + command).c_str(), reply);
}

// Has player-sim play a list named `name` from RAM slot `slot` on `layer`.
void player_plays(int layer, int slot, const std::string& name)
{
    sandbox::write_file("/tmp/playlists/r" + std::to_string(slot), std::string("[Control]\r\nLayerType = ") +
                        (layer ? "Browser" : "Video") + "\r\nName = " + name + "\r\n[List]\r\nENTRY1 = VIDEO, before.mpg\r\n");
    snmp("30.0 i " + std::to_string(layer));
    snmp("32.0 s ram::playlist://r" + std::to_string(slot));
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
        for (auto* word : {&initiate_content_check, &initiate_post_status, &content_check_timer, &post_status_timer, &download_check_timer})
            *word = 0;
        sandbox::set_writable(4, true);
        download_init();
        std::strcpy(g_saved_content_id, "c-7");
    }

    FakePlatform platform;  // 2026-01-01 12:00:00 UTC: six hours before the item ends
};

TEST_F(ContentCheck, PlayerShowsWhatTheScheduleAsks)
{
    const std::string board = ",c-7*0,Playing,http://127.0.0.1/board.html,1", stop = kOid + "9.0 i ";
    const struct {
        const char* why;
        int pl, layout;
        Texts missing;                // media not on the disk
        const char *video, *browser;  // what r0 and r2 play before (nullptr: idle)
        int resolution, auto_mode;
        Texts sets;          // the agent's sets, whole, in order
        std::string report;  // 3.3.1.0 afterwards
        int timer;           // content_check_timer
        const char* state;
        const char* area = nullptr;  // of layer 0's start, in player-sim's log
    } cases[] = {
        {"already playing", 2, -1, {}, "c-7*2", nullptr, 8, 1, {}, "r0,c-7*2,Playing,before.mpg,1%Idle,,0", 21605,
         "1,0,Lobby,News,,|,,,"},
        // Deliberately, the status names the scheduled playlist while the default stands in.
        {"the default while files are missing", 3, -1, {"late.mpg"}, "c-7*2", nullptr, 8, 1, starts(0, 1),
         "r1,c-7*0,Playing,welcome.mpg,1%Idle,,0", 605, "0,0,Lobby,Late,,|,,,", "100x100+0+0 units=percent"},
        {"the default missing too", 3, -1, {"late.mpg", "welcome.mpg"}, "c-7*2", nullptr, 8, 1, {},
         "r0,c-7*2,Playing,before.mpg,1%Idle,,0", 605, "0,0,,,,|,Lobby,Late,"},
        // The list is ready for when the display comes on.
        {"display off: written, not started", 1, -1, {}, nullptr, nullptr, 8, 0, {}, "Idle,,0%Idle,,0", 21605, "1,0,Lobby,Menu,,|,,,"},
        {"nothing scheduled", -1, -1, {}, "c-7*2", "c-7*0", 8, 1, {stop + "7"}, "Idle,,0%Idle,,0", 21605, "0,1,Lobby,,,|,,,"},
        // A layout's video area at 1080 lines and a layout that ends are the scenarios'
        // (ScheduleDay). Deliberately, the active layout name is the playlist's.
        {"layout at 720", 1, 0, {}, "c-7*9", "c-7*0", 45, 1, starts(1, 3) + starts(0, 1, 1, 853, 480, 10, 20),
         "r1,c-7*1,Playing,menu.jpg,1%r3" + board, 21605, "1,0,Lobby,Menu,Menu,|,,,", "853x480+10+20 units=pixels"},
        {"layout in percent", 1, 0, {}, nullptr, nullptr, 20, 1, starts(1, 2) + starts(0, 0, 0, 67, 68, 5, 6),
         "r0,c-7*1,Playing,menu.jpg,1%r2" + board, 21605, "1,0,Lobby,Menu,Menu,|,,,", "67x68+5+6 units=percent"},
        {"layout and playlist playing", 1, 0, {}, "c-7*1", "c-7*0", 8, 1, {},
         "r0,c-7*1,Playing,before.mpg,1%r2,c-7*0,Playing,before.mpg,1", 21605, "1,0,Lobby,Menu,Board,|,,,"},
        {"layout files missing: no default", 1, 0, {"board.jpg"}, nullptr, nullptr, 8, 1, {}, "Idle,,0%Idle,,0", 605,
         "0,0,,,,|,Lobby,Menu,Board"},
        // Deliberately, a layout alone is compared by the playlist's name, empty here, so an
        // idle browser counts as showing it.
        {"layout alone: an idle browser counts as showing it", -1, 0, {}, "c-7*2", nullptr, 8, 1, {stop + "17"},
         "Idle,,0%Idle,,0", 21605, "1,0,Lobby,,Board,|,,,"},
        {"layout alone: the video slot is not written", -1, 0, {}, nullptr, "c-7*5", 8, 1, starts(1, 3) + starts(0, 0, 1, 1280, 720, 0, 0),
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
        const auto before = PlayerSim::requests(kSnmpSetType).size();

        process_content_check(&currentContent);
        const Texts sets = PlayerSim::requests(kSnmpSetType);
        EXPECT_EQ(Texts(sets.begin() + static_cast<long>(before), sets.end()), c.sets);
        EXPECT_EQ(snmp("1.0"), c.report);
        EXPECT_EQ(fields(content_check_timer, post_status_timer, initiate_download_check, state()),
                  fields(c.timer, 10, c.missing.empty() ? 0 : 1, c.state));
        if (c.area) {
            EXPECT_THAT(PlayerSim::lines("state layer=0 report=").back(), ::testing::EndsWith(c.area));
        }
        if (c.auto_mode == 0) {
            EXPECT_THAT(sandbox::read_file("/tmp/playlists/r0"), ::testing::HasSubstr("Name = c-7*1\r\n"));
        }
    }
}

// The document in force is saved at its first start only, and only if the fetched file
// still holds it.
TEST_F(ContentCheck, DocumentSavedOnceAtItsFirstStartAndOnlyTheOneInForce)
{
    PlayerSim sim;
    AutoOnOffMode = 1;
    const std::string doc = document(2, -1);
    adopt(doc);
    const Texts copy = {"mount -o remount,noatime,nodiratime,rw /dev/ide/host0/bus0/target0/lun0/part3 /mnt/hd3",
                        "mount -o remount,noatime,nodiratime,ro /dev/ide/host0/bus0/target0/lun0/part3 /mnt/hd3"};
    for (const auto& [fetched, calls] : {std::pair{doc, copy}, {doc, Texts{}}, {std::string("<content id='c-8'/>"), Texts{}}}) {
        sandbox::write_file("/tmp/dacontent.xml", fetched);
        if (fetched != doc || calls.size()) std::strcpy(g_saved_content_id, "c-1");
        sandbox::clear_calls();
        stop_play(1, 1);
        process_content_check(&currentContent);
        EXPECT_EQ(snmp("1.0"), "r0,c-7*2,Playing,news.mpg,1%Idle,,0");
        EXPECT_EQ(sandbox::calls(), calls);
        EXPECT_EQ(sandbox::read_file("/mnt/hd3/contentdata.txt"), doc);
    }
    EXPECT_STREQ(g_saved_content_id, "c-1");  // kept until the document in force is there
}

}  // namespace
