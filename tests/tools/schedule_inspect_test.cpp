// schedule-inspect: its reading of --at and its JSON of an odd record, and the program
// itself run on the sample documents under examples/ and on documents with a quirk.
#include "schedule-inspect/inspect.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>
#ifdef SVG_READER
#include <expat.h>
#endif

#include "support/sandbox.h"

namespace {

using Json = nlohmann::json;

DRAVIK_CONTENT content;  // static storage: tens of kilobytes

void set_central_europe()
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
}

// 02:30 on 25 October happens twice: the first, in summer time, counts. (Both show the
// same clock time, so the program's output on the examples cannot tell them apart.)
TEST(ScheduleInspect, ARepeatedClockTimeIsTheFirstOfTheTwo)
{
    set_central_europe();
    std::time_t t = 0;
    std::string why;
    ASSERT_TRUE(inspect::parse_local_time("2026-10-25T02:30:00", &t, &why)) << why;
    EXPECT_EQ(t, 1792888200);
}

TEST(ScheduleInspect, JsonOfARecordOutOfBounds)
{
    // Counts beyond the arrays' room never read past them, a size above 2^31 stays
    // unsigned, and text that is not UTF-8 still gives valid JSON.
    content = {};
    content.schedule.itemCount = 99;
    content.plcount = kMaxPlaylists + 1;
    content.layoutcount = -4;
    content.filecount = 1;
    content.files[0].fsize = 4000000000u;
    content.name[0] = '\xff';
    Json j = Json::parse(inspect::dump_json(content));
    EXPECT_EQ(j["schedule"]["schedItems"].size(), static_cast<std::size_t>(kMaxScheduleItems));
    EXPECT_EQ(j["schedule"]["itemCount"], 99);
    EXPECT_EQ(j["playlists"].size(), static_cast<std::size_t>(kMaxPlaylists));
    EXPECT_TRUE(j["layouts"].empty());
    EXPECT_EQ(j["files"][0]["fsize"], 4000000000u);
    EXPECT_EQ(j["name"], "\xEF\xBF\xBD");
}

// The program run in the sandbox: its status, standard output and standard error.
struct ToolRun {
    int status;
    std::string out, err;
};

ToolRun run_tool(const std::string& args)
{
    std::string cmd = std::string(SCHEDULE_INSPECT) + " " + args + " >/tmp/inspect.out 2>/tmp/inspect.err";
    int w = std::system(cmd.c_str());
    return {WIFEXITED(w) ? WEXITSTATUS(w) : -1, sandbox::read_file("/tmp/inspect.out"),
            sandbox::read_file("/tmp/inspect.err")};
}

const std::string kLobby = std::string(EXAMPLES_DIR) + "/lobby-content.xml";
const std::string kStore = std::string(EXAMPLES_DIR) + "/store-content.xml";

TEST(ScheduleInspectProgram, RefusesWhatItCannotRead)
{
    ToolRun r = run_tool("");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("usage: schedule-inspect"), std::string::npos);
    r = run_tool(kLobby + " --at 2026-02-30T10:00:00");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("no such date"), std::string::npos) << r.err;
    EXPECT_EQ(run_tool(kLobby + " --when now").status, 2);
    // Not a date and time of the form, or beyond the agent's 32-bit clock.
    for (const char* at : {"2026-13-01T00:00:00", "2026-07-01T24:00:00", "2026-07-01", "2026-7-1T12:00:00",
                           "2026-07-01T12:00:00Z", "2038-01-19T05:00:00", "tomorrow"})
        EXPECT_EQ(run_tool(kLobby + " --at " + at).status, 2) << at;

    r = run_tool("/tmp/no-such-content.xml");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("cannot open /tmp/no-such-content.xml"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");

    // The week view's days, and one question at a time.
    for (const char* args : {" --from 2026-02-30", " --from 26-03-01", " --days 0", " --days 367", " --days x",
                             " --from 2038-01-17 --days 3", " --at 2026-03-04T12:00:00 --days 2",
                             " --check --dump", " --check --svg /tmp/w.svg", " --config"})
        EXPECT_EQ(run_tool(kLobby + args).status, 2) << args;
}

