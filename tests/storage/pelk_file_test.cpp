// File and storage utilities against the sandbox's real tmpfs partitions, its mount
// stand-in and the real md5sum. The media partition is 16000 KB: 4000 blocks of 4 KB.
#include "storage/pelk_file.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/statfs.h>
#include <vector>

#include "support/sandbox.h"

namespace {

class Storage : public ::testing::Test {
protected:
    void SetUp() override
    {
        sandbox::set_writable(4, true);
        std::system("rm -rf /mnt/hd4/video/* /mnt/hd4/picture/* /mnt/hd4/html/browser/*");
        sandbox::clear_calls();
    }
    void TearDown() override { sandbox::set_writable(4, false); }
};

TEST(FileType, VideoAndPictureExtensionsIgnoringCase)
{
    const std::pair<const char*, int> cases[] = {
        {"clip.MPG", 0}, {"a.b.ts", 0}, {"x.M4T", 0}, {"movie.mp4", 0}, {"t.m2t", 0},
        {"v.M2V", 0},    {"p.m2p", 0},  {"s.mpeg", 0}, {"w.wmv", 0},    {"h.avc", 0},
        {"logo.PNG", 1}, {"photo.jpg", 1},
        // Web pages are never guessed: they are typed by the content document.
        {"page.html", 3}, {"README", 3}, {"song.mp3", 3}, {"dot.", 3},
        // A long extension is cut, safely, and matches nothing.
        {"x.tsxxxxxxxxxxxxxxxxxxxxxxxxxxx", 3},
    };
    for (const auto& [name, type] : cases) EXPECT_EQ(guess_file_type(name), type) << name;
}

TEST_F(Storage, MediaFilesAreLookedForInTheDirectoryOfTheirType)
{
    sandbox::write_file("/mnt/hd4/video/clip.mp4", std::string(1000, 'v'));
    sandbox::write_file("/mnt/hd4/picture/logo.jpg", std::string(20, 'p'));
    sandbox::write_file("/mnt/hd4/picture/b.png", "b");
    sandbox::write_file("/mnt/hd4/video/notes.xyz", "abc");
    sandbox::write_file("/mnt/hd4/html/browser/page.html", "<html/>");

    const struct {
        const char* name;
        int type;
        unsigned long long size;  // 0: not found
    } cases[] = {
        {"clip.mp4", 0, 1000},
        {"dir/sub/clip.mp4", 0, 1000},  // by its bare name
        {"logo.jpg", 3, 20},            // type from the name
        {"notes.xyz", 3, 3},            // unknown: the video folder
        {"page.html", 2, 7},
        {"logo.jpg", 0, 0},             // wrong folder
        {"clip.mp4", 4, 0},             // no folder for type 4
        {"missing.mp4", 0, 0},
        {nullptr, 0, 0},
    };
    for (const auto& c : cases) {
        unsigned long long size = 77;
        EXPECT_EQ(check_file_exists(c.name, &size, c.type), c.size ? 1 : 0) << c.name;
        EXPECT_EQ(size, c.size ? c.size : 77) << c.name;
    }

    EXPECT_EQ(file_exists("/mnt/hd4/picture/logo.jpg"), -1);
    EXPECT_EQ(file_exists("/mnt/hd4/picture/none.jpg"), 0);
    write_file_list("/mnt/hd4/picture", "/tmp/list.txt", "-r");
    EXPECT_EQ(sandbox::read_file("/tmp/list.txt"), "logo.jpg\nb.png\n");
}

TEST_F(Storage, Md5sumOfAMediaFileThroughTheShell)
{
    sandbox::write_file("/mnt/hd4/html/browser/page.html", "hello\n");
    std::system("mkdir -p /mnt/hd4/video/sub && printf 'hello\\n' > /mnt/hd4/video/sub/x.ts");
    char digest[34];
    ASSERT_EQ(get_md5sum(digest, "page.html", 2), 1);
    EXPECT_STREQ(digest, "b1946ac92492d2347c6235b4d2611184");  // md5 of "hello\n"
    ASSERT_EQ(get_md5sum(digest, "sub/x.ts", 0), 1);  // directory parts kept
    EXPECT_STREQ(digest, "b1946ac92492d2347c6235b4d2611184");
    EXPECT_EQ(get_md5sum(digest, "missing.html", 2), 0);
    EXPECT_EQ(get_md5sum(digest, "page.html", 7), 0);
}

TEST_F(Storage, FreeSpaceOfTheMediaPartition)
{
    FREESPACE_RESULTS r{};
    ASSERT_EQ(get_free_space(&r), 0);
    EXPECT_EQ(r.allKB, 16000u);
    EXPECT_EQ(r.freeKB, 16000u);
    EXPECT_EQ(r.free_percent, 100);

    // 3000 of the 4000 blocks used: 1000 available, 25 %.
    sandbox::write_file("/mnt/hd4/video/big.ts", std::string(3000 * 4096, 'x'));
    ASSERT_EQ(get_free_space(&r), 0);
    struct statfs fs{};
    ASSERT_EQ(statfs("/mnt/hd4", &fs), 0);
    EXPECT_EQ(r.freeKB, (fs.f_bavail * fs.f_bsize + 512) / 1024);
    EXPECT_EQ(r.freeKB, 4000u);
    EXPECT_EQ(r.free_percent, 25);

    EXPECT_EQ(kscale(1, 511), 0);  // to the nearest kilobyte
    EXPECT_EQ(kscale(1, 512), 1);
    EXPECT_EQ(kscale(2000000000, 4096), 8000000000LL);  // no 32-bit overflow
}

TEST_F(Storage, RemountMakesPartitionsWritableOnlyInsideTheWindow)
{
    auto remount = [](const char* mode, int p) {
        return std::string("mount -o remount,noatime,nodiratime,") + mode +
               " /dev/ide/host0/bus0/target0/lun0/part" + std::to_string(p) + " /mnt/hd" +
               std::to_string(p);
    };
    sandbox::set_writable(4, false);
    remount_fs(4, 1);
    EXPECT_TRUE(sandbox::is_writable("/mnt/hd4/video"));
    remount_fs(4, 0);
    EXPECT_FALSE(sandbox::is_writable("/mnt/hd4/video"));
    remount_fs(5, 1);  // no such partition
    remount_fs(-1, 1);
    remount_fs(0, 0);  // all four
    EXPECT_FALSE(sandbox::is_writable("/mnt/hd1"));
    remount_fs(0, 1);
    EXPECT_TRUE(sandbox::is_writable("/mnt/hd1"));

    std::vector<std::string> expected = {remount("rw", 4), remount("ro", 4)};
    for (const char* mode : {"ro", "rw"})
        for (int p = 1; p <= 4; ++p) expected.push_back(remount(mode, p));
    EXPECT_EQ(sandbox::calls(), expected);
}

}  // namespace
