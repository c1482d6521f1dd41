#include "download/wget.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <string_view>
#include <unistd.h>

#include "core/seam.h"
#include "core/shell.h"
#include "core/text.h"
#include "storage/pelk_file.h"

TRANSFER_STATUS status;
std::atomic<int> g_stopFileDownload{0};
std::atomic<std::uint64_t> file_transfer_progress{0};

namespace {

constexpr const char* kStatFile = "/tmp/wgetStat.txt";
constexpr const char* kErrFile = "/tmp/wgetErr.txt";
constexpr const char* kConnectFile = "/tmp/wgetConnect.txt";
constexpr const char* kKillWget = "killall -9 wget";

constexpr std::size_t kUrlSize = 513;   // the callers' URL buffers
constexpr std::size_t kWorkSize = 512;  // the rewritten URL must stay below this
constexpr int kStallPolls = 10;         // 2-second polls without progress before giving up
constexpr std::uint64_t kMinimumMediaBytes = 32;

// Room for a URL of 512 characters in which every character is a quote ('\'' each).
constexpr std::size_t kQuotedUrlSize = 4 * kUrlSize;
constexpr std::size_t kCommandSize = 2 * kQuotedUrlSize + 512;

// What the first line of wget's error file says, when wget has written one.
struct WgetError {
    bool present = false;
    bool stalled = false;  // "Stalled": no failure by itself
    bool login = false;    // "login:": the server wants credentials
};

WgetError read_error_file()
{
    WgetError e;
    FILE* f = std::fopen(kErrFile, "r");
    if (f == nullptr) return e;
    char line[80] = "";
    if (std::fgets(line, sizeof line, f) == nullptr) line[0] = '\0';
    std::fclose(f);
    e.present = true;
    e.stalled = std::strstr(line, "Stalled") != nullptr;
    e.login = std::strstr(line, "login:") != nullptr;
    return e;
}

// "wget 'URL' -O FILE &", with the header in quotes when there is one. The URL and the
// header come from the server's documents, so each is quoted to stay one word.
bool wget_command(char (&command)[kCommandSize], const char* url, const char* destfile,
                  const char* header_prefix, const char* header)
{
    char quoted_url[kQuotedUrlSize];
    char dest[kQuotedUrlSize];
    char quoted_header[kQuotedUrlSize];
    // Quoting keeps a URL one word, but a word that begins with "-" would still reach
    // wget as an option rather than as the address.
    if (url[0] == '-') {
        std::printf("wget: %s is no address; nothing fetched\n", url);
        return false;
    }
    if (!shell_quoted(quoted_url, url) || !shell_escaped(dest, destfile)) return false;
    int n;
    if (header != nullptr) {
        if (!shell_quoted(quoted_header, header)) return false;
        n = std::snprintf(command, sizeof command, "wget '%s' -O %s --header '%s%s' &",
                          quoted_url, dest, header_prefix, quoted_header);
    } else {
        n = std::snprintf(command, sizeof command, "wget '%s' -O %s &", quoted_url, dest);
    }
    return n > 0 && static_cast<std::size_t>(n) < sizeof command;
}

// Puts the media partition back to read-only. A wget killed a moment ago may still hold
// the temporary file open, and a partition with a file open for writing refuses to go
// read-only; so while the partition (a mount of its own) is still writable, wait a second
// and ask again, a few times.
void media_read_only()
{
    remount_fs(4, 0);
    for (int i = 0; i < 5; ++i) {
        struct statvfs fs{};
        struct stat part{}, parent{};
        if (statvfs("/mnt/hd4", &fs) != 0 || stat("/mnt/hd4", &part) != 0 || stat("/mnt", &parent) != 0 ||
            part.st_dev == parent.st_dev || (fs.f_flag & ST_RDONLY) != 0)
            return;
        seam::sleep(1);
        remount_fs(4, 0);
    }
}

}  // namespace

// A wget that an earlier run of the agent started (it was killed mid-transfer and
// started again) would go on writing the status files, which every transfer shares:
// the first fetch would read its progress as its own and could fail on it, leaving the
// device without its documents until the next call home.
void end_leftover_transfers(void)
{
    seam::system(kKillWget);
    unlink(kStatFile);
    unlink(kErrFile);
    unlink(kConnectFile);
}

