// Scenarios: the whole agent as a device in the field runs it, beside player-sim and
// cms-sim, for minutes to hours of device time at 20 times real speed
// (tests/support/device.h). Each TEST(Scenario, Name) is a ctest test of its own,
// Scenario.Name, in a sandbox of its own.
//
// Adding one: put the start state in DeviceStart::files (USB.CONF and saved documents on
// /mnt/hd3, a stick under /mnt/usb, the server's files under /tmp/cms), start a Device,
// let device time pass with wait_until, and assert on what the peers logged (in device
// seconds), the stand-in calls and the files left behind.
//
// The content scenarios serve real media files from cms-sim (kMedia: sizes as the
// documents give them, tens of kilobytes each) and follow what player-sim says each
// layer plays (shown()); the figures docs/testing.md reports are printed as "[ measured ]"
// lines.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/usb_xapp.h"
#include "support/device.h"

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::SizeIs;

namespace {

// A failed scenario shows both logs as one timeline in device seconds, the agent's
// output and the stand-in calls.
[[maybe_unused]] const bool kLogsOnFailure = (Device::show_logs_at_end = [] { return ::testing::Test::HasFailure(); }, true);

std::string usb_conf(const std::string& server, int interval)
{
    return "CallHomeAddress," + server + "\r\nCallHomeInterval," + std::to_string(interval) + "\r\n";
}
const std::string kServer = "http://127.0.0.1:8080";
const std::string kCommands = "ConfigID,cfg-1\r\nContentID,cnt-1\r\n";
// The player's own time server and a time zone it does not have yet: the zone is set
// and stored, no reboot needed.
const std::string kZoneConfig = R"(<?xml version="1.0"?>
<config id="cfg-1"><pri_ts server="pool.ntp.org"/><timezone tz="1"/></config>
)";
// One playlist of one file; what it plays is for the content scenarios.
const std::string kContent = R"(<content id="cnt-1"><playlist pindex="0"><pl_item findex="0"/></playlist>)"
                             R"(<files><f_item findex="0" file="a.mp4" size="1"/></files></content>)";
constexpr const char* kZoneSet = "text=\"1.3.6.1.4.1.58321.3.5.17.0 i 1\"";
constexpr const char* kConfDone = "recv key=1240 type=30 len=64 cmmd=93 name=USB_CONF_DONE";

bool stand_in_called(const std::string& call)
{
    auto calls = sandbox::calls();
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

// A call home every minute; the server hands out kZoneConfig.
DeviceStart every_minute(DeviceStart start = {})
{
    start.files.insert({{"/mnt/hd3/USB.CONF", usb_conf(kServer, 60)},
                        {"/tmp/cms/command.txt", kCommands},
                        {"/tmp/cms/config.xml", kZoneConfig}});
    return start;
}

// Holds once `count` calls home have reached the server.
std::function<bool()> called_home(const Device& device, std::size_t count = 1)
{
    return [&device, count] { return device.requests("GET /command.txt").size() >= count; };
}

bool configuration_saved() { return sandbox::read_file("/mnt/hd3/cfgdata.txt") == kZoneConfig; }

// The first call home failed; the agent carried on and got its configuration at the
// next one, a minute later.
void expect_configured_at_second_call_home(Device& device)
{
    ASSERT_TRUE(device.wait_until(300, configuration_saved));
    ASSERT_THAT(device.player(kZoneSet), SizeIs(1));
    EXPECT_GE(device.player(kZoneSet)[0].at, 70);
    EXPECT_FALSE(stand_in_called("reboot"));
    EXPECT_TRUE(device.agent_running());
}

}  // namespace

TEST(Scenario, FirstBootWithOnlyUsbConf)
{
    // A time server unlike the player's: set, stored, then the device reboots (which the
    // stand-in only notes); then the content document is fetched.
    const std::string config = R"(<config id="cfg-1"><pri_ts server="ntp1.example"/><timezone tz="1"/></config>)";
    Device device({.files = {{"/mnt/hd3/USB.CONF", usb_conf(kServer, 3600)},
                             {"/tmp/cms/command.txt", kCommands},
                             {"/tmp/cms/config.xml", config},
                             {"/tmp/cms/content.xml", kContent}}});
    ASSERT_TRUE(device.wait_until(300, [&] { return !device.requests("GET /content.xml").empty(); }));
    EXPECT_TRUE(stand_in_called("reboot"));

    auto calls = device.requests("GET /command.txt 200");
    ASSERT_THAT(calls, SizeIs(1));
    // Ten seconds after start, not the hour USB.CONF asks for; the fetch itself takes a
    // few device seconds more (a sanitizer build's wget takes a while to start).
    EXPECT_THAT(calls[0].at, AllOf(Ge(10), Le(40)));
    EXPECT_THAT(device.requests("GET /config.xml 200"), SizeIs(1));
    EXPECT_THAT(PlayerSim::requests(kSnmpSetType),
                ElementsAre("1.3.6.1.4.1.58321.3.5.15.0 s \"ntp1.example\"", "1.3.6.1.4.1.58321.3.5.17.0 i 1",
                            "1.3.6.1.4.1.58321.3.5.11.0 i 1"));
    EXPECT_EQ(sandbox::read_file("/mnt/hd3/cfgdata.txt"), config);
    EXPECT_EQ(sandbox::read_file("/mnt/hd3/USB.CONF"), usb_conf(kServer, 3600));
    // After the minute the device waits for its reboot.
    EXPECT_GE(device.requests("GET /content.xml 200")[0].at - device.requests("GET /config.xml")[0].at, 60);
}

