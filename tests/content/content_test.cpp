// The content folder's modules: the playlist files written into the sandbox's /tmp; the
// status document, its time stamp and its POST to an HTTP server (Python's) on the
// sandbox's loopback; both compared byte for byte with the files kept in
// tests/content/expected/. Then the content check against player-sim, which plays the
// lists the agent writes and logs what the screen shows, with media on the sandbox's real
// /mnt/hd4. (The flow from a new document through its downloads to its playback is the
// scenarios'.)
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "actions/config.h"
#include "content/current_item.h"
#include "content/playlist.h"
#include "content/status.h"
#include "core/text.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/download.h"
#include "schedule/player_state.h"
#include "support/fake_platform.h"
#include "support/peer.h"
#include "support/player_sim.h"
#include "support/queues.h"
#include "support/record_text.h"
#include "support/sandbox.h"

using Texts = std::vector<std::string>;

namespace {

DRAVIK_CONTENT content;  // static storage: tens of kilobytes

std::string expected(const std::string& name) { return sandbox::read_file(std::string(EXPECTED_DIR) + "/" + name); }

// playlists.xml, parsed.
void make_content()
{
    ASSERT_EQ(dA_ParseContent(DOCUMENT), 0);
    content = *dA_Content();
}

TEST(Playlist, FilesAreWrittenByteForByte)
{
    std::system("rm -rf /tmp/playlists /tmp/currentpl /tmp/currentlo && mkdir /tmp/playlists");
    make_content();
    // Entries are numbered without gaps (an unknown type and a web page take no number)
    // and a picture carries its duration. A file index outside the document cuts the
    // playlist short without its LOOP line, as it always has, and returns 0; so does an
    // item without a file, never reading before the table. A layout shows its first page.
    const struct {
        int (*make)(int, int, DRAVIK_CONTENT*);
        int slot, index, ret;
        const char* file;
    } cases[] = {
        {MakeRAMVideoPlaylist, 0, 0, 1, "video_empty"},        {MakeRAMVideoPlaylist, 1, 1, 1, "video_mixed"},
        {MakeRAMVideoPlaylist, 1, 0, 1, "video_empty"},        {MakeRAMVideoPlaylist, 2, 2, 0, "video_cut"},
        {MakeRAMLayoutPlaylist, 3, 1, 1, "layout_first_page"}, {MakeRAMLayoutPlaylist, 2, 0, 1, "layout_no_page"},
        {MakeRAMVideoPlaylist, 3, 3, 0, nullptr},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.make(c.slot, c.index, &content), c.ret) << c.file;
        if (c.file) {
            EXPECT_EQ(sandbox::read_file("/tmp/playlists/r" + std::to_string(c.slot)), expected(c.file)) << c.file;
        }
    }

