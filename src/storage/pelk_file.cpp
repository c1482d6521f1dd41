#include "storage/pelk_file.h"

#include <cstdio>
#include <cstring>
#include <strings.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include "core/seam.h"
#include "core/shell.h"
#include "core/text.h"

const char kvr_media_path[kMediaPathCount][kMediaPathSize] = {
    "/mnt/hd4/video", "/mnt/hd4/audio",        "/mnt/hd4/picture",
    "/mnt/hd3/playlists", "/mnt/hd4/html/browser", "/mnt/hd4",
};

namespace {

constexpr const char* kPictureExtensions[] = {"jpg", "png"};

// Directory of a media type: 0 video, 1 picture, 2 web page; nullptr for others.
const char* directory_of_type(int type)
{
    switch (type) {
    case 0: return "/mnt/hd4/video";
    case 1: return "/mnt/hd4/picture";
    case 2: return "/mnt/hd4/html/browser";
    default: return nullptr;
    }
}

}  // namespace

int guess_file_type(const char* name)
{
    const char* dot = std::strrchr(name, '.');
    if (dot == nullptr) return 3;
    char extension[16];
    copy_text(extension, dot + 1);  // a longer extension is cut to 15 characters
    for (const char* ext : kVideoExtensions)
        if (strcasecmp(extension, ext) == 0) return 0;
    for (const char* ext : kPictureExtensions)
        if (strcasecmp(extension, ext) == 0) return 1;
    return 3;
}

char* get_file_name(char* path)
{
    char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

const char* get_file_name(const char* path)
{
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

int check_file_exists(const char* fname, unsigned long long* size, int type)
{
    if (fname == nullptr) return 0;
    const char* bare = get_file_name(fname);
    if (type == 3) {
        type = guess_file_type(bare);
        if (type == 3) type = 0;  // an unknown extension is looked for among the videos
    }
    const char* dir = directory_of_type(type);
    if (dir == nullptr) return 0;
    char path[512];
    if (std::snprintf(path, sizeof path, "%s/%s", dir, bare) >= static_cast<int>(sizeof path))
        return 0;  // a name that long cannot be on the disk
    struct stat st{};
    if (stat(path, &st) != 0) return 0;
    *size = static_cast<unsigned long long>(st.st_size);
    return 1;
}

int get_md5sum(char* digest, const char* fname, int type)
{
    // No caller passes another type; rejecting it keeps the shell away from odd paths.
    const char* dir = directory_of_type(type);
    if (dir == nullptr) return 0;
    // The name comes from the content document: it reaches md5sum as one word.
    char name[600];
    if (!shell_escaped(name, fname)) return 0;
    char command[700];
    if (std::snprintf(command, sizeof command, "md5sum %s/%s > /tmp/cpcksum", dir, name) >=
        static_cast<int>(sizeof command))
        return 0;
    seam::system(command);
    FILE* f = std::fopen("/tmp/cpcksum", "r");
    if (f == nullptr) return 0;
    // A name holding a backslash or a line end makes md5sum mark its line with a
    // leading backslash; the digest follows it.
    if (int c = std::fgetc(f); c != '\\' && c != EOF) std::ungetc(c, f);
    char* got = std::fgets(digest, 33, f);  // at most 32 characters of the first line
    std::fclose(f);
    if (got == nullptr || digest[0] == '\0') return 0;
    digest[33] = '\0';
    return 1;
}

long long kscale(int blocks, int blocksize)
{
    return (static_cast<long long>(blocks) * blocksize + 512) / 1024;
}

int get_free_space(FREESPACE_RESULTS* out)
{
    struct statfs fs{};
    if (statfs("/mnt/hd4", &fs) != 0) {
        out->freeKB = 0;
        out->free_percent = 0;
        return -1;
    }
    // The block counts are taken by their lower 32 bits, as on the device.
    int avail = static_cast<int>(static_cast<std::uint32_t>(fs.f_bavail));
    int total = static_cast<int>(static_cast<std::uint32_t>(fs.f_blocks));
    int bsize = static_cast<int>(fs.f_bsize);
    out->freeKB = static_cast<std::uint32_t>(kscale(avail, bsize));
    out->allKB = static_cast<std::uint32_t>(kscale(total, bsize));
    long long hundredth = static_cast<long long>(total) / 100;
    long long pct = hundredth ? static_cast<long long>(avail) / hundredth : 0;
    out->free_percent = pct < 0 ? 0 : static_cast<int>(pct);
    return 0;
}

void remount_fs(int part, int rw)
{
    const char* mode = rw ? "rw" : "ro";
    char command[128];
    auto remount = [&](int p) {
        std::snprintf(command, sizeof command,
                      "mount -o remount,noatime,nodiratime,%s "
                      "/dev/ide/host0/bus0/target0/lun0/part%d /mnt/hd%d",
                      mode, p, p);
        seam::system(command);
    };
    if (part == 0) {
        for (int p = 1; p <= 4; ++p) remount(p);
    } else if (part >= 1 && part <= 4) {
        remount(part);
    }
    // There is no nesting count: a read-only remount ends every writer's window.
}

int write_file_list(const char* dir, const char* listfile, const char* options)
{
    // The folder may be a pattern; the options are the caller's own words, left as given.
    char folder[512], list[512], command[1536];
    if (!shell_escaped(folder, dir, true) || !shell_escaped(list, listfile)) return -1;
    int n = options == nullptr
                ? std::snprintf(command, sizeof command, "ls %s > %s", folder, list)
                : std::snprintf(command, sizeof command, "ls %s %s > %s", folder, options, list);
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof command) return -1;
    return seam::system(command);
}

int file_exists(const char* path)
{
    struct stat st{};
    return stat(path, &st) == 0 ? -1 : 0;
}
