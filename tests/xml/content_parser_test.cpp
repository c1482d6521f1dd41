// The content document parser, over real files on the sandbox's tmpfs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "support/sandbox.h"
#include "xml/dravikAPI.h"
#include "xml/parsers.h"

namespace {

constexpr const char* kPath = "/tmp/dacontent.xml";

int parse(const std::string& doc)
{
    sandbox::write_file(kPath, doc);
    return dA_ParseContent(kPath);
}

std::string times(int n, std::string (*make)(int))
{
    std::string out;
    for (int i = 0; i < n; ++i) out += make(i);
    return out;
}

class ContentParser : public ::testing::Test {
protected:
    void SetUp() override { dA_Initialize(); }
    const DRAVIK_CONTENT& c = *dA_Content();
};

const char* const kDocument = R"(<?xml version="1.0" encoding="utf-8"?>
<!-- a content document as the server sends it -->
<content id="c-2026-001" name="Lobby">
  <servers>
    <server_item id="1" addr="http://media.example/files"/>
    <server_item id="2" addr="ftp://backup.example"></server_item>
  </servers>
  <files>
    <f_item findex="0" type="video" server_id="1" file="intro.mp4" size="1048576" path="/v" md5="0123456789abcdef"/>
    <f_item findex="1" type="img" file="logo.png" size="4096"/>
    <f_item findex="2" type="html" file="menu.html" server_id="2" colour="red"/>
  </files>
  <playlist pindex="0" name="Morning" shuffle="no">
    <pl_item type="vid" findex="0" dur="30"/>
    <pl_item type="image" findex="1" dur="10"><note>ignored</note></pl_item>
    <pl_item/>
  </playlist>
  <playlist pindex="1" name="Evening"></playlist>
  <schedule default_pindex="1" default_lindex="0" zone="x">
    <sched_item pindex="0" lindex="0" start="2026-01-01T00:00:00" end="2026-12-31T23:59:59">
      <day_item day="mo" mode="on" time="7:30"/>
      <day_item day="monday" mode="off" time="19:05" extra="1"/>
      <day_item/>
    </sched_item>
  </schedule>
  <layout lindex="3" name="Split">
    <vid_area_1080 x="10" y="20" width="1280" height="720"></vid_area_1080>
    <vid_area_pct x="5" width="50"/>
    <layout_files>
      <lo_file findex="1" type="img"/>
      <lo_file findex="2" type="html"/>
    </layout_files>
    <layout_playlist>
      <lo_pl_item url="http://ticker.example" dur="60"/>
    </layout_playlist>
  </layout>
</content>
)";