TEST(ScheduleInspectProgram, ExamplesAtChosenMoments)
{
    set_central_europe();
    // The store with its evening item ending in 2099, beyond the device's 32-bit clock:
    // the item never plays there, and so not here either.
    std::string store = sandbox::read_file(kStore);
    store.replace(store.find("end=\"2027-01-01T00:00:00\""), 25, "end=\"2099-12-31T23:59:59\"");
    const std::string far_end = "/tmp/far-end.xml";
    sandbox::write_file(far_end, store);
    const struct {
        const std::string& file;
        const char* at;
        const char* line;
    } cases[] = {
        // Lobby on a Wednesday: lunch with its menu board, afternoon, evening news.
        {kLobby, "2026-03-04T12:00:00", "now=43200 playlist=1 layout=0 next=50400"},
        {kLobby, "2026-03-04T15:00:00", "now=54000 playlist=0 layout=-1 next=61200"},
        {kLobby, "2026-03-04T18:00:00", "now=64800 playlist=2 layout=-1 next=72000"},
        // Saturday: no day items at all.
        {kLobby, "2026-03-07T12:00:00", "now=43200 playlist=0 layout=-1 next=86400"},
        // Store, Saturday of the weekend special: sale, closing soon, then the special's
        // stop at 22:00 ends the sale as well.
        {kStore, "2026-03-28T12:00:00", "now=43200 playlist=1 layout=-1 next=74700"},
        {kStore, "2026-03-28T20:50:00", "now=75000 playlist=2 layout=-1 next=75600"},
        {kStore, "2026-03-28T22:30:00", "now=81000 playlist=0 layout=-1 next=86400"},
        // Sunday, the day the clock goes forward: 02:30 does not exist, and counts as
        // 03:30 summer time.
        {kStore, "2026-03-29T02:30:00", "now=12600 playlist=1 layout=-1 next=28800"},
        {kStore, "2026-03-29T12:00:00", "now=43200 playlist=1 layout=-1 next=64800"},
        {kStore, "2026-03-29T19:00:00", "now=68400 playlist=0 layout=-1 next=74700"},
        {kStore, "2026-03-30T10:00:00", "now=36000 playlist=1 layout=-1 next=74700"},
        // The sale's last evening: both stops at 21:00, the sale's item listed first.
        {kStore, "2026-04-05T20:50:00", "now=75000 playlist=2 layout=-1 next=75600"},
        {kStore, "2026-04-05T21:30:00", "now=77400 playlist=0 layout=-1 next=86400"},
        {kStore, "2026-07-01 12:00:00", "now=43200 playlist=0 layout=-1 next=74700"},  // a blank for the T
        {far_end, "2026-03-30T20:50:00", "now=75000 playlist=1 layout=-1 next=86400"},
    };
    for (const auto& c : cases) {
        ToolRun r = run_tool(c.file + " --at '" + c.at + "'");
        EXPECT_EQ(r.status, 0) << c.file << " " << c.at << ": " << r.err;
        EXPECT_EQ(r.out.substr(0, r.out.find('\n')), c.line) << c.file << " " << c.at;
    }

    // The explanation names what plays and why, the next change, the events with the
    // item behind each and the stop that cancelled a start, and the idle items.
    const struct {
        const std::string& file;
        const char* at;
        std::vector<const char*> lines;
    } explained[] = {
        {kLobby, "2026-03-04T12:00:00",
         {"Playing:  playlist 1 \"Lunch menu\" with layout 0 \"Menu board\"\n",
          "Why:      schedule item 0 (2026-01-01T00:00:00 to 2027-01-01T00:00:00) started it at 11:30:00\n",
          "  14:00:00 future  stop   playlist 1 \"Lunch menu\"  from item 0 (2026-01-01T00:00:00 to "
          "2027-01-01T00:00:00)  <- next change\n"}},
        {kStore, "2026-03-28T22:30:00",
         {"Why:      every start so far today was cancelled by a later stop of the same playlist\n",
          "Next:     no change for the rest of today\n",
          "  00:00:00 past    start  playlist 1 \"Spring sale\", no layout  from item 0 (2026-03-20T09:00:00 to "
          "2026-04-05T21:00:00)  (cancelled by the stop at 22:00:00 of item 1)\n"}},
        {kStore, "2026-03-30T10:00:00",
         {"  item 1 (2026-03-28T10:00:00 to 2026-03-29T18:00:00), playlist 1 \"Spring sale\": its period does not "
          "touch today\n"}},
        {far_end, "2026-03-30T20:50:00",
         {"  item 2 (2026-01-01T00:00:00 to 2099-12-31T23:59:59), playlist 2 \"Closing soon\": its start or end "
          "lies outside 1901-12-14 .. 2038-01-19, which the player's 32-bit clock cannot count\n"}},
    };
    for (const auto& e : explained) {
        std::string out = run_tool(e.file + " --at " + e.at).out;
        for (const char* line : e.lines) EXPECT_NE(out.find(line), std::string::npos) << line << out;
    }

    // Without --at it evaluates now: whatever that gives, the first line has its form.
    ToolRun r = run_tool(kLobby);
    int now = -1, pl = -9, lo = -9, next = -9;
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(std::sscanf(r.out.c_str(), "now=%d playlist=%d layout=%d next=%d", &now, &pl, &lo, &next), 4) << r.out;
    EXPECT_TRUE(now >= 0 && now < 86400) << r.out;
}