TEST(Scenario, ServerDownAtFirstCallHome)
{
    Device device(every_minute({.server_up = false}));
    device.wait_until(30);
    device.start_server();
    expect_configured_at_second_call_home(device);
    EXPECT_GE(device.requests("GET /command.txt")[0].at, 60);
}

namespace {

// cms-sim answers the first request for `path` with `fault`, logged as `logged`.
void first_request_fails(const std::string& path, const std::string& fault, const std::string& logged)
{
    Device device(every_minute({.server = {"--fault", path, fault + ",times=1"}}));
    expect_configured_at_second_call_home(device);
    auto requests = device.requests("GET " + path);
    ASSERT_THAT(requests, SizeIs(Ge(2u)));
    EXPECT_THAT(requests[0].line, HasSubstr(logged));
}

}  // namespace

TEST(Scenario, UnauthorizedCommandList) { first_request_fails("/command.txt", "status=401", " 401 "); }

// The answer stops after 16 bytes until the client goes: the agent gives up on it.
TEST(Scenario, StalledConfigurationTransfer) { first_request_fails("/config.xml", "stall=16", " 200 16 stall=16"); }

// The connection closes after 40 bytes: never adopted, fetched again.
TEST(Scenario, TruncatedConfiguration) { first_request_fails("/config.xml", "drop=40", " 200 40 drop=40"); }

TEST(Scenario, CorruptSavedDocumentsAtStart)
{
    Device device(every_minute({.files = {{"/mnt/hd3/cfgdata.txt", "<config id=\"old\"><timezone tz="},
                                          {"/mnt/hd3/contentdata.txt", std::string("\0\xff<content", 10)}}}));
    // Both are dropped; the first call home brings the configuration and saves it.
    ASSERT_TRUE(device.wait_until(120, configuration_saved));
    ASSERT_THAT(device.player(kZoneSet), SizeIs(1));
    EXPECT_LE(device.player(kZoneSet)[0].at, 60);
    EXPECT_TRUE(device.agent_running());
}

namespace {

// The player copies a stick's USB.CONF to /tmp/temp_USB.CONF and says so. It points the
// device at another folder of the server, calling home every two minutes, and sets the
// resolution. With no media on the stick the new server is called five seconds later,
// with media only after the interval.
void stick_with_usb_conf(int media, double first_call_after)
{
    const std::string stick = usb_conf(kServer + "/site2", 120) + "SetResolution,5\r\n";
    Device device({.files = {{"/mnt/hd3/USB.CONF", usb_conf(kServer, 3600)},
                             {"/tmp/cms/command.txt", ""},
                             {"/tmp/cms/site2/command.txt", ""}}});
    ASSERT_TRUE(device.wait_until(60, called_home(device)));
    device.notify("copy-start", media);
    Device::put("/tmp/temp_USB.CONF", stick);
    device.notify("copy-done", media);
    device.notify("conf-update", media);
    double at = device.player("name=USB_CONF_UPDATE")[0].at;  // sent; the agent acts on it after

    ASSERT_TRUE(device.wait_until(at + 200, [&] { return !device.requests("GET /site2/command.txt").empty(); }));
    // A countdown starts counting at the timer's last tick, up to 5 s before it was set.
    EXPECT_THAT(device.requests("GET /site2/command.txt")[0].at - at,
                AllOf(Ge(first_call_after - 5), Le(first_call_after + 35)));
    EXPECT_THAT(device.player(kConfDone), SizeIs(1));
    EXPECT_THAT(PlayerSim::requests(kSnmpSetType), Contains(".1.3.6.1.4.1.58321.3.2.9.0 i 5"));
    // Only the call-home lines are kept.
    EXPECT_EQ(sandbox::read_file("/mnt/hd3/USB.CONF"), usb_conf(kServer + "/site2", 120));
    EXPECT_FALSE(sandbox::exists("/tmp/temp_USB.CONF"));
}

}  // namespace

TEST(Scenario, UsbStickWithUsbConfAndNoMedia) { stick_with_usb_conf(0, 5); }

TEST(Scenario, UsbStickWithUsbConfAndMedia) { stick_with_usb_conf(1, 120); }