TEST_F(ContentParser, ReadsEverySectionWithItsDefaults)
{
    ASSERT_EQ(parse(kDocument), 0);
    EXPECT_EQ(dA_IsContentValid(), 1);
    EXPECT_STREQ(c.id, "c-2026-001");
    EXPECT_STREQ(c.name, "Lobby");

    ASSERT_EQ(c.servercount, 2);
    EXPECT_EQ(c.servers[0].id, 1);
    EXPECT_STREQ(c.servers[0].address, "http://media.example/files");
    EXPECT_STREQ(c.servers[1].address, "ftp://backup.example");

    ASSERT_EQ(c.filecount, 3);
    const DRAVIK_FILE_ITEM& f0 = c.files[0];
    EXPECT_EQ(f0.findex, 0);
    EXPECT_EQ(f0.type, 0);
    EXPECT_EQ(f0.server_id, 1);
    EXPECT_STREQ(f0.fname, "intro.mp4");
    EXPECT_EQ(f0.fsize, 1048576u);
    EXPECT_STREQ(f0.path, "/v");
    EXPECT_STREQ(f0.md5, "0123");  // four characters of the digest, on purpose
    EXPECT_EQ(c.files[1].type, 1);
    EXPECT_EQ(c.files[1].server_id, -1);  // no server_id
    EXPECT_STREQ(c.files[1].md5, "");
    EXPECT_STREQ(c.files[1].path, "");
    EXPECT_EQ(c.files[2].type, 2);  // an unknown attribute on an f_item is ignored

    ASSERT_EQ(c.plcount, 2);
    EXPECT_EQ(c.playlists[0].pindex, 0);
    EXPECT_STREQ(c.playlists[0].name, "Morning");
    ASSERT_EQ(c.playlists[0].itemCount, 3);
    EXPECT_EQ(c.playlists[0].PlItems[0].type, 0);
    EXPECT_EQ(c.playlists[0].PlItems[0].duration, 30);
    EXPECT_EQ(c.playlists[0].PlItems[1].type, 1);
    EXPECT_EQ(c.playlists[0].PlItems[1].findex, 1);
    EXPECT_EQ(c.playlists[0].PlItems[2].type, 0);  // defaults
    EXPECT_EQ(c.playlists[0].PlItems[2].findex, -1);
    EXPECT_EQ(c.playlists[0].PlItems[2].duration, 0);
    EXPECT_EQ(c.playlists[1].itemCount, 0);

    const DRAVIK_SCHEDULE& s = c.schedule;
    EXPECT_EQ(s.defaultpl_index, 1);
    EXPECT_EQ(s.defaultlo_index, 0);
    ASSERT_EQ(s.itemCount, 1);
    EXPECT_EQ(s.schedItems[0].pindex, 0);
    EXPECT_STREQ(s.schedItems[0].stime, "2026-01-01T00:00:00");
    EXPECT_STREQ(s.schedItems[0].etime, "2026-12-31T23:59:59");
    ASSERT_EQ(s.schedItems[0].dayItemCount, 3);
    const DAY_ITEM* d = s.schedItems[0].dayItems;
    EXPECT_EQ(d[0].day, 1);
    EXPECT_EQ(d[0].mode, 1);
    EXPECT_EQ(d[0].time_of_day, 27000);
    EXPECT_EQ(d[1].day, 1);
    EXPECT_EQ(d[1].mode, 0);
    EXPECT_EQ(d[1].time_of_day, 19 * 3600 + 5 * 60);
    EXPECT_EQ(d[2].day, 0);  // defaults
    EXPECT_EQ(d[2].mode, 1);
    EXPECT_EQ(d[2].time_of_day, 0);

    ASSERT_EQ(c.layoutcount, 1);
    const DRAVIK_LAYOUT& lo = c.layouts[0];
    EXPECT_EQ(lo.lindex, 3);
    EXPECT_STREQ(lo.name, "Split");
    EXPECT_EQ(lo.va1080p.x, 10);
    EXPECT_EQ(lo.va1080p.height, 720);
    EXPECT_EQ(lo.va720p.width, 1280);  // untouched: the default
    EXPECT_EQ(lo.va720p.height, 720);
    EXPECT_EQ(lo.vaPct.x, 5);
    EXPECT_EQ(lo.vaPct.width, 50);
    EXPECT_EQ(lo.vaPct.height, 100);
    ASSERT_EQ(lo.fileCount, 2);
    EXPECT_EQ(lo.layoutFiles[1].findex, 2);
    EXPECT_EQ(lo.layoutFiles[1].type, 2);
    ASSERT_EQ(lo.plItemCount, 1);
    EXPECT_STREQ(lo.layoutPLItems[0].url, "http://ticker.example");
    EXPECT_EQ(lo.layoutPLItems[0].dur, 60);
}

