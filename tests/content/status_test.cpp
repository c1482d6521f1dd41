// The status document, its time stamp and the status step. (The post, which needs an
// HTTP server, is in status_post_test.cpp.)
#include "content/status.h"

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "content/status_record.h"
#include "core/text.h"
#include "core/timer.h"

namespace {

// Fills each text given to the last byte before its terminator.
template <typename... Texts>
void fill(Texts&... texts)
{
    ((std::memset(texts, 'w', sizeof texts - 1), texts[sizeof texts - 1] = '\0'), ...);
}

TEST(StatusDocument, WithoutAndWithErrors)
{
    DRAVIK_PLAYER_STATUS s = sample();
    // A completed download is not "downloading": dl="0" above, state="2" below.
    EXPECT_EQ(build(s),
              "<pstatus id=\"0011AABBCCDD\" video=\"1\" error=\"0\" t=\"2026-07-01T12:00:00\" "
              "dl=\"0\" aoff=\"0\" nopl=\"0\" schpl=\"1\">\n"
              "<active_content name=\"Lobby\" pl=\"Morning\" layout=\"\"/>\n"
              "<pending_content name=\"\" pl=\"\" layout=\"\"/>\n"
              "<download state=\"2\" enb=\"1\" file=\"\" tot=\"0\" pri=\"0\" ec=\"0\" />\n"
              "<playing video=\"a.mpg\" layout=\"\"/>\n"
              "<storage totalMB=\"1000\" freeMB=\"250\"/>\n"
              "</pstatus>");

    // Three errors, and names with quotes and ampersands inserted as they are.
    s.haveError = 1;
    s.auto_off = 1;
    s.no_pl_scheduled = 1;
    s.download_state = PS_DL_STATE_ACTIVE;
    s.download_total = 7;
    s.download_priority = 2;
    s.download_error_code = 5;
    copy_text(s.download_file, "b&w \"night\".mpg");
    copy_text(s.pending_content_name, "Tom & Jerry's \"Lobby\"");
    copy_text(s.pending_playlist_name, "<late>");
    s.error_count = 3;
    for (int i = 0; i < 3; ++i) {
        copy_text(s.err_code[i], "E" + std::to_string(i + 1));
        copy_text(s.err_text[i], i == 1 ? "a \"quoted\" & odd one" : "disk full");
    }
    const std::string doc = build(s);
    EXPECT_EQ(doc,
              "<pstatus id=\"0011AABBCCDD\" video=\"1\" error=\"1\" t=\"2026-07-01T12:00:00\" "
              "dl=\"1\" aoff=\"1\" nopl=\"1\" schpl=\"1\">\n"
              "<active_content name=\"Lobby\" pl=\"Morning\" layout=\"\"/>\n"
              "<pending_content name=\"Tom & Jerry's \"Lobby\"\" pl=\"<late>\" layout=\"\"/>\n"
              "<download state=\"1\" enb=\"1\" file=\"b&w \"night\".mpg\" tot=\"7\" pri=\"2\" ec=\"5\" />\n"
              "<error code=\"E1\" text=\"disk full\"/>\n"
              "<error code=\"E2\" text=\"a \"quoted\" & odd one\"/>\n"
              "<error code=\"E3\" text=\"disk full\"/>\n"
              "<playing video=\"a.mpg\" layout=\"\"/>\n"
              "<storage totalMB=\"1000\" freeMB=\"250\"/>\n"
              "</pstatus>");

    // An error count out of range is held to the three the record has room for.
    s.error_count = 9;
    EXPECT_EQ(build(s), doc);
    s.error_count = -2;
    EXPECT_EQ(build(s).find("<error"), std::string::npos);
}

TEST(StatusDocument, LongerThanTheBufferIsCutAtItsEnd)
{
    // Every text at its longest and two numbers at their widest; a text filling its
    // whole array without a terminator is read only within it.
    DRAVIK_PLAYER_STATUS s = sample();
    fill(s.active_content_name, s.active_playlist_name, s.active_layout_name, s.pending_content_name,
         s.pending_playlist_name, s.pending_layout_name, s.playing_video, s.playing_layout, s.download_file,
         s.err_code[0], s.err_code[1], s.err_code[2], s.err_text[0], s.err_text[1], s.err_text[2]);
    s.error_count = 3;
    std::memset(&s, 'z', offsetof(DRAVIK_PLAYER_STATUS, isPlaying));  // the padding after playerID too
    s.download_error_code = INT_MIN;
    s.totalMB = INT_MIN;

    std::string whole = build(s, 4096);
    ASSERT_GT(whole.size(), 1700u);
    EXPECT_EQ(whole.substr(0, 31), "<pstatus id=\"zzzzzzzzzzzzz\" vid");
    EXPECT_EQ(whole.substr(whole.size() - 10), "</pstatus>");

    // Even the longest texts stay within the 2048 bytes a post builds into; a caller's
    // smaller buffer gets the document cut at its end.
    EXPECT_EQ(build(s, 2048), whole);
    EXPECT_EQ(build(s, 1000), whole.substr(0, 999));
    EXPECT_EQ(build(s, static_cast<int>(whole.size())), whole.substr(0, whole.size() - 1));
    EXPECT_EQ(build(s, 1), "");
    char untouched = 'x';
    EXPECT_EQ(da_CreatePlayerXMLStatus(&untouched, 0, &s), 0);
    EXPECT_EQ(untouched, 'x');
}

TEST(StatusTimeStamp, LocalTimeInNineteenCharacters)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    char t[21];
    std::memset(t, '#', sizeof t);
    make_time_stamp(t, 1782900000);  // 2026-07-01 10:00:00 UTC
    EXPECT_STREQ(t, "2026-07-01T12:00:00");
    make_time_stamp(t, 1767225605);  // 2026-01-01 00:00:05 UTC
    EXPECT_STREQ(t, "2026-01-01T01:00:05");
}

TEST(StatusStep, ClearsItsTriggerAndNothingElse)
{
    initiate_post_status = 1;
    post_status_timer = 10;
    initiate_content_check = 1;
    process_post_status("http://127.0.0.1", "0011AABBCCDD", nullptr, nullptr);
    EXPECT_EQ(initiate_post_status, 0);
    EXPECT_EQ(post_status_timer, 10);
    EXPECT_EQ(initiate_content_check, 1);
}

}  // namespace
