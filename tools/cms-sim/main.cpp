// cms-sim: a content-management server for tests and the demo. It serves a folder over
// HTTP on 127.0.0.1, logs one line per request, and answers the requests that its
// fault rules name badly on purpose. See --help.
#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <httplib.h>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "rules.h"

namespace {

constexpr const char* kUsage = R"(Usage: cms-sim [--root DIR] [--port N] [--log PATH] [--rules FILE] [--fault PATTERN FAULTS]...
  or:  cms-sim --help

Serves the files under DIR (default: the current directory) over HTTP on 127.0.0.1:N
(default 8080; 0 picks a free port, which the log's first line names): GET and HEAD of
/command.txt, /config.xml, /content.xml, /dlreq.aspx (the query is ignored), the
version file, media in subfolders ... A path that is not a regular file below DIR
gets 404. Every connection is closed after its answer. It runs until SIGTERM or SIGINT
and then ends cleanly (exit status 0); SIGHUP reads the --rules file again. A port in
use is refused with a message on standard error and exit status 1; a wrong command
line gives exit status 2.

Faults. A request whose path (without the query) matches a PATTERN (shell wild cards:
* ? [...]; * also matches "/") is answered with that rule's FAULTS, a comma-separated
list of:
  status=CODE        answer CODE (401 adds WWW-Authenticate) instead of the file
  auth=USER:PASS     answer 401 unless the request carries these Basic credentials
  delay=SECONDS      wait before answering (fractions allowed)
  rate=BYTES         send the body at BYTES per second
  stall=BYTES[/SECONDS]
                     stop sending after BYTES of the body, for SECONDS (default: until
                     the client goes or cms-sim ends), then go on
  drop=BYTES         close the connection after BYTES of the body
  extra=BYTES        send BYTES more than the declared Content-Length
  times=N            only for the first N requests that match (later ones go on to
                     the next rule, or are served normally)
BYTES take a k (1024) or m (1048576) suffix. Only the first rule that matches (and has
uses left) applies: --fault rules in their order, then the --rules file's.

  --fault PATTERN FAULTS   one rule (two arguments), e.g. --fault '/media/*' stall=1000
  --rules FILE             one rule per line, "PATTERN FAULTS" ('#' starts a comment;
                           the faults are the last word, the pattern may hold blanks)
  --log PATH               the log ("-": standard output; default /tmp/cms-sim.log)

Log: one line per request, fields separated by one blank:
  <seconds.millis> <METHOD> <target> <status> <body bytes sent> <faults or ->
e.g. "1767268800.123 GET /dlreq.aspx?player=001A2B3C4D5E&pri=1 200 512 -" or
"1767268801.456 GET /media/a.mp4 200 1000 stall=1000/2". The target is the request's
as sent (still %-encoded, so it holds no blank). A line is written when the answer has
ended, however it ended: a dropped or stalled answer logs the bytes it sent. Lines that
begin with "#" are not requests:
  # start pid=N port=N root=DIR
  # rules FILE: N loaded | error TEXT
  # stop signal=N requests=N
)";

std::atomic<bool> g_stopping{false};

struct Options {
    std::string root = ".";
    int port = 8080;
    std::string log = "/tmp/cms-sim.log";
    std::string rules_file;
};

[[noreturn]] void usage_error(const std::string& why)
{
    std::fprintf(stderr, "cms-sim: %s (see --help)\n", why.c_str());
    std::exit(2);
}

class Log {
public:
    bool open(const std::string& path)
    {
        fd_ = path == "-" ? STDOUT_FILENO : ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        return fd_ >= 0;
    }
    void line(const std::string& text)
    {
        std::string out = text + "\n";
        std::lock_guard<std::mutex> lock(mu_);
        if (::write(fd_, out.data(), out.size()) < 0) {
            // A log that cannot be written is no reason to stop serving.
        }
    }
    void request(const httplib::Request& req, int status, long long bytes, const std::string& faults)
    {
        using namespace std::chrono;
        long long ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "%lld.%03lld", ms / 1000, ms % 1000);
        line(std::string(stamp) + " " + req.method + " " + (req.target.empty() ? req.path : req.target) + " " +
             std::to_string(status) + " " + std::to_string(bytes) + " " + (faults.empty() ? "-" : faults));
        ++requests;
    }
    std::atomic<long long> requests{0};

private:
    int fd_ = -1;
    std::mutex mu_;
};

Log g_log;
cms::Rules g_rules;
// The faults of the request in hand, for the logger, which runs on the same thread
// once a short answer has been written.
thread_local std::string t_faults;

// Sleeps up to `seconds` (negative: for ever), in short steps so that cms-sim's end is
// never held up; false when cms-sim is ending or, with a `sink`, the client has gone.
bool nap(double seconds, httplib::DataSink* sink = nullptr)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds < 0 ? 1e9 : seconds);
    while (std::chrono::steady_clock::now() < end) {
        if (g_stopping || (sink && !sink->is_writable())) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return !g_stopping;
}

