// The document parsers (content, channel configuration, plain configuration, player,
// download request), over real files on the sandbox's tmpfs. The documents under
// documents/ are each compared whole with their .expected record.
#include <filesystem>
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

std::string items;  // handed to the callback
void record(DRAVIK_NAME_DATA* item) { items += std::string(" ") + item->name + "=" + item->data; }

std::string row(const DRAVIK_FILE_ITEM& f) { return fields(f.findex, f.type, f.server_id, f.fname, f.fsize, f.path, f.md5); }
std::string row(const DRAVIK_PLAYLIST_ITEM& i) { return fields(i.type, i.findex, i.duration); }
std::string row(const DAY_ITEM& d) { return fields(d.day, d.mode, d.time_of_day); }
std::string row(const AOO_ITEM& d) { return fields(d.day, d.mode, d.time_of_day); }
std::string row(const LAYOUT_VID_AREA& a) { return fields(a.x, a.y, a.width, a.height); }
std::string row(const LAYOUT_FILE& f) { return fields(f.findex, f.type); }
std::string row(const LAYOUT_PL_ITEM& i) { return fields(i.url, i.dur); }
std::string row(const DRAVIK_SERVER_ITEM& s) { return fields(s.id, s.address); }
// The first `count` entries of an array, separated by " | ".
template <typename T, std::size_t N>
std::string rows(const T (&array)[N], int count)
{
    std::string out;
    for (int i = 0; i < count && i < static_cast<int>(N); ++i) out += (i ? " | " : "") + row(array[i]);
    return out;
}

// A record, one line a part.
std::string dump(const DRAVIK_CONTENT& c)
{
    const DRAVIK_SCHEDULE& s = c.schedule;
    std::string out = "content " + fields(c.id, c.name) + "\nservers " + rows(c.servers, c.servercount) + "\nfiles " +
                      rows(c.files, c.filecount) + "\nschedule " + fields(s.defaultpl_index, s.defaultlo_index) + "\n";
    for (int i = 0; i < c.plcount; ++i)
        out += "playlist " + fields(c.playlists[i].pindex, c.playlists[i].name) + ": " + rows(c.playlists[i].PlItems, c.playlists[i].itemCount) + "\n";
    for (int i = 0; i < s.itemCount; ++i) {
        const SCHEDULE_ITEM& it = s.schedItems[i];
        out += "item " + fields(it.pindex, it.lindex, it.stime, it.etime) + ": " + rows(it.dayItems, it.dayItemCount) + "\n";
    }
    for (int i = 0; i < c.layoutcount; ++i) {
        const DRAVIK_LAYOUT& l = c.layouts[i];
        out += "layout " + fields(l.lindex, l.name, row(l.va1080p), row(l.va720p), row(l.vaPct)) + ": " +
               rows(l.layoutFiles, l.fileCount) + ": " + rows(l.layoutPLItems, l.plItemCount) + "\n";
    }
    return out;
}
std::string dump(const DRAVIK_CONFIGURATION_CH& c)
{
    return "config " + fields(c.id, c.autoOnOffEnable, c.primaryTS, c.secondaryTS) + "\non/off " + rows(c.aooItems, c.aooItemCount) +
           "\nlogging " + fields(c.loggingEnable, c.loggingServer, c.logInterval, c.logAutoOffset, c.logOffset) + "\n" +
           fields("timezone", c.timezone, "reboot", c.rebootEnable, c.rebootTime) + "\n";
}
std::string dump(const DRAVIK_PLAYER& p)
{
    return "player " + fields(p.current_playlist_id, p.next_playlist_id, p.next_playlist_start_time, p.content_id,
                              p.configuration_id, p.dl_permitted, p.mode) + "\n";
}

// The result, the record's validity and the record, by the parser the name begins with.
std::string parse(const std::string& name, const char* path)
{
    items.clear();
    if (name.starts_with("content-")) {
        int result = dA_ParseContent(path);
        return fields(result, dA_IsContentValid()) + "\n" + dump(*dA_Content());
    }
    if (name.starts_with("channel-")) {
        int result = dA_ParseConfigurationCH(path);
        return fields(result, dA_IsConfigurationCHValid()) + "\n" + dump(*dA_ConfigurationCH());
    }
    if (name.starts_with("player-")) {
        int result = dA_ParsePlayer(path, record);
        return fields(result, dA_IsPlayerValid()) + "\n" + dump(*dA_Player()) + "commands" + items + "\n";
    }
    if (name.starts_with("plain-")) {
        int result = dA_ParseConfiguration(path, record);
        return fields(result, dA_IsConfigurationValid()) + "\nconfiguration " + dA_Configuration()->id + "\nitems" + items + "\n";
    }
    int result = dA_ParseDLRequest(path);
    return fields(result, dA_IsDLRequestValid()) + "\nallow " + fields(dA_DLRequest()->allow) + "\n";
}

