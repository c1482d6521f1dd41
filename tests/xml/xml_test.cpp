// The pull tokenizer and its value accessors, over text in memory and real files on the
// sandbox's tmpfs; then the document parsers (content, channel configuration, plain
// configuration, player, download request), over real files: the documents under
// documents/ are each compared whole with their .expected record.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/record_text.h"
#include "support/sandbox.h"
#include "xml/dravikAPI.h"
#include "xml/tokenizer.h"

namespace {

using Texts = std::vector<std::string>;

std::string input;
std::size_t input_pos;

int string_getchar() { return input_pos < input.size() ? static_cast<unsigned char>(input[input_pos++]) : 0; }

void start(std::string text)
{
    input = std::move(text);
    input_pos = 0;
    xt_initialize(string_getchar);
}

// One token as the tables spell it: "<a" and "</a" for tags, "@name=value", "t:" text,
// "w:" whitespace, "s:" section text, the section marks, END and ERROR.
std::string spell(int kind)
{
    static const char* const marks[] = {"ERROR", "END", "<", "</", "@", "t:", "w:", "s:", "<!--", "-->",
                                        "<![CDATA[", "]]>", "<?", "?>", "entity{", "}entity"};
    std::string mark = marks[kind + 1];
    if (kind == XT_START_TAG || kind == XT_END_TAG) return mark + xt_get_tag_name();
    if (kind == XT_ATTRIBUTE) return mark + xt_get_attr_name() + "=" + xt_get_value();
    return kind >= XT_TEXT && kind <= XT_SECTION_TEXT ? mark + xt_get_value() : mark;
}

// Every token up to and including the first end of input or error; `text` is null when
// the tokenizer already has its input.
Texts tokens(const std::string* text)
{
    if (text) start(*text);
    Texts out;
    for (int kind = XT_START_TAG; kind != XT_END && kind != XT_ERROR && out.size() < 100;)
        out.push_back(spell(kind = xt_get_token()));
    return out;
}

TEST(Tokenizer, TokensOfDocuments)
{
    const std::string n200(200, 'n'), n127(127, 'n'), t3000(3000, 't'), t1023(1023, 't'), e40(40, 'e');
    const std::string c1500(1500, 'c'), c1021(1021, 'c');
    const std::pair<std::string, Texts> cases[] = {
        {"<a></a><b/>", {"<a", "</a", "<b", "</b", "END"}},
        // Quotes hold the other quote, ">" and "<"; blanks around "="; an unquoted value
        // ends at a blank or ">"; a name alone has an empty value.
        {"<a q = \"it's <b>\" r='say \"hi\"' v=1/2 w>", {"<a", "@q=it's <b>", "@r=say \"hi\"", "@v=1/2", "@w=", "END"}},
        {"<a>a b\t\r\n\fc</a >", {"<a", "t:a", "w: ", "t:b", "w:\t\r\n\f", "t:c", "</a", "END"}},
        // The five entities are resolved; an unknown name stays as written, and one without
        // its ";" gets one added, the character that ended it left in place.
        {"&lt;b&gt;&apos;&quot;x&amp;y", {"t:<b", "t:>", "t:'", "t:\"x", "t:&y", "END"}},
        {"&foo; &bar baz&Qux<", {"t:&foo;", "w: ", "t:&bar;", "w: ", "t:baz", "t:&Qux;", "ERROR"}},
        // No numeric references; a lone "&" is text; an entity name holds 31 characters.
        {"&#60; & &" + e40 + ";", {"t:&#60;", "w: ", "t:&", "w: ", "t:&" + e40.substr(0, 31) + ";" + e40.substr(31) + ";", "END"}},
        // The same in quoted attribute values; an unquoted one is taken as it stands.
        {"<a v=\"1&lt;2&x y\" w=a&amp;b>", {"<a", "@v=1<2&x; y", "@w=a&amp;b", "END"}},
        // Names keep 127 characters and values 1,023, cut silently.
        {"<" + n200 + " " + n200 + "=v></" + n200 + ">", {"<" + n127, "@" + n127 + "=v", "</" + n127, "END"}},
        {"<a v='" + t3000 + "'>" + t3000, {"<a", "@v=" + t1023, "t:" + t1023, "END"}},
        {"<!-- a -- b ->--><?xml v=\"1\"?><![CDATA[<a>]]]>",
         {"<!--", "s: a -- b ->", "-->", "<?", "s:xml v=\"1\"", "?>", "<![CDATA[", "s:<a>]", "]]>", "END"}},
        {"<!---->", {"<!--", "s:", "-->", "END"}},
        {"<!-- open", {"<!--", "END"}},
        // Section text comes in chunks of 1,023, and a closer is looked for only within the
        // current chunk: one split across two chunks is not recognised.
        {"<!--" + c1500 + "-->", {"<!--", "s:" + c1500.substr(0, 1023), "s:" + c1500.substr(1023), "-->", "END"}},
        {"<!--" + c1021 + "-->after-->", {"<!--", "s:" + c1021 + "--", "s:>after", "-->", "END"}},
        {"<![CDATA[" + c1021 + "]]>x]]>", {"<![CDATA[", "s:" + c1021 + "]]", "s:>x", "]]>", "END"}},
        // Syntax errors, and the end of the input where a tag may or may not end.
        {"</a b>", {"ERROR"}}, {"<", {"ERROR"}}, {"<a/x>", {"<a", "ERROR"}},
        {"<a x=\"1", {"<a", "ERROR"}}, {"<a x=1", {"<a", "ERROR"}}, {"<a b<c>", {"<a", "ERROR"}},
        {"<a xy", {"<a", "END"}}, {"", {"END"}},
        {std::string("<a>b\0c</a>", 10), {"<a", "t:b", "END"}},  // a NUL byte ends the document
    };
    for (const auto& [doc, want] : cases) EXPECT_EQ(tokens(&doc), want) << doc.substr(0, 60);

    // `<!ENTITY` is recognised only when the byte after the seven letters in the name
    // buffer is zero: never after a longer name left a letter there (a new document keeps
    // the buffer), until a name of seven is read out with xt_get_tag_name.
    const std::string longer = "<abcdefghij>", decl = "<!ENTITY e \"a>b\">", after = decl + "x";
    EXPECT_EQ(tokens(&longer), (Texts{"<abcdefghij", "END"}));
    EXPECT_EQ(tokens(&decl), (Texts{"<!ENTITY", "@e=", "@\"a=", "t:b\">", "END"}));
    EXPECT_EQ(tokens(&after), (Texts{"entity{", "s: e \"a>b\"", "}entity", "t:x", "END"}));
}

// A value read as element content by getIntVal, getLongVal and getBoolVal, then as an
// attribute by their getAttribute... twins: "sum of the results,int,long,bool attribute
// int,long,bool".
std::string typed(const std::string& text)
{
    int i = 99, b = 99, ai = 99, ab = 99;
    long l = 99, al = 99;
    auto content = [&text](auto get, auto* out) {
        start("<v>" + text + "</v>");
        xt_get_token();
        return get(out);
    };
    int r = content(getIntVal, &i) + content(getLongVal, &l) + content(getBoolVal, &b);
    start("<v a='" + text + "'>");
    xt_get_token();
    xt_get_token();
    r += getAttributeIntegerVal(&ai) + getAttributeLongVal(&al) + getAttributeBoolVal(&ab);
    return fields(r, i, l, b) + " " + fields(ai, al, ab);
}

TEST(Tokenizer, ValueAccessors)
{
    // Numbers as atoi/atol read them, held at the 32-bit limits (a long as wide as on the
    // device) from the first 31 characters; true only for a "True", "true", "TRUE" prefix.
    const std::pair<std::string, const char*> cases[] = {
        {" -7abc", "0,-7,-7,0 -7,-7,0"},
        {"99999999999", "0,2147483647,2147483647,0 2147483647,2147483647,0"},
        {"-99999999999", "0,-2147483648,-2147483648,0 -2147483648,-2147483648,0"},
        {"1" + std::string(40, '0'), "0,2147483647,2147483647,0 2147483647,2147483647,0"},
        {"trueish", "0,0,0,1 0,0,1"}, {"TRUE", "0,0,0,1 0,0,1"}, {"tRue", "0,0,0,0 0,0,0"},
        {"<w/>5", "-3,0,0,0 0,0,0"},  // content holding an element fails
    };
    for (const auto& [text, want] : cases) EXPECT_EQ(typed(text), want) << text;

    // Text keeps its blanks; a full buffer returns at once, leaving the rest unread; a
    // nested element, a comment or the end of input fail, keeping what was read. (An
    // attribute cut to its buffer is player-every-field's mode.)
    char buf[16];
    const std::tuple<const char*, int, int, const char*, int> strings[] = {
        {"<a> a &amp; b </a><b/>", 16, 0, " a & b ", XT_START_TAG}, {"<a>ab cd</a>", 3, 0, "ab", XT_WHITESPACE},
        {"<a>x<b/></a>", 16, -1, "x", XT_END_TAG}, {"<a>x<!--c--></a>", 16, -1, "x", XT_SECTION_TEXT},
        {"<a>x", 16, -1, "x", XT_END}};
    for (const auto& [doc, size, result, text, next] : strings) {
        start(doc);
        xt_get_token();
        EXPECT_EQ(getStringVal(buf, size), result) << doc;
        EXPECT_STREQ(buf, text) << doc;
        EXPECT_EQ(xt_get_token(), next) << doc;
    }
}

// The file reader: text across its 1,024-byte blocks, a NUL byte that ends the file's
// document, the file closed afterwards, and a file that opens but cannot be read.
TEST(Tokenizer, FileReaderReadsBlockByBlockAndStopsAtNul)
{
    const std::string text(2500, 'x'), head = "<a>" + text + "</a><b>12";
    sandbox::write_file("/tmp/doc.xml", head + std::string(1, '\0') + "</b>");
    {
        XmlDocument doc("/tmp/doc.xml");
        ASSERT_TRUE(doc.ok());
        EXPECT_EQ(tokens(nullptr), (Texts{"<a", "t:" + text.substr(0, 1023), "</a", "<b", "t:12", "END"}));
        EXPECT_EQ(xt_input_offset(), static_cast<long>(head.size()));
        EXPECT_FALSE(doc.read_error());
    }
    EXPECT_EQ(xml.file, nullptr);
    EXPECT_FALSE(XmlDocument("/tmp/missing.xml").ok());
    XmlDocument dir("/tmp");
    EXPECT_EQ(xt_get_token(), XT_END);
    EXPECT_TRUE(dir.read_error());
}

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
