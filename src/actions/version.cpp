#include "actions/version.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/file.h"
#include "core/seam.h"
#include "core/shell.h"
#include "core/text.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/wget.h"

namespace {

constexpr const char* kInfFile = "/tmp/pelk_version_info.inf";
constexpr const char* kStickInfFile = "/mnt/usb/pelk_version_info.inf";
constexpr const char* kDefaultInfPath = "AVB_348092/TEST_213/pelk_version_info.inf";
constexpr const char* kProgressOid = "1.3.6.1.4.1.58321.3.4.15.0";
constexpr const char* kStickAddress = "ide:///tmp/";  // where the player reads a stick file
constexpr std::size_t kUrlSize = 512;
constexpr int kLineBound = 255;

char reply[kSnmpTextSize];

enum class Item { Firmware, Software, Xapp, BootSplash };
constexpr Keyword<Item> kInfKeywords[] = {
    {"FW", 2, Item::Firmware},
    {"SW", 2, Item::Software},
    {"XAPP", 4, Item::Xapp},
    {"BootSplash", 10, Item::BootSplash},
};

// How one kind of image reaches the player.
struct Image {
    const char* local_name;  // a stick file's copy in /tmp
    const char* command;     // the command that hands the player the address
    int (*poll)(void);
    bool announced;  // FW_UPGRADE_PROGRESS to the player before the command
    bool reported;   // FW_UPGRADE_DONE or FW_UPGRADE_ERROR after the poll
};
constexpr Image kFirmware{"firmware.bin", "1.3.6.1.4.1.58321.3.5.8.0 s ", poll_for_firmware_end,
                          false, false};
constexpr Image kSoftware{"software.tar", "1.3.6.1.4.1.58321.3.5.22.0 s ", poll_for_firmware_end,
                          false, false};
constexpr Image kXapp{"xapp.tgz", "1.3.6.1.4.1.58321.3.5.80.0 s rivEnOaks7k2;downloadxapp;",
                      poll_for_xapp_end, true, false};
constexpr Image kSplash{"newsplash.jpg", "1.3.6.1.4.1.58321.3.5.80.0 s rivEnOaks7k2;downloadsplash;",
                        poll_for_transfer_end, true, true};

char* skip_blanks(char* p)
{
    while (*p == ' ') ++p;
    return p;
}

int read_progress()
{
    send_snmp_command(kSnmpGetType, kProgressOid, reply);
    return text_to_int(reply);
}

// Sleeps 2 s, then reads the progress every 5 s for as long as `under_way` says;
// there is no time limit. Returns the final value.
template <typename UnderWay>
int poll_until_done(UnderWay under_way)
{
    seam::sleep(2);
    int value;
    do {
        seam::sleep(5);
        value = read_progress();
    } while (under_way(value));
    return value;
}

// Stops calls home, hands `address` to the player and follows the upgrade to its end.
// A file on the stick is copied to /tmp first and removed after.
int install(const Image& image, char* address)
{
    stop_timer();
    char url[kUrlSize];
    char command[kSnmpTextSize];
    bool local = get_upgrade_address(address, url) == 0;
    if (local) {
        char name[2 * kUrlSize];
        if (shell_escaped(name, url + std::strlen(kStickAddress))) {
            std::snprintf(command, sizeof command, "cp -f /mnt/usb/%s /tmp/%s", name, image.local_name);
            seam::system(command);
        }
        std::snprintf(url, sizeof url, "%s%s", kStickAddress, image.local_name);
    }
    if (image.announced) send_player_msg(FW_UPGRADE_PROGRESS);
    std::snprintf(command, sizeof command, "%s%s", image.command, url);
    send_snmp_command(kSnmpSetType, command, reply);
    int r = image.poll();
    if (image.reported) send_player_msg(r == 1 ? FW_UPGRADE_DONE : FW_UPGRADE_ERROR);
    if (local) {
        std::snprintf(command, sizeof command, "rm -f /tmp/%s", image.local_name);
        seam::system(command);
    }
    return r;
}

// Copies the stick's version file to where process_inf_file reads it.
void copy_stick_inf_file()
{
    char command[128];
    std::snprintf(command, sizeof command, "cp -f %s %s", kStickInfFile, kInfFile);
    seam::system(command);
}

}  // namespace

int process_check_version(char* inf_line)
{
    std::size_t length = std::strlen(inf_line);
    if (length < 12) return 0;
    // The address follows the keyword and one separator; a bare keyword names none.
    char url[kUrlSize];
    if (get_upgrade_address(inf_line + (length > 13 ? 13 : length), url)) {
        if (std::strcmp(url, kDefaultUpdateServer) == 0)
            std::snprintf(url, sizeof url, "%s%s", kDefaultUpdateServer, kDefaultInfPath);
        if (!ftp_file(url, kInfFile, 8192, nullptr)) return 0;
    } else {
        copy_stick_inf_file();  // the name in the line is not used
    }
    return process_inf_file();
}

int check_inf_file(void)
{
    if (!read_info_file(kStickInfFile)) return 0;
    copy_stick_inf_file();
    return process_inf_file();
}

