#include "agent/action_file.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "actions/config.h"
#include "actions/media_delete.h"
#include "actions/version.h"
#include "agent/reboot.h"
#include "content/current_item.h"
#include "core/file.h"
#include "core/seam.h"
#include "core/text.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "storage/pelk_file.h"

char check_version_line[257];

namespace {

constexpr const char* kStoredFile = "/tmp/temp_stored_USB.CONF";
constexpr const char* kUsbConf = "/mnt/hd3/USB.CONF";
constexpr const char* kStickCopy = "/tmp/temp_USB.CONF";
// Lines are read with this bound (254 characters); a longer line arrives in pieces,
// each piece read as a line of its own.
constexpr int kLineBound = 255;

enum class Action {
    CallHomeAddress, CallHomeInterval, SetResolution, CheckVersion, DeleteFile,
    DeleteAllMedia, DeleteVideoMedia, DeleteImageMedia, DeleteUSBConfigFile, ConfigID, ContentID
};
using ActionKeyword = Keyword<Action>;

// The keywords of USB.CONF and of the stick's copy, in the order they are tested.
constexpr ActionKeyword kUsbConfKeywords[] = {
    {"CallHomeAddress", 15, Action::CallHomeAddress},
    {"CallHomeInterval", 16, Action::CallHomeInterval},
    {"SetResolution", 13, Action::SetResolution},
    {"CheckVersion", 12, Action::CheckVersion},
    {"DeleteFile", 10, Action::DeleteFile},
    {"DeleteAllMedia", 14, Action::DeleteAllMedia},
    {"DeleteVideoMedia", 16, Action::DeleteVideoMedia},
    {"DeleteImageMedia", 16, Action::DeleteImageMedia},
};

// The keywords of the server's command list, in the order they are tested. ContentID
// is compared over its first 8 characters only, "ContentI", as ConfigID is over 8, so
// any line that begins "ContentI" is a content line; kept as the device reads it.
constexpr ActionKeyword kCommandListKeywords[] = {
    {"CallHomeAddress", 15, Action::CallHomeAddress},
    {"CallHomeInterval", 16, Action::CallHomeInterval},
    {"DeleteFile", 10, Action::DeleteFile},
    {"DeleteAllMedia", 14, Action::DeleteAllMedia},
    {"DeleteVideoMedia", 16, Action::DeleteVideoMedia},
    {"DeleteImageMedia", 16, Action::DeleteImageMedia},
    {"DeleteUSBConfigFile", 19, Action::DeleteUSBConfigFile},
    {"ConfigID", 8, Action::ConfigID},
    {"ContentID", 8, Action::ContentID},
    {"CheckVersion", 12, Action::CheckVersion},
};

// The value of a keyword line: everything after the first comma that follows the
// keyword's compared characters. nullptr when there is none: the line is malformed.
char* value_of(char* line, const ActionKeyword& k)
{
    char* comma = std::strchr(line + k.length, ',');
    return comma ? comma + 1 : nullptr;
}

// 1 to 59 s would hammer the server: a minute at least. 0 means no call home after
// the current one, and a negative value is kept as it is.
void apply_interval(const char* value)
{
    int interval = text_to_int(value);
    if (interval >= 1 && interval <= 59) interval = 60;
    call_home_interval = static_cast<unsigned>(interval);
}

void apply_address(const char* value)
{
    copy_text(call_home_address, std::string_view(value, std::strcspn(value, "\r\n")));
}

// The deletion a line orders, run at once; false when the line orders none.
bool run_deletion(Action action, char* line)
{
    switch (action) {
    case Action::DeleteFile: delete_file(line); return true;
    case Action::DeleteAllMedia: delete_all(); return true;
    case Action::DeleteVideoMedia: delete_video(); return true;
    case Action::DeleteImageMedia: delete_image(); return true;
    default: return false;
    }
}

// The call-home lines collected in the stored file become the whole of USB.CONF.
void keep_stored_settings()
{
    char command[128];
    std::snprintf(command, sizeof command, "cp -f %s %s", kStoredFile, kUsbConf);
    remount_fs(3, 1);
    seam::system(command);
    remount_fs(3, 0);
}

void append_stored(const char* line)
{
    // A stored file that cannot be opened loses the line; the setting still applies.
    if (File stored{std::fopen(kStoredFile, "a")}) std::fprintf(stored.get(), "%s\n", line);
}

}  // namespace

char* trimwhitespace(char* str) { return trim_in_place(str); }

