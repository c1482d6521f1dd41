// The channel configuration, plain configuration, player and download-request parsers,
// over real files on the sandbox's tmpfs.
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "support/sandbox.h"
#include "xml/dravikAPI.h"
#include "xml/parsers.h"
#include "xml/tokenizer.h"

using ::testing::ElementsAre;
using ::testing::Pair;

namespace {

std::string file_with(const std::string& doc)
{
    static int n;
    std::string path = "/tmp/doc" + std::to_string(++n) + ".xml";
    sandbox::write_file(path, doc);
    return path;
}

int parse_ch(const std::string& doc) { return dA_ParseConfigurationCH(file_with(doc).c_str()); }

std::vector<std::pair<std::string, std::string>> items;
void record(DRAVIK_NAME_DATA* item) { items.emplace_back(item->name, item->data); }

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
    EXPECT_STREQ(ch.id, "cfg-42");
    EXPECT_EQ(ch.autoOnOffEnable, 1);
    ASSERT_EQ(ch.aooItemCount, 3);
    EXPECT_EQ(ch.aooItems[0].day, 1);
    EXPECT_EQ(ch.aooItems[0].mode, 1);
    EXPECT_EQ(ch.aooItems[0].time_of_day, 27000);
    EXPECT_EQ(ch.aooItems[1].day, 5);
    EXPECT_EQ(ch.aooItems[1].mode, 0);
    EXPECT_EQ(ch.aooItems[1].time_of_day, 95940);  // no range check
    EXPECT_EQ(ch.aooItems[2].day, 0);              // a fresh item: Sunday, on, midnight
    EXPECT_EQ(ch.aooItems[2].mode, 1);
    EXPECT_EQ(ch.aooItems[2].time_of_day, 0);
    EXPECT_STREQ(ch.primaryTS, "ntp1.example");
    EXPECT_STREQ(ch.secondaryTS, "ntp2.example");
    EXPECT_EQ(ch.loggingEnable, 1);
    EXPECT_STREQ(ch.loggingServer, "ftp://logs.example");
    EXPECT_EQ(ch.logInterval, 6);
    EXPECT_EQ(ch.logAutoOffset, 1);
    EXPECT_EQ(ch.logOffset, 900);
    EXPECT_EQ(ch.timezone, -5);
    EXPECT_EQ(ch.rebootEnable, 1);
    EXPECT_EQ(ch.rebootTime, 3 * 3600 + 15 * 60);

    // An empty file is a document with nothing in it.
    ASSERT_EQ(parse_ch(""), 0);
    EXPECT_STREQ(ch.id, "");
    EXPECT_EQ(ch.autoOnOffEnable + ch.aooItemCount + ch.loggingEnable + ch.rebootTime, 0);
}

TEST_F(ConfigParsers, DayModeAndTimeWords)
{
    struct {
        const char* day;
        int expected;
    } days[] = {{"su", 0}, {"mo", 1}, {"tu", 2}, {"we", 3}, {"th", 4}, {"fr", 5}, {"sa", 6},
                {"monday", 1}, {"Mo", -1}, {"", -1}, {"t", 4}, {"s", 0}, {"x", -1}};
    for (const auto& d : days) EXPECT_EQ(ConvertDay(d.day), d.expected) << d.day;

    ASSERT_EQ(parse_ch("<c><auto_on_off><aoo_item mode='OFF' time='0730'/>"
                       "<aoo_item mode='off' time='12:3' day='sa'/>"
                       "<aoo_item mode='offline' time='1:2:3' time='x'/></auto_on_off></c>"),
              0);
    EXPECT_EQ(ch.aooItems[0].mode, 1);  // only the exact lower-case word switches off
    EXPECT_EQ(ch.aooItems[0].time_of_day, 0);  // no colon: unchanged
    EXPECT_EQ(ch.aooItems[1].mode, 0);
    EXPECT_EQ(ch.aooItems[1].time_of_day, 12 * 3600 + 3 * 60);
    EXPECT_EQ(ch.aooItems[1].day, 6);
    EXPECT_EQ(ch.aooItems[2].mode, 1);
    EXPECT_EQ(ch.aooItems[2].time_of_day, 3720);  // a later time without colon keeps it

    int t = 11;
    ConvertTime("123456:00", &t);  // five characters only: no colon among them
    EXPECT_EQ(t, 11);
    ConvertTime(":", &t);
    EXPECT_EQ(t, 0);
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
    // Elements that hold no elements.
    for (const char* doc : {"<c><auto_on_off><aoo_item><x/></aoo_item></auto_on_off></c>",
                            "<c><logging><x/></logging></c>", "<c><timezone><x/></timezone></c>",
                            "<c><reboot><x/></reboot></c>", "<c><pri_ts><x/></pri_ts></c>",
                            "<c><sec_ts>", "<c><auto_on_off>", "<c><logging enable='true'>",
                            "<c id='x"})
        EXPECT_EQ(parse_ch(doc), -1) << doc;
    EXPECT_EQ(dA_ParseConfigurationCH("/tmp/no-such.xml"), -1);
    EXPECT_EQ(dA_ParseConfigurationCH("/tmp"), -1);
}