TEST(Scenario, CallNow)
{
    Device device({.files = {{"/mnt/hd3/USB.CONF", usb_conf(kServer, 3600)}, {"/tmp/cms/command.txt", ""}}});
    ASSERT_TRUE(device.wait_until(60, called_home(device)));
    device.wait_until(60);
    device.notify("call-now");
    ASSERT_TRUE(device.wait_until(120, called_home(device, 2)));
    // Within five seconds of the call (at the timer's next tick), rather than the hour.
    EXPECT_THAT(device.requests("GET /command.txt")[1].at, AllOf(Ge(60), Le(100)));
    EXPECT_THAT(device.player(kConfDone), SizeIs(1));
    EXPECT_EQ(sandbox::read_file("/mnt/hd3/USB.CONF"), usb_conf(kServer, 3600));
}

// Servers name themselves in every list, so that USB.CONF keeps them: the server in use
// is called once an interval however often it repeats its address. A list naming another
// server has that one called within seconds; a list naming its own server without an
// interval makes the calls daily.
TEST(Scenario, CommandListsNamingAServer)
{
    const std::string next = "CallHomeAddress," + kServer + "/next\r\n";
    Device device({.files = {{"/mnt/hd3/USB.CONF", usb_conf(kServer, 3600)},
                             {"/tmp/cms/command.txt", usb_conf(kServer, 60)},
                             {"/tmp/cms/next/command.txt", next}}});
    ASSERT_TRUE(device.wait_until(300, called_home(device, 4)));
    auto calls = device.requests("GET /command.txt");
    for (std::size_t i = 1; i < calls.size(); ++i) EXPECT_THAT(calls[i].at - calls[i - 1].at, AllOf(Ge(55), Le(70)));
    EXPECT_EQ(sandbox::read_file("/mnt/hd3/USB.CONF"), "CallHomeAddress," + kServer + "\nCallHomeInterval,60\n");

    Device::put("/tmp/cms/command.txt", next);
    ASSERT_TRUE(device.wait_until(device.now() + 120, [&] { return !device.requests("GET /next/").empty(); }));
    double moved = device.requests("GET /next/command.txt")[0].at;
    EXPECT_LE(moved - device.requests("GET /command.txt").back().at, 10);
    device.wait_until(moved + 90);  // past the old 60 s interval; a five-second loop shows at once
    EXPECT_THAT(device.requests("GET /next/command.txt"), SizeIs(1));
    EXPECT_EQ(sandbox::read_file("/mnt/hd3/USB.CONF"), "CallHomeAddress," + kServer + "/next\n");
}

// A list of an interval alone changes how often the device calls and leaves USB.CONF as
// it was, so the device still knows its server after a restart. The file's DeleteFile
// line, its name followed by blanks as hand-edited files have it, removes the file.
TEST(Scenario, IntervalOnlyListThenRestart)
{
    const std::string conf = usb_conf(kServer, 3600) + "DeleteFile,old-menu.jpg \t\r\n";
    Device device({.files = {{"/mnt/hd3/USB.CONF", conf},
                             {"/mnt/hd4/picture/old-menu.jpg", "a picture"},
                             {"/mnt/hd4/picture/menu.jpg", "a picture"},
                             {"/tmp/cms/command.txt", "CallHomeInterval,120\r\n"}}});
    ASSERT_TRUE(device.wait_until(300, called_home(device, 2)));
    auto calls = device.requests("GET /command.txt");
    EXPECT_THAT(calls[1].at - calls[0].at, AllOf(Ge(115), Le(130)));
    EXPECT_EQ(sandbox::read_file("/mnt/hd3/USB.CONF"), conf);
    EXPECT_FALSE(sandbox::exists("/mnt/hd4/picture/old-menu.jpg"));
    EXPECT_TRUE(sandbox::exists("/mnt/hd4/picture/menu.jpg"));

    device.restart();
    double restarted = device.now();
    ASSERT_TRUE(device.wait_until(restarted + 60, called_home(device, 3)));
    EXPECT_LE(device.requests("GET /command.txt")[2].at - restarted, 40);
}

TEST(Scenario, FirmwareUpgradeFromUsbStick)
{
    // The player's firmware is 0x210; the stick offers 0x300 as a file of its own.
    Device device({.files = {{"/mnt/hd3/USB.CONF", usb_conf(kServer, 3600)},
                             {"/tmp/cms/command.txt", ""},
                             {"/mnt/usb/pelk_version_info.inf", "FW:0x0300,fw.bin\r\n"},
                             {"/mnt/usb/fw.bin", "a firmware image"},
                             {"/tmp/temp_USB.CONF", usb_conf(kServer, 3600)}}});
    device.notify("conf-update", 1);
    ASSERT_TRUE(device.wait_until(300, [] { return stand_in_called("reboot"); }));
    EXPECT_THAT(device.player("upgrade kind=firmware phase=start url=\"ide:///tmp/firmware.bin\" file=present"),
                SizeIs(1));
    EXPECT_THAT(device.player("upgrade kind=firmware phase=end outcome=ok"), SizeIs(1));
    EXPECT_EQ(PlayerSim::requests(kSnmpSetType).back(), ".1.3.6.1.4.1.58321.3.5.7.0 i 0");
    EXPECT_FALSE(sandbox::exists("/tmp/firmware.bin"));
    EXPECT_THAT(device.player(kConfDone), IsEmpty());  // the device reboots before it answers
}

