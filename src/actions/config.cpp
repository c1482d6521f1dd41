#include "actions/config.h"

#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "core/seam.h"
#include "core/text.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/wget.h"
#include "storage/pelk_file.h"

DRAVIK_CONFIGURATION_CH currentCHConfig;
int AutoOnOffMode;
int log_offset_seconds;

namespace {

constexpr const char* kFetchedConfig = "/tmp/daconfig.xml";
constexpr const char* kSavedConfig = "/mnt/hd3/cfgdata.txt";
constexpr const char* kPrimaryTsOid = "1.3.6.1.4.1.58321.3.5.15.0";
constexpr const char* kSecondaryTsOid = "1.3.6.1.4.1.58321.3.5.16.0";
constexpr const char* kTimezoneOid = "1.3.6.1.4.1.58321.3.5.17.0";
constexpr const char* kLoggingOid = "1.3.6.1.4.1.58321.3.5.35.0";
constexpr const char* kStoreSettingsOid = "1.3.6.1.4.1.58321.3.5.11.0";
constexpr const char* kLogServerOid = "1.3.6.1.4.1.58321.3.5.21.0";
constexpr const char* kResolutionOid = ".1.3.6.1.4.1.58321.3.2.9.0";

char data[kSnmpTextSize];  // the bridge's replies

const char* get(const char* oid)
{
    send_snmp_command(kSnmpGetType, oid, data);
    return data;
}

void set(const char* command) { send_snmp_command(kSnmpSetType, command, data); }

[[gnu::format(printf, 1, 2)]] void set_formatted(const char* format, ...)
{
    char command[kSnmpTextSize];
    va_list args;
    va_start(args, format);
    std::vsnprintf(command, sizeof command, format, args);
    va_end(args);
    set(command);
}

// A time server the player holds: a set, after two seconds, when it differs. An empty
// one is sent as a quoted blank. True when it was set.
bool push_time_server(const char* oid, const char* server)
{
    if (std::strcmp(get(oid), server) == 0) return false;
    seam::sleep(2);
    if (server[0] == '\0') set_formatted("%s s \" \"", oid);
    else set_formatted("%s s \"%s\"", oid, server);
    return true;
}

}  // namespace

int process_config(char* line, char* currentID)
{
    std::size_t length = std::strlen(line);
    if (length < 10) return 0;
    // The id follows "ConfigID" and one separator.
    const char* p = line + 9;
    while (*p == ' ') ++p;
    std::string_view id(p, std::strcspn(p, ","));
    if (id.size() > 39) id = id.substr(0, 39);
    if (id.find(' ') != std::string_view::npos) return 0;

    if (id == std::string_view(currentID, strnlen(currentID, sizeof currentCHConfig.id))) return 1;
    // Nothing changes until a document arrives; the next call home retries, since the
    // id still differs.
    if (!get_config_file(call_home_address, macAddress, kFetchedConfig)) return 1;
    return adopt_config_document();
}

int adopt_config_document(void)
{
    if (dA_ParseConfigurationCH(kFetchedConfig) != 0) return 0;
    const DRAVIK_CONFIGURATION_CH* cfg = dA_ConfigurationCH();
    if (cfg->id[0] == '\0') return 1;

    // Each setting the player holds: read it, and set it when it differs. A failed read
    // compares as a difference.
    bool reboot_needed = false, save_needed = false;
    if (push_time_server(kPrimaryTsOid, cfg->primaryTS)) reboot_needed = save_needed = true;
    if (push_time_server(kSecondaryTsOid, cfg->secondaryTS)) reboot_needed = save_needed = true;
    if (text_to_int(get(kTimezoneOid)) != cfg->timezone) {
        seam::sleep(2);
        set_formatted("%s i %d", kTimezoneOid, cfg->timezone);
        save_needed = true;
    }
    const char* logging = get(kLoggingOid);
    bool logging_differs =
        (cfg->loggingEnable != 0 && logging[0] == '0') || (cfg->loggingEnable == 0 && logging[0] == '1');
    if (logging_differs) {
        seam::sleep(2);
        set_formatted("%s i %d", kLoggingOid, cfg->loggingEnable);
        reboot_needed = true;
    }
    if (logging_differs || save_needed) {
        seam::sleep(2);
        set_formatted("%s i 1", kStoreSettingsOid);  // the player stores its settings
    }

    currentCHConfig = *cfg;
    remount_fs(3, 1);
    char command[128];
    std::snprintf(command, sizeof command, "cp -f %s %s", kFetchedConfig, kSavedConfig);
    seam::system(command);
    remount_fs(3, 0);

    if (reboot_needed) {
        seam::sleep(10);
        seam::system("reboot");
        seam::sleep(60);
        return 1;
    }
    // The record in force was replaced above, so this comparison never finds a new log
    // interval and the log timer is not re-armed here. The order is deliberate: the
    // next upload keeps the time it was given.
    if (currentCHConfig.loggingEnable == 1 && currentCHConfig.logInterval != cfg->logInterval) {
        int t = compute_log_timer(&currentCHConfig, 0, nullptr);
        MutexLock lock(timerMutex);
        send_log_timer = t;
    }
    // Looked at again soon: new on/off times, or none while the display is off. Only
    // that evaluation turns the display back on, so a configuration that drops the
    // on/off times at night would otherwise leave the screen dark until a reboot.
    if (currentCHConfig.autoOnOffEnable || AutoOnOffMode != 1) {
        MutexLock lock(timerMutex);
        auto_on_off_timer = 10;
    }
    return 1;
}

