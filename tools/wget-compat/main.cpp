// wget-compat: the transfer tool a host needs in place of the device's own `wget`. It
// takes the command lines the agent composes, fetches over HTTP or FTP with libcurl,
// and keeps the device's status files in /tmp that the agent polls. Installed under the
// name `wget` (a link or a copy, never a script that starts it), so that the agent's
// "killall -9 wget" reaches it. See --help.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

constexpr const char* kUsage = R"(usage:
  wget 'URL' -O FILE [--header 'NAME: VALUE']...
  wget --help

Fetches URL (http://, https:// or ftp://, credentials as user:password@ allowed) into
FILE ("-": standard output), the way the device's wget does for the signage agent, and
keeps the device's status files:

  /tmp/wgetStat.txt   replaced about once a second (written to a temporary file, then
                      renamed, so a reader never sees half a line) by one progress line
                      "%3d%%|<bytes received>", e.g. " 45%|1000"; "100%|<bytes>" only
                      once the whole body is in FILE; a last line when the transfer ends
  /tmp/wgetErr.txt    one line when something is wrong:
                        "Stalled: ..."  no byte arrived for a few seconds; the transfer
                                        goes on, and the line comes again after every
                                        further such wait (it is removed when bytes flow)
                        "login: ..."    the server wants credentials (HTTP 401 or 407,
                                        FTP 530); the transfer ends
                        "ERROR: ..."    any other failure (HTTP 404, 500 ..., connection
                                        refused, unknown host, a body cut short, FILE not
                                        writable); the transfer ends
                      The line never holds the URL or the host, so no name of the
                      server's can read as "Stalled" or "login:". Details go to standard
                      error.

Options:
  -O FILE, -OFILE, --output-document=FILE
                      where the body goes (required); created or emptied at the start
  --header TEXT, --header=TEXT
                      an extra request header, e.g. 'Authorization: Basic dXNlcjpwdw=='
                      (may be given more than once)
  -h, --help          this text

Redirects are followed. Exit status: 0 the whole body was received, 1 the transfer
failed (the line in /tmp/wgetErr.txt says why), 2 a command line it does not understand.

For tests, two environment variables change the fixed timings (seconds, fractions
allowed):
  WGET_COMPAT_PROGRESS_SECONDS   between progress lines (default 1)
  WGET_COMPAT_STALL_SECONDS      without a byte before "Stalled" (default 5)
)";

constexpr const char* kStatFile = "/tmp/wgetStat.txt";
constexpr const char* kErrFile = "/tmp/wgetErr.txt";

struct Options {
    std::string url;
    std::string output;
    std::vector<std::string> headers;
};

[[noreturn]] void usage_error(const std::string& why)
{
    std::fprintf(stderr, "wget: %s\nusage: wget 'URL' -O FILE [--header 'NAME: VALUE'] (see --help)\n",
                 why.c_str());
    std::exit(2);
}

Options parse_options(int argc, char** argv)
{
    Options o;
    bool have_output = false;
    for (int i = 1; i < argc; ++i) {
        std::string_view a = argv[i];
        auto value = [&](std::string_view name) -> std::string {
            if (i + 1 >= argc) usage_error(std::string(name) + " needs a value");
            return argv[++i];
        };
        if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            std::exit(0);
        } else if (a == "-O" || a == "--output-document") {
            o.output = value(a);
            have_output = true;
        } else if (a.rfind("--output-document=", 0) == 0) {
            o.output = a.substr(18);
            have_output = true;
        } else if (a.size() > 2 && a.rfind("-O", 0) == 0) {
            o.output = a.substr(2);
            have_output = true;
        } else if (a == "--header") {
            o.headers.push_back(value(a));
        } else if (a.rfind("--header=", 0) == 0) {
            o.headers.emplace_back(a.substr(9));
        } else if (a.size() > 1 && a[0] == '-') {
            usage_error("unknown option " + std::string(a));
        } else if (!o.url.empty()) {
            usage_error("more than one URL: " + o.url + " and " + std::string(a));
        } else {
            o.url = a;
        }
    }
    if (o.url.empty()) usage_error("no URL");
    if (!have_output || o.output.empty()) usage_error("no -O FILE");
    return o;
}