int load_call_home_config(const char* filename, int override_interval, int initial_config_load)
{
    File in{std::fopen(filename, "r")};
    if (!in) return 0;
    File stored{std::fopen(kStoredFile, "w")};
    if (!stored) return 0;

    bool address_seen = false, interval_seen = false, upgrade_wanted = false;
    char line[kLineBound];
    // Lines are taken as they are, line end included: only the call-home lines and the
    // CheckVersion line are kept, each written back unchanged.
    while (std::fgets(line, sizeof line, in.get())) {
        const ActionKeyword* k = match_keyword(kUsbConfKeywords, line);
        if (k == nullptr || run_deletion(k->action, line)) continue;
        switch (k->action) {
        case Action::CallHomeAddress: {
            const char* value = value_of(line, *k);
            if (value == nullptr) return 0;  // the stored file stays behind, uncopied
            apply_address(value);
            std::fputs(line, stored.get());
            address_seen = true;
            break;
        }
        case Action::CallHomeInterval: {
            const char* value = value_of(line, *k);
            if (value == nullptr) return 0;
            apply_interval(value);
            {
                MutexLock lock(timerMutex);
                call_home_timer = override_interval ? 5 : static_cast<int>(call_home_interval.load());
            }
            std::fputs(line, stored.get());
            interval_seen = true;
            break;
        }
        case Action::SetResolution: set_resolution(line); break;
        case Action::CheckVersion:
            std::fputs(line, stored.get());
            line[std::strcspn(line, "\r\n")] = '\0';
            copy_text(check_version_line, line);  // a later line replaces an earlier one
            // At start-up the line is only kept, for a later USB_FIRMWARE_CHECK.
            if (!initial_config_load) upgrade_wanted = true;
            break;
        default: break;
        }
    }
    in.reset();
    stored.reset();

    if (address_seen && !interval_seen && !upgrade_wanted) {
        call_home_interval = 86400;
        start_timer();
    }
    // Only a stick's file is kept; the disk's own file is never written back.
    if (std::strcmp(filename, kStickCopy) == 0) keep_stored_settings();
    unlink(kStoredFile);

    if (upgrade_wanted) follow_upgrade_result(process_check_version(check_version_line));
    return 1;
}

int parse_action_file(const char* filename)
{
    File in{std::fopen(filename, "r")};
    if (!in) return 0;
    unlink("/tmp/h0");
    // The stored file is appended to line by line; one that an interrupted reading of a
    // USB configuration left behind must not slip its lines into USB.CONF.
    unlink(kStoredFile);

    bool address_seen = false, interval_seen = false, stored_written = false;
    // A server names itself in every list, so that USB.CONF keeps its address; only an
    // address other than this one is a new server, to be called soon.
    char address_before[sizeof call_home_address];
    copy_text(address_before, text_of(call_home_address));
    int upgrade_ret = 0;
    char line[kLineBound];
    // Whatever stops the call-home countdown (DeleteUSBConfigFile, an upgrade) clears
    // initiate_call_home and so ends the list after its line, as intended.
    while (initiate_call_home && std::fgets(line, sizeof line, in.get())) {
        // Only the end is cut off: leading white space stays, so a keyword must begin
        // in the first column.
        trimwhitespace(line);
        const ActionKeyword* k = match_keyword(kCommandListKeywords, line);
        if (k == nullptr || run_deletion(k->action, line)) continue;
        switch (k->action) {
        case Action::CallHomeAddress: {
            const char* value = value_of(line, *k);
            if (value == nullptr || std::strlen(value) >= sizeof call_home_address) return 0;
            {
                MutexLock lock(timerMutex);
                apply_address(value);
            }
            append_stored(line);
            address_seen = stored_written = true;
            break;
        }
        case Action::CallHomeInterval: {
            const char* value = value_of(line, *k);
            if (value == nullptr) return 0;
            apply_interval(value);
            start_timer();
            append_stored(line);
            // Kept in USB.CONF only beside an address: a list of an interval alone must
            // not leave the stored settings without the server to call after a reboot.
            interval_seen = true;
            break;
        }
        case Action::DeleteUSBConfigFile:
            delete_usb_config();
            kill_timer();
            // The deletion stands: call-home lines before it in this list are not
            // written back.
            unlink(kStoredFile);
            stored_written = false;
            break;
        case Action::ConfigID: process_config(line, currentCHConfig.id); break;
        case Action::ContentID: process_content(line, currentContent.id); break;
        case Action::CheckVersion: upgrade_ret = process_check_version(line); break;
        default: break;
        }
    }

    // A list that names the server replaces the whole USB.CONF with its call-home lines.
    if (stored_written) keep_stored_settings();
    unlink(kStoredFile);
    if (address_seen) {
        if (!interval_seen) call_home_interval = 86400;
        // Only a new server is called five seconds later; the server in use is called
        // again at the interval (the call home re-arms the countdown from it).
        if (std::strcmp(address_before, call_home_address) != 0) {
            MutexLock lock(timerMutex);
            call_home_timer = 5;
        }
    }
    follow_upgrade_result(upgrade_ret);
    return 1;
}
