// schedule-inspect run in the sandbox on the sample documents under examples/ and on
// documents with a quirk: a moment, the week view and its picture, --check, --dump.
#include <cstdio>
#include <filesystem>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <sys/wait.h>
#include <tuple>
#include <vector>
#ifdef SVG_READER
#include <expat.h>
#endif

#include "support/sandbox.h"

namespace {

using Texts = std::vector<std::string>;

// The program's exit status, standard output and standard error.
std::tuple<int, std::string, std::string> run(const std::string& args)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    int w = std::system((SCHEDULE_INSPECT " " + args + " >/tmp/inspect.out 2>/tmp/inspect.err").c_str());
    return {WIFEXITED(w) ? WEXITSTATUS(w) : -1, sandbox::read_file("/tmp/inspect.out"), sandbox::read_file("/tmp/inspect.err")};
}

const std::string kLobby = EXAMPLES_DIR "/lobby-content.xml", kStore = EXAMPLES_DIR "/store-content.xml";
const std::string kWeek = kStore + " --from 2026-03-28 --days 2 --svg /tmp/week.svg --config " EXAMPLES_DIR "/demo/config.xml";

TEST(ScheduleInspect, WhatPlaysAtAMomentAndWhy)
{
    const std::tuple<std::string, const char*, Texts> cases[] = {
        {kLobby + " --at 2026-03-04T12:00:00", "now=43200 playlist=1 layout=0 next=50400",
         {"Playing:  playlist 1 \"Lunch menu\" with layout 0 \"Menu board\"\n",
          "Why:      schedule item 0 (2026-01-01T00:00:00 to 2027-01-01T00:00:00) started it at 11:30:00\n",
          "  14:00:00 future  stop   playlist 1 \"Lunch menu\"  from item 0 (2026-01-01T00:00:00 to "
          "2027-01-01T00:00:00)  <- next change\n"}},
        // The weekend special's stop at 22:00 ends the sale too; then the idle item.
        {kStore + " --at 2026-03-28T22:30:00", "now=81000 playlist=0 layout=-1 next=86400",
         {"Why:      every start so far today was cancelled by a later stop of the same playlist\n",
          "  00:00:00 past    start  playlist 1 \"Spring sale\", no layout  from item 0 (2026-03-20T09:00:00 to "
          "2026-04-05T21:00:00)  (cancelled by the stop at 22:00:00 of item 1)\n"}},
        {kStore + " --at 2026-03-30T10:00:00", "now=36000 playlist=1 layout=-1 next=74700",
         {"  item 1 (2026-03-28T10:00:00 to 2026-03-29T18:00:00), playlist 1 \"Spring sale\": its period does not "
          "touch today\n"}},
        // 02:30 does not exist on the day the clock goes forward: it counts as 03:30.
        {kStore + " --at '2026-03-29 02:30:00'", "now=12600 playlist=1 layout=-1 next=28800", {}},
    };
    for (const auto& [args, first, lines] : cases) {
        auto [status, out, err] = run(args);
        EXPECT_EQ(status, 0) << args << err;
        EXPECT_EQ(out.substr(0, out.find('\n')), first) << args;
        for (const std::string& line : lines) EXPECT_NE(out.find(line), std::string::npos) << line << out;
    }

    // The record as the agent parsed it, in its own order: only the used entries of each
    // array, four characters of each digest.
    auto [status, out, err] = run(kLobby + " --dump");
    ASSERT_EQ(status, 0) << err;
    const nlohmann::ordered_json j = nlohmann::ordered_json::parse(out);
    Texts keys;
    for (const auto& [k, v] : j.items()) keys.push_back(k);
    EXPECT_EQ(keys, (Texts{"id", "name", "plcount", "filecount", "servercount", "layoutcount", "playlists", "files",
                           "schedule", "servers", "layouts"}));
    EXPECT_EQ(j["files"].size(), 6u);
    EXPECT_EQ(j["files"][5].dump(), R"({"findex":5,"type":2,"server_id":0,"fname":"menu.html","fsize":2048,"path":"/pages","md5":"4a8a"})");

    // A wrong command line is refused with status 2, a document it cannot read with 1.
    for (const char* args : {"", " --at 2026-02-30T10:00:00", " --at 2038-01-19T05:00:00", " --days 367",
                             " --from 2038-01-17 --days 3", " --check --dump", " --when now"})
        EXPECT_EQ(std::get<0>(run(args[0] ? kLobby + args : "")), 2) << args;
    EXPECT_EQ(run("/tmp/none.xml"), std::make_tuple(1, std::string(), std::string("schedule-inspect: cannot open /tmp/none.xml: No such file or directory\n")));
}