TEST(ScheduleInspectProgram, DumpShowsTheParsedDocument)
{
    ToolRun lobby = run_tool(kLobby + " --dump");
    ToolRun store = run_tool(kStore + " --dump");
    ASSERT_EQ(lobby.status + store.status, 0) << lobby.err << store.err;
    // The record's own fields, in its own order.
    std::vector<std::string> keys;
    const nlohmann::ordered_json ordered = nlohmann::ordered_json::parse(lobby.out);
    for (const auto& [k, v] : ordered.items()) keys.push_back(k);
    EXPECT_EQ(keys, (std::vector<std::string>{"id", "name", "plcount", "filecount", "servercount", "layoutcount",
                                              "playlists", "files", "schedule", "servers", "layouts"}));
    // Only the used entries of each array, and four characters of each digest.
    Json l = Json::parse(lobby.out), s = Json::parse(store.out);
    const std::pair<Json, const char*> expected[] = {
        {l["id"], R"("5d1c0a7e-3b7f-4c2a-9f10-8a6b2c4d1e01")"},
        {l["name"], R"("Lobby screens")"},
        {Json::array({l["playlists"].size(), l["files"].size(), l["schedule"]["schedItems"].size(),
                      l["layouts"].size()}),
         "[3, 6, 2, 1]"},
        {l["playlists"][1], R"({"pindex":1,"name":"Lunch menu","itemCount":2,
            "PlItems":[{"type":1,"findex":2,"duration":20},{"type":0,"findex":3,"duration":0}]})"},
        {l["files"][5],
         R"({"findex":5,"type":2,"server_id":0,"fname":"menu.html","fsize":2048,"path":"/pages","md5":"4a8a"})"},
        {l["schedule"]["schedItems"][0]["dayItems"][5], R"({"day":3,"mode":0,"time_of_day":50400})"},
        {l["layouts"][0], R"({"lindex":0,"name":"Menu board","fileCount":1,"plItemCount":1,
            "va1080p":{"x":0,"y":0,"width":1280,"height":720},"va720p":{"x":0,"y":0,"width":853,"height":480},
            "vaPct":{"x":0,"y":0,"width":67,"height":67},"layoutFiles":[{"type":2,"findex":5}],
            "layoutPLItems":[{"url":"http://cms.example.com/pages/menu.html","dur":0}]})"},
        {s["name"], R"("Store & window")"},
        {s["layouts"], "[]"},
        {s["schedule"]["schedItems"][0]["dayItems"], "[]"},
        {s["schedule"]["schedItems"][1]["dayItems"][0], R"({"day":6,"mode":1,"time_of_day":28800})"},
    };
    for (const auto& [got, want] : expected) EXPECT_EQ(got, Json::parse(want)) << want;
}