std::string aoo_items(int n)
{
    std::string out;
    for (int i = 0; i < n; ++i) out += "<aoo_item day='mo' time='" + std::to_string(i % 24) + ":00'/>";
    return out;
}

// 30 items fit. The 31st is dropped and ends the section, so a 32nd reaches the top
// level and its first attribute fails the document.
TEST_F(ConfigParsers, AutoOnOffHoldsThirtyItems)
{
    ASSERT_EQ(parse_ch("<c><auto_on_off>" + aoo_items(30) + "</auto_on_off></c>"), 0);
    EXPECT_EQ(ch.aooItemCount, 30);
    EXPECT_EQ(ch.aooItems[29].time_of_day, 5 * 3600);
    ASSERT_EQ(parse_ch("<c><auto_on_off>" + aoo_items(31) + "</auto_on_off><timezone tz='2'/></c>"), 0);
    EXPECT_EQ(ch.aooItemCount, 30);
    EXPECT_EQ(ch.timezone, 2);
    EXPECT_EQ(parse_ch("<c><auto_on_off>" + aoo_items(32) + "</auto_on_off></c>"), -1);
    EXPECT_EQ(parse_ch("<c><auto_on_off>" + aoo_items(31) + "<aoo_item/></auto_on_off></c>"), 0);
}

// A failed parse keeps the last good record but clears its flag; the section elements
// reset their own fields when they start.
TEST_F(ConfigParsers, FailedParseKeepsThePreviousRecord)
{
    ASSERT_EQ(parse_ch("<c id='good'><timezone tz='3'/><reboot enable='true' time='1:00'/></c>"), 0);
    EXPECT_EQ(parse_ch("<c id='bad'><timezone tz='4'/><logging><x/></logging></c>"), -1);
    EXPECT_EQ(dA_IsConfigurationCHValid(), 0);
    EXPECT_STREQ(ch.id, "good");
    EXPECT_EQ(ch.timezone, 3);

    ASSERT_EQ(parse_ch("<c><timezone tz='3'/><timezone/><reboot enable='true' time='1:00'/><reboot/></c>"), 0);
    EXPECT_EQ(ch.timezone, 0);
    EXPECT_EQ(ch.rebootEnable, 0);
    EXPECT_EQ(ch.rebootTime, 0);
}