int process_inf_file(void)
{
    File in{std::fopen(kInfFile, "r")};
    if (!in) return 0;
    int fw = 0, sw = 0, xapp = 0;
    char line[kLineBound];
    while (std::fgets(line, sizeof line, in.get())) {
        const Keyword<Item>* k = match_keyword(kInfKeywords, line);
        if (k == nullptr) continue;
        char* rest = line + k->length;
        switch (k->action) {
        case Item::Firmware: fw = check_and_update_firmware(rest); break;
        case Item::Software: sw = check_and_update_software(rest); break;
        case Item::Xapp: xapp = check_and_update_xapp(rest); break;
        case Item::BootSplash:
            // A splash goes in only together with an upgrade earlier in the same file.
            if (fw || sw || xapp) update_bootsplash(rest);
            continue;
        }
        if (fw == -1 || sw == -1 || xapp == -1) return -1;
    }
    if (fw) return 1;
    return sw || xapp ? 1 : 0;
}

char* parse_update_line(char* line, int* version)
{
    char* p = skip_blanks(line);
    if (*p != ':') return nullptr;
    p = skip_blanks(p + 1);
    if (std::strncmp(p, "0x", 2) != 0) return nullptr;
    errno = 0;
    char* end = nullptr;
    long v = std::strtol(p, &end, 16);
    // On the device a long has 32 bits: a version beyond an int is a range error there.
    if (errno == ERANGE || v > INT_MAX || (errno != 0 && v == 0)) return nullptr;
    *version = static_cast<int>(v);
    char* comma = std::strchr(end, ',');
    if (comma == nullptr) return nullptr;  // a version without an address
    char* address = skip_blanks(comma + 1);
    address[std::strcspn(address, "\r\n")] = '\0';
    return *address ? address : nullptr;
}

int check_and_update_firmware(char* line)
{
    int offered;
    char* address = parse_update_line(line, &offered);
    if (address == nullptr) return 0;
    send_snmp_command(kSnmpGetType, "1.3.6.1.4.1.58321.3.5.13.0", reply);
    int current = text_to_int(reply) & 0xFFFF;  // only the low 16 bits are the version
    if (current >= offered) return 0;
    return install(kFirmware, address);
}

int check_and_update_software(char* line)
{
    int offered;
    char* address = parse_update_line(line, &offered);
    if (address == nullptr) return 0;
    const char* build = find_value_in_file("/mnt/hd1/bplayer_app/VERSION.txt", "build");
    int current = build ? text_to_int(build) : 0;
    if (offered <= current) return 0;
    return install(kSoftware, address);
}

int check_and_update_xapp(char* line)
{
    // The version is the text between ":" and ",", exactly: "XAPP: 1.2," offers " 1.2".
    if (line[0] != ':') return 0;
    char* comma = std::strchr(line, ',');
    if (comma == nullptr) return 0;
    std::string_view offered(line + 1, static_cast<std::size_t>(comma - line - 1));
    char* address = trim_in_place(comma + 1);
    const char* installed = find_value_in_file("/tmp/xapp/XAPP_SU.SH", "XAPP_VERSION");
    if (installed && *installed && offered == installed) return 0;
    return install(kXapp, address);
}

int update_bootsplash(char* line)
{
    char* p = skip_blanks(line);
    if (*p != ':') return 0;
    return install(kSplash, skip_blanks(p + 1));
}

int get_upgrade_address(char* ptr, char* url)
{
    ptr = skip_blanks(ptr);
    bool network = std::strncmp(ptr, "http://", 7) == 0 || std::strncmp(ptr, "ftp://", 6) == 0;
    std::size_t n = 0;
    if (!network) {
        n = std::strlen(kStickAddress);
        std::memcpy(url, kStickAddress, n);
        if (*ptr == '/') ++ptr;
    }
    // The terminator takes the last of the 512 bytes.
    while (n < kUrlSize - 1 && *ptr != '\0' && std::strchr(",\r\n", *ptr) == nullptr) url[n++] = *ptr++;
    url[n] = '\0';
    return network ? 1 : 0;
}

int poll_for_transfer_end(void)
{
    return poll_until_done([](int v) { return v == 255; }) == 1 ? 1 : 0;
}

int poll_for_firmware_end(void)
{
    return poll_until_done([](int v) { return v >= 241 && v <= 244; }) == 240 ? 1 : -1;
}

int poll_for_xapp_end(void)
{
    if (poll_until_done([](int v) { return v == 145; }) == 144) {
        send_player_msg(FW_UPGRADE_DONE);
        return 1;
    }
    send_player_msg(FW_UPGRADE_ERROR);
    return -1;
}

char* find_value_in_file(const char* file, const char* pattern)
{
    static char value[1024];
    File in{std::fopen(file, "r")};
    if (!in) return nullptr;
    value[0] = '\0';
    std::size_t length = std::strlen(pattern), matched = 0;
    auto lower = [](int c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; };
    int c = 0;
    // A simple matcher: a mismatching character restarts the match without being tried
    // as the pattern's first character ("bbuild" never matches "build"). Kept so.
    while (matched < length && (c = std::fgetc(in.get())) != EOF)
        matched = lower(c) == lower(static_cast<unsigned char>(pattern[matched])) ? matched + 1 : 0;
    if (matched < length) return value;

    std::size_t n = 0;
    while (n < sizeof value - 1 && (c = std::fgetc(in.get())) != EOF && c != '\r' && c != '\n')
        value[n++] = static_cast<char>(c);
    while (n > 0 && std::strchr("\" '", value[n - 1]) != nullptr) --n;
    value[n] = '\0';
    char* p = value;
    while (*p != '\0' && std::strchr("\" '=", *p) != nullptr) ++p;
    return p;
}

int read_info_file(const char* filename)
{
    File in{std::fopen(filename, "r")};
    return in ? 1 : 0;
}