// A document the player reads as written, one quirk at a time added to it.
const std::string kClean = R"(<content id="t" name="T">
<playlist pindex="0" name="A"><pl_item type="video" findex="0"/></playlist>
<files><f_item findex="0" type="video" server_id="0" file="a.mpg" size="10"/></files>
<schedule default_pindex="0" default_lindex="-1">
<sched_item pindex="0" lindex="-1" start="2026-01-01T00:00:00" end="2027-01-01T00:00:00"/>
</schedule>
<servers><server_item id="0" addr="http://cms.example.com/$FILE$"/></servers>
<layout lindex="0" name="L"><layout_files><lo_file type="video" findex="0"/></layout_files></layout>
</content>)";

std::string with(std::string doc, const std::string& from, const std::string& to)
{
    std::size_t at = doc.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? doc : doc.replace(at, from.size(), to);
}

std::string many(int from, int to, const std::function<std::string(int)>& one)
{
    std::string s;
    for (int i = from; i <= to; ++i) s += one(i);
    return s;
}

TEST(ScheduleInspectProgram, CheckFindsWhatThePlayerReadsDifferently)
{
    set_central_europe();
    const std::string pl = "</playlist>", files = "</files>", period = "end=\"2027-01-01T00:00:00\"/>";
    auto n = [](int i) { return std::to_string(i); };
    const std::string extraPlaylists =
        many(1, 10, [&](int i) { return "<playlist pindex='" + n(i) + "' name='P" + n(i) + "'/>"; });
    const std::string extraFiles =
        many(1, 200, [&](int i) { return "\n<f_item findex='" + n(i) + "' server_id='0' file='f" + n(i) + "'/>"; });
    const std::string extraDays = many(0, 28, [](int) { return "<day_item time='8:00'/>"; });
    const std::string clock = "lies outside 1901-12-13 .. 2038-01-19, which the player's 32-bit clock cannot count: ";
    const std::string rejected = "the player rejects the whole document";
    const struct {
        std::string doc;
        std::vector<std::string> findings;  // the start of each line, in order
    } cases[] = {
        {kClean, {}},
        // Entries beyond a capacity.
        {with(kClean, pl, pl + extraPlaylists),
         {"playlist 10 \"P10\" (line 2): beyond the 10 playlists the player keeps: dropped"}},
        {with(kClean, pl, many(1, 101, [](int) { return "<pl_item findex='0'/>"; }) + pl),
         {"playlist 0 \"A\" (line 2): items 100 to 101 (line 2) beyond the 100 items a playlist keeps: dropped"}},
        {with(kClean, files, extraFiles + files),
         {"file 200 \"f200\" (line 203): beyond the 200 files the player keeps"}},
        {with(kClean, period, "end='2027-01-01T00:00:00'>" + extraDays + "</sched_item>"),
         {"schedule item 0 (line 5): day item 28 (line 5) beyond the 28 day items a schedule item keeps: dropped"}},
        // Moments the device's 32-bit clock cannot count.
        {with(kClean, "2027-01-01T00:00:00", "2099-12-31T23:59:59"),
         {"schedule item 0 (line 5): end \"2099-12-31T23:59:59\" " + clock + "the item never plays"}},
        {with(kClean, "2026-01-01T00:00:00", "1901-12-01T00:00:00"),
         {"schedule item 0 (line 5): start \"1901-12-01T00:00:00\" " + clock + "it takes the item as started"}},
        // Names of things the document does not have.
        {with(kClean, "sched_item pindex=\"0\" lindex=\"-1\"", "sched_item pindex=\"3\" lindex=\"1\""),
         {"schedule item 0 (line 5): pindex 3 names no playlist (the document has playlist 0 only)",
          "schedule item 0 (line 5): lindex 1 names no layout (the document has layout 0 only): while it is scheduled, "
          "nothing starts"}},
        {with(with(kClean, "pl_item type=\"video\" findex=\"0\"", "pl_item"), "lo_file type=\"video\" findex=\"0\"",
              "lo_file findex=\"9\""),
         {"playlist 0 \"A\" (line 2), item 0: findex -1 names no file (the document has file 0 only): the playlist",
          "layout 0 \"L\" (line 8), file 0: findex 9 names no file (the document has file 0 only): the layout is"}},
        {with(kClean, "server_id=\"0\"", "server_id=\"1\""),
         {"file 0 \"a.mpg\" (line 3): server_id 1 names no server (the player takes servers by position and the "
          "document has server 0 only): it never downloads the file"}},
        // Files that never count as complete.
        {with(kClean, "size=\"10\"", "size=\"3000000000\""),
         {"file 0 \"a.mpg\" (line 3): size 3000000000 reads as 2147483647 on the player"}},
        {with(kClean, "type=\"video\" server_id", "type=\"html\" server_id"),
         {"file 0 \"a.mpg\" (line 3): a web page without an md5 digest: the player never finds it complete"}},
        // What makes the parse fail or end early, and where.
        {"<?xml version=\"1.0\"?>\n<!DOCTYPE content>\n" + kClean,
         {"line 2: <!DOCTYPE> is not read as a declaration: the player takes it for an element and looks for its end "
          "until the document ends: " + rejected + " and keeps what it plays"}},
        {with(kClean, "findex=\"0\"/></playlist>", "findex=\"0\" loop=\"yes\"/></playlist>"),
         {"line 2: the player's parser gives up at the attribute loop of <pl_item>: " + rejected}},
        {"<content id=\"x\"><playlist pindex=\"0\" name=\"p\">\n",
         {"line 1: the document ends inside <content> (line 1), <playlist> (line 1): " + rejected}},
        {with(kClean, "<servers>", std::string(1, '\0') + "<servers>"),
         {"line 7: a NUL byte ends the document for the player: the rest is ignored",
          "file 0 \"a.mpg\" (line 3): server_id 0 names no server"}},
        {with(with(kClean, "<content id=\"t\" name=\"T\">", "<document id=\"t\">"), "</content>", "</document>"),
         {"line 1: the root element is <document>, not <content>: the player finds nothing in it",
          "the document has no id: the player does not take it up and keeps what it plays"}},
        // A schedule item that never gives an event: its only day is none the player reads.
        {with(kClean, period, "end=\"2027-01-01T00:00:00\"><day_item day=\"xx\" time=\"8:00\"/></sched_item>"),
         {"schedule item 0 (line 5), day item 0 (line 5): not a day the player reads: the entry never applies",
          "schedule item 0 (line 5): gives the player no event on any day from 2026-01-01T00:00:00 to "
          "2027-01-01T00:00:00"}},
    };
    for (const auto& c : cases) {
        sandbox::write_file("/tmp/quirk.xml", c.doc);
        ToolRun r = run_tool("/tmp/quirk.xml --check");
        EXPECT_EQ(r.status, c.findings.empty() ? 0 : 1) << r.out << r.err;
        std::istringstream out(r.out);
        std::vector<std::string> lines;
        for (std::string line; std::getline(out, line);) lines.push_back(line);
        if (c.findings.empty()) lines.erase(lines.begin(), lines.begin() + 1);  // "nothing to report"
        ASSERT_EQ(lines.size(), c.findings.size()) << r.out;
        for (std::size_t i = 0; i < lines.size(); ++i)
            EXPECT_EQ(lines[i].substr(0, c.findings[i].size()), c.findings[i]);
        // A document the player rejects is refused the other questions too.
        if (c.findings.size() == 1 && c.findings[0].find(rejected) != std::string::npos) {
            r = run_tool("/tmp/quirk.xml --dump");
            EXPECT_EQ(r.status, 1);
            EXPECT_NE(r.err.find("is not a content document the player can read"), std::string::npos) << r.err;
            EXPECT_EQ(r.out, "");
        }
    }
    for (const std::string& sample : {kLobby, kStore, std::string(EXAMPLES_DIR) + "/demo/content.xml"}) {
        ToolRun r = run_tool(sample + " --check");
        EXPECT_EQ(r.status, 0) << r.out;
        EXPECT_EQ(r.out, sample + ": nothing to report: the player reads it as written\n");
    }
}