TEST(Scenario, ClockSteppedBack)
{
    Device device(every_minute({.clock = "2026-03-25 12:00:00"}));
    ASSERT_TRUE(device.wait_until(60, called_home(device)));
    device.set_clock("2026-03-25 11:00:00");
    // The timer thread ends at its next tick: no call home after that, neither the one a
    // minute on nor the one "call now" asks for, while the main loop still answers the
    // player.
    double stepped = device.now();
    device.wait_until(stepped + 100);
    device.notify("call-now");
    ASSERT_TRUE(device.wait_until(stepped + 130, [&] { return !device.player(kConfDone).empty(); }));
    device.wait_until(device.now() + 60);
    EXPECT_THAT(device.requests("GET /command.txt"), SizeIs(1));
    EXPECT_TRUE(device.agent_running());
}

TEST(Scenario, ClockSteppedForward)
{
    // Saved: display on 08:00 to 20:00 on Wednesdays, the log uploaded 50 minutes after
    // start; USB.CONF: a call home a day.
    const std::string config = R"(<config id="cfg-1">
  <auto_on_off enable="true"><aoo_item day="we" mode="on" time="8:00"/><aoo_item day="we" mode="off" time="20:00"/></auto_on_off>
  <logging enable="true" server="ftp://logs.example" interval="6" auto_offset="false" offset="3000"/>
</config>)";
    Device device({.clock = "2026-03-25 12:00:00",
                   .files = {{"/mnt/hd3/USB.CONF", usb_conf(kServer, 86400)},
                             {"/mnt/hd3/cfgdata.txt", config},
                             {"/tmp/cms/command.txt", "ConfigID,cfg-1\r\n"}}});
    ASSERT_TRUE(device.wait_until(60, called_home(device)));
    device.wait_until(60);
    constexpr const char* kStop = "text=\"1.3.6.1.4.1.58321.3.3.9.0 i 7\"";
    constexpr const char* kLogUpload = "text=\"1.3.6.1.4.1.58321.3.5.21.0 s ftp://logs.example\"";
    EXPECT_THAT(device.player(kStop), IsEmpty());
    EXPECT_THAT(device.player(kLogUpload), IsEmpty());

    // Two days and ten hours on: the call home, the display's off time and the log
    // upload all fall due at the next tick.
    device.set_clock("2026-03-27 22:00:00");
    double stepped = device.now();
    ASSERT_TRUE(device.wait_until(stepped + 60, [&] {
        return called_home(device, 2)() && !device.player(kStop).empty() && !device.player(kLogUpload).empty();
    }));
    for (const Event& e : {device.requests("GET /command.txt")[1], device.player(kStop)[0], device.player(kLogUpload)[0]})
        EXPECT_THAT(e.at - stepped, Le(40)) << e.line;
}

