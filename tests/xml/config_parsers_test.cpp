// The channel configuration, plain configuration, player and download-request parsers,
// over real files on the sandbox's tmpfs.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/record_text.h"
#include "support/sandbox.h"
#include "xml/dravikAPI.h"
#include "xml/parsers.h"

namespace {

using Rows = std::vector<std::string>;

std::string file_with(const std::string& doc)
{
    static int n;
    std::string path = "/tmp/doc" + std::to_string(++n) + ".xml";
    sandbox::write_file(path, doc);
    return path;
}

int parse_ch(const std::string& doc) { return dA_ParseConfigurationCH(file_with(doc).c_str()); }

// The items handed to the callback, as "name=data".
Rows items;
void record(DRAVIK_NAME_DATA* item) { items.push_back(std::string(item->name) + "=" + item->data); }
int parse_plain(const std::string& doc) { return dA_ParseConfiguration(file_with(doc).c_str(), record); }
int parse_player(const std::string& doc) { return dA_ParsePlayer(file_with(doc).c_str(), record); }

Rows aoo_rows(const DRAVIK_CONFIGURATION_CH& ch)
{
    Rows out;
    for (int i = 0; i < ch.aooItemCount; ++i)
        out.push_back(fields(ch.aooItems[i].day, ch.aooItems[i].mode, ch.aooItems[i].time_of_day));
    return out;
}

class ConfigParsers : public ::testing::Test {
protected:
    void SetUp() override
    {
        dA_Initialize();
        items.clear();
    }
    const DRAVIK_CONFIGURATION_CH& ch = *dA_ConfigurationCH();
};

TEST_F(ConfigParsers, ChannelConfigurationFillsEveryField)
{
    ASSERT_EQ(parse_ch(R"(<?xml version="1.0"?>
<config id="cfg-42">
  <auto_on_off enable="true" note="x">
    <aoo_item day="mo" mode="on" time="7:30"/>
    <aoo_item day="fr" mode="off" time="25:99" colour="blue"></aoo_item>
    <aoo_item/>
    <aoo_item mode="OFF" time="0730" day="sa"/>
    <aoo_item mode="offline" time="1:2:3" time="x" day="Mo"/>
    <aoo_item day="tu" time="12:3"/><aoo_item day="th" time="1:00" time="123456:00"/>
    <other/>
  </auto_on_off>
  <pri_ts server="ntp1.example" port="123"/>
  <sec_ts server="ntp2.example">text</sec_ts>
  <logging enable="TRUE" server="ftp://logs.example" interval="6" auto_offset="True" offset="900" x="1"/>
  <timezone tz="-5"/>
  <reboot enable="true" time="3:15"/>
  <unknown>with text</unknown>
</config>)"),
              0);
    EXPECT_EQ(dA_IsConfigurationCHValid(), 1);
    EXPECT_EQ(fields(ch.id, ch.autoOnOffEnable, ch.primaryTS, ch.secondaryTS), "cfg-42,1,ntp1.example,ntp2.example");
    // Times are not range-checked, and keep their value when their first five
    // characters hold no colon; only the exact lower-case "off" switches off; a fresh
    // item is Sunday, on, midnight.
    EXPECT_EQ(aoo_rows(ch), (Rows{"1,1,27000", "5,0,95940", "0,1,0", "6,1,0", "-1,1,3720", "2,1,43380", "4,1,3600"}));
    EXPECT_EQ(fields(ch.loggingEnable, ch.loggingServer, ch.logInterval, ch.logAutoOffset, ch.logOffset),
              "1,ftp://logs.example,6,1,900");
    EXPECT_EQ(fields(ch.timezone, ch.rebootEnable, ch.rebootTime), "-5,1,11700");

    // An empty file is a document with nothing in it.
    ASSERT_EQ(parse_ch(""), 0);
    EXPECT_EQ(fields(ch.id, ch.autoOnOffEnable, ch.aooItemCount, ch.loggingEnable, ch.rebootTime), ",0,0,0,0");
}

// Only the first two characters count, lower case only.
TEST_F(ConfigParsers, DayWords)
{
    std::string days;
    for (const char* d : {"su", "mo", "tu", "we", "th", "fr", "sa", "monday", "Mo", "", "t", "s", "x"})
        days += std::to_string(ConvertDay(d)) + " ";
    EXPECT_EQ(days, "0 1 2 3 4 5 6 1 -1 -1 4 0 -1 ");
}

// Every attribute that reaches the top level must be `id`: on the root, on an unknown
// element, or on an aoo_item left over after the section was left.
TEST_F(ConfigParsers, ChannelConfigurationIsStrictAtTheTopLevel)
{
    EXPECT_EQ(parse_ch("<config xmlns='urn:cfg' id='a'/>"), -1);
    EXPECT_EQ(dA_IsConfigurationCHValid(), 0);
    EXPECT_EQ(parse_ch("<config><extra flag='1'/></config>"), -1);
    EXPECT_EQ(parse_ch("<config><extra id='b'/></config>"), 0);
    EXPECT_STREQ(ch.id, "b");
    // Elements that hold no elements, and documents cut short.
    for (const char* doc : {"<c><auto_on_off><aoo_item><x/></aoo_item></auto_on_off></c>",
                            "<c><logging><x/></logging></c>", "<c><timezone><x/></timezone></c>",
                            "<c><reboot><x/></reboot></c>", "<c><pri_ts><x/></pri_ts></c>",
                            "<c><sec_ts>", "<c><auto_on_off>", "<c><logging enable='true'>", "<c id='x"})
        EXPECT_EQ(parse_ch(doc), -1) << doc;
    EXPECT_EQ(dA_ParseConfigurationCH("/tmp/no-such.xml"), -1);
    EXPECT_EQ(dA_ParseConfigurationCH("/tmp"), -1);
}

// 30 items fit. The 31st is dropped and ends the section, so a 32nd reaches the top
// level and its first attribute fails the document.
TEST_F(ConfigParsers, AutoOnOffHoldsThirtyItems)
{
    const std::string item = "<aoo_item day='mo' time='#:00'/>";
    ASSERT_EQ(parse_ch("<c><auto_on_off>" + repeat(30, item) + "</auto_on_off></c>"), 0);
    EXPECT_EQ(fields(ch.aooItemCount, ch.aooItems[29].time_of_day), "30,104400");
    ASSERT_EQ(parse_ch("<c><auto_on_off>" + repeat(31, item) + "</auto_on_off><timezone tz='2'/></c>"), 0);
    EXPECT_EQ(fields(ch.aooItemCount, ch.timezone), "30,2");
    EXPECT_EQ(parse_ch("<c><auto_on_off>" + repeat(32, item) + "</auto_on_off></c>"), -1);
    EXPECT_EQ(parse_ch("<c><auto_on_off>" + repeat(31, item) + "<aoo_item/></auto_on_off></c>"), 0);
}

// A failed parse keeps the last good record but clears its flag; the section elements
// reset their own fields when they start.
TEST_F(ConfigParsers, FailedParseKeepsThePreviousRecord)
{
    ASSERT_EQ(parse_ch("<c id='good'><timezone tz='3'/><reboot enable='true' time='1:00'/></c>"), 0);
    EXPECT_EQ(parse_ch("<c id='bad'><timezone tz='4'/><logging><x/></logging></c>"), -1);
    EXPECT_EQ(dA_IsConfigurationCHValid(), 0);
    EXPECT_EQ(fields(ch.id, ch.timezone), "good,3");

    ASSERT_EQ(parse_ch("<c><timezone tz='3'/><timezone/><reboot enable='true' time='1:00'/><reboot/></c>"), 0);
    EXPECT_EQ(fields(ch.timezone, ch.rebootEnable, ch.rebootTime), "0,0,0");
}

TEST_F(ConfigParsers, PlainConfigurationCallsBackPerItem)
{
    const std::string long_data(300, 'd');
    const std::string body = "<cfg_item name='volume' data='7'/><cfg_item data='" + long_data + "'></cfg_item>";
    // `x` on an unknown element reaches the top level.
    EXPECT_EQ(parse_plain("<configuration id='plain-1'><other x='1'/>" + body + "</configuration>"), -1);
    EXPECT_EQ(dA_IsConfigurationValid(), 0);

    items.clear();
    ASSERT_EQ(parse_plain("<configuration id='plain-1'><other/>" + body + "</configuration>"), 0);
    EXPECT_EQ(dA_IsConfigurationValid(), 1);
    EXPECT_STREQ(dA_Configuration()->id, "plain-1");
    EXPECT_EQ(items, (Rows{"volume=7", "=" + long_data.substr(0, 255)}));

    for (const char* doc : {"<c><cfg_item name='a' size='2'/></c>", "<c><cfg_item><x/></cfg_item></c>",
                            "<c><cfg_item name='a'>", "<c lang='en'/>"})
        EXPECT_EQ(parse_plain(doc), -1) << doc;
    EXPECT_STREQ(dA_Configuration()->id, "plain-1");
}

TEST_F(ConfigParsers, PlayerDocument)
{
    const std::string long_data(300, 'p');
    ASSERT_EQ(parse_player(R"(<player xmlns="urn:p" serial="9">
  <current_playlist id="pl-1" extra="x"/>
  <next_playlist id="pl-2" start_time="2026-01-02T08:00:00"/>
  <content id="c-9"/><configuration id="cfg-9"/>
  <options dl_permitted="True" mode="standalone"/>
  <command name="reboot" other="y"><data>now please</data><note/></command>
  <command><data>)" + long_data + R"(</data></command>
  <command name="empty"/>
  <unknown><nested/></unknown>
</player>)"),
              0);
    const DRAVIK_PLAYER& p = *dA_Player();
    EXPECT_EQ(dA_IsPlayerValid(), 1);
    EXPECT_EQ(fields(p.current_playlist_id, p.next_playlist_id, p.next_playlist_start_time, p.content_id,
                     p.configuration_id, p.dl_permitted, p.mode),
              "pl-1,pl-2,2026-01-02T08:00:00,c-9,cfg-9,1,standalo");
    EXPECT_EQ(items, (Rows{"reboot=now please", "=" + long_data.substr(0, 255), "empty="}));

    for (const char* doc : {"<p><options><x/></options></p>", "<p><content id='a'>",
                            "<p><command><data><b/></data></command></p>"})
        EXPECT_EQ(parse_player(doc), -1) << doc;
    EXPECT_EQ(dA_IsPlayerValid(), 0);
    EXPECT_STREQ(dA_Player()->content_id, "c-9");
}

TEST_F(ConfigParsers, DownloadRequest)
{
    ASSERT_EQ(dA_ParseDLRequest(file_with("<dlrequest allow='1' reason='x'>ok</dlrequest>").c_str()), 0);
    EXPECT_EQ(dA_IsDLRequestValid(), 1);
    EXPECT_EQ(dA_DLRequest()->allow, 1);
    EXPECT_EQ(dA_ParseDLRequest(file_with("<dlrequest><why/></dlrequest>").c_str()), -1);
    EXPECT_EQ(dA_ParseDLRequest(file_with("<answer allow='1'/>").c_str()), -1);
    EXPECT_EQ(dA_IsDLRequestValid(), 0);
    EXPECT_EQ(dA_DLRequest()->allow, 1);
    ASSERT_EQ(dA_ParseDLRequest(file_with("<dlrequest/>").c_str()), 0);
    EXPECT_EQ(dA_DLRequest()->allow, 0);
}

TEST(DocumentApi, InitializeZeroesEveryRecordAndFlag)
{
    ASSERT_EQ(dA_ParseDLRequest(file_with("<dlrequest allow='3'/>").c_str()), 0);
    ASSERT_EQ(dA_ParsePlayer(file_with("<p><options dl_permitted='true'/></p>").c_str(), nullptr), 0);
    ASSERT_EQ(dA_ParseConfigurationCH(file_with("<c id='x'><timezone tz='2'/></c>").c_str()), 0);
    ASSERT_EQ(dA_ParseConfiguration(file_with("<c id='x'/>").c_str(), nullptr), 0);
    ASSERT_EQ(dA_ParseContent(file_with("<content><playlist/></content>").c_str()), 0);

    dA_Initialize();
    EXPECT_EQ(fields(dA_IsContentValid(), dA_IsConfigurationCHValid(), dA_IsPlayerValid(),
                     dA_IsConfigurationValid(), dA_IsDLRequestValid()),
              "0,0,0,0,0");
    EXPECT_EQ(fields(dA_DLRequest()->allow, dA_Content()->plcount, dA_ConfigurationCH()->timezone,
                     dA_ConfigurationCH()->id, dA_Player()->dl_permitted, dA_Configuration()->id),
              "0,0,0,,0,");
}

}  // namespace