// The store's last weekend of March, when the clock goes forward, with the demo's display
// times (on 06:00, off 22:26). Worked out by hand: the sale runs all day (item 0); the
// weekend special, the same playlist, takes over from 10:00 on Saturday (its period
// begins then, the day's 08:00 start already past) and from 08:00 on Sunday; its stops,
// Saturday 22:00 and the end of its period on Sunday 18:00, end the sale as well;
// "closing soon" from 20:45 to 21:00 hands back to whatever started last and was not
// stopped. On Sunday the clock times from 03:00 are summer time, at the same clock times.
const char* const kCancelled = "default: every start so far today was cancelled by a later stop of the same playlist";
const struct Expected {
    const char* day;
    std::vector<std::tuple<const char*, int, std::string, bool>> stretches;  // clock times, playlist, why, off
} kStoreWeekend[] = {
    {"Saturday 2026-03-28 (CET)",
     {{"00:00-06:00", 1, "schedule item 0", true}, {"06:00-10:00", 1, "schedule item 0", false},
      {"10:00-20:45", 1, "schedule item 1", false}, {"20:45-21:00", 2, "schedule item 2", false},
      {"21:00-22:00", 1, "schedule item 1", false}, {"22:00-22:26", 0, kCancelled, false},
      {"22:26-24:00", 0, kCancelled, true}}},
    {"Sunday 2026-03-29 (CET, CEST from 03:00)",
     {{"00:00 CET-06:00", 1, "schedule item 0", true}, {"06:00-08:00", 1, "schedule item 0", false},
      {"08:00-18:00", 1, "schedule item 1", false}, {"18:00-20:45", 0, kCancelled, false},
      {"20:45-21:00", 2, "schedule item 2", false}, {"21:00-22:26", 0, kCancelled, false},
      {"22:26-24:00", 0, kCancelled, true}}},
};

