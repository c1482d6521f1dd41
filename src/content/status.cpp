#include "content/status.h"

#include <arpa/inet.h>
#include <cctype>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

#include "core/text.h"
#include "core/timer.h"

namespace {

constexpr int kStatusBufferSize = 2048;
constexpr std::size_t kMaxHost = 127;
constexpr std::size_t kMaxPortDigits = 5;

// Appends to a fixed buffer and never past it: once the buffer is full the rest is
// cut, and `length` stays the number of characters really in it.
class Writer {
public:
    Writer(char* buf, int size) : buf_(buf), size_(size > 0 ? static_cast<std::size_t>(size) : 0)
    {
        if (size_ > 0) buf_[0] = '\0';
    }

    [[gnu::format(printf, 2, 3)]] void put(const char* format, ...)
    {
        if (size_ == 0 || length_ + 1 >= size_) return;
        std::va_list args;
        va_start(args, format);
        int n = std::vsnprintf(buf_ + length_, size_ - length_, format, args);
        va_end(args);
        if (n < 0) {
            buf_[length_] = '\0';
            return;
        }
        std::size_t room = size_ - length_ - 1;
        length_ += static_cast<std::size_t>(n) < room ? static_cast<std::size_t>(n) : room;
    }

    int length() const { return static_cast<int>(length_); }

private:
    char* buf_;
    std::size_t size_;
    std::size_t length_ = 0;
};

// A record's text as printf's "%.*s" takes it, never reading past its array.
template <std::size_t N>
int len(const char (&s)[N])
{
    return static_cast<int>(text_of(s).size());
}

struct Socket {
    int fd;
    ~Socket()
    {
        if (fd >= 0) close(fd);
    }
};

bool write_all(int fd, const char* data, std::size_t size)
{
    // One write of the whole length, as the server side expects one piece; a short
    // write counts as a failure.
    ssize_t n = write(fd, data, size);
    return n >= 0 && static_cast<std::size_t>(n) == size;
}

}  // namespace

void process_post_status(const char*, const char*, DRAVIK_CONTENT*, PLAYER_STATE*)
{
    // The status step only acknowledges its trigger; nothing is sent from here.
    MutexLock lock(timerMutex);
    initiate_post_status = 0;
}

int da_CreatePlayerXMLStatus(char* buf, int size, DRAVIK_PLAYER_STATUS* s)
{
    // Values go in as they are, without XML escaping: the server reads them so.
    Writer w(buf, size);
    w.put("<pstatus id=\"%.*s\" video=\"%d\" error=\"%d\" t=\"%.*s\" dl=\"%d\" aoff=\"%d\" "
          "nopl=\"%d\" schpl=\"%d\">\n",
          len(s->playerID), s->playerID, s->isPlaying, s->haveError, len(s->tstamp), s->tstamp,
          s->download_state == PS_DL_STATE_ACTIVE ? 1 : 0, s->auto_off, s->no_pl_scheduled,
          s->scheduled_pl_active);
    w.put("<active_content name=\"%.*s\" pl=\"%.*s\" layout=\"%.*s\"/>\n",
          len(s->active_content_name), s->active_content_name, len(s->active_playlist_name),
          s->active_playlist_name, len(s->active_layout_name), s->active_layout_name);
    w.put("<pending_content name=\"%.*s\" pl=\"%.*s\" layout=\"%.*s\"/>\n",
          len(s->pending_content_name), s->pending_content_name, len(s->pending_playlist_name),
          s->pending_playlist_name, len(s->pending_layout_name), s->pending_layout_name);
    // The blank before "/>" on this line only is what the server has always received.
    w.put("<download state=\"%d\" enb=\"%d\" file=\"%.*s\" tot=\"%d\" pri=\"%d\" ec=\"%d\" />\n",
          static_cast<int>(s->download_state), s->download_enabled, len(s->download_file),
          s->download_file, s->download_total, s->download_priority, s->download_error_code);
    int errors = s->error_count < 0 ? 0 : (s->error_count > 3 ? 3 : s->error_count);
    for (int i = 0; i < errors; ++i)
        w.put("<error code=\"%.*s\" text=\"%.*s\"/>\n", len(s->err_code[i]), s->err_code[i],
              len(s->err_text[i]), s->err_text[i]);
    w.put("<playing video=\"%.*s\" layout=\"%.*s\"/>\n", len(s->playing_video), s->playing_video,
          len(s->playing_layout), s->playing_layout);
    w.put("<storage totalMB=\"%d\" freeMB=\"%d\"/>\n", s->totalMB, s->freeMB);
    w.put("</pstatus>");
    return w.length();
}