void initialize_wget_transfer(char* url)
{
    unlink(kStatFile);
    unlink(kErrFile);
    unlink(kConnectFile);
    file_transfer_progress = 0;

    if (strncasecmp(url, "http://", 7) != 0) return;  // other schemes go to wget as they are
    std::size_t length = strnlen(url, kUrlSize);
    if (length >= kUrlSize) return;

    // The scheme comes out in lower case and every space as "%20"; a URL that would
    // reach 512 characters that way is left as it was.
    char work[kWorkSize];
    std::size_t n = copy_text(work, "http://");
    for (std::size_t i = 7; i < length; ++i) {
        std::string_view piece = url[i] == ' ' ? std::string_view("%20") : std::string_view(&url[i], 1);
        for (char c : piece) {
            if (n >= kWorkSize - 1) return;
            work[n++] = c;
        }
    }
    work[n] = '\0';
    std::memcpy(url, work, n + 1);
}

int parse_ftp_status(unsigned int* last_bytes, int* countdown, unsigned int max_bytes)
{
    file_transfer_progress = 0;
    FILE* f = std::fopen(kStatFile, "r");
    if (f == nullptr) return 0;
    char line[128] = "";
    if (std::fgets(line, sizeof line, f) == nullptr) line[0] = '\0';
    std::fclose(f);

    const char* percent = std::strchr(line, '%');
    if (percent == nullptr) return 0;
    // Complete means "100%": the hundreds digit three places before the sign.
    int result = (percent - line >= 3 && percent[-3] == '1') ? 1 : 0;

    const char* bar = std::strchr(percent, '|');
    if (bar != nullptr) {
        long long count = std::strtoll(bar + 1, nullptr, 10);
        std::uint64_t bytes = static_cast<std::uint64_t>(count);
        file_transfer_progress = bytes;
        // A count past 32 bits (or a negative one) is past any limit.
        if (max_bytes != 0 && (bytes >> 32 != 0 || bytes > max_bytes)) return -1;
        auto low = static_cast<unsigned int>(bytes);
        if (low != *last_bytes) {
            *countdown = kStallPolls;  // any progress restarts the stall time-out
            *last_bytes = low;
        }
    }
    return result;
}

int ftp_file(char* url, const char* destfile, unsigned int max_bytes, const char* header)
{
    int countdown = kStallPolls;
    unsigned int last = 0;
    initialize_wget_transfer(url);
    seam::sleep(1);
    if (strnlen(url, kUrlSize) >= kUrlSize) return 0;

    char command[kCommandSize];
    if (!wget_command(command, url, destfile, "", header)) {
        std::printf("ftp_file: no command for %s; nothing fetched\n", destfile);
        return 0;
    }
    seam::system(command);

    bool complete = false;
    for (;;) {
        if (complete && countdown != 0) {
            seam::system(kKillWget);  // the device's wget may linger after 100 %
            return 1;
        }
        seam::sleep(2);
        --countdown;
        WgetError error = read_error_file();
        if (error.present) {
            if (!error.stalled || countdown == 0) {
                seam::system(kKillWget);
                return 0;
            }
            // A stall is no failure by itself: clear it so that the next one shows, and
            // read progress again next round.
            unlink(kErrFile);
            continue;
        }
        int got = parse_ftp_status(&last, &countdown, max_bytes);
        if (got == -1) {
            // Larger than its limit; the partial file stays where wget wrote it.
            seam::system(kKillWget);
            return 0;
        }
        complete = got == 1;
        if (countdown == 0) {
            seam::system(kKillWget);
            return 0;
        }
    }
}