TEST(ScheduleInspectProgram, WeekAcrossTheChangeToSummerTime)
{
    set_central_europe();
    const char* names[] = {"Store loop", "Spring sale", "Closing soon"};
    std::string want = "\"Store & window\" (id c0ffee00-1234-4abc-8def-000000000042), in the time zone "
                       "CET-1CEST,M3.5.0,M10.5.0/3\nwith the display's on/off times of configuration "
                       "\"demo-cafe-config-1\"\n";
    for (const Expected& day : kStoreWeekend) {
        want += std::string("\n") + day.day + "\n";
        for (const auto& [times, pl, why, off] : day.stretches)
            want += std::string("  ") + times + "  video: playlist " + std::to_string(pl) + " \"" + names[pl] +
                    "\"; browser: none; " + why + (off ? "; display off" : "") + "\n";
    }
    ToolRun r = run_tool(kStore + " --from 2026-03-28 --days 2 --svg /tmp/week.svg --config " + EXAMPLES_DIR +
                         "/demo/config.xml");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, want);

    // The browser layer: the layout and its video area.
    r = run_tool(kLobby + " --from 2026-03-30 --days 1");
    EXPECT_NE(r.out.find("\n  11:30-14:00  video: playlist 1 \"Lunch menu\"; browser: layout 0 \"Menu board\", "
                         "video 1280x720 at 0,0 (1080 lines), 853x480 at 0,0 (720 lines), 67%x67% at 0%,0% "
                         "(other); schedule item 0\n"),
              std::string::npos)
        << r.out;
}

