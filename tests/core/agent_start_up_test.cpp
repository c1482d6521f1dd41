// Start-up with the real document parsers: the saved configuration and content on the
// sandbox's /mnt/hd3, present, missing, empty or corrupt.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include "actions/config.h"
#include "content/current_item.h"
#include "core/agent.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/sandbox.h"

namespace {

constexpr const char* kConfig = "/mnt/hd3/cfgdata.txt";
constexpr const char* kContent = "/mnt/hd3/contentdata.txt";

// The bridge's answer to the MAC address request, waiting before start-up asks; the
// only one there.
void bridge_reply()
{
    struct {
        long type;
        char text[kSnmpTextSize];
    } old;
    int q = msgget(kBridgeReplyKey, IPC_CREAT | 0666);
    while (msgrcv(q, &old, sizeof old.text, 0, IPC_NOWAIT | MSG_NOERROR) >= 0) {
    }

    struct {
        long type;
        char text[kSnmpTextSize];
    } m{};
    m.type = kSnmpReplyType;
    std::strcpy(m.text, ".1.3.6.1.4.1.58321.3.1.8.0 = Hex-STRING: 00 1A 2B 3C 4D 5E ");
    ASSERT_EQ(msgsnd(q, &m, std::strlen(m.text) + 1, IPC_NOWAIT), 0);
}

class StartUp : public ::testing::Test {
protected:
    void SetUp() override
    {
        // What a previous start-up (or a stale process image) might have left.
        std::strcpy(currentCHConfig.id, "stale");
        currentCHConfig.autoOnOffEnable = 1;
        currentCHConfig.loggingEnable = 1;
        std::strcpy(currentContent.id, "stale");
        currentContent.plcount = 3;
        currentContent.filecount = 5;
        std::strcpy(g_saved_content_id, "stale");
        content_check_timer = 0;
        auto_on_off_timer = 0;
        sandbox::set_writable(3, true);
        unlink(kConfig);
        unlink(kContent);
    }

    void start_up()
    {
        sandbox::set_writable(3, false);
        bridge_reply();
        agent_start_up();  // the timer thread it starts parks on its first sleep
    }

    void expect_empty_records()
    {
        EXPECT_STREQ(currentCHConfig.id, "");
        EXPECT_EQ(currentCHConfig.autoOnOffEnable, 0);
        EXPECT_EQ(currentCHConfig.loggingEnable, 0);
        EXPECT_EQ(auto_on_off_timer, 0);
        EXPECT_STREQ(currentContent.id, "");
        EXPECT_EQ(currentContent.plcount, 0);
        EXPECT_EQ(currentContent.filecount, 0);
        EXPECT_STREQ(g_saved_content_id, "");
        EXPECT_EQ(content_check_timer, 0);
    }

    FakePlatform platform;
};

TEST_F(StartUp, RestoresTheSavedDocuments)
{
    sandbox::write_file(kConfig, R"(<config id="cfg-7">
  <auto_on_off enable="true"><aoo_item day="mo" mode="off" time="22:00"/></auto_on_off>
  <logging enable="true" interval="6"/>
</config>)");
    sandbox::write_file(kContent, R"(<content id="content-12" name="Lobby">
  <files><f_item findex="0" type="video" file="a.mp4" size="10"/></files>
  <playlist pindex="0"><pl_item findex="0" dur="5"/></playlist>
</content>)");
    start_up();

    EXPECT_STREQ(currentCHConfig.id, "cfg-7");
    EXPECT_EQ(currentCHConfig.aooItemCount, 1);
    EXPECT_EQ(currentCHConfig.aooItems[0].time_of_day, 22 * 3600);
    EXPECT_EQ(currentCHConfig.logInterval, 6);
    EXPECT_EQ(auto_on_off_timer, 30);
    EXPECT_STREQ(currentContent.id, "content-12");
    EXPECT_STREQ(currentContent.name, "Lobby");
    EXPECT_EQ(currentContent.filecount, 1);
    ASSERT_EQ(currentContent.plcount, 1);
    EXPECT_EQ(currentContent.playlists[0].PlItems[0].duration, 5);
    EXPECT_STREQ(g_saved_content_id, "content-12");
    EXPECT_EQ(content_check_timer, 20);
}

TEST_F(StartUp, MissingDocumentsLeaveEmptyRecords)
{
    start_up();
    expect_empty_records();
}

// Half-written files, bytes that are no XML, and a configuration that breaks a rule.
TEST_F(StartUp, CorruptDocumentsLeaveEmptyRecords)
{
    const std::string corrupt[][2] = {
        {"<config id=\"cfg-7\"><auto_on_off enable=\"true\">", "<content id=\"c-1\"><playlist pindex=\"0\">"},
        {"\x89PNG\r\n\x1a\n<<<\xff", "<content id='c-2'><files><f_item/><x a='1'/></files></content>"},
        {"<config id='a' version='2'/>", "<content id='c-3'><layout><vid_area_720><b/></vid_area_720></layout>"},
    };
    for (const auto& docs : corrupt) {
        SetUp();
        sandbox::write_file(kConfig, docs[0]);
        sandbox::write_file(kContent, docs[1]);
        start_up();
        expect_empty_records();
    }
}

// An empty file is an empty document, and parses: the records stay empty, but the
// content counts as restored, so the first content check still comes.
TEST_F(StartUp, EmptyDocumentsParseAsEmpty)
{
    sandbox::write_file(kConfig, "");
    sandbox::write_file(kContent, "");
    start_up();
    EXPECT_STREQ(currentCHConfig.id, "");
    EXPECT_EQ(auto_on_off_timer, 0);
    EXPECT_STREQ(currentContent.id, "");
    EXPECT_EQ(currentContent.plcount, 0);
    EXPECT_STREQ(g_saved_content_id, "");
    EXPECT_EQ(content_check_timer, 20);
}

}  // namespace