TEST(Parsers, DocumentsGiveTheirExpectedRecords)
{
    int documents = 0;
    for (const auto& entry : std::filesystem::directory_iterator(DOCUMENTS_DIR)) {
        if (entry.path().extension() != ".xml") continue;
        ++documents;
        dA_Initialize();
        std::string name = entry.path().stem().string(), expected = entry.path().string();
        EXPECT_EQ(parse(name, entry.path().c_str()), sandbox::read_file(expected.replace(expected.size() - 3, 3, "expected"))) << name;
    }
    EXPECT_GE(documents, 8);
}

TEST(Parsers, StrictWhereTheServerIsAndFailedParsesKeepTheLastGoodRecord)
{
    dA_Initialize();
    // Deliberately strict: an attribute in `files` outside an f_item; an unknown attribute
    // on a pl_item; and a document cut short fails wherever it stops.
    for (const char* doc : {"<content><files count='1'><f_item/></files></content>", "<content><files><f_item/><note n='1'/></files></content>",
                            "<content><playlist><pl_item type='vid' speed='2'/></playlist></content>",
                            "<content><layout><vid_area_pct><x/></vid_area_pct></layout></content>", "<content><playlist>",
                            "<content><files><f_item>", "<content><schedule><sched_item>", "<content><servers>",
                            "<content><servers><server_item>", "<content><layout>", "<content><layout><layout_files>",
                            "<content><layout><layout_files><lo_file>", "<content><layout><layout_playlist>",
                            "<content><layout><layout_playlist><lo_pl_item>", "<content><layout><vid_area_720>",
                            "<content><schedule>", "<content><extra>", "<content><schedule><sched_item><day_item>",
                            "<content id='a", "<content></c"})
        EXPECT_EQ(content(doc), -1) << doc;
    EXPECT_EQ(dA_ParseContent("/tmp/no-such-file.xml"), -1);
    EXPECT_EQ(dA_ParseContent("/tmp"), -1);  // a directory is unreadable, not empty

    // An unknown element is skipped to the first end tag of its name; a root of another
    // name, or an empty file, gives a valid, empty content.
    const DRAVIK_CONTENT& c = *dA_Content();
    ASSERT_EQ(content("<content><extra><extra></extra><playlist pindex='7'></playlist>x</extra></content>"), 0);
    EXPECT_EQ(fields(c.plcount, c.playlists[0].pindex), "1,7");
    for (const char* doc : {"<document id='d'><playlist/><schedule default_pindex='1'/></document>", ""}) {
        ASSERT_EQ(content(doc), 0) << doc;
        EXPECT_EQ(fields(dA_IsContentValid(), c.id, c.plcount, c.schedule.defaultpl_index), "1,,0,-1") << doc;
    }

    // Deliberately, every attribute that reaches the top level of a channel configuration
    // must be `id`.
    const DRAVIK_CONFIGURATION_CH& ch = *dA_ConfigurationCH();
    ASSERT_EQ(channel("<config id='cfg-42'><timezone tz='-5'/></config>"), 0);
    for (const char* doc : {"<config xmlns='urn:cfg' id='a'/>", "<c><extra flag='1'/></c>", "<c><auto_on_off><aoo_item><x/></aoo_item></auto_on_off></c>",
                            "<c><logging><x/></logging></c>", "<c><timezone><x/></timezone></c>", "<c><reboot><x/></reboot></c>",
                            "<c><pri_ts><x/></pri_ts></c>", "<c><sec_ts>", "<c><auto_on_off>", "<c><logging enable='true'>", "<c id='x"}) {
        EXPECT_EQ(channel(doc), -1) << doc;
        EXPECT_EQ(fields(dA_IsConfigurationCHValid(), ch.id, ch.timezone), "0,cfg-42,-5") << doc;
    }
    EXPECT_EQ(dA_ParseConfigurationCH("/tmp/no-such.xml"), -1);
    EXPECT_EQ(dA_ParseConfigurationCH("/tmp"), -1);

    // 30 on/off items fit. The 31st is dropped and deliberately ends the section, so a
    // 32nd reaches the top level and its first attribute fails the document.
    const std::string item = "<aoo_item day='mo' time='#:00'/>";
    ASSERT_EQ(channel("<c><auto_on_off>" + repeat(31, item) + "</auto_on_off><timezone tz='2'/></c>"), 0);
    EXPECT_EQ(fields(ch.aooItemCount, ch.aooItems[29].time_of_day, ch.timezone), "30,104400,2");
    EXPECT_EQ(channel("<c><auto_on_off>" + repeat(32, item) + "</auto_on_off></c>"), -1);
    EXPECT_EQ(channel("<c><auto_on_off>" + repeat(31, item) + "<aoo_item/></auto_on_off></c>"), 0);

    for (const char* doc : {"<c><cfg_item name='a' size='2'/></c>", "<c><cfg_item><x/></cfg_item></c>", "<c><cfg_item name='a'>", "<c lang='en'/>"})
        EXPECT_EQ(dA_ParseConfiguration(file_with(doc), record), -1) << doc;
    for (const char* doc : {"<p><options><x/></options></p>", "<p><content id='a'>", "<p><command><data><b/></data></command></p>"})
        EXPECT_EQ(dA_ParsePlayer(file_with(doc), record), -1) << doc;
    for (const char* doc : {"<dlrequest><why/></dlrequest>", "<a allow='1'/>"}) EXPECT_EQ(dA_ParseDLRequest(file_with(doc)), -1) << doc;

    dA_Initialize();  // every record and flag zeroed
    EXPECT_EQ(fields(dA_IsContentValid(), dA_IsConfigurationCHValid(), dA_IsPlayerValid(), dA_IsConfigurationValid(),
                     dA_IsDLRequestValid(), dA_DLRequest()->allow, ch.timezone, ch.id, dA_Player()->dl_permitted),
              "0,0,0,0,0,0,0,,0");
}