#ifdef SVG_READER
// The picture of that weekend read back as XML: a bar per stretch, with the stretch in
// its title, the bars of a day side by side across the hours, the same clock time at
// the same place on both days, the time zone in the title and no script.
struct Svg {
    std::vector<std::string> path;  // the elements open
    std::string title, text;
    std::map<std::string, std::pair<double, double>> bars;  // title: x, width
    double x = 0, width = 0;
    bool inBar = false, script = false;
};

TEST(ScheduleInspectProgram, WeekAsAPicture)
{
    set_central_europe();
    ASSERT_EQ(run_tool(kStore + " --from 2026-03-28 --days 2 --svg /tmp/week.svg --config " + EXAMPLES_DIR +
                       "/demo/config.xml")
                  .status,
              0);
    std::string text = sandbox::read_file("/tmp/week.svg");
    Svg svg;
    XML_Parser p = XML_ParserCreate("UTF-8");
    XML_SetUserData(p, &svg);
    XML_SetElementHandler(
        p,
        [](void* data, const XML_Char* name, const XML_Char** attrs) {
            auto& s = *static_cast<Svg*>(data);
            std::map<std::string, std::string> a;
            for (int i = 0; attrs[i] != nullptr; i += 2) a[attrs[i]] = attrs[i + 1];
            s.script = s.script || std::string(name) == "script";
            for (const auto& [k, v] : a) s.script = s.script || k.rfind("on", 0) == 0;
            if (a["class"] == "stretch") {
                s.inBar = true;
                s.x = std::stod(a["x"]);
                s.width = std::stod(a["width"]);
            }
            s.path.push_back(name);
            s.text.clear();
        },
        [](void* data, const XML_Char* name) {
            auto& s = *static_cast<Svg*>(data);
            s.path.pop_back();
            if (std::string(name) != "title") return;
            if (s.path.size() == 1) s.title = s.text;
            if (s.inBar) s.bars[s.text] = {s.x, s.width};
            s.inBar = false;
        });
    XML_SetCharacterDataHandler(p, [](void* data, const XML_Char* chars, int len) {
        static_cast<Svg*>(data)->text.append(chars, static_cast<std::size_t>(len));
    });
    ASSERT_EQ(XML_Parse(p, text.data(), static_cast<int>(text.size()), 1), XML_STATUS_OK)
        << XML_ErrorString(XML_GetErrorCode(p)) << " at line " << XML_GetCurrentLineNumber(p);
    XML_ParserFree(p);

    EXPECT_NE(svg.title.find("in the time zone CET-1CEST,M3.5.0,M10.5.0/3"), std::string::npos) << svg.title;
    EXPECT_FALSE(svg.script);
    std::size_t stretches = 0;
    std::map<std::string, double> at;  // the day and clock time a bar begins: its x
    for (const Expected& day : kStoreWeekend) {
        double end = -1;
        for (const auto& [times, pl, why, off] : day.stretches) {
            ++stretches;
            auto bar = std::find_if(svg.bars.begin(), svg.bars.end(), [&, &times = times](const auto& b) {
                std::string stretch = std::string(day.day) + " " + times + "  video: playlist " + std::to_string(pl);
                return b.first.rfind(stretch, 0) == 0;
            });
            ASSERT_NE(bar, svg.bars.end()) << day.day << " " << times;
            auto [x, width] = bar->second;
            if (end >= 0) {
                EXPECT_NEAR(x, end, 0.11) << bar->first;
            }
            end = x + width;
            at[std::string(day.day).substr(0, 3) + std::string(times).substr(0, 5)] = x;
        }
    }
    EXPECT_EQ(svg.bars.size(), stretches);
    EXPECT_NEAR(at["Sun06:00"], at["Sat06:00"], 0.01);
    EXPECT_NEAR(at["Sun20:45"], at["Sat20:45"], 0.01);
    EXPECT_NEAR(at["Sun00:00"], at["Sat00:00"], 0.01);
}
#endif

}  // namespace
