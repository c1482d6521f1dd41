#pragma once
// File and storage utilities over the device's disk: the media directories, media
// type from a file name, presence, size and MD5 of a media file, free space on the
// media partition, and remounting partitions read-only or read-write.
//
//   kvr_media_path[i]        media directory by index
//   guess_file_type          0 video, 1 picture, 3 not known
//   check_file_exists, get_md5sum, get_free_space, kscale
//   remount_fs(part, rw)     partitions 3 and 4 are writable only around writes
//   write_file_list(dir, listfile, options)   "ls" into a file; `options` go to the
//                            shell as given, the folder (a pattern if need be) and the
//                            file each as one word; -1 when the command does not fit
#include <cstdint>

constexpr int kMediaPathCount = 6;
constexpr int kMediaPathSize = 48;

// 0 video, 1 audio, 2 picture, 3 playlists, 4 browser pages, 5 the media partition.
extern const char kvr_media_path[kMediaPathCount][kMediaPathSize];

// The extensions of video files, compared without regard to case, in the order tested.
inline constexpr const char* kVideoExtensions[] = {"m2t", "ts",  "m2v", "m2p", "mpeg",
                                                   "mpg", "mp4", "avc", "wmv", "m4t"};

struct FREESPACE_RESULTS {
    std::uint32_t freeKB;  // available to ordinary users
    std::uint32_t allKB;   // partition size
    int free_percent;
};

int guess_file_type(const char* name);
char* get_file_name(char* path);
const char* get_file_name(const char* path);
int check_file_exists(const char* fname, unsigned long long* size, int type);
int get_md5sum(char* digest, const char* fname, int type);
int get_free_space(FREESPACE_RESULTS* out);
long long kscale(int blocks, int blocksize);
void remount_fs(int part, int rw);
int write_file_list(const char* dir, const char* listfile, const char* options);
int file_exists(const char* path);