TEST_F(ConfigParsers, TimeServerAttributes)
{
    sandbox::write_file("/tmp/ts.xml", "<pri_ts a='1' server='abcdefgh'>x</pri_ts><sec_ts/>");
    XmlDocument doc("/tmp/ts.xml");
    ASSERT_EQ(xt_get_token(), XT_START_TAG);
    char buf[5] = "old";
    EXPECT_EQ(getTSAttributes(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "abcd");
    ASSERT_EQ(xt_get_token(), XT_START_TAG);
    EXPECT_EQ(getTSAttributes(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");  // cleared even without a server attribute
    EXPECT_EQ(getTSAttributes(buf, sizeof buf), -1);  // the end of input
}

TEST_F(ConfigParsers, PlainConfigurationCallsBackPerItem)
{
    std::string long_data(300, 'd');
    ASSERT_EQ(dA_ParseConfiguration(
                  file_with("<configuration id='plain-1'><other x='1'/><cfg_item name='volume' data='7'/>"
                            "<cfg_item data='" + long_data + "'></cfg_item></configuration>")
                      .c_str(),
                  record),
              -1);  // `x` on an unknown element reaches the top level
    EXPECT_EQ(dA_IsConfigurationValid(), 0);

    items.clear();
    ASSERT_EQ(dA_ParseConfiguration(
                  file_with("<configuration id='plain-1'><other/><cfg_item name='volume' data='7'/>"
                            "<cfg_item data='" + long_data + "'></cfg_item></configuration>")
                      .c_str(),
                  record),
              0);
    EXPECT_EQ(dA_IsConfigurationValid(), 1);
    EXPECT_STREQ(dA_Configuration()->id, "plain-1");
    EXPECT_THAT(items, ElementsAre(Pair("volume", "7"), Pair("", long_data.substr(0, 255))));

    for (const char* doc : {"<c><cfg_item name='a' size='2'/></c>", "<c><cfg_item><x/></cfg_item></c>",
                            "<c><cfg_item name='a'>", "<c lang='en'/>"})
        EXPECT_EQ(dA_ParseConfiguration(file_with(doc).c_str(), record), -1) << doc;
    EXPECT_STREQ(dA_Configuration()->id, "plain-1");
}

TEST_F(ConfigParsers, PlayerDocument)
{
    std::string long_data(300, 'p');
    ASSERT_EQ(dA_ParsePlayer(file_with(R"(<player xmlns="urn:p" serial="9">
  <current_playlist id="pl-1" extra="x"/>
  <next_playlist id="pl-2" start_time="2026-01-02T08:00:00"/>
  <content id="c-9"/><configuration id="cfg-9"/>
  <options dl_permitted="True" mode="standalone"/>
  <command name="reboot" other="y"><data>now please</data><note/></command>
  <command><data>)" + long_data + R"(</data></command>
  <command name="empty"/>
  <unknown><nested/></unknown>
</player>)")
                             .c_str(),
                             record),
              0);
    const DRAVIK_PLAYER& p = *dA_Player();
    EXPECT_EQ(dA_IsPlayerValid(), 1);
    EXPECT_STREQ(p.current_playlist_id, "pl-1");
    EXPECT_STREQ(p.next_playlist_id, "pl-2");
    EXPECT_STREQ(p.next_playlist_start_time, "2026-01-02T08:00:00");
    EXPECT_STREQ(p.content_id, "c-9");
    EXPECT_STREQ(p.configuration_id, "cfg-9");
    EXPECT_EQ(p.dl_permitted, 1);
    EXPECT_STREQ(p.mode, "standalo");
    EXPECT_THAT(items, ElementsAre(Pair("reboot", "now please"), Pair("", long_data.substr(0, 255)),
                                   Pair("empty", "")));

    for (const char* doc : {"<p><options><x/></options></p>", "<p><content id='a'>",
                            "<p><command><data><b/></data></command></p>"})
        EXPECT_EQ(dA_ParsePlayer(file_with(doc).c_str(), nullptr), -1) << doc;
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
    std::string path = file_with("<dlrequest allow='3'/>");
    ASSERT_EQ(dA_ParseDLRequest(path.c_str()), 0);
    dA_Content()->plcount = 4;
    dA_ConfigurationCH()->timezone = 2;
    dA_Player()->dl_permitted = 1;
    std::strcpy(dA_Configuration()->id, "x");
    g_ContentValid = g_ConfigurationCHValid = g_PlayerValid = g_ConfigurationValid = 1;

    dA_Initialize();
    EXPECT_EQ(dA_IsContentValid() + dA_IsConfigurationCHValid() + dA_IsPlayerValid() +
                  dA_IsConfigurationValid() + dA_IsDLRequestValid(),
              0);
    EXPECT_EQ(dA_DLRequest()->allow, 0);
    EXPECT_EQ(dA_Content()->plcount, 0);
    EXPECT_EQ(dA_ConfigurationCH()->timezone, 0);
    EXPECT_EQ(dA_Player()->dl_permitted, 0);
    EXPECT_STREQ(dA_Configuration()->id, "");
    // The accessors hand out the records themselves.
    EXPECT_EQ(dA_Content(), &Content);
    EXPECT_EQ(dA_ConfigurationCH(), &ConfigurationCH);
}

}  // namespace
