// The content document parser, over real files on the sandbox's tmpfs.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/record_text.h"
#include "support/sandbox.h"
#include "xml/dravikAPI.h"
#include "xml/parsers.h"

namespace {

using Rows = std::vector<std::string>;

int parse(const std::string& doc)
{
    sandbox::write_file("/tmp/dacontent.xml", doc);
    return dA_ParseContent("/tmp/dacontent.xml");
}

std::string row(const DRAVIK_FILE_ITEM& f)
{
    return fields(f.findex, f.type, f.server_id, f.fname, f.fsize, f.path, f.md5);
}
std::string row(const DRAVIK_PLAYLIST_ITEM& i) { return fields(i.type, i.findex, i.duration); }
std::string row(const DAY_ITEM& d) { return fields(d.day, d.mode, d.time_of_day); }
std::string row(const LAYOUT_VID_AREA& a) { return fields(a.x, a.y, a.width, a.height); }
std::string row(const LAYOUT_FILE& f) { return fields(f.findex, f.type); }
std::string row(const LAYOUT_PL_ITEM& i) { return fields(i.url, i.dur); }

// The first `count` entries of an array, one row each.
template <typename T, std::size_t N>
Rows rows(const T (&array)[N], int count)
{
    Rows out;
    for (int i = 0; i < count && i < static_cast<int>(N); ++i) out.push_back(row(array[i]));
    return out;
}

class ContentParser : public ::testing::Test {
protected:
    void SetUp() override { dA_Initialize(); }
    const DRAVIK_CONTENT& c = *dA_Content();
};

TEST_F(ContentParser, ReadsEverySectionWithItsDefaults)
{
    ASSERT_EQ(parse(R"(<?xml version="1.0" encoding="utf-8"?>
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
    <f_item findex="3" type="VIDEO"/><f_item findex="4" type="htm"/><f_item findex="5" type=""/>
  </files>
  <playlist pindex="0" name="Morning" shuffle="no">
    <pl_item type="vid" findex="0" dur="30"/>
    <pl_item type="image" findex="1" dur="10"><note>ignored</note></pl_item>
    <pl_item/>
  </playlist>
  <playlist pindex="1" name="Evening"></playlist>
  <schedule default_pindex="1" default_lindex="0" zone="x">
    <sched_item pindex="0" lindex="2" start="2026-01-01T00:00:00" end="2026-12-31T23:59:59">
      <day_item day="mo" mode="on" time="7:30"/>
      <day_item day="monday" mode="off" time="19:05" extra="1"/>
      <day_item/>
    </sched_item>
  </schedule>
  <layout lindex="3" name="Split">
    <vid_area_1080 x="10" y="20" width="1280" height="720"></vid_area_1080>
    <vid_area_pct x="5" width="50"/>
    <layout_files><lo_file findex="1" type="img"/><lo_file findex="2" type="html"/></layout_files>
    <layout_playlist><lo_pl_item url="http://ticker.example" dur="60"/></layout_playlist>
  </layout>
  <layout/>
</content>
)"),
              0);
    EXPECT_EQ(dA_IsContentValid(), 1);
    EXPECT_EQ(fields(c.id, c.name, c.servercount), "c-2026-001,Lobby,2");
    EXPECT_EQ(fields(c.servers[0].id, c.servers[0].address, c.servers[1].id, c.servers[1].address),
              "1,http://media.example/files,2,ftp://backup.example");
    // Four characters of the digest, on purpose; no server_id is -1; an unknown
    // attribute on an f_item is ignored; type words are exact and lower case.
    EXPECT_EQ(rows(c.files, c.filecount),
              (Rows{"0,0,1,intro.mp4,1048576,/v,0123", "1,1,-1,logo.png,4096,,", "2,2,2,menu.html,0,,",
                    "3,-1,-1,,0,,", "4,-1,-1,,0,,", "5,-1,-1,,0,,"}));

    ASSERT_EQ(c.plcount, 2);
    EXPECT_EQ(fields(c.playlists[0].pindex, c.playlists[0].name, c.playlists[1].pindex, c.playlists[1].name),
              "0,Morning,1,Evening");
    EXPECT_EQ(rows(c.playlists[0].PlItems, c.playlists[0].itemCount), (Rows{"0,0,30", "1,1,10", "0,-1,0"}));
    EXPECT_EQ(c.playlists[1].itemCount, 0);

    const DRAVIK_SCHEDULE& s = c.schedule;
    ASSERT_EQ(fields(s.defaultpl_index, s.defaultlo_index, s.itemCount), "1,0,1");
    const SCHEDULE_ITEM& item = s.schedItems[0];
    EXPECT_EQ(fields(item.pindex, item.lindex, item.stime, item.etime), "0,2,2026-01-01T00:00:00,2026-12-31T23:59:59");
    EXPECT_EQ(rows(item.dayItems, item.dayItemCount), (Rows{"1,1,27000", "1,0,68700", "0,1,0"}));

    ASSERT_EQ(c.layoutcount, 2);
    const DRAVIK_LAYOUT& lo = c.layouts[0];
    EXPECT_EQ(fields(lo.lindex, lo.name), "3,Split");
    // An area left out, and the fields an area leaves out, keep their defaults.
    EXPECT_EQ(fields(row(lo.va1080p), row(lo.va720p), row(lo.vaPct)), "10,20,1280,720,0,0,1280,720,5,0,50,100");
    const DRAVIK_LAYOUT& bare = c.layouts[1];
    EXPECT_EQ(fields(row(bare.va1080p), row(bare.va720p), row(bare.vaPct)), "0,0,1920,1080,0,0,1280,720,0,0,100,100");
    EXPECT_EQ(rows(lo.layoutFiles, lo.fileCount), (Rows{"1,1", "2,2"}));
    EXPECT_EQ(rows(lo.layoutPLItems, lo.plItemCount), (Rows{"http://ticker.example,60"}));
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
                            "<content><schedule><sched_item><day_item>", "<content id='a", "<content></c"})
        EXPECT_EQ(parse(doc), -1) << doc;
    EXPECT_EQ(dA_ParseContent("/tmp/no-such-file.xml"), -1);
    EXPECT_EQ(dA_ParseContent("/tmp"), -1);  // a directory is unreadable, not empty
    EXPECT_EQ(dA_IsContentValid(), 0);
}

