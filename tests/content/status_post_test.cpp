// The status document's POST to a real HTTP server listening on the sandbox's loopback.
#include <chrono>
#include <gtest/gtest.h>
#include <httplib.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "content/status.h"
#include "content/status_record.h"
#include "core/text.h"

namespace {

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
