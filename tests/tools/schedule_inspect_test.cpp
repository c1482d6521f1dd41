// schedule-inspect: its explanation and JSON on records built here, and the program
// itself run on the sample documents under examples/.
#include "schedule-inspect/inspect.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/wait.h>

#include "content/content.h"
#include "support/sandbox.h"

namespace {

using Json = nlohmann::json;

constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";

DRAVIK_CONTENT content;  // static storage: tens of kilobytes

void set_zone(const char* tz)
{
    setenv("TZ", tz, 1);
    tzset();
}

std::string first_line(const std::string& s) { return s.substr(0, s.find('\n')); }

TEST(ScheduleInspect, LocalTimesAcrossClockChanges)
{
    set_zone(kCentralEurope);
    std::time_t t = 0;
    std::string why;
    ASSERT_TRUE(inspect::parse_local_time("2026-07-01T12:00:00", &t, &why));
    EXPECT_EQ(t, 1782900000);
    ASSERT_TRUE(inspect::parse_local_time("2026-07-01 12:00:00", &t, &why));
    EXPECT_EQ(t, 1782900000);
    // 02:30 on 29 March does not exist: read with winter time it is 03:30 summer time.
    ASSERT_TRUE(inspect::parse_local_time("2026-03-29T02:30:00", &t, &why));
    EXPECT_EQ(t, 1774747800);
    // 02:30 on 25 October happens twice: the first, in summer time.
    ASSERT_TRUE(inspect::parse_local_time("2026-10-25T02:30:00", &t, &why));
    EXPECT_EQ(t, 1792888200);

    for (const char* bad : {"2026-02-30T12:00:00", "2026-13-01T00:00:00", "2026-07-01T24:00:00",
                            "2026-07-01", "2026-7-1T12:00:00", "2026-07-01T12:00:00Z",
                            "2038-01-19T05:00:00", "tomorrow"})
        EXPECT_FALSE(inspect::parse_local_time(bad, &t, &why)) << bad;
}

TEST(ScheduleInspect, JsonOfARecordOutOfBounds)
{
    // Counts beyond the arrays' room never read past them, a size above 2^31 stays
    // unsigned, and text that is not UTF-8 still gives valid JSON.
    content = {};
    content.schedule.itemCount = 99;
    content.plcount = -4;
    content.filecount = 1;
    content.files[0].fsize = 4000000000u;
    content.name[0] = '\xff';
    Json j = Json::parse(inspect::dump_json(content));
    EXPECT_EQ(j["schedule"]["schedItems"].size(), static_cast<std::size_t>(kMaxScheduleItems));
    EXPECT_EQ(j["schedule"]["itemCount"], 99);
    EXPECT_TRUE(j["playlists"].empty());
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

std::string example(const char* name) { return std::string(EXAMPLES_DIR) + "/" + name; }

TEST(ScheduleInspectProgram, RefusesWhatItCannotRead)
{
    ToolRun r = run_tool("");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("usage: schedule-inspect"), std::string::npos);
    r = run_tool(example("lobby-content.xml") + " --at 2026-02-30T10:00:00");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("no such date"), std::string::npos) << r.err;
    EXPECT_EQ(run_tool(example("lobby-content.xml") + " --when now").status, 2);