// An unknown element is skipped up to the first end tag of its name, so one nested in
// a namesake ends the skip early and the rest is read at the top level. Only a root
// named `content` is read into: any other is skipped like the rest, leaving a valid,
// empty content with the schedule's defaults, as an empty file does.
TEST_F(ContentParser, UnknownElementsAreSkippedToTheFirstEndTagOfTheirName)
{
    ASSERT_EQ(parse("<content><extra><b/><playlist pindex='8'/></extra>"
                    "<extra><extra></extra><playlist pindex='7'></playlist>text</extra>"
                    "<empty/><servers><server_item id='3'/></servers></content>"),
              0);
    EXPECT_EQ(fields(c.plcount, c.playlists[0].pindex, c.servercount), "1,7,1");
    for (const char* doc : {"<document id='d'><playlist/><schedule default_pindex='1'/></document>", ""}) {
        ASSERT_EQ(parse(doc), 0) << doc;
        EXPECT_EQ(dA_IsContentValid(), 1);
        const DRAVIK_SCHEDULE& s = c.schedule;
        EXPECT_EQ(fields(c.id, c.plcount, c.filecount, c.servercount, c.layoutcount, s.defaultpl_index,
                         s.defaultlo_index, s.itemCount),
                  ",0,0,0,0,-1,-1,0") << doc;
    }
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
                    "<layout><layout_files><lo_file/><lo_file findex='4' type='img'/><lo_file/></layout_files>"
                    "<layout_playlist><lo_pl_item/><lo_pl_item url='u' dur='9'/><lo_pl_item/>"
                    "</layout_playlist></layout>"
                    "<layout><layout_files><lo_file/></layout_files>"
                    "<layout_playlist><lo_pl_item dur='1'/></layout_playlist></layout></content>"),
              0);
    EXPECT_STREQ(c.name, "first");
    EXPECT_EQ(fields(c.filecount, c.files[0].findex, c.files[1].findex, c.files[2].findex), "3,5,6,0");
    const SCHEDULE_ITEM& item = c.schedule.schedItems[0];
    EXPECT_EQ(fields(item.stime, item.etime, item.pindex), "s1,e1,-1");  // the index is reset

    ASSERT_EQ(c.layoutcount, 2);
    const DRAVIK_LAYOUT& a = c.layouts[0];
    const DRAVIK_LAYOUT& b = c.layouts[1];
    EXPECT_EQ(rows(a.layoutFiles, a.fileCount), (Rows{"0,0", "4,1", "4,1"}));
    EXPECT_EQ(rows(a.layoutPLItems, a.plItemCount), (Rows{",0", "u,9", "u,9"}));
    EXPECT_EQ(rows(b.layoutFiles, b.fileCount), (Rows{"0,0"}));
    EXPECT_EQ(rows(b.layoutPLItems, b.plItemCount), (Rows{",1"}));
}