// Each document under quirks/ is one the player reads as written but for one quirk:
// entries beyond a capacity, moments beyond the 32-bit clock, names of things the
// document does not have, files that never count as complete, what makes the parse
// fail or end early. Its .expected file holds the findings --check gives, in order.
TEST(ScheduleInspect, CheckFindsWhatThePlayerReadsDifferently)
{
    int documents = 0;
    for (const auto& entry : std::filesystem::directory_iterator(QUIRKS_DIR)) {
        std::string path = entry.path().string(), expected = path;
        if (!path.ends_with(".xml")) continue;
        ++documents;
        EXPECT_EQ(run(path + " --check"), std::make_tuple(1, sandbox::read_file(expected.replace(path.size() - 3, 3, "expected")), std::string()));
        // A document the player rejects is refused the other questions too.
        if (sandbox::read_file(expected).find("the player rejects the whole document") != std::string::npos) {
            EXPECT_EQ(run(path + " --dump"), std::make_tuple(1, std::string(), "schedule-inspect: " + path + " is not a content "
                      "document the player can read (the agent's parser rejects it; --check says where)\n"));
        }
    }
    EXPECT_GE(documents, 17);
    for (const std::string& sample : {kLobby, kStore, std::string(EXAMPLES_DIR) + "/demo/content.xml"})
        EXPECT_EQ(run(sample + " --check"), std::make_tuple(0, sample + ": nothing to report: the player reads it as written\n", std::string()));
}

// The store's last weekend of March, when the clock goes forward, with the demo's display
// times (on 06:00, off 22:26). Worked out by hand: the sale runs all day (item 0); the
// weekend special, the same playlist, takes over from 10:00 on Saturday (its period
// begins then, the day's 08:00 start already past) and from 08:00 on Sunday; its stops,
// Saturday 22:00 and the end of its period on Sunday 18:00, end the sale as well;
// "closing soon" from 20:45 to 21:00 hands back to whatever started last and was not
// stopped. On Sunday the clock times from 03:00 are summer time, at the same clock times.
const char* const kCancelled = "default: every start so far today was cancelled by a later stop of the same playlist";
const std::pair<const char*, std::vector<std::tuple<const char*, int, const char*, bool>>> kWeekend[] = {
    {"Saturday 2026-03-28 (CET)",  // each stretch: clock times, playlist, why, display off
     {{"00:00-06:00", 1, "schedule item 0", true}, {"06:00-10:00", 1, "schedule item 0", false},
      {"10:00-20:45", 1, "schedule item 1", false}, {"20:45-21:00", 2, "schedule item 2", false},
      {"21:00-22:00", 1, "schedule item 1", false}, {"22:00-22:26", 0, kCancelled, false}, {"22:26-24:00", 0, kCancelled, true}}},
    {"Sunday 2026-03-29 (CET, CEST from 03:00)",
     {{"00:00 CET-06:00", 1, "schedule item 0", true}, {"06:00-08:00", 1, "schedule item 0", false},
      {"08:00-18:00", 1, "schedule item 1", false}, {"18:00-20:45", 0, kCancelled, false},
      {"20:45-21:00", 2, "schedule item 2", false}, {"21:00-22:26", 0, kCancelled, false}, {"22:26-24:00", 0, kCancelled, true}}},
};

