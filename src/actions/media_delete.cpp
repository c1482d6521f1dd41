#include "actions/media_delete.h"

#include <cstdio>
#include <cstring>
#include <string_view>
#include <strings.h>

#include "core/seam.h"
#include "core/shell.h"
#include "core/text.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "storage/pelk_file.h"

namespace {

char reply[kSnmpTextSize];

// Runs one removal inside a writable window of `partition`.
void remove_on(int partition, const char* command)
{
    remount_fs(partition, 1);
    seam::system(command);
    remount_fs(partition, 0);
}

// Whether a deletion name could reach outside its media folder: a ".." component, or a
// wild card before the last component that begins with a dot, which the shell expands
// to ".." as readily as to anything else. The last component may be such a pattern:
// rm -f removes no folder, so "*.mpg" and ".*" stay within the folder.
bool climbs_out(std::string_view path)
{
    for (;;) {
        std::size_t slash = path.find('/');
        std::string_view part = path.substr(0, slash);
        if (part == "..") return true;
        if (slash == std::string_view::npos) return false;
        if (part.starts_with('.') && part.find_first_of("*?[") != std::string_view::npos) return true;
        path.remove_prefix(slash + 1);
    }
}

}  // namespace

int check_if_video(const char* extension)
{
    for (const char* video : kVideoExtensions)
        if (strcasecmp(extension, video) == 0) return 1;
    return 0;
}

// Files are removed under a running player, without warning: only delete_all stops
// playback first.
void delete_video(void) { remove_on(4, "rm -f /mnt/hd4/video/*"); }
void delete_image(void) { remove_on(4, "rm -f /mnt/hd4/picture/*"); }

void delete_all(void)
{
    char command[64];
    std::snprintf(command, sizeof command, "%s i 1", kStopOid);
    send_snmp_command(kSnmpSetType, command, reply);
    seam::sleep(5);
    remount_fs(4, 1);
    seam::system("rm -f /mnt/hd4/video/*");
    seam::system("rm -f /mnt/hd4/picture/*");
    remount_fs(4, 0);
    seam::sleep(10);
}

void delete_usb_config(void)
{
    stop_timer();
    remove_on(3, "rm -f /mnt/hd3/USB.CONF");
}

void delete_file(char* line)
{
    std::size_t length = std::strlen(line);
    if (length < 10) return;
    // The name starts after the keyword and one separator; a bare "DeleteFile" names
    // nothing.
    const char* p = line + (length > 11 ? 11 : length);
    while (*p == ' ') ++p;
    // Blanks and tabs after the name (a hand-edited USB.CONF often has them) are not
    // part of it, as the shell's word splitting never let them be; blanks inside the
    // name stay.
    std::string_view name_text(p, std::strcspn(p, "\r\n"));
    name_text = name_text.substr(0, name_text.find_last_not_of(" \t") + 1);
    char file[512];
    copy_text(file, name_text);
    if (climbs_out(file)) {
        std::printf("DeleteFile: %s would reach outside its media folder, nothing deleted\n", file);
        return;
    }

    // Split at the last dot; a name without one has an empty extension, which selects
    // the picture folder.
    char extension[16] = "";
    if (char* dot = std::strrchr(file, '.')) {
        copy_text(extension, dot + 1);
        *dot = '\0';
    }

    // Wild cards keep working, so "*.mpg" still empties the video folder of .mpg files,
    // but nothing else in the name means anything to the shell.
    char name[1024], ext[64];
    if (!shell_escaped(name, file, true) || !shell_escaped(ext, extension, true)) {
        std::printf("DeleteFile: name too long, nothing deleted: %s\n", file);
        return;
    }
    char command[1152];
    std::snprintf(command, sizeof command, "rm -f /mnt/hd4/%s/%s.%s",
                  check_if_video(extension) ? "video" : "picture", name, ext);
    remove_on(4, command);
}