namespace {

// Media on the server: real files whose sizes the documents give, each a few tens of
// kilobytes, since a transfer of only a few bytes reads as an error page.
struct Medium {
    const char* name;
    const char* dir;  // where the agent keeps it on /mnt/hd4
    int size;
};
constexpr Medium kMedia[] = {{"welcome.mp4", "video", 24000}, {"noon.mp4", "video", 41000},
                             {"menu.jpg", "picture", 22000},   {"late.mp4", "video", 30000},
                             {"board.jpg", "picture", 21000},  {"promo.mp4", "video", 36000}};

std::string media_bytes(const Medium& m) { return std::string(m.size, static_cast<char>('a' + m.size % 26)); }
std::string on_disk(const Medium& m) { return std::string("/mnt/hd4/") + m.dir + "/" + m.name; }
const Medium& medium(const std::string& name)
{
    return *std::find_if(std::begin(kMedia), std::end(kMedia), [&](const Medium& m) { return m.name == name; });
}

using Names = std::vector<std::string>;

// A content document `id`: playlists of the media named (each list of names is one
// playlist, its index its position), layouts likewise (each shows its pictures in a
// browser layer beside a video area), the files they name in kMedia order, and
// `schedule` (the items inside <schedule>, whose default is playlist 0).
std::string content_document(const std::string& id, const std::vector<Names>& playlists, const std::string& schedule,
                             const std::vector<Names>& layouts = {})
{
    Names files;
    for (const Medium& m : kMedia)
        for (const auto& lists : {playlists, layouts})
            for (const Names& list : lists)
                if (std::find(list.begin(), list.end(), m.name) != list.end() &&
                    std::find(files.begin(), files.end(), m.name) == files.end())
                    files.push_back(m.name);
    auto item = [&](const std::string& element, const std::string& name) {
        auto findex = std::find(files.begin(), files.end(), name) - files.begin();
        return "<" + element + (name.ends_with(".jpg") ? " type=\"image\"" : " type=\"video\"") + " findex=\"" +
               std::to_string(findex) + "\"" + (element == "pl_item" && name.ends_with(".jpg") ? " dur=\"10\"" : "") +
               "/>";
    };
    std::string doc = "<content id=\"" + id + "\" name=\"Lobby\">\n  <servers><server_item id=\"0\" addr=\"" + kServer +
                      "/media/$FILE$\"/></servers>\n";
    for (std::size_t p = 0; p < playlists.size(); ++p) {
        doc += "  <playlist pindex=\"" + std::to_string(p) + "\" name=\"List" + std::to_string(p) + "\">";
        for (const std::string& name : playlists[p]) doc += item("pl_item", name);
        doc += "</playlist>\n";
    }
    doc += "  <files>";
    for (const std::string& name : files)
        doc += "<f_item server_id=\"0\"" + std::string(name.ends_with(".jpg") ? " type=\"image\"" : "") + " file=\"" +
               name + "\" size=\"" + std::to_string(medium(name).size) + "\"/>";
    doc += "</files>\n  <schedule default_pindex=\"0\">" + schedule + "</schedule>\n";
    for (std::size_t l = 0; l < layouts.size(); ++l) {
        doc += "  <layout lindex=\"" + std::to_string(l) + "\" name=\"Board" + std::to_string(l) +
               "\"><vid_area_1080 x=\"96\" y=\"54\" width=\"1280\" height=\"720\"/><layout_files>";
        for (const std::string& name : layouts[l]) doc += item("lo_file", name);
        doc += "</layout_files><layout_playlist><lo_pl_item url=\"http://127.0.0.1/board.html\" dur=\"0\"/>"
               "</layout_playlist></layout>\n";
    }
    return doc + "</content>\n";
}

std::string sched_item(int pindex, const std::string& start, const std::string& end, const std::string& days = "",
                       int lindex = -1)
{
    return "<sched_item pindex=\"" + std::to_string(pindex) + "\" lindex=\"" + std::to_string(lindex) +
           "\" start=\"" + start + "\" end=\"" + end + "\">" + days + "</sched_item>";
}

// Every medium on the server, and a call home an hour (the first ten seconds after
// start) that hands out kZoneConfig and the content document `doc`, whose id is `id`.
DeviceStart serving(const std::string& id, const std::string& doc, DeviceStart start = {})
{
    start.files.insert({{"/mnt/hd3/USB.CONF", usb_conf(kServer, 3600)},
                        {"/tmp/cms/command.txt", "ConfigID,cfg-1\r\nContentID," + id + "\r\n"},
                        {"/tmp/cms/config.xml", kZoneConfig},
                        {"/tmp/cms/content.xml", doc}});
    for (const Medium& m : kMedia) start.files.insert({std::string("/tmp/cms/media/") + m.name, media_bytes(m)});
    return start;
}

// What layer `layer` showed over time: the playlist name it reported (content id, star,
// index) after each of player-sim's start and stop lines that changed it, "" for idle.
std::vector<Event> shown(const Device& device, int layer)
{
    std::vector<Event> changes;
    for (const Event& e : device.player("state layer=")) {
        std::string name = PlayerSim::playing(e.line)[static_cast<std::size_t>(layer)];
        if (changes.empty() ? !name.empty() : changes.back().line != name) changes.push_back({e.at, name});
    }
    return changes;
}

std::function<bool()> showing(const Device& device, const std::string& name, int layer = 0)
{
    return [&device, name, layer] {
        auto s = shown(device, layer);
        return s.empty() ? name.empty() : s.back().line == name;
    };
}

// The figures docs/testing.md reports, on the test's output.
void measured(const std::string& what, double seconds) { std::printf("[ measured ] %s: %.0f device s\n", what.c_str(), seconds); }

// The media folders hold only whole media under their names; a transfer's temporary
// file may be there.
void expect_no_partial_media()
{
    for (const char* dir : {"/mnt/hd4/video", "/mnt/hd4/picture"})
        for (const auto& entry : std::filesystem::directory_iterator(dir)) {
            std::string name = entry.path().filename();
            if (name == "tempfile.xxx") continue;
            auto m = std::find_if(std::begin(kMedia), std::end(kMedia), [&](const Medium& x) { return x.name == name; });
            ASSERT_NE(m, std::end(kMedia)) << entry.path();
            EXPECT_EQ(sandbox::read_file(entry.path()), media_bytes(*m)) << entry.path();
        }
}

// Wednesday 2026-03-25 all day.
const std::string kToday = sched_item(1, "2026-03-25T00:00:00", "2026-03-26T00:00:00");

}  // namespace