// Runs on its own detached thread; its only result is status.code. It works on its own
// copy of the request, taken as it starts (the manager fills `status` before it creates
// the thread), so that once the code is final the manager may fill in the next request
// while this thread still renames the file and remounts. It returns rather than calling
// pthread_exit, which for a thread's start routine is the same end, so that a caller may
// also run it in place.
void* ftp_file_to_hd(void*)
{
    char url[kUrlSize];
    std::memcpy(url, status.url, sizeof url);  // kept whole: an unterminated URL is refused below
    char fname[sizeof status.fname];
    copy_text(fname, text_of(status.fname));
    char auth[sizeof status.auth];
    copy_text(auth, text_of(status.auth));
    int media_index = status.media_index;

    int countdown = kStallPolls;
    unsigned int last = 0;
    initialize_wget_transfer(url);
    remount_fs(4, 1);
    if (strnlen(url, kUrlSize) > 512) {
        status.code = 134;
        return nullptr;  // the partition stays writable on this one path, as it always has
    }

    if (media_index < 0 || media_index >= 5) media_index = 0;
    const char* dir = kvr_media_path[media_index];
    if (chdir(dir) != 0) std::perror(dir);
    status.code = 255;
    char temp[kMediaPathSize + 16];
    int n = std::snprintf(temp, sizeof temp, "%s%s", dir, "/tempfile.xxx");

    auto fail = [&](int code) {
        status.code = code;
        file_transfer_progress = 0;
        seam::system(kKillWget);
        unlink(temp);
        media_read_only();
        return nullptr;
    };

    if (n < 0 || static_cast<std::size_t>(n) >= sizeof temp) return fail(134);  // the table's paths are short

    char command[kCommandSize];
    if (!wget_command(command, url, temp, "Authorization: Basic ", auth[0] != '\0' ? auth : nullptr))
        return fail(134);
    seam::system(command);

    for (;;) {
        seam::sleep(2);
        if (g_stopFileDownload != 0) return fail(135);
        --countdown;
        WgetError error = read_error_file();
        if (error.login) return fail(133);
        if (error.present && !error.stalled) return fail(134);
        if (error.present) {
            unlink(kErrFile);
            if (countdown == 0) break;
            continue;
        }
        int got = parse_ftp_status(&last, &countdown, 0);
        if (got == 1) break;
        if (got == -1) return fail(134);
        if (countdown == 0) break;
    }

    // Too short to be media: most likely an error page or an empty answer. wget is
    // ended before the temporary file goes, like on every failure: a wget still holding
    // the file open would keep the partition from going back to read-only.
    if (file_transfer_progress < kMinimumMediaBytes) return fail(132);
    if (countdown == 0) return fail(134);  // stalled out after some bytes

    seam::system(kKillWget);
    status.code = 1;
    // The name comes from the content document; only its last part names the file, so
    // it cannot place the file outside the media directory.
    char target[kMediaPathSize + sizeof fname + 1];
    std::snprintf(target, sizeof target, "%s/%s", dir, get_file_name(fname));
    if (std::rename(temp, target) != 0) {
        std::perror(target);
        unlink(temp);  // the check of the file's size then finds it missing
    }
    media_read_only();
    return nullptr;
}

namespace {

// Fetches the document at the address `format` gives. An address too long for its
// 512-byte buffer fetches nothing, since a cut address would fetch some other document.
__attribute__((format(printf, 4, 5))) int fetch_document(const char* destfile, unsigned int max_bytes,
                                                         const char* server, const char* format, ...)
{
    char addr[512];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(addr, sizeof addr, format, args);
    va_end(args);
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof addr) {
        std::printf("server address too long for a document fetch: %s\n", server);
        return 0;
    }
    return ftp_file(addr, destfile, max_bytes, nullptr);
}

}  // namespace

// The command list and the download request need a server; the configuration and the
// content are fetched even from an empty one, which the device has always done.
int get_command_file(const char* server, const char*, const char* destfile)
{
    if (server[0] == '\0') return 0;
    return fetch_document(destfile, 16384, server, "%s/command.txt", server);
}

int get_config_file(const char* server, const char*, const char* destfile)
{
    return fetch_document(destfile, 16384, server, "%s/config.xml", server);
}

int get_content_file(const char* server, const char*, const char* destFile)
{
    return fetch_document(destFile, 102400, server, "%s/content.xml", server);
}

int get_dl_request_file(const char* server, const char* mac, int pri, const char* destfile)
{
    if (server[0] == '\0') return 0;
    return fetch_document(destfile, 16384, server, "%s/dlreq.aspx?player=%s&pri=%d", server, mac, pri);
}
