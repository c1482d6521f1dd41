// Start-up with the real document parsers: the saved configuration and content on the
// sandbox's /mnt/hd3, present, missing, empty or corrupt.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "actions/config.h"
#include "agent/agent.h"
#include "content/current_item.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/queues.h"
#include "support/sandbox.h"

namespace {

constexpr const char* kConfig = "/mnt/hd3/cfgdata.txt";
constexpr const char* kContent = "/mnt/hd3/contentdata.txt";

class StartUp : public ::testing::Test {
protected:
    // Writes the saved documents (nullptr: none) and runs start-up over them, with the
    // bridge's answer to the MAC address request waiting. The records first hold what a
    // previous start-up might have left.
    void start_up(const char* config, const char* content)
    {
        std::strcpy(currentCHConfig.id, "stale");
        currentCHConfig.autoOnOffEnable = currentCHConfig.loggingEnable = 1;
        std::strcpy(currentContent.id, "stale");
        currentContent.plcount = 3;
        currentContent.filecount = 5;
        std::strcpy(g_saved_content_id, "stale");
        content_check_timer = auto_on_off_timer = 0;

        sandbox::set_writable(3, true);
        for (auto [path, doc] : {std::pair{kConfig, config}, std::pair{kContent, content}}) {
            unlink(path);
            if (doc) sandbox::write_file(path, doc);
        }
        sandbox::set_writable(3, false);
        queues::drain(kBridgeReplyKey);
        ASSERT_TRUE(queues::post_bridge_reply("X = Hex-STRING: 00 1A 2B 3C 4D 5E "));
        agent_start_up();  // the timer thread it starts parks on its first sleep
    }

    FakePlatform platform;
};

TEST_F(StartUp, RestoresTheSavedDocuments)
{
    start_up(R"(<config id="cfg-7">
  <auto_on_off enable="true"><aoo_item day="mo" mode="off" time="22:00"/></auto_on_off>
  <logging enable="true" interval="6"/>
</config>)",
             R"(<content id="content-12" name="Lobby">
  <files><f_item findex="0" type="video" file="a.mp4" size="10"/></files>
  <playlist pindex="0"><pl_item findex="0" dur="5"/></playlist>
</content>)");

    EXPECT_STREQ(currentCHConfig.id, "cfg-7");
    EXPECT_EQ(currentCHConfig.aooItemCount, 1);
    EXPECT_EQ(currentCHConfig.logInterval, 6);
    EXPECT_EQ(auto_on_off_timer, 30);
    EXPECT_STREQ(currentContent.id, "content-12");
    EXPECT_EQ(currentContent.filecount + currentContent.plcount, 2);
    EXPECT_STREQ(g_saved_content_id, "content-12");
    EXPECT_EQ(content_check_timer, 20);
}

// Missing files, half-written files, bytes that are no XML, a configuration that breaks
// a rule: empty records. An empty file is an empty document and parses: the records
// stay empty too, but the content counts as restored, so the first content check comes.
TEST_F(StartUp, MissingEmptyOrCorruptDocumentsLeaveEmptyRecords)
{
    const struct {
        const char* config;
        const char* content;
        int content_check;
    } cases[] = {
        {nullptr, nullptr, 0},
        {"", "", 20},
        {"<config id=\"cfg-7\"><auto_on_off enable=\"true\">",
         "<content id=\"c-1\"><playlist pindex=\"0\">", 0},
        {"\x89PNG\r\n\x1a\n<<<\xff",
         "<content id='c-2'><files><f_item/><x a='1'/></files></content>", 0},
        {"<config id='a' version='2'/>",
         "<content id='c-3'><layout><vid_area_720><b/></vid_area_720></layout>", 0},
    };
    for (const auto& c : cases) {
        start_up(c.config, c.content);
        SCOPED_TRACE(c.config ? c.config : "(none)");
        EXPECT_STREQ(currentCHConfig.id, "");
        EXPECT_EQ(currentCHConfig.autoOnOffEnable + currentCHConfig.loggingEnable, 0);
        EXPECT_EQ(auto_on_off_timer, 0);
        EXPECT_STREQ(currentContent.id, "");
        EXPECT_EQ(currentContent.plcount + currentContent.filecount, 0);
        EXPECT_STREQ(g_saved_content_id, "");
        EXPECT_EQ(content_check_timer, c.content_check);
    }
}

}  // namespace
