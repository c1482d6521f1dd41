// The document parsers (content, channel configuration, plain configuration, player,
// download request), over real files on the sandbox's tmpfs.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/record_text.h"
#include "support/sandbox.h"
#include "xml/dravikAPI.h"

namespace {

using Rows = std::vector<std::string>;

const char* file_with(const std::string& doc)
{
    sandbox::write_file("/tmp/doc.xml", doc);
    return "/tmp/doc.xml";
}
int content(const std::string& doc) { return dA_ParseContent(file_with(doc)); }
int channel(const std::string& doc) { return dA_ParseConfigurationCH(file_with(doc)); }

Rows items;  // handed to the callback, as "name=data"
void record(DRAVIK_NAME_DATA* item) { items.push_back(std::string(item->name) + "=" + item->data); }

std::string row(const DRAVIK_FILE_ITEM& f) { return fields(f.findex, f.type, f.server_id, f.fname, f.fsize, f.path, f.md5); }
std::string row(const DRAVIK_PLAYLIST_ITEM& i) { return fields(i.type, i.findex, i.duration); }
std::string row(const DAY_ITEM& d) { return fields(d.day, d.mode, d.time_of_day); }
std::string row(const AOO_ITEM& d) { return fields(d.day, d.mode, d.time_of_day); }
std::string row(const LAYOUT_VID_AREA& a) { return fields(a.x, a.y, a.width, a.height); }
std::string row(const LAYOUT_FILE& f) { return fields(f.findex, f.type); }
std::string row(const LAYOUT_PL_ITEM& i) { return fields(i.url, i.dur); }
template <typename T, std::size_t N>
Rows rows(const T (&array)[N], int count)
{
    Rows out;
    for (int i = 0; i < count && i < static_cast<int>(N); ++i) out.push_back(row(array[i]));
    return out;
}

class Parsers : public ::testing::Test {
protected:
    void SetUp() override
    {
        dA_Initialize();
        items.clear();
    }
    const DRAVIK_CONTENT& c = *dA_Content();
    const DRAVIK_CONFIGURATION_CH& ch = *dA_ConfigurationCH();
};

TEST_F(Parsers, ContentEverySectionWithItsDefaults)
{
    ASSERT_EQ(content(R"(<?xml version="1.0" encoding="utf-8"?>
<!-- a content document as the server sends it -->
<content id="c-2026-001" name="Lobby" xmlns="urn:x"><extra a="1"><b c="2"/></extra>
  <servers n="1"><server_item id="1" addr="http://media.example/files" port="80"/></servers>
  <files>
    <f_item findex="0" type="video" server_id="1" file="intro.mp4" size="1048576" path="/v" md5="0123456789abcdef"/>
    <f_item findex="1" type="img" file="logo.png" size="4096" colour="red"/>
    <f_item findex="2" type="html"/><f_item findex="3" type="VIDEO"/><f_item findex="4" type="htm"/>
  </files>
  <playlist pindex="0" name="Morning" shuffle="no">
    <pl_item type="vid" findex="0" dur="30"/><pl_item type="image" findex="1" dur="10"><note>x</note></pl_item><pl_item/>
  </playlist>
  <schedule default_pindex="1" default_lindex="0" zone="x">
    <sched_item pindex="0" lindex="2" start="2026-01-01T00:00:00" end="2026-12-31T23:59:59" note="y">
      <day_item day="mo" mode="on" time="7:30"/><day_item day="monday" mode="off" time="19:05" extra="1"/><day_item/>
    </sched_item>
  </schedule>
  <layout lindex="3" name="Split" z="1">
    <vid_area_1080 x="10" y="20" width="1280" height="720"></vid_area_1080><vid_area_pct x="5" width="50" depth="3"/>
    <layout_files q="1"><lo_file findex="1" type="img" w="1"/><lo_file findex="2" type="html"/></layout_files>
    <layout_playlist r="1"><lo_pl_item url="http://ticker.example" dur="60" s="1"/></layout_playlist>
  </layout>
  <layout/>
</content>
)"),
              0);
    EXPECT_EQ(dA_IsContentValid(), 1);
    EXPECT_EQ(fields(c.id, c.name, c.servercount, c.servers[0].id, c.servers[0].address),
              "c-2026-001,Lobby,1,1,http://media.example/files");
    // Four characters of the digest, on purpose; no server_id is -1; type words are exact.
    EXPECT_EQ(rows(c.files, c.filecount), (Rows{"0,0,1,intro.mp4,1048576,/v,0123", "1,1,-1,logo.png,4096,,",
                                                "2,2,-1,,0,,", "3,-1,-1,,0,,", "4,-1,-1,,0,,"}));
    EXPECT_EQ(fields(c.plcount, c.playlists[0].name), "1,Morning");
    EXPECT_EQ(rows(c.playlists[0].PlItems, c.playlists[0].itemCount), (Rows{"0,0,30", "1,1,10", "0,-1,0"}));
    const DRAVIK_SCHEDULE& s = c.schedule;
    const SCHEDULE_ITEM& item = s.schedItems[0];
    EXPECT_EQ(fields(s.defaultpl_index, s.defaultlo_index, s.itemCount, item.pindex, item.lindex, item.stime, item.etime),
              "1,0,1,0,2,2026-01-01T00:00:00,2026-12-31T23:59:59");
    EXPECT_EQ(rows(item.dayItems, item.dayItemCount), (Rows{"1,1,27000", "1,0,68700", "0,1,0"}));
    // An area left out, and the fields an area leaves out, keep their defaults.
    const DRAVIK_LAYOUT &lo = c.layouts[0], &bare = c.layouts[1];
    EXPECT_EQ(fields(c.layoutcount, lo.lindex, lo.name, row(lo.va1080p), row(lo.va720p), row(lo.vaPct)),
              "2,3,Split,10,20,1280,720,0,0,1280,720,5,0,50,100");
    EXPECT_EQ(fields(row(bare.va1080p), row(bare.vaPct)), "0,0,1920,1080,0,0,100,100");
    EXPECT_EQ(rows(lo.layoutFiles, lo.fileCount), (Rows{"1,1", "2,2"}));
    EXPECT_EQ(rows(lo.layoutPLItems, lo.plItemCount), (Rows{"http://ticker.example,60"}));
}

TEST_F(Parsers, ContentStrictWhereTheServerIsAndLenientElsewhere)
{
    const struct {
        std::string doc;
        int result;
        const char* record = "";  // id, plcount, the first playlist's pindex, default_pindex
    } cases[] = {
        {"<content><playlist><pl_item type='vid' speed='2'/></playlist></content>", -1},
        {"<content><files count='1'><f_item/></files></content>", -1},  // deliberately strict
        {"<content><files><f_item/><note n='1'/></files></content>", -1},
        {"<content><layout><vid_area_pct><x/></vid_area_pct></layout></content>", -1},
        // An unknown element is skipped to the first end tag of its name; a root of another
        // name, or an empty file, gives a valid, empty content.
        {"<content><extra><extra></extra><playlist pindex='7'></playlist>x</extra></content>", 0, ",1,7,-1"},
        {"<document id='d'><playlist/><schedule default_pindex='1'/></document>", 0, ",0,0,-1"}, {"", 0, ",0,0,-1"},
        // A document cut short fails wherever it stops.
        {"<content><playlist>", -1}, {"<content><files><f_item>", -1}, {"<content><schedule><sched_item>", -1},
        {"<content><servers>", -1}, {"<content><servers><server_item>", -1}, {"<content><layout>", -1},
        {"<content><layout><layout_files>", -1}, {"<content><layout><layout_files><lo_file>", -1},
        {"<content><layout><layout_playlist>", -1}, {"<content><layout><layout_playlist><lo_pl_item>", -1},
        {"<content><layout><vid_area_720>", -1}, {"<content><schedule>", -1}, {"<content><extra>", -1},
        {"<content><schedule><sched_item><day_item>", -1}, {"<content id='a", -1}, {"<content></c", -1},
    };
    for (const auto& [doc, result, record] : cases) {
        EXPECT_EQ(content(doc), result) << doc;
        EXPECT_EQ(dA_IsContentValid(), result == 0) << doc;
        if (result == 0) {
            EXPECT_EQ(fields(c.id, c.plcount, c.playlists[0].pindex, c.schedule.defaultpl_index), record) << doc;
        }
        dA_Initialize();
    }
    EXPECT_EQ(dA_ParseContent("/tmp/no-such-file.xml"), -1);
    EXPECT_EQ(dA_ParseContent("/tmp"), -1);  // a directory is unreadable, not empty
}

// Deliberately, fields the document leaves out keep what was there: the slot's old
// findex of an f_item and times of a sched_item, and the content's name; for lo_file and
// lo_pl_item, the previous item's value in the same layout.
TEST_F(Parsers, ContentStaleFieldsAreNotReset)
{
    ASSERT_EQ(content("<content name='first'><files><f_item findex='5'/><f_item findex='6'/></files>"
                      "<schedule><sched_item start='s1' end='e1'/></schedule></content>"),
              0);
    ASSERT_EQ(content("<content><files><f_item/><f_item/><f_item/></files><schedule><sched_item/></schedule>"
                      "<layout><layout_files><lo_file/><lo_file findex='4' type='img'/><lo_file/></layout_files>"
                      "<layout_playlist><lo_pl_item/><lo_pl_item url='u' dur='9'/><lo_pl_item/></layout_playlist>"
                      "</layout><layout><layout_files><lo_file/></layout_files></layout></content>"),
              0);
    const SCHEDULE_ITEM& item = c.schedule.schedItems[0];
    EXPECT_EQ(fields(c.name, c.files[0].findex, c.files[1].findex, c.files[2].findex), "first,5,6,0");
    EXPECT_EQ(fields(item.stime, item.etime, item.pindex), "s1,e1,-1");
    EXPECT_EQ(rows(c.layouts[0].layoutFiles, c.layouts[0].fileCount), (Rows{"0,0", "4,1", "4,1"}));
    EXPECT_EQ(rows(c.layouts[0].layoutPLItems, c.layouts[0].plItemCount), (Rows{",0", "u,9", "u,9"}));
    EXPECT_EQ(rows(c.layouts[1].layoutFiles, c.layouts[1].fileCount), (Rows{"0,0"}));
}

// Entries beyond an array are read and dropped. The item past a full playlist, schedule
// or schedule item also ends that section: the rest of it is read one level up.
TEST_F(Parsers, ContentEntriesBeyondTheCapacityAreDropped)
{
    ASSERT_EQ(content("<content>" + repeat(12, "<playlist pindex='#'/>") + "<files>" + repeat(203, "<f_item findex='#'/>") +
                      "</files><servers>" + repeat(6, "<server_item id='#'/>") + "</servers>" +
                      repeat(11, "<layout lindex='#'/>") + "</content>"),
              0);
    EXPECT_EQ(fields(c.plcount, c.playlists[9].pindex, c.filecount, c.files[199].findex, c.servercount,
                     c.servers[3].id, c.layoutcount, c.layouts[9].lindex),
              "10,9,200,199,4,3,10,9");
    ASSERT_EQ(content("<content><playlist pindex='0'>" + repeat(102, "<pl_item findex='#'/>") +
                      "<servers><server_item/></servers></playlist><playlist pindex='1'/></content>"),
              0);
    EXPECT_EQ(fields(c.plcount, c.servercount, c.playlists[0].itemCount, c.playlists[1].pindex), "2,1,100,1");
    ASSERT_EQ(content("<content><schedule><sched_item pindex='0'>" + repeat(30, "<day_item time='#:00'/>") +
                      "<sched_item pindex='7'/></sched_item>" + repeat(10, "<sched_item pindex='#'/>") +
                      "<servers><server_item/></servers></schedule><layout><layout_files>" +
                      repeat(21, "<lo_file findex='#'/>") + "</layout_files><layout_playlist>" +
                      repeat(5, "<lo_pl_item dur='#'/>") + "</layout_playlist></layout></content>"),
              0);
    const SCHEDULE_ITEM* s = c.schedule.schedItems;
    const DRAVIK_LAYOUT& lo = c.layouts[0];
    EXPECT_EQ(fields(c.schedule.itemCount, s[0].dayItemCount, s[0].dayItems[27].time_of_day, s[1].pindex,
                     s[2].pindex, s[9].pindex, c.servercount),
              "10,28,97200,7,0,7,1");
    EXPECT_EQ(fields(lo.fileCount, lo.layoutFiles[19].findex, lo.plItemCount, lo.layoutPLItems[3].dur), "20,19,4,3");
}

TEST_F(Parsers, ChannelConfiguration)
{
    ASSERT_EQ(channel(R"(<?xml version="1.0"?>
<config id="cfg-42">
  <auto_on_off enable="true" note="x">
    <aoo_item day="mo" mode="on" time="7:30"/><aoo_item day="fr" mode="off" time="25:99" colour="blue"></aoo_item>
    <aoo_item/><aoo_item mode="OFF" time="0730" day="sa"/><aoo_item mode="offline" time="1:2:3" time="x" day="Mo"/>
    <aoo_item day="tu" time="12:3"/><other/>
  </auto_on_off>
  <pri_ts server="ntp1.example" port="123"/><sec_ts server="ntp2.example">text</sec_ts>
  <logging enable="TRUE" server="ftp://logs.example" interval="6" auto_offset="True" offset="900" x="1"/>
  <timezone tz="-5"/><reboot enable="true" time="3:15"/><unknown>with text</unknown>
</config>)"),
              0);
    EXPECT_EQ(fields(dA_IsConfigurationCHValid(), ch.id, ch.autoOnOffEnable, ch.primaryTS, ch.secondaryTS),
              "1,cfg-42,1,ntp1.example,ntp2.example");
    // Times are not range-checked and keep their value without a colon in their first five
    // characters; only "off" switches off; a day is two lower-case letters; a fresh item
    // is Sunday, on, midnight.
    EXPECT_EQ(rows(ch.aooItems, ch.aooItemCount), (Rows{"1,1,27000", "5,0,95940", "0,1,0", "6,1,0", "-1,1,3720", "2,1,43380"}));
    EXPECT_EQ(fields(ch.loggingEnable, ch.loggingServer, ch.logInterval, ch.logAutoOffset, ch.logOffset, ch.timezone,
                     ch.rebootEnable, ch.rebootTime),
              "1,ftp://logs.example,6,1,900,-5,1,11700");

    // A failed parse keeps the last good record but clears its flag. Deliberately strict:
    // every attribute that reaches the top level must be `id`.
    for (const char* doc : {"<config xmlns='urn:cfg' id='a'/>", "<c><extra flag='1'/></c>",
                            "<c><auto_on_off><aoo_item><x/></aoo_item></auto_on_off></c>", "<c><logging><x/></logging></c>",
                            "<c><timezone><x/></timezone></c>", "<c><reboot><x/></reboot></c>", "<c><pri_ts><x/></pri_ts></c>",
                            "<c><sec_ts>", "<c><auto_on_off>", "<c><logging enable='true'>", "<c id='x"}) {
        EXPECT_EQ(channel(doc), -1) << doc;
        EXPECT_EQ(fields(dA_IsConfigurationCHValid(), ch.id, ch.timezone), "0,cfg-42,-5") << doc;
    }
    EXPECT_EQ(dA_ParseConfigurationCH("/tmp/no-such.xml") + dA_ParseConfigurationCH("/tmp"), -2);

    // A section element resets its own fields when it starts.
    ASSERT_EQ(channel("<c><extra id='b'/><timezone tz='3'/><timezone/><reboot enable='true' time='1:00'/><reboot/></c>"), 0);
    EXPECT_EQ(fields(ch.id, ch.timezone, ch.rebootEnable, ch.rebootTime), "b,0,0,0");

    // 30 on/off items fit. The 31st is dropped and deliberately ends the section, so a
    // 32nd reaches the top level and its first attribute fails the document.
    const std::string item = "<aoo_item day='mo' time='#:00'/>";
    ASSERT_EQ(channel("<c><auto_on_off>" + repeat(31, item) + "</auto_on_off><timezone tz='2'/></c>"), 0);
    EXPECT_EQ(fields(ch.aooItemCount, ch.aooItems[29].time_of_day, ch.timezone), "30,104400,2");
    EXPECT_EQ(channel("<c><auto_on_off>" + repeat(32, item) + "</auto_on_off></c>"), -1);
    EXPECT_EQ(channel("<c><auto_on_off>" + repeat(31, item) + "<aoo_item/></auto_on_off></c>"), 0);
}

// The plain configuration, player and download-request documents, and dA_Initialize.
TEST_F(Parsers, OtherDocuments)
{
    const std::string long_data(300, 'd'), cut = long_data.substr(0, 255);
    const std::string body = "<cfg_item name='volume' data='7'/><cfg_item data='" + long_data + "'></cfg_item>";
    EXPECT_EQ(dA_ParseConfiguration(file_with("<configuration id='plain-1'><other x='1'/>" + body + "</configuration>"),
                                    record),
              -1);
    items.clear();
    ASSERT_EQ(dA_ParseConfiguration(file_with("<configuration id='plain-1'><other/>" + body + "</configuration>"), record), 0);
    EXPECT_EQ(fields(dA_IsConfigurationValid(), dA_Configuration()->id), "1,plain-1");
    EXPECT_EQ(items, (Rows{"volume=7", "=" + cut}));
    for (const char* doc : {"<c><cfg_item name='a' size='2'/></c>", "<c><cfg_item><x/></cfg_item></c>",
                            "<c><cfg_item name='a'>", "<c lang='en'/>"})
        EXPECT_EQ(dA_ParseConfiguration(file_with(doc), record), -1) << doc;
    EXPECT_EQ(fields(dA_IsConfigurationValid(), dA_Configuration()->id), "0,plain-1");

    items.clear();
    ASSERT_EQ(dA_ParsePlayer(file_with(R"(<player xmlns="urn:p" serial="9">
  <current_playlist id="pl-1" extra="x"/><next_playlist id="pl-2" start_time="2026-01-02T08:00:00"/>
  <content id="c-9"/><configuration id="cfg-9"/><options dl_permitted="True" mode="standalone"/>
  <command name="reboot" other="y"><data>now please</data><note/></command>
  <command><data>)" + long_data + R"(</data></command><command name="empty"/><unknown><nested/></unknown>
</player>)"),
                             record),
              0);
    const DRAVIK_PLAYER& p = *dA_Player();
    EXPECT_EQ(fields(dA_IsPlayerValid(), p.current_playlist_id, p.next_playlist_id, p.next_playlist_start_time,
                     p.content_id, p.configuration_id, p.dl_permitted, p.mode),
              "1,pl-1,pl-2,2026-01-02T08:00:00,c-9,cfg-9,1,standalo");
    EXPECT_EQ(items, (Rows{"reboot=now please", "=" + cut, "empty="}));
    for (const char* doc : {"<p><options><x/></options></p>", "<p><content id='a'>", "<p><command><data><b/></data></command></p>"})
        EXPECT_EQ(dA_ParsePlayer(file_with(doc), record), -1) << doc;
    EXPECT_EQ(fields(dA_IsPlayerValid(), p.content_id), "0,c-9");

    ASSERT_EQ(dA_ParseDLRequest(file_with("<dlrequest allow='1' reason='x'>ok</dlrequest>")), 0);
    EXPECT_EQ(fields(dA_IsDLRequestValid(), dA_DLRequest()->allow), "1,1");
    for (const char* doc : {"<dlrequest><why/></dlrequest>", "<a allow='1'/>"}) EXPECT_EQ(dA_ParseDLRequest(file_with(doc)), -1) << doc;
    EXPECT_EQ(fields(dA_IsDLRequestValid(), dA_DLRequest()->allow), "0,1");

    ASSERT_EQ(channel("<c id='x'><timezone tz='2'/></c>") + content("<content><playlist/></content>"), 0);
    dA_Initialize();
    EXPECT_EQ(fields(dA_IsContentValid(), dA_IsConfigurationCHValid(), dA_IsPlayerValid(), dA_IsConfigurationValid(),
                     dA_IsDLRequestValid(), dA_DLRequest()->allow, c.plcount, ch.timezone, ch.id, p.dl_permitted,
                     dA_Configuration()->id),
              "0,0,0,0,0,0,0,0,,0,");
}

}  // namespace
