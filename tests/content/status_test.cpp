// The status document, its time stamp, and its POST to an HTTP server (Python's) on the
// sandbox's loopback; the documents compared byte for byte with tests/content/expected/.
#include "content/status.h"

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/text.h"
#include "support/peer.h"
#include "support/sandbox.h"

namespace {

DRAVIK_PLAYER_STATUS sample()
{
    DRAVIK_PLAYER_STATUS s{};
    copy_text(s.playerID, "0011AABBCCDD");
    s.isPlaying = s.scheduled_pl_active = s.download_enabled = 1;
    copy_text(s.tstamp, "2026-07-01T12:00:00");
    copy_text(s.active_content_name, "Lobby");
    copy_text(s.active_playlist_name, "Morning");
    s.download_state = PS_DL_STATE_COMPLETE;
    copy_text(s.playing_video, "a.mpg");
    s.totalMB = 1000;
    s.freeMB = 250;
    return s;
}

// The document for `s` built into a buffer of `size` bytes (the 2048 of a post).
std::string build(DRAVIK_PLAYER_STATUS& s, int size = 2048)
{
    std::vector<char> buf(static_cast<std::size_t>(size));  // ASan sees any write past it
    int n = da_CreatePlayerXMLStatus(buf.data(), size, &s);
    EXPECT_EQ(n, static_cast<int>(std::strlen(buf.data())));
    return std::string(buf.data(), static_cast<std::size_t>(n));
}

TEST(Status, Document)
{
    DRAVIK_PLAYER_STATUS s = sample();
    // Three errors, and names with quotes and ampersands inserted as they are.
    s.haveError = s.auto_off = s.no_pl_scheduled = 1;
    s.download_state = PS_DL_STATE_ACTIVE;
    s.download_total = 7;
    s.download_priority = 2;
    s.download_error_code = 5;
    copy_text(s.download_file, "b&w \"night\".mpg");
    copy_text(s.pending_content_name, "Tom & Jerry's \"Lobby\"");
    copy_text(s.pending_playlist_name, "<late>");
    s.error_count = 9;  // held to the three the record has room for
    for (int i = 0; i < 3; ++i) {
        copy_text(s.err_code[i], "E" + std::to_string(i + 1));
        copy_text(s.err_text[i], i == 1 ? "a \"quoted\" & odd one" : "disk full");
    }
    EXPECT_EQ(build(s), sandbox::read_file(EXPECTED_DIR "/status_errors"));

    // Every text filling its whole array without a terminator is read only within it,
    // and even then the document stays within the 2048 bytes a post builds into; a smaller
    // buffer gets it cut at its end.
    auto fill = [](auto&... texts) { ((std::memset(texts, 'w', sizeof texts - 1), texts[sizeof texts - 1] = '\0'), ...); };
    fill(s.active_content_name, s.active_playlist_name, s.active_layout_name, s.pending_content_name,
         s.pending_playlist_name, s.pending_layout_name, s.playing_video, s.playing_layout, s.download_file,
         s.err_code[0], s.err_code[1], s.err_code[2], s.err_text[0], s.err_text[1], s.err_text[2]);
    std::memset(&s, 'z', offsetof(DRAVIK_PLAYER_STATUS, isPlaying));  // the padding after playerID too
    s.download_error_code = s.totalMB = INT_MIN;
    const std::string whole = build(s, 4096);
    ASSERT_GT(whole.size(), 1700u);
    EXPECT_EQ(whole.substr(0, 31), "<pstatus id=\"zzzzzzzzzzzzz\" vid");
    EXPECT_EQ(build(s, 2048), whole);
    EXPECT_EQ(build(s, 1000), whole.substr(0, 999));
    EXPECT_EQ(build(s, 1), "");
    char untouched = 'x';
    EXPECT_EQ(da_CreatePlayerXMLStatus(&untouched, 0, &s), 0);
    EXPECT_EQ(untouched, 'x');

    // The time stamp: local time in nineteen characters.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    char t[21];
    make_time_stamp(t, 1782900000);  // 2026-07-01 10:00:00 UTC
    EXPECT_STREQ(t, "2026-07-01T12:00:00");
    make_time_stamp(t, 1767225605);  // 2026-01-01 00:00:05 UTC
    EXPECT_STREQ(t, "2026-01-01T01:00:05");
}

// An HTTP server on 127.0.0.1:`port` that answers 200 and appends each request to
// /tmp/posts: its request line and port, the headers the client sent, its body.
Peer http_server(int port)
{
    return Peer({"/usr/bin/python3", "-c", R"(import http.server, sys
class Handler(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers['Content-Length'])).decode()
        open('/tmp/posts', 'a').write(f'{self.requestline} port {sys.argv[1]}\n{self.headers}{body}\n')
        self.send_response(200)
        self.end_headers()
        self.wfile.write(b'status received\n')
server = http.server.HTTPServer(('127.0.0.1', int(sys.argv[1])), Handler)
print('ready', flush=True)
server.serve_forever())",
                 std::to_string(port)},
                "/tmp/http-" + std::to_string(port) + ".out");
}