TEST(Scenario, FirstBootPlaysTheSchedule)
{
    const std::string doc = content_document("c-1", {{"welcome.mp4"}, {"noon.mp4", "menu.jpg"}}, kToday);
    Device device(serving("c-1", doc));
    ASSERT_TRUE(device.wait_until(600, showing(device, "c-1*1")));
    measured("first boot to the scheduled playlist playing", shown(device, 0).back().at);

    // Nothing else played first: the default's file was not there yet.
    EXPECT_THAT(shown(device, 0), SizeIs(1));
    EXPECT_THAT(device.requests("GET /content.xml 200"), SizeIs(1));
    for (const char* name : {"noon.mp4", "menu.jpg"}) {
        ASSERT_THAT(device.requests(std::string("GET /media/") + name + " 200"), SizeIs(1)) << name;
        EXPECT_LT(device.requests(std::string("GET /media/") + name)[0].at, shown(device, 0)[0].at) << name;
        EXPECT_EQ(sandbox::read_file(on_disk(medium(name))), media_bytes(medium(name))) << name;
    }
    EXPECT_THAT(device.player("state layer=0"), Contains(testing::Field(&Event::line, HasSubstr("area=100x100+0+0"))));
    // Saved once the playlist has started, a moment after the player says it plays.
    EXPECT_TRUE(device.wait_until(device.now() + 20, [&] { return sandbox::read_file("/mnt/hd3/contentdata.txt") == doc; }));
    // The default playlist's file follows in the background.
    ASSERT_TRUE(device.wait_until(device.now() + 120, [] { return sandbox::exists("/mnt/hd4/video/welcome.mp4"); }));
    device.wait_until(device.now() + 30);
    expect_no_partial_media();
    EXPECT_TRUE(device.agent_running());
}

namespace {

// A device that played content `id` before it was restarted: the document saved, its
// media on the disk, the server still handing it out.
DeviceStart played_before(const std::string& id, const std::string& doc, const Names& media, DeviceStart start = {})
{
    start.files.insert({"/mnt/hd3/contentdata.txt", doc});
    for (const std::string& name : media) start.files.insert({on_disk(medium(name)), media_bytes(medium(name))});
    return serving(id, doc, std::move(start));
}

// The server hands out document `doc`, id `id`, from now on.
void publish(const std::string& id, const std::string& doc)
{
    Device::put("/tmp/cms/content.xml", doc);
    Device::put("/tmp/cms/command.txt", "ConfigID,cfg-1\r\nContentID," + id + "\r\n");
}

}  // namespace

TEST(Scenario, NewContentWhilePlaying)
{
    const std::string old_doc = content_document("c-1", {{"welcome.mp4"}, {"noon.mp4", "menu.jpg"}}, kToday);
    Device device(played_before("c-1", old_doc, {"welcome.mp4", "noon.mp4", "menu.jpg"},
                                {.files = {{"/mnt/hd3/USB.CONF", usb_conf(kServer, 60)}}}));
    // The saved content plays from start, without waiting for the server.
    ASSERT_TRUE(device.wait_until(60, showing(device, "c-1*1")));
    measured("start to the saved content playing", shown(device, 0).back().at);

    // New content: the same default with a picture more, and a new playlist of two new
    // files for today, none of the playing playlist's.
    const std::string doc =
        content_document("c-2", {{"welcome.mp4", "board.jpg"}, {"promo.mp4", "late.mp4"}}, kToday);
    double published = device.now();
    publish("c-2", doc);
    ASSERT_TRUE(device.wait_until(published + 300, showing(device, "c-2*1")));
    double switched = shown(device, 0).back().at;
    measured("a new content document on the server to its playback", switched - published);
    measured("its fetch to its playback", switched - device.requests("GET /content.xml 200").back().at);

    // The old playlist played on, its files on the disk, until both new files had
    // come; then the switch, at once.
    EXPECT_THAT(shown(device, 0), SizeIs(2));
    double last_priority = 0;
    for (const char* name : {"promo.mp4", "late.mp4"}) {
        ASSERT_THAT(device.requests(std::string("GET /media/") + name + " 200"), SizeIs(1)) << name;
        last_priority = std::max(last_priority, device.requests(std::string("GET /media/") + name)[0].at);
    }
    EXPECT_THAT(switched - last_priority, AllOf(Ge(0), Le(30)));
    for (const char* name : {"noon.mp4", "menu.jpg"})
        EXPECT_EQ(sandbox::read_file(on_disk(medium(name))), media_bytes(medium(name))) << name;
    EXPECT_TRUE(device.wait_until(device.now() + 20, [&] { return sandbox::read_file("/mnt/hd3/contentdata.txt") == doc; }));
    // The default's new picture only after the files of what must play now.
    ASSERT_TRUE(device.wait_until(device.now() + 120, [] { return sandbox::exists("/mnt/hd4/picture/board.jpg"); }));
    EXPECT_GT(device.requests("GET /media/board.jpg")[0].at, last_priority);
    EXPECT_THAT(device.requests("GET /media/welcome.mp4"), IsEmpty());
    device.wait_until(device.now() + 10);
    expect_no_partial_media();
}