// Deliberately, fields the document leaves out keep what was there: the slot's old findex
// of an f_item and times of a sched_item, and the content's name; for lo_file and
// lo_pl_item, the previous item's value in the same layout.
TEST(Parsers, ContentStaleFieldsAreNotReset)
{
    ASSERT_EQ(content("<content name='first'><files><f_item findex='5'/><f_item findex='6'/></files>"
                      "<schedule><sched_item start='s1' end='e1'/></schedule></content>"),
              0);
    ASSERT_EQ(content("<content><files><f_item/><f_item/><f_item/></files><schedule><sched_item/></schedule>"
                      "<layout><layout_files><lo_file/><lo_file findex='4' type='img'/><lo_file/></layout_files>"
                      "<layout_playlist><lo_pl_item/><lo_pl_item url='u' dur='9'/><lo_pl_item/></layout_playlist>"
                      "</layout><layout><layout_files><lo_file/></layout_files></layout></content>"),
              0);
    EXPECT_EQ(dump(*dA_Content()), "content ,first\nservers \nfiles 5,0,-1,,0,, | 6,0,-1,,0,, | 0,0,-1,,0,,\nschedule -1,-1\n"
                                   "item -1,-1,s1,e1: \nlayout 0,,0,0,1920,1080,0,0,1280,720,0,0,100,100: 0,0 | 4,1 | 4,1: ,0 | u,9 | u,9\n"
                                   "layout 0,,0,0,1920,1080,0,0,1280,720,0,0,100,100: 0,0: \n");
}

// Entries beyond an array are read and dropped. The item past a full playlist, schedule
// or schedule item also ends that section: the rest of it is read one level up.
TEST(Parsers, ContentEntriesBeyondTheCapacityAreDropped)
{
    const DRAVIK_CONTENT& c = *dA_Content();
    ASSERT_EQ(content("<content>" + repeat(12, "<playlist pindex='#'/>") + "<files>" + repeat(203, "<f_item findex='#'/>") +
                      "</files><servers>" + repeat(6, "<server_item id='#'/>") + "</servers>" + repeat(11, "<layout lindex='#'/>") + "</content>"),
              0);
    EXPECT_EQ(fields(c.plcount, c.playlists[9].pindex, c.filecount, c.files[199].findex, c.servercount, c.servers[3].id,
                     c.layoutcount, c.layouts[9].lindex),
              "10,9,200,199,4,3,10,9");
    ASSERT_EQ(content("<content><playlist pindex='0'>" + repeat(102, "<pl_item findex='#'/>") +
                      "<servers><server_item/></servers></playlist><playlist pindex='1'/></content>"),
              0);
    EXPECT_EQ(fields(c.plcount, c.servercount, c.playlists[0].itemCount, c.playlists[1].pindex), "2,1,100,1");
    ASSERT_EQ(content("<content><schedule><sched_item pindex='0'>" + repeat(30, "<day_item time='#:00'/>") +
                      "<sched_item pindex='7'/></sched_item>" + repeat(10, "<sched_item pindex='#'/>") +
                      "<servers><server_item/></servers></schedule><layout><layout_files>" + repeat(21, "<lo_file findex='#'/>") +
                      "</layout_files><layout_playlist>" + repeat(5, "<lo_pl_item dur='#'/>") + "</layout_playlist></layout></content>"),
              0);
    const SCHEDULE_ITEM* s = c.schedule.schedItems;
    const DRAVIK_LAYOUT& lo = c.layouts[0];
    EXPECT_EQ(fields(c.schedule.itemCount, s[0].dayItemCount, s[0].dayItems[27].time_of_day, s[1].pindex, s[2].pindex,
                     s[9].pindex, c.servercount, lo.fileCount, lo.layoutFiles[19].findex, lo.plItemCount, lo.layoutPLItems[3].dur),
              "10,28,97200,7,0,7,1,20,19,4,3");
}

}  // namespace