std::string base64(const std::string& in)
{
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    std::size_t i = 0;
    for (; i + 2 < in.size(); i += 3) {
        unsigned v = (unsigned char)in[i] << 16 | (unsigned char)in[i + 1] << 8 | (unsigned char)in[i + 2];
        for (int s = 18; s >= 0; s -= 6) out += kDigits[(v >> s) & 63];
    }
    if (i < in.size()) {
        unsigned v = (unsigned char)in[i] << 16 | (i + 1 < in.size() ? (unsigned char)in[i + 1] << 8 : 0);
        out += kDigits[(v >> 18) & 63];
        out += kDigits[(v >> 12) & 63];
        out += i + 1 < in.size() ? kDigits[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

// A short text answer in place of a file.
void answer_status(httplib::Response& res, int status)
{
    res.status = status;
    if (status == 401) res.set_header("WWW-Authenticate", "Basic realm=\"cms-sim\"");
    res.set_content("cms-sim: " + std::to_string(status) + "\n", "text/plain");
}

// One file's body, sent under the faults.
struct Body {
    int fd = -1;
    long long size = 0;
    long long sent = 0;
    bool stalled = false;
    cms::Fault fault;
    std::string buffer;  // reused for every piece of the body
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    ~Body()
    {
        if (fd >= 0) close(fd);
    }
};

bool send_body(Body& b, std::size_t offset, std::size_t length, httplib::DataSink& sink)
{
    const cms::Fault& f = b.fault;
    auto at = static_cast<long long>(offset);
    long long chunk = std::min<long long>(static_cast<long long>(length), 256 * 1024);
    if (f.drop_after >= 0) {
        if (at >= f.drop_after) return false;  // httplib closes the connection
        chunk = std::min(chunk, f.drop_after - at);
    }
    if (f.stall_after >= 0 && !b.stalled) {
        if (at >= f.stall_after) {
            b.stalled = true;
            if (!nap(f.stall_seconds, &sink)) return false;
        } else {
            chunk = std::min(chunk, f.stall_after - at);
        }
    }
    if (f.rate > 0) {
        // Small pieces on a schedule: byte N leaves N / rate seconds after the start.
        chunk = std::min(chunk, std::max<long long>(1, f.rate / 10));
        auto due = b.start + std::chrono::duration<double>(static_cast<double>(at) / static_cast<double>(f.rate));
        auto wait = std::chrono::duration<double>(due - std::chrono::steady_clock::now()).count();
        if (wait > 0 && !nap(wait)) return false;
    }
    b.buffer.resize(static_cast<std::size_t>(chunk));
    ssize_t n = pread(b.fd, b.buffer.data(), b.buffer.size(), static_cast<off_t>(offset));
    if (n <= 0) return false;  // the file shrank under us: end the answer short
    b.buffer.resize(static_cast<std::size_t>(n));
    if (f.extra > 0 && at + n >= b.size) b.buffer.append(static_cast<std::size_t>(f.extra), 'x');
    if (!sink.write(b.buffer.data(), b.buffer.size())) return false;
    b.sent += static_cast<long long>(b.buffer.size());
    return true;
}

// The file that a request path names below the root, or "" when there is none.
std::string file_for(const std::string& root, const std::string& path)
{
    if (path.empty() || path[0] != '/' || path.find('\0') != std::string::npos) return "";
    if (path == "/.." || path.find("/../") != std::string::npos ||
        (path.size() >= 3 && path.compare(path.size() - 3, 3, "/..") == 0))
        return "";
    std::string file = root + path;
    struct stat st{};
    if (stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return "";
    return file;
}

void serve(const Options& o, const httplib::Request& req, httplib::Response& res)
{
    auto fault = g_rules.match(req.path).value_or(cms::Fault{});
    const std::string faults = fault.text;
    t_faults = faults;
    if (fault.delay > 0 && !nap(fault.delay)) return answer_status(res, 503);
    if (!fault.auth.empty() && req.get_header_value("Authorization") != "Basic " + base64(fault.auth))
        return answer_status(res, 401);
    if (fault.status != 0) return answer_status(res, fault.status);

    std::string file = file_for(o.root, req.path);
    int fd = file.empty() ? -1 : open(file.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st{};
    if (fd < 0 || fstat(fd, &st) != 0) {
        if (fd >= 0) close(fd);
        return answer_status(res, 404);
    }
    auto body = std::make_shared<Body>();
    body->fd = fd;
    body->size = st.st_size;
    body->fault = fault;
    if (body->size == 0 && fault.extra == 0) {
        res.set_content("", "application/octet-stream");
        return;
    }
    // Logged when the answer has ended, whether it ended well or not.
    res.set_content_provider(
        static_cast<std::size_t>(body->size), "application/octet-stream",
        [body](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
            return send_body(*body, offset, length, sink);
        },
        [body, req_copy = req, faults](bool) { g_log.request(req_copy, 200, body->sent, faults); });
}

// Binding first with a plain socket tells "in use" apart from other failures.
bool port_free(int port, std::string& why)
{
    int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int one = 1;
    setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<std::uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool ok = bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    if (!ok) why = errno == EADDRINUSE ? "the port is in use" : std::strerror(errno);
    close(s);
    return ok;
}

Options parse_options(int argc, char** argv)
{
    Options o;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) usage_error(a + " needs a value");
            return argv[++i];
        };
        if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            std::exit(0);
        } else if (a == "--root") {
            o.root = value();
        } else if (a == "--port") {
            std::string v = value();
            char* end = nullptr;
            long p = std::strtol(v.c_str(), &end, 10);
            if (v.empty() || *end != '\0' || p < 0 || p > 65535) usage_error("--port needs 0..65535, not '" + v + "'");
            o.port = static_cast<int>(p);
        } else if (a == "--log") {
            o.log = value();
        } else if (a == "--rules") {
            o.rules_file = value();
        } else if (a == "--fault") {
            std::string pattern = value();
            std::string faults = value();
            std::string error;
            if (!g_rules.add(pattern, faults, error)) usage_error("--fault " + pattern + ": " + error);
        } else {
            usage_error("unknown argument " + a);
        }
    }
    struct stat st{};
    if (stat(o.root.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) usage_error("--root " + o.root + " is not a folder");
    while (o.root.size() > 1 && o.root.back() == '/') o.root.pop_back();
    return o;
}

void load_rules(const Options& o, bool at_start)
{
    std::string error;
    if (g_rules.load_file(o.rules_file, error)) {
        g_log.line("# rules " + o.rules_file + ": loaded");
        return;
    }
    g_log.line("# rules " + o.rules_file + ": error " + error);
    if (at_start) {
        std::fprintf(stderr, "cms-sim: %s\n", error.c_str());
        std::exit(2);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    Options o = parse_options(argc, argv);
    if (!g_log.open(o.log)) {
        std::fprintf(stderr, "cms-sim: cannot open the log %s: %s\n", o.log.c_str(), std::strerror(errno));
        return 1;
    }
    if (!o.rules_file.empty()) load_rules(o, true);

    // The signals are taken by one thread; every other thread starts with them blocked.
    sigset_t signals;
    sigemptyset(&signals);
    for (int s : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, s);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    std::string why;
    if (o.port != 0 && !port_free(o.port, why)) {
        std::fprintf(stderr, "cms-sim: cannot listen on 127.0.0.1:%d: %s\n", o.port, why.c_str());
        return 1;
    }
    httplib::Server server;
    // Stalled answers hold their thread; give them plenty.
    server.new_task_queue = [] { return new httplib::ThreadPool(32); };
    server.set_keep_alive_max_count(1);
    // SO_REUSEADDR alone: a second cms-sim on the port is refused, while the closed
    // connections a stopped one leaves behind do not keep the next one from starting.
    server.set_socket_options([](int sock) {
        int one = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    });
    server.set_logger([](const httplib::Request& req, const httplib::Response& res) {
        if (!res.content_provider_) g_log.request(req, res.status, static_cast<long long>(res.body.size()), t_faults);
        t_faults.clear();
    });
    server.Get(".*", [&o](const httplib::Request& req, httplib::Response& res) { serve(o, req, res); });
    int port = o.port;
    if (port == 0) {
        port = server.bind_to_any_port("127.0.0.1");
    } else if (!server.bind_to_port("127.0.0.1", port)) {
        port = -1;
    }
    if (port <= 0) {
        std::fprintf(stderr, "cms-sim: cannot listen on 127.0.0.1:%d\n", o.port);
        return 1;
    }
    g_log.line("# start pid=" + std::to_string(getpid()) + " port=" + std::to_string(port) + " root=" + o.root);

    int stop_signal = 0;
    std::thread waiter([&] {
        for (;;) {
            int s = 0;
            if (sigwait(&signals, &s) != 0) continue;
            if (s == SIGHUP) {
                if (!o.rules_file.empty()) load_rules(o, false);
                continue;
            }
            stop_signal = s;
            g_stopping = true;
            server.stop();
            return;
        }
    });
    server.listen_after_bind();
    if (!g_stopping) {
        // listen ended by itself: let the waiter go too.
        g_stopping = true;
        kill(getpid(), SIGTERM);
    }
    waiter.join();
    g_log.line("# stop signal=" + std::to_string(stop_signal) + " requests=" + std::to_string(g_log.requests.load()));
    return 0;
}