TEST(Scenario, ScheduleDay)
{
    // Wednesday 2026-03-25. Item 1: playlist 1 from 9 to 11. Item 2, all spring, by its
    // Wednesday entries: playlist 2 from 13:00 to 14:30 (Thursday's entry plays no part
    // today). Item 3: playlist 3 in layout 0 from 16 to 18. Item 4 from 19:30 on, whose
    // Wednesday entries say on from 19:00, off at 21:00: on when its period begins.
    // Playlist 0, the default, between them.
    const std::string schedule =
        sched_item(1, "2026-03-25T09:00:00", "2026-03-25T11:00:00") +
        sched_item(2, "2026-03-01T00:00:00", "2026-04-30T00:00:00",
                   R"(<day_item day="we" mode="on" time="13:00"/><day_item day="th" mode="on" time="12:00"/>)"
                   R"(<day_item day="we" mode="off" time="14:30"/>)") +
        sched_item(3, "2026-03-25T16:00:00", "2026-03-25T18:00:00", "", 0) +
        sched_item(1, "2026-03-25T19:30:00", "2026-03-27T00:00:00",
                   R"(<day_item day="we" mode="on" time="19:00"/><day_item day="we" mode="off" time="21:00"/>)");
    const std::string doc = content_document(
        "c-d", {{"welcome.mp4"}, {"noon.mp4", "menu.jpg"}, {"late.mp4"}, {"promo.mp4"}}, schedule, {{"board.jpg"}});
    Device device(serving("c-d", doc, {.clock = "2026-03-25 08:50:00", .files = {{"/mnt/hd3/USB.CONF", usb_conf(kServer, 86400)}}}));
    ASSERT_TRUE(device.wait_until(600, [] {
        for (const Medium& m : kMedia)
            if (m.name != std::string("board.jpg") && sandbox::read_file(on_disk(m)).size() != std::size_t(m.size)) return false;
        return sandbox::read_file("/mnt/hd4/picture/board.jpg").size() == 21000;
    }));
    ASSERT_TRUE(device.wait_until(device.now() + 30, showing(device, "c-d*0")));

    // The hours between events pass in a step of the clock to half a minute before each:
    // the step fires the content check's countdown, which then counts to the event.
    const struct {
        const char* at;
        const char* video;   // what layer 0 then plays
        const char* layout;  // and layer 1 ("" nothing)
    } events[] = {
        {"09:00:00", "c-d*1", ""}, {"11:00:00", "c-d*0", ""},      {"13:00:00", "c-d*2", ""},
        {"14:30:00", "c-d*0", ""}, {"16:00:00", "c-d*3", "c-d*0"}, {"18:00:00", "c-d*0", ""},
        {"19:30:00", "c-d*1", ""}, {"21:00:00", "c-d*0", ""},
    };
    std::vector<double> delays;
    for (const auto& e : events) {
        std::string at = e.at;
        int seconds = std::stoi(at.substr(0, 2)) * 3600 + std::stoi(at.substr(3, 2)) * 60 - 30;
        char before[32];
        std::snprintf(before, sizeof before, "2026-03-25 %02d:%02d:%02d", seconds / 3600, seconds / 60 % 60, seconds % 60);
        std::size_t changes = shown(device, 0).size();
        device.set_clock(before);
        double event = device.now() + 30;
        ASSERT_TRUE(device.wait_until(event + 60, showing(device, e.video))) << e.at;
        EXPECT_THAT(shown(device, 0), SizeIs(changes + 1)) << e.at;  // no switch before the event
        EXPECT_TRUE(device.wait_until(device.now() + 5, showing(device, e.layout, 1))) << e.at;
        double delay = shown(device, 0).back().at - event;
        EXPECT_THAT(delay, AllOf(Ge(0), Le(15))) << e.at;
        delays.push_back(delay);
        device.wait_until(event + 15);
    }
    std::sort(delays.begin(), delays.end());
    measured("schedule event to the switch, worst", delays.back());
    measured("schedule event to the switch, median", (delays[3] + delays[4]) / 2);
    // In the layout, the video in its area for the player's resolution, 1080 lines.
    EXPECT_THAT(device.player("state layer=0 report=\"r1,c-d*3,"),
                ElementsAre(testing::Field(&Event::line, HasSubstr("area=1280x720+96+54 units=pixels"))));
    EXPECT_TRUE(device.agent_running());
}