std::chrono::milliseconds env_seconds(const char* name, double fallback)
{
    double seconds = fallback;
    if (const char* text = std::getenv(name); text != nullptr && *text != '\0') {
        char* end = nullptr;
        seconds = std::strtod(text, &end);
        if (*end != '\0' || !(seconds > 0 && seconds < 86400)) {
            std::fprintf(stderr, "wget: %s must be a number of seconds above 0, not '%s'\n", name, text);
            std::exit(2);
        }
    }
    return std::chrono::milliseconds(static_cast<long long>(seconds * 1000 + 0.5));
}

// Replaces `path` by one line: written beside it, then renamed over it, so the agent
// reads either the old line or the new one.
void replace_file(const char* path, const std::string& line)
{
    char temp[64];
    std::snprintf(temp, sizeof temp, "%s.%ld.tmp", path, static_cast<long>(getpid()));
    int fd = open(temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        std::fprintf(stderr, "wget: %s: %s\n", temp, std::strerror(errno));
        return;
    }
    std::string text = line + "\n";
    bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ok = close(fd) == 0 && ok;
    if (!ok || rename(temp, path) != 0) {
        std::fprintf(stderr, "wget: %s: %s\n", path, std::strerror(errno));
        unlink(temp);
    }
}

struct Transfer {
    int fd = -1;
    long long received = 0;
    int write_errno = 0;
};

std::size_t on_body(char* data, std::size_t size, std::size_t count, void* user)
{
    auto* t = static_cast<Transfer*>(user);
    std::size_t total = size * count;
    std::size_t done = 0;
    while (done < total) {
        ssize_t n = write(t->fd, data + done, total - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            t->write_errno = n < 0 ? errno : ENOSPC;
            return 0;  // libcurl ends the transfer with a write error
        }
        done += static_cast<std::size_t>(n);
    }
    t->received += static_cast<long long>(total);
    return total;
}

// " 45%|1000": a percentage of the declared length (0 when there is none), never 100
// before the end, and the bytes received so far.
std::string progress_line(CURL* easy, long long received, bool complete)
{
    int percent = 100;
    if (!complete) {
        curl_off_t length = -1;
        curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
        percent = length > 0 ? static_cast<int>(received * 100 / length) : 0;
        if (percent > 99) percent = 99;
    }
    char line[64];
    std::snprintf(line, sizeof line, "%3d%%|%lld", percent, received);
    return line;
}

void write_progress(CURL* easy, long long received, bool complete)
{
    replace_file(kStatFile, progress_line(easy, received, complete));
}

// The agent kills wget as soon as it reads a result. A leak check at exit would often be
// cut short by that kill and leave a stray report, so under the leak checker it runs
// before a result is written, and the one at exit is skipped.
void check_leaks_before_the_result()
{
#ifdef __SANITIZE_ADDRESS__
    __lsan_do_leak_check();
#endif
}

// The line for the error file. It is built from fixed texts and numbers only.
std::string failure_line(CURL* easy, CURLcode code, const Transfer& t)
{
    long response = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &response);
    char line[160];
    switch (code) {
    case CURLE_HTTP_RETURNED_ERROR:
        if (response == 401 || response == 407)
            std::snprintf(line, sizeof line, "login: the server wants credentials (HTTP %ld)", response);
        else
            std::snprintf(line, sizeof line, "ERROR %ld: the server refused the request", response);
        break;
    case CURLE_LOGIN_DENIED:
        std::snprintf(line, sizeof line, "login: the server refused the login (FTP %ld)", response);
        break;
    case CURLE_PARTIAL_FILE: {
        curl_off_t length = -1;
        curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
        std::snprintf(line, sizeof line, "ERROR: body cut short after %lld of %lld bytes", t.received,
                      static_cast<long long>(length));
        break;
    }
    case CURLE_COULDNT_RESOLVE_HOST:
        std::snprintf(line, sizeof line, "ERROR: unknown host");
        break;
    case CURLE_COULDNT_CONNECT:
        std::snprintf(line, sizeof line, "ERROR: connection refused or unreachable");
        break;
    case CURLE_WRITE_ERROR:
        std::snprintf(line, sizeof line, "ERROR: cannot write the output file: %s",
                      std::strerror(t.write_errno ? t.write_errno : EIO));
        break;
    default:
        std::snprintf(line, sizeof line, "ERROR: %s", curl_easy_strerror(code));
    }
    return line;
}