    // The lists of the media in use, which the disk cleanup spares; a file index outside
    // the document ends the list where it stands, and returns 0.
    EXPECT_EQ(fields(playlist_temp_playlist_filename(), playlist_temp_layout_filename()), "/tmp/currentpl,/tmp/currentlo");
    EXPECT_EQ(MakeTEMPPlaylist(1, &content) + MakeTEMPLayoutFileList(1, &content), 2);
    EXPECT_EQ(sandbox::read_file("/tmp/currentpl"), expected("currentpl_mixed"));
    EXPECT_EQ(sandbox::read_file("/tmp/currentlo"), expected("currentlo"));
    EXPECT_EQ(MakeTEMPPlaylist(0, &content) + MakeTEMPLayoutFileList(0, &content), 2);
    EXPECT_EQ(sandbox::read_file("/tmp/currentpl") + sandbox::read_file("/tmp/currentlo"), "");
    EXPECT_EQ(MakeTEMPPlaylist(2, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/currentpl"), "a.mpg\n");
    content.layouts[1].layoutFiles[1].findex = 4;
    EXPECT_EQ(MakeTEMPLayoutFileList(1, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/currentlo"), "a.mpg\n");
}

TEST(Playlist, UnwritableFilesAndUnknownIndices)
{
    make_content();
    // Deliberately, a RAM playlist that cannot be written reports done, and a list of the
    // media in use reports failure.
    std::system("rm -rf /tmp/playlists /tmp/currentpl /tmp/currentlo && mkdir /tmp/currentpl /tmp/currentlo");
    EXPECT_EQ(MakeRAMVideoPlaylist(0, 1, &content) + MakeRAMLayoutPlaylist(2, 1, &content), 2);
    EXPECT_EQ(MakeTEMPPlaylist(1, &content) + MakeTEMPLayoutFileList(1, &content), 0);

    // An index the document does not have leaves the files as they were.
    std::system("mkdir /tmp/playlists && rmdir /tmp/currentpl /tmp/currentlo");
    sandbox::write_file("/tmp/playlists/r0", "old");
    for (int bad : {-1, 4, kMaxPlaylists}) EXPECT_EQ(MakeRAMVideoPlaylist(0, bad, &content), 0);
    for (int bad : {-1, 2, kMaxLayouts}) EXPECT_EQ(MakeRAMLayoutPlaylist(0, bad, &content), 0);
    EXPECT_EQ(MakeTEMPPlaylist(7, &content) + MakeTEMPLayoutFileList(-3, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/playlists/r0"), "old");
    EXPECT_FALSE(sandbox::exists("/tmp/currentpl"));
}

DRAVIK_PLAYER_STATUS sample()
{
    DRAVIK_PLAYER_STATUS s{};
    copy_text(s.playerID, "0011AABBCCDD");
    s.isPlaying = s.scheduled_pl_active = s.download_enabled = 1;
    copy_text(s.tstamp, "2026-07-01T12:00:00");
    copy_text(s.active_content_name, "Lobby");
    copy_text(s.active_playlist_name, "Morning");
    s.download_state = PS_DL_STATE_COMPLETE;
    copy_text(s.playing_video, "a.mpg");
    s.totalMB = 1000;
    s.freeMB = 250;
    return s;
}

// The document for `s` built into a buffer of `size` bytes (the 2048 of a post).
std::string build(DRAVIK_PLAYER_STATUS& s, int size = 2048)
{
    std::vector<char> buf(static_cast<std::size_t>(size));  // ASan sees any write past it
    int n = da_CreatePlayerXMLStatus(buf.data(), size, &s);
    EXPECT_EQ(n, static_cast<int>(std::strlen(buf.data())));
    return std::string(buf.data(), static_cast<std::size_t>(n));
}

TEST(Status, Document)
{
    DRAVIK_PLAYER_STATUS s = sample();
    // Three errors, and names with quotes and ampersands inserted as they are.
    s.haveError = s.auto_off = s.no_pl_scheduled = 1;
    s.download_state = PS_DL_STATE_ACTIVE;
    s.download_total = 7;
    s.download_priority = 2;
    s.download_error_code = 5;
    copy_text(s.download_file, "b&w \"night\".mpg");
    copy_text(s.pending_content_name, "Tom & Jerry's \"Lobby\"");
    copy_text(s.pending_playlist_name, "<late>");
    s.error_count = 9;  // held to the three the record has room for
    for (int i = 0; i < 3; ++i) {
        copy_text(s.err_code[i], "E" + std::to_string(i + 1));
        copy_text(s.err_text[i], i == 1 ? "a \"quoted\" & odd one" : "disk full");
    }
    EXPECT_EQ(build(s), expected("status_errors"));

    // Every text filling its whole array without a terminator is read only within it,
    // and even then the document stays within the 2048 bytes a post builds into; a smaller
    // buffer gets it cut at its end.
    auto fill = [](auto&... texts) { ((std::memset(texts, 'w', sizeof texts - 1), texts[sizeof texts - 1] = '\0'), ...); };
    fill(s.active_content_name, s.active_playlist_name, s.active_layout_name, s.pending_content_name,
         s.pending_playlist_name, s.pending_layout_name, s.playing_video, s.playing_layout, s.download_file,
         s.err_code[0], s.err_code[1], s.err_code[2], s.err_text[0], s.err_text[1], s.err_text[2]);
    std::memset(&s, 'z', offsetof(DRAVIK_PLAYER_STATUS, isPlaying));  // the padding after playerID too
    s.download_error_code = s.totalMB = INT_MIN;
    const std::string whole = build(s, 4096);
    ASSERT_GT(whole.size(), 1700u);
    EXPECT_EQ(whole.substr(0, 31), "<pstatus id=\"zzzzzzzzzzzzz\" vid");
    EXPECT_EQ(build(s, 2048), whole);
    EXPECT_EQ(build(s, 1000), whole.substr(0, 999));
    EXPECT_EQ(build(s, 1), "");
    char untouched = 'x';
    EXPECT_EQ(da_CreatePlayerXMLStatus(&untouched, 0, &s), 0);
    EXPECT_EQ(untouched, 'x');

    // The time stamp: local time in nineteen characters.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    char t[21];
    make_time_stamp(t, 1782900000);  // 2026-07-01 10:00:00 UTC
    EXPECT_STREQ(t, "2026-07-01T12:00:00");
    make_time_stamp(t, 1767225605);  // 2026-01-01 00:00:05 UTC
    EXPECT_STREQ(t, "2026-01-01T01:00:05");
}

// An HTTP server on 127.0.0.1:`port` that answers 200 and appends each request to
// /tmp/posts: its request line and port, the headers the client sent, its body.
Peer http_server(int port)
{
    return Peer({"/usr/bin/python3", "-c", R"(import http.server, sys
class Handler(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers['Content-Length'])).decode()
        open('/tmp/posts', 'a').write(f'{self.requestline} port {sys.argv[1]}\n{self.headers}{body}\n')
        self.send_response(200)
        self.end_headers()
        self.wfile.write(b'status received\n')
server = http.server.HTTPServer(('127.0.0.1', int(sys.argv[1])), Handler)
print('ready', flush=True)
server.serve_forever())",
                 std::to_string(port)},
                "/tmp/http-" + std::to_string(port) + ".out");
}

int post(const std::string& url, DRAVIK_PLAYER_STATUS& s, std::string* printed = nullptr)
{
    std::string copy = url;
    testing::internal::CaptureStdout();
    int r = perform_post_status(copy.data(), &s);
    std::string out = testing::internal::GetCapturedStdout();
    if (printed) *printed = out;
    return r;
}

TEST(Status, PostGoesToTheHostPortAndPathOfTheUrl)
{
    Peer server = http_server(8080), http = http_server(80);
    ASSERT_TRUE(wait_for_line("/tmp/http-8080.out", "ready") && wait_for_line("/tmp/http-80.out", "ready"));
    DRAVIK_PLAYER_STATUS s = sample();
    copy_text(s.active_content_name, "Tom & \"Jerry\"");
    const std::string doc = expected("status");  // no error, so no element; a completed download
    ASSERT_EQ(build(s), doc);                                              // is not "downloading": dl="0", state="2"
    // Bad URLs fail before any request (73616 is 8080 once cut to 16 bits), and so does a
    // port nobody listens on.
    for (const std::string& bad : std::vector<std::string>{"https://127.0.0.1:8080/status", "HTTP://127.0.0.1:8080/status", "ftp://127.0.0.1:8080/",
                            "http://127.0.0.1:80a0/status", "http://127.0.0.1:8080x", "http://127.0.0.1:/status",
                            "http://127.0.0.1:123456/status", "http://127.0.0.1:73616/", "http://", "http:///status",
                            "http://no-such-host.invalid:8080/status", "http://127.0.0.1:8081/status",
                            "http://127.0.0.1:8080/" + std::string(1100, 'p')})
        EXPECT_EQ(post(bad, s), 0) << bad;
    EXPECT_FALSE(sandbox::exists("/tmp/posts"));

    // HTTP/1.0 with exactly two headers and no Host; no path posts to "/", no port to 80.
    std::string printed;
    ASSERT_EQ(post("http://127.0.0.1:8080/status.aspx?player=0011AABBCCDD", s, &printed), 1);
    for (const char* url : {"http://localhost:8080", "http://127.0.0.1", "http://127.0.0.1/a/b"}) ASSERT_EQ(post(url, s), 1) << url;
    const std::string head = "Content-Type: text/xml; charset=utf-8\nContent-Length: " + std::to_string(doc.size()) +
                             "\n\n" + doc + "\n";
    EXPECT_EQ(sandbox::read_file("/tmp/posts"),
              "POST /status.aspx?player=0011AABBCCDD HTTP/1.0 port 8080\n" + head + "POST / HTTP/1.0 port 8080\n" + head +
                  "POST / HTTP/1.0 port 80\n" + head + "POST /a/b HTTP/1.0 port 80\n" + head);
    // The reply is shown whole, whatever it says.
    EXPECT_NE(printed.find("200 OK"), std::string::npos) << printed;
    EXPECT_NE(printed.find("status received"), std::string::npos) << printed;
}

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