TEST(Scenario, KilledDuringDownload)
{
    // The first transfer of noon.mp4 comes slowly, some 5 KB a second.
    const std::string doc = content_document("c-1", {{"welcome.mp4"}, {"noon.mp4", "menu.jpg"}}, kToday);
    Device device(serving("c-1", doc, {.server = {"--fault", "/media/noon.mp4", "rate=5000,times=1"}}));
    ASSERT_TRUE(device.wait_until(600, [] { return sandbox::read_file("/mnt/hd4/video/tempfile.xxx").size() >= 10000; }));
    device.restart();
    double restarted = device.now();
    expect_no_partial_media();

    // Nothing was saved: the new agent calls home, fetches the document and downloads
    // again from its queue, noon.mp4 now whole.
    ASSERT_TRUE(device.wait_until(restarted + 600, showing(device, "c-1*1")));
    EXPECT_THAT(device.requests("GET /content.xml 200"), SizeIs(2));
    auto noon = device.requests("GET /media/noon.mp4");
    ASSERT_THAT(noon, SizeIs(2));
    EXPECT_THAT(noon[1].line, HasSubstr(" 200 41000 -"));
    EXPECT_GT(noon[1].at, restarted);
    EXPECT_EQ(sandbox::read_file("/mnt/hd4/video/noon.mp4"), media_bytes(medium("noon.mp4")));
    EXPECT_TRUE(device.wait_until(device.now() + 20, [&] { return sandbox::read_file("/mnt/hd3/contentdata.txt") == doc; }));
    ASSERT_TRUE(device.wait_until(device.now() + 120, [] { return sandbox::exists("/mnt/hd4/video/welcome.mp4"); }));
    device.wait_until(device.now() + 10);
    expect_no_partial_media();
    EXPECT_FALSE(sandbox::exists("/mnt/hd4/video/tempfile.xxx"));
}

TEST(Scenario, TruncatedMedia)
{
    // The first answer for noon.mp4 ends after 20000 of its 41000 bytes. The retry comes
    // with the next content check, up to ten minutes on, which a faster clock shortens.
    const std::string doc = content_document("c-1", {{"welcome.mp4"}, {"noon.mp4", "menu.jpg"}}, kToday);
    Device device(serving("c-1", doc, {.speed = 40,
                                       .files = {{"/mnt/hd3/USB.CONF", usb_conf(kServer, 60)}},
                                       .server = {"--fault", "/media/noon.mp4", "drop=20000,times=1"}}));
    // Watched all along: never a part of it under its name.
    bool partial = false;
    ASSERT_TRUE(device.wait_until(1200, [&] {
        std::string noon = sandbox::read_file("/mnt/hd4/video/noon.mp4");
        partial = partial || (!noon.empty() && noon != media_bytes(medium("noon.mp4")));
        return showing(device, "c-1*1")();
    }));
    EXPECT_FALSE(partial);
    auto noon = device.requests("GET /media/noon.mp4");
    ASSERT_THAT(noon, SizeIs(2));
    EXPECT_THAT(noon[0].line, HasSubstr(" 200 20000 drop=20000"));
    EXPECT_THAT(noon[1].line, HasSubstr(" 200 41000 -"));
    measured("a truncated transfer to its retry", noon[1].at - noon[0].at);
    EXPECT_LE(noon[1].at - noon[0].at, 620);
    EXPECT_TRUE(device.wait_until(device.now() + 120, [] { return sandbox::exists("/mnt/hd4/video/welcome.mp4"); }));
    device.wait_until(device.now() + 10);
    expect_no_partial_media();
    EXPECT_TRUE(device.agent_running());
}

TEST(Scenario, SmallMediaDisk)
{
    // A 64 MB media disk, three old files of 12 MB each on it beside the content that
    // plays: some 28 MB free, less than the 30 MB a download must leave.
    const std::string old_doc = content_document("c-1", {{"welcome.mp4"}, {"noon.mp4", "menu.jpg"}}, kToday);
    const Names old_files = {"/mnt/hd4/video/old-a.mp4", "/mnt/hd4/video/old-b.mp4", "/mnt/hd4/picture/old-c.jpg"};
    DeviceStart start{.files = {{"/mnt/hd3/USB.CONF", usb_conf(kServer, 60)}}, .media_disk = "64m"};
    for (const std::string& file : old_files) start.files.insert({file, std::string(12 << 20, 'o')});
    Device device(played_before("c-1", old_doc, {"welcome.mp4", "noon.mp4", "menu.jpg"}, std::move(start)));
    ASSERT_TRUE(device.wait_until(60, showing(device, "c-1*1")));

    // New content needs two files more: no room for them until a cleanup has deleted
    // an old file, then they come and play.
    const std::string doc = content_document("c-2", {{"welcome.mp4", "board.jpg"}, {"promo.mp4", "late.mp4"}}, kToday);
    publish("c-2", doc);
    ASSERT_TRUE(device.wait_until(device.now() + 400, showing(device, "c-2*1")));
    std::size_t old_left = std::count_if(old_files.begin(), old_files.end(), sandbox::exists);
    EXPECT_EQ(old_left, 2u);  // a third of what was old frees enough
    for (const Medium& m : kMedia)  // the content's files and the old content's, that played meanwhile
        EXPECT_TRUE(m.name == std::string("board.jpg") || sandbox::exists(on_disk(m))) << m.name;
    ASSERT_TRUE(device.wait_until(device.now() + 120, [] { return sandbox::exists("/mnt/hd4/picture/board.jpg"); }));
    EXPECT_THAT(device.player("state layer=0"), SizeIs(2));
    EXPECT_TRUE(device.agent_running());
}