void make_time_stamp(char* tstampBuf, std::time_t rawtime)
{
    std::tm tm{};
    if (localtime_r(&rawtime, &tm) == nullptr) {
        tstampBuf[0] = '\0';
        return;
    }
    // The caller's buffer is a DRAVIK_PLAYER_STATUS tstamp: 21 bytes, 19 characters
    // for any year with four digits.
    char text[64];
    std::snprintf(text, sizeof text, "%d-%02d-%02dT%02d:%02d:%02d", tm.tm_year + 1900,
                  tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
    copy_text(tstampBuf, sizeof DRAVIK_PLAYER_STATUS::tstamp, text);
}

int perform_post_status(char* url, DRAVIK_PLAYER_STATUS* status)
{
    if (url == nullptr || std::strncmp(url, "http://", 7) != 0) return 0;
    std::string_view rest(url + 7);

    std::size_t hostEnd = rest.find_first_of("/:");
    std::string_view host = rest.substr(0, hostEnd);
    // A longer name cannot be resolved; cutting it would post to some other host.
    if (host.empty() || host.size() > kMaxHost) return 0;
    rest.remove_prefix(host.size());

    int port = 80;
    if (!rest.empty() && rest.front() == ':') {
        rest.remove_prefix(1);
        std::string_view digits = rest.substr(0, rest.find('/'));
        if (digits.empty() || digits.size() > kMaxPortDigits) return 0;
        port = 0;
        for (char c : digits) {
            if (!std::isdigit(static_cast<unsigned char>(c))) return 0;
            port = port * 10 + (c - '0');
        }
        if (port == 0 || port > 65535) return 0;
        rest.remove_prefix(digits.size());
    }
    std::string_view path = rest.empty() ? std::string_view("/") : rest;

    char hostName[kMaxHost + 1];
    copy_text(hostName, host);
    hostent* he = gethostbyname(hostName);
    if (he == nullptr || he->h_addrtype != AF_INET || he->h_addr_list[0] == nullptr) return 0;
    char dotted[INET_ADDRSTRLEN];
    if (inet_ntop(AF_INET, he->h_addr_list[0], dotted, sizeof dotted) == nullptr) return 0;

    char doc[kStatusBufferSize];
    int docLength = da_CreatePlayerXMLStatus(doc, kStatusBufferSize, status);
    if (docLength == 0) return 0;

    char header[1024];
    int headerLength = std::snprintf(header, sizeof header,
                                     "POST %.*s HTTP/1.0\r\nContent-Type: text/xml; "
                                     "charset=utf-8\r\nContent-Length: %d\r\n\r\n",
                                     static_cast<int>(path.size()), path.data(), docLength);
    if (headerLength < 0 || static_cast<std::size_t>(headerLength) >= sizeof header) {
        std::printf("perform_post_status: the path of %s is too long\n", url);
        return 0;
    }

    Socket sock{socket(AF_INET, SOCK_STREAM, 6)};
    if (sock.fd < 0) return 0;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<std::uint16_t>(port));
    if (inet_pton(AF_INET, dotted, &addr.sin_addr) < 0) return 0;
    if (connect(sock.fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) return 0;
    if (!write_all(sock.fd, header, static_cast<std::size_t>(headerLength))) return 0;
    if (!write_all(sock.fd, doc, static_cast<std::size_t>(docLength))) return 0;

    // The reply is shown, not interpreted: any answer counts as delivered.
    char reply[1025];
    for (;;) {
        ssize_t n = read(sock.fd, reply, 1024);
        if (n <= 0) break;
        reply[n] = '\0';
        if (std::fputs(reply, stdout) < 0) break;
    }
    return 1;
}