// Entries beyond an array are read and dropped: the count stays at the capacity and the
// entries around are untouched. The item past a full playlist, schedule or schedule
// item also ends that section.
TEST_F(ContentParser, EntriesBeyondTheCapacityAreDropped)
{
    ASSERT_EQ(parse("<content>" + repeat(12, "<playlist pindex='#'/>") + "<files>" +
                    repeat(203, "<f_item findex='#'/>") + "</files><servers>" + repeat(6, "<server_item id='#'/>") +
                    "</servers>" + repeat(11, "<layout lindex='#'/>") + "</content>"),
              0);
    EXPECT_EQ(fields(c.plcount, c.playlists[9].pindex, c.filecount, c.files[199].findex), "10,9,200,199");
    EXPECT_EQ(fields(c.servercount, c.servers[3].id, c.layoutcount, c.layouts[9].lindex), "4,3,10,9");

    // 102 items: the 101st ends the playlist, so the rest of it is read at the top
    // level, where the 102nd is an unknown element and the servers count.
    ASSERT_EQ(parse("<content><playlist pindex='0'>" + repeat(102, "<pl_item findex='#'/>") +
                    "<servers><server_item/></servers></playlist>"
                    "<playlist pindex='1'><pl_item findex='7'/></playlist></content>"),
              0);
    ASSERT_EQ(fields(c.plcount, c.servercount), "2,1");
    const DRAVIK_PLAYLIST& p = c.playlists[1];
    EXPECT_EQ(fields(c.playlists[0].itemCount, c.playlists[0].PlItems[99].findex), "100,99");
    EXPECT_EQ(fields(p.pindex, p.itemCount, p.PlItems[0].findex), "1,1,7");

    // 30 day entries: the 29th ends its schedule item, which still counts, and the rest
    // of it (the 30th, a nested sched_item) is read at the schedule level. 12 schedule
    // items: the 11th ends the schedule, and the rest of it is read at the top level.
    ASSERT_EQ(parse("<content><schedule default_pindex='2'><sched_item pindex='0'>" +
                    repeat(30, "<day_item time='#:00'/>") + "<sched_item pindex='7'/></sched_item>" +
                    repeat(10, "<sched_item pindex='#'/>") + "<servers><server_item/></servers></schedule>"
                    "<layout lindex='1'><layout_files>" + repeat(21, "<lo_file findex='#'/>") +
                    "</layout_files><layout_playlist>" + repeat(5, "<lo_pl_item dur='#'/>") +
                    "</layout_playlist></layout></content>"),
              0);
    const DRAVIK_SCHEDULE& s = c.schedule;
    const SCHEDULE_ITEM& first = s.schedItems[0];
    EXPECT_EQ(fields(s.defaultpl_index, s.itemCount, first.dayItemCount, first.dayItems[27].time_of_day),
              "2,10,28,97200");
    EXPECT_EQ(fields(s.schedItems[1].pindex, s.schedItems[2].pindex, s.schedItems[9].pindex, c.servercount),
              "7,0,7,1");
    const DRAVIK_LAYOUT& lo = c.layouts[0];
    EXPECT_EQ(fields(lo.fileCount, lo.layoutFiles[19].findex, lo.plItemCount, lo.layoutPLItems[3].dur), "20,19,4,3");
}

}  // namespace