int run(const Options& o)
{
    using clock = std::chrono::steady_clock;
    const auto progress_every = env_seconds("WGET_COMPAT_PROGRESS_SECONDS", 1);
    const auto stall_after = env_seconds("WGET_COMPAT_STALL_SECONDS", 5);

    Transfer t;
    t.fd = o.output == "-" ? STDOUT_FILENO
                           : open(o.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (t.fd < 0) {
        std::string why = std::strerror(errno);
        std::fprintf(stderr, "wget: %s: %s\n", o.output.c_str(), why.c_str());
        std::string line = "ERROR: cannot write the output file: " + why;
        check_leaks_before_the_result();
        replace_file(kErrFile, line);
        return 1;
    }

    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
        check_leaks_before_the_result();
        replace_file(kErrFile, "ERROR: the transfer library cannot start");
        return 1;
    }
    CURL* easy = curl_easy_init();
    CURLM* multi = curl_multi_init();
    curl_slist* headers = nullptr;
    for (const auto& h : o.headers) headers = curl_slist_append(headers, h.c_str());
    char detail[CURL_ERROR_SIZE] = "";
    curl_easy_setopt(easy, CURLOPT_URL, o.url.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, on_body);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &t);
    curl_easy_setopt(easy, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 20L);
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, 102400L);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, detail);
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "wget-compat/1");
    curl_multi_add_handle(multi, easy);

    auto now = clock::now();
    auto next_progress = now;
    auto last_byte = now;
    long long seen = 0;
    bool stalled = false;
    int running = 1;
    while (running) {
        if (curl_multi_perform(multi, &running) != CURLM_OK) break;
        now = clock::now();
        if (t.received != seen) {
            seen = t.received;
            last_byte = now;
            if (stalled) unlink(kErrFile);  // bytes flow again: the stall is over
            stalled = false;
        } else if (now - last_byte >= stall_after) {
            replace_file(kErrFile, "Stalled: no data received for a while; still waiting");
            std::fprintf(stderr, "wget: stalled at %lld bytes\n", seen);
            stalled = true;
            last_byte = now;  // the line comes again after every further wait
        }
        if (!running) break;
        if (now >= next_progress) {
            write_progress(easy, t.received, false);
            next_progress = now + progress_every;
        }
        auto wake = std::min(next_progress, last_byte + stall_after);
        auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(wake - now).count();
        curl_multi_poll(multi, nullptr, 0, static_cast<int>(std::max<long long>(wait, 1)), nullptr);
    }

    CURLcode result = CURLE_RECV_ERROR;
    int left = 0;
    while (CURLMsg* m = curl_multi_info_read(multi, &left))
        if (m->msg == CURLMSG_DONE) result = m->data.result;

    // The body is whole in FILE before "100%" can show, since the agent acts on it at once.
    if (o.output != "-" && close(t.fd) != 0 && result == CURLE_OK) {
        t.write_errno = errno;
        result = CURLE_WRITE_ERROR;
    }
    int exit_status = 0;
    std::string error_line;
    std::string last_progress = progress_line(easy, t.received, result == CURLE_OK);
    if (result != CURLE_OK) {
        error_line = failure_line(easy, result, t);
        std::fprintf(stderr, "wget: %s: %s%s%s\n", o.url.c_str(), error_line.c_str(), detail[0] ? " - " : "",
                     detail);
        exit_status = 1;
    }

    curl_multi_remove_handle(multi, easy);
    curl_easy_cleanup(easy);
    curl_multi_cleanup(multi);
    curl_slist_free_all(headers);
    curl_global_cleanup();
    check_leaks_before_the_result();
    if (!error_line.empty()) replace_file(kErrFile, error_line);
    replace_file(kStatFile, last_progress);
    return exit_status;
}

}  // namespace

int main(int argc, char** argv)
{
    return run(parse_options(argc, argv));
}