TEST_F(ContentParser, DefaultsOfAMinimalDocument)
{
    // No schedule, a layout without video areas.
    ASSERT_EQ(parse("<content id='x'><layout/></content>"), 0);
    EXPECT_EQ(c.schedule.defaultpl_index, -1);
    EXPECT_EQ(c.schedule.defaultlo_index, -1);
    EXPECT_EQ(c.schedule.itemCount, 0);
    ASSERT_EQ(c.layoutcount, 1);
    const DRAVIK_LAYOUT& lo = c.layouts[0];
    EXPECT_EQ(lo.va1080p.width, 1920);
    EXPECT_EQ(lo.va1080p.height, 1080);
    EXPECT_EQ(lo.va720p.width, 1280);
    EXPECT_EQ(lo.va720p.height, 720);
    EXPECT_EQ(lo.vaPct.width, 100);
    EXPECT_EQ(lo.vaPct.height, 100);
    EXPECT_EQ(lo.va1080p.x + lo.va1080p.y + lo.vaPct.x + lo.va720p.y, 0);

    // An empty file is an empty document.
    ASSERT_EQ(parse(""), 0);
    EXPECT_EQ(dA_IsContentValid(), 1);
    EXPECT_STREQ(c.id, "");
    EXPECT_EQ(c.plcount + c.filecount + c.servercount + c.layoutcount, 0);
}

TEST_F(ContentParser, MediaTypeWords)
{
    EXPECT_EQ(ConvertMediaType("video"), 0);
    EXPECT_EQ(ConvertMediaType("vid"), 0);
    EXPECT_EQ(ConvertMediaType("image"), 1);
    EXPECT_EQ(ConvertMediaType("img"), 1);
    EXPECT_EQ(ConvertMediaType("html"), 2);
    EXPECT_EQ(ConvertMediaType("VIDEO"), -1);
    EXPECT_EQ(ConvertMediaType(""), -1);
    // Through a document the word is cut to nine characters first.
    ASSERT_EQ(parse("<content><files><f_item type='VIDEO'/><f_item type='videovideo'/>"
                    "<f_item type='htm'/></files></content>"),
              0);
    EXPECT_EQ(c.files[0].type, -1);
    EXPECT_EQ(c.files[1].type, -1);
    EXPECT_EQ(c.files[2].type, -1);
}

// Strict where it matters to the server's documents, lenient elsewhere.
TEST_F(ContentParser, StrictnessOfEachSection)
{
    EXPECT_EQ(parse("<content><playlist><pl_item type='vid' speed='2'/></playlist></content>"), -1);
    EXPECT_EQ(dA_IsContentValid(), 0);
    EXPECT_EQ(parse("<content><files><f_item speed='2'/></files></content>"), 0);
    EXPECT_EQ(parse("<content><files count='1'><f_item/></files></content>"), -1);
    EXPECT_EQ(parse("<content><files><f_item/><note n='1'/></files></content>"), -1);
    // Unknown attributes elsewhere, and an unknown element with its own attributes, are
    // ignored.
    EXPECT_EQ(parse("<content xmlns='urn:x' id='a'><extra a='1'><b c='2'/></extra>"
                    "<servers n='1'><server_item port='80'/></servers>"
                    "<layout z='1'><vid_area_720 depth='3'/><layout_files q='1'>"
                    "<lo_file w='1'/></layout_files></layout></content>"),
              0);
    EXPECT_STREQ(c.id, "a");
    // A video area holds no element; a truncated document fails wherever it stops.
    EXPECT_EQ(parse("<content><layout><vid_area_pct><x/></vid_area_pct></layout></content>"), -1);
    for (const char* doc : {"<content><playlist>", "<content><files><f_item>", "<content><schedule><sched_item>",
                            "<content><servers>", "<content><layout><layout_files>", "<content><layout>",
                            "<content><extra>", "<content><layout><layout_playlist><lo_pl_item>",
                            "<content><schedule><sched_item><day_item>", "<content id='a"})
        EXPECT_EQ(parse(doc), -1) << doc;
    EXPECT_EQ(parse("<content></c"), -1);
    EXPECT_EQ(dA_ParseContent("/tmp/no-such-file.xml"), -1);
    EXPECT_EQ(dA_ParseContent("/tmp"), -1);  // a directory is unreadable, not empty
    EXPECT_EQ(dA_IsContentValid(), 0);
}