    r = run_tool("/tmp/no-such-content.xml");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("cannot open /tmp/no-such-content.xml"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");

    // A pl_item with an attribute the player does not know, and a document cut short,
    // are documents the agent rejects.
    sandbox::write_file("/tmp/unknown-attribute.xml",
                        "<content id=\"x\"><playlist pindex=\"0\" name=\"p\">"
                        "<pl_item type=\"video\" findex=\"0\" loop=\"yes\"/></playlist></content>");
    sandbox::write_file("/tmp/cut-short.xml", "<content id=\"x\"><playlist pindex=\"0\" name=\"p\">");
    for (const char* file : {"/tmp/unknown-attribute.xml", "/tmp/cut-short.xml"}) {
        for (const char* option : {"--dump", "--at 2026-03-04T12:00:00"}) {
            r = run_tool(std::string(file) + " " + option);
            EXPECT_EQ(r.status, 1) << file;
            EXPECT_NE(r.err.find("is not a content document the player can read"), std::string::npos)
                << r.err;
            EXPECT_EQ(r.out, "");
        }
    }
}

// The agent's own parser reads both examples; everything below builds on that.
TEST(ScheduleInspectProgram, ExamplesAreDocumentsTheAgentReads)
{
    for (const char* name : {"lobby-content.xml", "store-content.xml"}) {
        dA_Initialize();
        EXPECT_EQ(dA_ParseContent(example(name).c_str()), 0) << name;
        EXPECT_EQ(dA_IsContentValid(), 1) << name;
    }
}

struct Case {
    const char* file;
    const char* at;
    const char* line;
};

TEST(ScheduleInspectProgram, ExamplesAtChosenMoments)
{
    set_zone(kCentralEurope);
    const Case cases[] = {
        // Lobby on a Wednesday: lunch with its menu board, afternoon, evening news.
        {"lobby-content.xml", "2026-03-04T12:00:00", "now=43200 playlist=1 layout=0 next=50400"},
        {"lobby-content.xml", "2026-03-04T15:00:00", "now=54000 playlist=0 layout=-1 next=61200"},
        {"lobby-content.xml", "2026-03-04T18:00:00", "now=64800 playlist=2 layout=-1 next=72000"},
        // Saturday: no day items at all.
        {"lobby-content.xml", "2026-03-07T12:00:00", "now=43200 playlist=0 layout=-1 next=86400"},
        // Store, Saturday of the weekend special: sale, closing soon, then the special's
        // stop at 22:00 ends the sale as well.
        {"store-content.xml", "2026-03-28T12:00:00", "now=43200 playlist=1 layout=-1 next=74700"},
        {"store-content.xml", "2026-03-28T20:50:00", "now=75000 playlist=2 layout=-1 next=75600"},
        {"store-content.xml", "2026-03-28T22:30:00", "now=81000 playlist=0 layout=-1 next=86400"},
        // Sunday, the day the clock goes forward.
        {"store-content.xml", "2026-03-29T12:00:00", "now=43200 playlist=1 layout=-1 next=64800"},
        {"store-content.xml", "2026-03-29T19:00:00", "now=68400 playlist=0 layout=-1 next=74700"},
        {"store-content.xml", "2026-03-30T10:00:00", "now=36000 playlist=1 layout=-1 next=74700"},
        // The sale's last evening: both stops at 21:00, the sale's item listed first.
        {"store-content.xml", "2026-04-05T20:50:00", "now=75000 playlist=2 layout=-1 next=75600"},
        {"store-content.xml", "2026-04-05T21:30:00", "now=77400 playlist=0 layout=-1 next=86400"},
    };
    for (const Case& c : cases) {
        ToolRun r = run_tool(example(c.file) + " --at " + c.at);
        EXPECT_EQ(r.status, 0) << c.file << " " << c.at << ": " << r.err;
        EXPECT_EQ(first_line(r.out), c.line) << c.file << " " << c.at;
    }

    // The explanation names what plays and why, the next change, the events with the
    // item behind each and the stop that cancelled a start, and the idle items.
    ToolRun r = run_tool(example("lobby-content.xml") + " --at 2026-03-04T12:00:00");
    for (const char* line :
         {"Playing:  playlist 1 \"Lunch menu\" with layout 0 \"Menu board\"\n",
          "Why:      schedule item 0 (2026-01-01T00:00:00 to 2027-01-01T00:00:00) started it at "
          "11:30:00\n",
          "Next:     a change at 14:00:00\n",
          "  14:00:00 future  stop   playlist 1 \"Lunch menu\"  from item 0 (2026-01-01T00:00:00 to "
          "2027-01-01T00:00:00)  <- next change\n"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << r.out;

    r = run_tool(example("store-content.xml") + " --at 2026-03-28T22:30:00");
    for (const char* line :
         {"Content:  \"Store & window\" (id c0ffee00-1234-4abc-8def-000000000042)\n",
          "Playing:  playlist 0 \"Store loop\" with no layout\n",
          "Why:      every start so far today was cancelled by a later stop of the same playlist\n",
          "Next:     no change for the rest of today\n",
          "  00:00:00 past    start  playlist 1 \"Spring sale\", no layout  from item 0 "
          "(2026-03-20T09:00:00 to 2026-04-05T21:00:00)  (cancelled by the stop at 22:00:00 of "
          "item 1)\n"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << r.out;

    r = run_tool(example("store-content.xml") + " --at 2026-03-30T10:00:00");
    EXPECT_NE(r.out.find("  item 1 (2026-03-28T10:00:00 to 2026-03-29T18:00:00), playlist 1 "
                         "\"Spring sale\": its period does not touch today\n"),
              std::string::npos)
        << r.out;
    r = run_tool(example("lobby-content.xml") + " --at 2026-03-07T12:00:00");
    EXPECT_NE(r.out.find("no schedule item has an event today"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("it has no day items for Saturday"), std::string::npos) << r.out;

    // Without --at it evaluates now: whatever that gives, the first line has its form.
    r = run_tool(example("lobby-content.xml"));
    EXPECT_EQ(r.status, 0);
    int now = -1, pl = -9, lo = -9, next = -9;
    EXPECT_EQ(std::sscanf(r.out.c_str(), "now=%d playlist=%d layout=%d next=%d", &now, &pl, &lo,
                          &next),
              4)
        << r.out;
    EXPECT_GE(now, 0);
    EXPECT_LT(now, 86400);
}

TEST(ScheduleInspectProgram, DumpShowsTheParsedDocument)
{
    ToolRun r = run_tool(example("lobby-content.xml") + " --dump");
    ASSERT_EQ(r.status, 0) << r.err;
    // In the record's own order.
    nlohmann::ordered_json ordered = nlohmann::ordered_json::parse(r.out);
    std::vector<std::string> keys;
    for (const auto& [k, v] : ordered.items()) keys.push_back(k);
    Json j = Json::parse(r.out);
    EXPECT_EQ(keys, (std::vector<std::string>{"id", "name", "plcount", "filecount", "servercount",
                                              "layoutcount", "playlists", "files", "schedule",
                                              "servers", "layouts"}));
    EXPECT_EQ(j["id"], "5d1c0a7e-3b7f-4c2a-9f10-8a6b2c4d1e01");
    EXPECT_EQ(j["name"], "Lobby screens");
    ASSERT_EQ(j["playlists"].size(), 3u);
    EXPECT_EQ(j["playlists"][1], Json::parse(R"({"pindex":1,"name":"Lunch menu","itemCount":2,
        "PlItems":[{"type":1,"findex":2,"duration":20},{"type":0,"findex":3,"duration":0}]})"));
    ASSERT_EQ(j["files"].size(), 6u);
    // Only four characters of each digest are kept.
    EXPECT_EQ(j["files"][5], Json::parse(R"({"findex":5,"type":2,"server_id":1,"fname":"menu.html",
        "fsize":2048,"path":"/pages","md5":"4a8a"})"));
    EXPECT_EQ(j["schedule"]["defaultpl_index"], 0);
    EXPECT_EQ(j["schedule"]["defaultlo_index"], -1);
    ASSERT_EQ(j["schedule"]["schedItems"].size(), 2u);
    const Json& lunch = j["schedule"]["schedItems"][0];
    EXPECT_EQ(lunch["dayItemCount"], 10);
    EXPECT_EQ(lunch["dayItems"][4], Json::parse(R"({"day":3,"mode":1,"time_of_day":41400})"));
    EXPECT_EQ(lunch["dayItems"][5], Json::parse(R"({"day":3,"mode":0,"time_of_day":50400})"));
    EXPECT_EQ(j["servers"][1], Json::parse(R"({"id":2,"address":"ftp://feeds.example.com"})"));
    ASSERT_EQ(j["layouts"].size(), 1u);
    EXPECT_EQ(j["layouts"][0], Json::parse(R"({"lindex":0,"name":"Menu board","fileCount":1,
        "plItemCount":1,"va1080p":{"x":0,"y":0,"width":1280,"height":720},
        "va720p":{"x":0,"y":0,"width":853,"height":480},"vaPct":{"x":0,"y":0,"width":67,"height":67},
        "layoutFiles":[{"type":2,"findex":5}],
        "layoutPLItems":[{"url":"http://cms.example.com/pages/menu.html","dur":0}]})"));

    r = run_tool(example("store-content.xml") + " --dump");
    ASSERT_EQ(r.status, 0) << r.err;
    j = Json::parse(r.out);
    EXPECT_EQ(j["name"], "Store & window");
    EXPECT_EQ(j["layouts"], Json::array());
    EXPECT_EQ(j["schedule"]["schedItems"][0]["dayItems"], Json::array());
    EXPECT_EQ(j["schedule"]["schedItems"][1]["dayItems"][0],
              Json::parse(R"({"day":6,"mode":1,"time_of_day":28800})"));
}

}  // namespace