TEST(ScheduleInspect, WeekAcrossTheChangeToSummerTime)
{
    const char* names[] = {"Store loop", "Spring sale", "Closing soon"};
    std::string want = "\"Store & window\" (id c0ffee00-1234-4abc-8def-000000000042), in the time zone "
                       "CET-1CEST,M3.5.0,M10.5.0/3\nwith the display's on/off times of configuration \"demo-cafe-config-1\"\n";
    for (const auto& [day, stretches] : kWeekend) {
        want += std::string("\n") + day + "\n";
        for (const auto& [times, pl, why, off] : stretches)
            want += std::string("  ") + times + "  video: playlist " + std::to_string(pl) + " \"" + names[pl] +
                    "\"; browser: none; " + why + (off ? "; display off" : "") + "\n";
    }
    EXPECT_EQ(run(kWeek), std::make_tuple(0, want, std::string()));
    // The browser layer: the layout and its video areas.
    EXPECT_NE(std::get<1>(run(kLobby + " --from 2026-03-30 --days 1"))
                  .find("\n  11:30-14:00  video: playlist 1 \"Lunch menu\"; browser: layout 0 \"Menu board\", video "
                        "1280x720 at 0,0 (1080 lines), 853x480 at 0,0 (720 lines), 67%x67% at 0%,0% (other); schedule item 0\n"),
              std::string::npos);
}

#ifdef SVG_READER
// The picture of that weekend: well-formed XML, a bar per stretch with the stretch in its
// title, the bars of a day side by side across the hours, the same clock time at the same
// place on both days, the time zone in the title and no script.
TEST(ScheduleInspect, WeekAsAPicture)
{
    ASSERT_EQ(std::get<0>(run(kWeek)), 0);
    const std::string text = sandbox::read_file("/tmp/week.svg");
    XML_Parser p = XML_ParserCreate("UTF-8");
    ASSERT_EQ(XML_Parse(p, text.data(), static_cast<int>(text.size()), 1), XML_STATUS_OK)
        << XML_ErrorString(XML_GetErrorCode(p)) << " at line " << XML_GetCurrentLineNumber(p);
    XML_ParserFree(p);
    EXPECT_TRUE(std::regex_search(text, std::regex(R"(<svg [^>]*>\n<title>[^<]*in the time zone CET-1CEST,M3.5.0,M10.5.0/3)")));
    EXPECT_FALSE(std::regex_search(text, std::regex(R"(<script|\son[a-z]+=)", std::regex::icase)));
    std::map<std::string, std::pair<double, double>> bars;  // title: x, width
    const std::regex rect(R"re(<rect class="stretch" x="([0-9.]+)" y="[^"]*" width="([0-9.]+)"[^>]*><title>([^<]*)</title>)re");
    for (std::sregex_iterator m(text.begin(), text.end(), rect), none; m != none; ++m)
        bars[(*m)[3]] = {std::stod((*m)[1]), std::stod((*m)[2])};
    std::size_t stretches = 0;
    std::map<std::string, double> at;  // the day and clock time a bar begins: its x
    for (const auto& [day, list] : kWeekend) {
        double end = -1;
        for (const auto& [times, pl, why, off] : list) {
            ++stretches;
            const std::string head = std::string(day) + " " + times + "  video: playlist " + std::to_string(pl);
            auto bar = bars.lower_bound(head);
            ASSERT_TRUE(bar != bars.end() && bar->first.rfind(head, 0) == 0) << head;
            auto [x, width] = bar->second;
            if (end >= 0) {
                EXPECT_NEAR(x, end, 0.11) << bar->first;
            }
            end = x + width;
            at[std::string(day).substr(0, 3) + std::string(times).substr(0, 5)] = x;
        }
    }
    EXPECT_EQ(bars.size(), stretches);
    for (const char* time : {"00:00", "06:00", "20:45"}) EXPECT_NEAR(at[std::string("Sun") + time], at[std::string("Sat") + time], 0.01) << time;
}
#endif

}  // namespace