// An unknown element is skipped up to the first end tag of its name, so one nested in
// a namesake ends the skip early and the rest is read at the top level.
TEST_F(ContentParser, UnknownElementsAreSkippedToTheFirstEndTagOfTheirName)
{
    ASSERT_EQ(parse("<content><extra><playlist/></extra>"
                    "<extra><extra></extra><playlist pindex='7'></playlist>text</extra>"
                    "<empty/><servers><server_item id='3'/></servers></content>"),
              0);
    ASSERT_EQ(c.plcount, 1);
    EXPECT_EQ(c.playlists[0].pindex, 7);
    EXPECT_EQ(c.servercount, 1);

    // Only a root named `content` is read into: any other is skipped like the rest.
    ASSERT_EQ(parse("<document id='d'><playlist/></document>"), 0);
    EXPECT_STREQ(c.id, "");
    EXPECT_EQ(c.plcount, 0);
}

// Fields the document leaves out keep what was there before: the slot's old value for
// an f_item's findex, a sched_item's times and the content's name; the previous item's
// value for lo_file and lo_pl_item, which start at 0 and empty in each layout.
TEST_F(ContentParser, StaleFieldsAreNotReset)
{
    ASSERT_EQ(parse("<content name='first'><files><f_item findex='5'/><f_item findex='6'/></files>"
                    "<schedule><sched_item start='s1' end='e1'/></schedule></content>"),
              0);
    ASSERT_EQ(parse("<content><files><f_item/><f_item/><f_item/></files>"
                    "<schedule><sched_item/></schedule>"
                    "<layout><layout_files><lo_file/><lo_file findex='4' type='img'/>"
                    "<lo_file/></layout_files>"
                    "<layout_playlist><lo_pl_item/><lo_pl_item url='u' dur='9'/><lo_pl_item/>"
                    "</layout_playlist></layout>"
                    "<layout><layout_files><lo_file/></layout_files>"
                    "<layout_playlist><lo_pl_item dur='1'/></layout_playlist></layout></content>"),
              0);
    EXPECT_STREQ(c.name, "first");
    ASSERT_EQ(c.filecount, 3);
    EXPECT_EQ(c.files[0].findex, 5);
    EXPECT_EQ(c.files[1].findex, 6);
    EXPECT_EQ(c.files[2].findex, 0);
    EXPECT_STREQ(c.schedule.schedItems[0].stime, "s1");
    EXPECT_STREQ(c.schedule.schedItems[0].etime, "e1");
    EXPECT_EQ(c.schedule.schedItems[0].pindex, -1);  // reset: defaults

    ASSERT_EQ(c.layoutcount, 2);
    const DRAVIK_LAYOUT& a = c.layouts[0];
    ASSERT_EQ(a.fileCount, 3);
    EXPECT_EQ(a.layoutFiles[0].findex, 0);
    EXPECT_EQ(a.layoutFiles[0].type, 0);
    EXPECT_EQ(a.layoutFiles[2].findex, 4);
    EXPECT_EQ(a.layoutFiles[2].type, 1);
    ASSERT_EQ(a.plItemCount, 3);
    EXPECT_STREQ(a.layoutPLItems[0].url, "");
    EXPECT_EQ(a.layoutPLItems[0].dur, 0);
    EXPECT_STREQ(a.layoutPLItems[2].url, "u");
    EXPECT_EQ(a.layoutPLItems[2].dur, 9);
    const DRAVIK_LAYOUT& b = c.layouts[1];
    EXPECT_EQ(b.layoutFiles[0].findex, 0);
    EXPECT_STREQ(b.layoutPLItems[0].url, "");
    EXPECT_EQ(b.layoutPLItems[0].dur, 1);
}

