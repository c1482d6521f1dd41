// The status document, its time stamp, and its POST to a real HTTP server listening
// on the sandbox's loopback.
#include "content/status.h"

#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <httplib.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/text.h"
#include "core/timer.h"

namespace {

DRAVIK_PLAYER_STATUS sample()
{
    DRAVIK_PLAYER_STATUS s{};
    copy_text(s.playerID, "0011AABBCCDD");
    s.isPlaying = 1;
    copy_text(s.tstamp, "2026-07-01T12:00:00");
    s.scheduled_pl_active = 1;
    copy_text(s.active_content_name, "Lobby");
    copy_text(s.active_playlist_name, "Morning");
    s.download_state = PS_DL_STATE_COMPLETE;
    s.download_enabled = 1;
    copy_text(s.playing_video, "a.mpg");
    s.totalMB = 1000;
    s.freeMB = 250;
    return s;
}

// Fills each text given to the last byte before its terminator.
template <typename... Texts>
void fill(Texts&... texts)
{
    ((std::memset(texts, 'w', sizeof texts - 1), texts[sizeof texts - 1] = '\0'), ...);
}

std::string build(DRAVIK_PLAYER_STATUS& s, int size = 2048)
{
    std::vector<char> buf(static_cast<std::size_t>(size));  // ASan sees any write past it
    int n = da_CreatePlayerXMLStatus(buf.data(), size, &s);
    EXPECT_EQ(n, static_cast<int>(std::strlen(buf.data())));
    return std::string(buf.data(), static_cast<std::size_t>(n));
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

// An HTTP server on 127.0.0.1 that answers 200 and records every request as its
// request line, port and headers (those the client sent), then a blank line and the body.
class StatusServer {
public:
    explicit StatusServer(int port)
    {
        server_.set_keep_alive_max_count(1);
        server_.Post(".*", [this](const httplib::Request& req, httplib::Response& res) {
            std::string seen =
                req.method + " " + req.path + " " + req.version + " port " + std::to_string(req.local_port);
            for (const auto& [name, value] : req.headers)
                if (name.find("_ADDR") == std::string::npos && name.find("_PORT") == std::string::npos)
                    seen += "\n" + name + ": " + value;  // not the server's own REMOTE_ADDR ... notes
            std::lock_guard<std::mutex> lock(mu_);
            received_.push_back(seen + "\n\n" + req.body);
            res.set_content("status received\n", "text/plain");
        });
        EXPECT_TRUE(server_.bind_to_port("127.0.0.1", port)) << port;
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        // stop() before the loop runs would be lost and leave it listening for ever.
        for (int i = 0; i < 5000 && !server_.is_running(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_TRUE(server_.is_running());
    }
    ~StatusServer()
    {
        server_.stop();
        thread_.join();
    }
    std::vector<std::string> received()
    {
        std::lock_guard<std::mutex> lock(mu_);
        return received_;
    }

private:
    httplib::Server server_;
    std::thread thread_;
    std::mutex mu_;
    std::vector<std::string> received_;
};

int post(const char* url, DRAVIK_PLAYER_STATUS& s, std::string* printed = nullptr)
{
    std::string copy = url;
    testing::internal::CaptureStdout();
    int r = perform_post_status(copy.data(), &s);
    std::string out = testing::internal::GetCapturedStdout();
    if (printed) *printed = out;
    return r;
}

TEST(StatusPost, PostsTheDocumentToTheHostPortAndPathOfTheUrl)
{
    DRAVIK_PLAYER_STATUS s = sample();
    copy_text(s.active_content_name, "Tom & \"Jerry\"");
    const std::string doc = build(s);
    // Exactly these two headers, and no Host.
    const std::string head = "Content-Length: " + std::to_string(doc.size()) +
                             "\nContent-Type: text/xml; charset=utf-8\n\n" + doc;
    std::string printed;
    StatusServer server(8080);
    ASSERT_EQ(post("http://127.0.0.1:8080/status.aspx?player=0011AABBCCDD", s, &printed), 1);
    ASSERT_EQ(post("http://localhost:8080", s), 1);
    // A URL without a path posts to "/", and one without a port to port 80.
    StatusServer http(80);
    ASSERT_EQ(post("http://127.0.0.1", s), 1);
    ASSERT_EQ(post("http://127.0.0.1/a/b", s), 1);
    EXPECT_EQ(server.received(), (std::vector<std::string>{"POST /status.aspx HTTP/1.0 port 8080\n" + head,
                                                           "POST / HTTP/1.0 port 8080\n" + head}));
    EXPECT_EQ(http.received(), (std::vector<std::string>{"POST / HTTP/1.0 port 80\n" + head,
                                                         "POST /a/b HTTP/1.0 port 80\n" + head}));
    // The reply is shown whole, whatever it says.
    EXPECT_NE(printed.find("200 OK"), std::string::npos) << printed;
    EXPECT_NE(printed.find("status received"), std::string::npos) << printed;
}

TEST(StatusPost, BadUrlsFailBeforeAnyRequest)
{
    // 73616 is 8080 once cut to 16 bits.
    StatusServer server(8080);
    DRAVIK_PLAYER_STATUS s = sample();
    const std::string long_path = "http://127.0.0.1:8080/" + std::string(1100, 'p');
    for (const char* url :
         {"https://127.0.0.1:8080/status", "https:/127.0.0.1:8080/status", "HTTP://127.0.0.1:8080/status",
          "ftp://127.0.0.1:8080/", "http://127.0.0.1:80a0/status", "http://127.0.0.1:8080x",
          "http://127.0.0.1:/status", "http://127.0.0.1:123456/status", "http://127.0.0.1:73616/", "http://",
          "http:///status", "http://no-such-host.invalid:8080/status",
          long_path.c_str()})
        EXPECT_EQ(post(url, s), 0) << url;
    EXPECT_TRUE(server.received().empty());

    // Nobody listening: the connection fails.
    EXPECT_EQ(post("http://127.0.0.1:8081/status", s), 0);
}

}  // namespace