int post(const std::string& url, DRAVIK_PLAYER_STATUS& s, std::string* printed = nullptr)
{
    std::string copy = url;
    testing::internal::CaptureStdout();
    int r = perform_post_status(copy.data(), &s);
    std::string out = testing::internal::GetCapturedStdout();
    if (printed) *printed = out;
    return r;
}

TEST(Status, PostGoesToTheHostPortAndPathOfTheUrl)
{
    Peer server = http_server(8080), http = http_server(80);
    ASSERT_TRUE(wait_for_line("/tmp/http-8080.out", "ready") && wait_for_line("/tmp/http-80.out", "ready"));
    DRAVIK_PLAYER_STATUS s = sample();
    copy_text(s.active_content_name, "Tom & \"Jerry\"");
    const std::string doc = sandbox::read_file(EXPECTED_DIR "/status");  // no error, so no element; a completed download
    ASSERT_EQ(build(s), doc);                                              // is not "downloading": dl="0", state="2"
    // Bad URLs fail before any request (73616 is 8080 once cut to 16 bits), and so does a
    // port nobody listens on.
    for (const std::string& bad : std::vector<std::string>{"https://127.0.0.1:8080/status", "HTTP://127.0.0.1:8080/status", "ftp://127.0.0.1:8080/",
                            "http://127.0.0.1:80a0/status", "http://127.0.0.1:8080x", "http://127.0.0.1:/status",
                            "http://127.0.0.1:123456/status", "http://127.0.0.1:73616/", "http://", "http:///status",
                            "http://no-such-host.invalid:8080/status", "http://127.0.0.1:8081/status",
                            "http://127.0.0.1:8080/" + std::string(1100, 'p')})
        EXPECT_EQ(post(bad, s), 0) << bad;
    EXPECT_FALSE(sandbox::exists("/tmp/posts"));

    // HTTP/1.0 with exactly two headers and no Host; no path posts to "/", no port to 80.
    std::string printed;
    ASSERT_EQ(post("http://127.0.0.1:8080/status.aspx?player=0011AABBCCDD", s, &printed), 1);
    for (const char* url : {"http://localhost:8080", "http://127.0.0.1", "http://127.0.0.1/a/b"}) ASSERT_EQ(post(url, s), 1) << url;
    const std::string head = "Content-Type: text/xml; charset=utf-8\nContent-Length: " + std::to_string(doc.size()) +
                             "\n\n" + doc + "\n";
    EXPECT_EQ(sandbox::read_file("/tmp/posts"),
              "POST /status.aspx?player=0011AABBCCDD HTTP/1.0 port 8080\n" + head + "POST / HTTP/1.0 port 8080\n" + head +
                  "POST / HTTP/1.0 port 80\n" + head + "POST /a/b HTTP/1.0 port 80\n" + head);
    // The reply is shown whole, whatever it says.
    EXPECT_NE(printed.find("200 OK"), std::string::npos) << printed;
    EXPECT_NE(printed.find("status received"), std::string::npos) << printed;
}

}  // namespace