std::string pl_item(int i) { return "<pl_item findex='" + std::to_string(i) + "'/>"; }
std::string playlist(int i) { return "<playlist pindex='" + std::to_string(i) + "'/>"; }
std::string f_item(int i) { return "<f_item findex='" + std::to_string(i) + "'/>"; }
std::string server(int i) { return "<server_item id='" + std::to_string(i) + "'/>"; }
std::string layout(int i) { return "<layout lindex='" + std::to_string(i) + "'/>"; }
std::string lo_file(int i) { return "<lo_file findex='" + std::to_string(i) + "'/>"; }
std::string lo_pl_item(int i) { return "<lo_pl_item dur='" + std::to_string(i) + "'/>"; }
std::string day_item(int i) { return "<day_item time='" + std::to_string(i) + ":00'/>"; }
std::string sched_item(int i) { return "<sched_item pindex='" + std::to_string(i) + "'/>"; }

// Entries beyond an array are read and dropped: the count stays at the capacity and the
// entries around are untouched. The item past a full playlist, schedule or schedule
// item also ends that section.
TEST_F(ContentParser, EntriesBeyondTheCapacityAreDropped)
{
    ASSERT_EQ(parse("<content>" + times(12, playlist) + "<files>" + times(203, f_item) + "</files>" +
                    "<servers>" + times(6, server) + "</servers>" + times(11, layout) + "</content>"),
              0);
    EXPECT_EQ(c.plcount, 10);
    EXPECT_EQ(c.playlists[9].pindex, 9);
    EXPECT_EQ(c.filecount, 200);
    EXPECT_EQ(c.files[199].findex, 199);
    EXPECT_EQ(c.servercount, 4);
    EXPECT_EQ(c.servers[3].id, 3);
    EXPECT_EQ(c.layoutcount, 10);
    EXPECT_EQ(c.layouts[9].lindex, 9);

    // 102 items: the 101st ends the playlist, the 102nd is an unknown element at the
    // top level; the next playlist is read as usual.
    ASSERT_EQ(parse("<content><playlist pindex='0'>" + times(102, pl_item) + "</playlist>" +
                    "<playlist pindex='1'>" + pl_item(7) + "</playlist></content>"),
              0);
    ASSERT_EQ(c.plcount, 2);
    EXPECT_EQ(c.playlists[0].itemCount, 100);
    EXPECT_EQ(c.playlists[0].PlItems[99].findex, 99);
    EXPECT_EQ(c.playlists[1].pindex, 1);
    ASSERT_EQ(c.playlists[1].itemCount, 1);
    EXPECT_EQ(c.playlists[1].PlItems[0].findex, 7);

    // 30 day entries: the 29th ends its schedule item, which still counts; the 30th is
    // then read at the schedule level and ignored. 12 schedule items: the 11th ends
    // the schedule.
    ASSERT_EQ(parse("<content><schedule default_pindex='2'><sched_item pindex='0'>" + times(30, day_item) +
                    "</sched_item>" + times(11, sched_item) + "</schedule>"
                    "<layout lindex='1'><layout_files>" + times(21, lo_file) + "</layout_files>"
                    "<layout_playlist>" + times(5, lo_pl_item) + "</layout_playlist></layout></content>"),
              0);
    const DRAVIK_SCHEDULE& s = c.schedule;
    EXPECT_EQ(s.defaultpl_index, 2);
    ASSERT_EQ(s.itemCount, 10);
    EXPECT_EQ(s.schedItems[0].dayItemCount, 28);
    EXPECT_EQ(s.schedItems[0].dayItems[27].time_of_day, 27 * 3600);
    EXPECT_EQ(s.schedItems[1].pindex, 0);
    EXPECT_EQ(s.schedItems[9].pindex, 8);
    EXPECT_EQ(c.layouts[0].fileCount, 20);
    EXPECT_EQ(c.layouts[0].layoutFiles[19].findex, 19);
    EXPECT_EQ(c.layouts[0].plItemCount, 4);
    EXPECT_EQ(c.layouts[0].layoutPLItems[3].dur, 3);
}

}  // namespace