void set_resolution(char* line)
{
    // The code follows "SetResolution" and one separator; the line end is no value.
    std::size_t length = std::strlen(line);
    const char* value = line + (length > 14 ? 14 : length);
    while (*value == ' ') ++value;
    if (std::strcspn(value, "\r\n") == 0) return;

    int resolution = text_to_int(value);
    int current = text_to_int(get(kResolutionOid));
    if (static_cast<unsigned>(resolution) > 255u || resolution == current) return;
    set_formatted("%s i %d", kResolutionOid, resolution);
    set(".1.3.6.1.4.1.58321.3.5.11.0 i 0");
    set(".1.3.6.1.4.1.58321.3.3.9.0 i 7");
    seam::sleep(2);
    set(".1.3.6.1.4.1.58321.3.3.5.0 s h0");
}

int getAutoOnOffMode(DRAVIK_CONFIGURATION_CH* cfg, int* next_seconds)
{
    int count = cfg->aooItemCount < kMaxAooItems ? cfg->aooItemCount : kMaxAooItems;
    if (count <= 0 || cfg->autoOnOffEnable == 0) return 1;

    tzset();
    std::time_t now = seam::now();
    std::tm tm{};
    localtime_r(&now, &tm);
    int weekday = tm.tm_wday;
    int tod = tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec;

    // The state carried over from the end of the previous week.
    int mode = cfg->aooItems[count - 1].mode;
    for (int i = 0; i < count; ++i) {
        const AOO_ITEM& item = cfg->aooItems[i];
        bool passed = item.day < weekday || (item.day == weekday && item.time_of_day <= tod);
        if (!passed) {
            // The next point today, or else midnight, when the day is looked at again;
            // by the clock, so that a change to or from summer time keeps it on time.
            *next_seconds = seconds_until_local_time(item.day == weekday ? item.time_of_day : 86400);
            return mode;
        }
        mode = item.mode;
    }
    *next_seconds = seconds_until_local_time(86400);
    return mode;
}

void stop_all_play(void)
{
    set_formatted("%s i 7", kStopOid);  // both layers
    seam::sleep(2);
}

void transfer_log_file(DRAVIK_CONFIGURATION_CH* cfg)
{
    if (cfg->loggingServer[0] == '\0') return;
    // The player uploads its log to that server.
    set_formatted("%s s %s", kLogServerOid, cfg->loggingServer);
    seam::sleep(2);
}

int compute_log_timer(DRAVIK_CONFIGURATION_CH* cfg, int first_time, char* MAC)
{
    if (cfg->loggingEnable == 0) return 0;
    if (!first_time) return cfg->logInterval >= 1 && cfg->logInterval <= 24 ? cfg->logInterval * 3600 : 14400;
    // The first upload after start-up: spread over the hour by MAC address, or at the
    // configured offset.
    if (cfg->logAutoOffset) return randomNumberFromMAC(MAC, 30, 3600);
    return cfg->logOffset > INT_MAX - 30 ? INT_MAX : cfg->logOffset + 30;
}

int randomNumberFromMAC(char* MAC, int min, int max)
{
    // The last four hex digits of the 12; anything but 0-9 and upper-case A-F (a lower
    // case digit, the end of a short address) gives `min`.
    if (MAC == nullptr || strnlen(MAC, 12) < 12) return min;
    std::uint32_t value = 0;
    for (int i = 8; i < 12; ++i) {
        char c = MAC[i];
        int digit;
        if (c >= '0' && c <= '9') digit = c - '0';
        else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
        else return min;
        value = value * 16 + static_cast<std::uint32_t>(digit);
    }
    std::uint32_t span = static_cast<std::uint32_t>(max) - static_cast<std::uint32_t>(min);
    return static_cast<int>(static_cast<std::uint32_t>(min) + span * value / 65535u);
}
