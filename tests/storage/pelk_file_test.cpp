// File and storage utilities against the sandbox's real tmpfs partitions, its mount
// stand-in and the real md5sum. The media partition is 16000 KB: 4000 blocks of 4 KB.
#include "storage/pelk_file.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/statfs.h>
#include <unistd.h>

#include "support/sandbox.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Storage : public ::testing::Test {
protected:
    void SetUp() override
    {
        sandbox::set_writable(4, true);
        std::system("rm -rf /mnt/hd4/video/* /mnt/hd4/picture/* /mnt/hd4/html/browser/* /tmp/cpcksum");
        sandbox::clear_calls();
    }
    void TearDown() override { sandbox::set_writable(4, false); }
};

TEST(FileType, VideoAndPictureExtensionsIgnoringCase)
{
    for (const char* name : {"clip.MPG", "a.b.ts", "x.M4T", "movie.mp4", "t.m2t", "v.M2V",
                             "p.m2p", "s.mpeg", "w.wmv", "h.avc"})
        EXPECT_EQ(guess_file_type(name), 0) << name;
    for (const char* name : {"logo.PNG", "photo.jpg"}) EXPECT_EQ(guess_file_type(name), 1) << name;
    // Web pages are never guessed: they are typed by the content document.
    for (const char* name : {"page.html", "README", "song.mp3", "archive.tar.gz", "dot.", "."})
        EXPECT_EQ(guess_file_type(name), 3) << name;
}

TEST(FileType, LongExtensionIsComparedByItsFirstFifteenCharacters)
{
    EXPECT_EQ(guess_file_type("x.mp4aaaaaaaaaaaaaaaa"), 3);
    EXPECT_EQ(guess_file_type("x.tsxxxxxxxxxxxxxxxxxxxxxxxxxxx"), 3);
}

TEST(FileName, PartAfterTheLastSlash)
{
    char path[] = "dir/sub/file.mp4";
    EXPECT_STREQ(get_file_name(path), "file.mp4");
    char bare[] = "file.mp4";
    EXPECT_EQ(get_file_name(bare), bare);
    char trailing[] = "dir/";
    EXPECT_STREQ(get_file_name(trailing), "");
}

TEST_F(Storage, CheckFileExistsLooksInTheDirectoryOfItsType)
{
    sandbox::write_file("/mnt/hd4/video/clip.mp4", std::string(1000, 'v'));
    sandbox::write_file("/mnt/hd4/picture/logo.jpg", std::string(20, 'p'));
    sandbox::write_file("/mnt/hd4/video/notes.xyz", "abc");
    sandbox::write_file("/mnt/hd4/html/browser/page.html", "<html/>");

    unsigned long long size = 0;
    EXPECT_EQ(check_file_exists("clip.mp4", &size, 0), 1);
    EXPECT_EQ(size, 1000u);
    EXPECT_EQ(check_file_exists("dir/sub/clip.mp4", &size, 0), 1);  // by its bare name
    EXPECT_EQ(check_file_exists("logo.jpg", &size, 3), 1);          // type from the name
    EXPECT_EQ(size, 20u);
    EXPECT_EQ(check_file_exists("notes.xyz", &size, 3), 1);  // unknown: the video folder
    EXPECT_EQ(check_file_exists("page.html", &size, 2), 1);
    EXPECT_EQ(size, 7u);

    size = 77;
    EXPECT_EQ(check_file_exists("logo.jpg", &size, 0), 0);  // wrong folder
    EXPECT_EQ(check_file_exists("clip.mp4", &size, 4), 0);  // no folder for type 4
    EXPECT_EQ(check_file_exists("missing.mp4", &size, 0), 0);
    EXPECT_EQ(check_file_exists(nullptr, &size, 0), 0);
    EXPECT_EQ(size, 77u);
}

TEST_F(Storage, Md5sumOfAMediaFileThroughTheShell)
{
    sandbox::write_file("/mnt/hd4/html/browser/page.html", "hello\n");
    char digest[34];
    ASSERT_EQ(get_md5sum(digest, "page.html", 2), 1);
    EXPECT_STREQ(digest, "b1946ac92492d2347c6235b4d2611184");  // md5 of "hello\n"
    EXPECT_TRUE(sandbox::exists("/tmp/cpcksum"));  // left in place

    // Directory parts are kept, below the type's folder.
    sandbox::write_file("/mnt/hd4/video/x.ts", "hello\n");
    std::system("mkdir -p /mnt/hd4/video/sub && cp /mnt/hd4/video/x.ts /mnt/hd4/video/sub/");
    ASSERT_EQ(get_md5sum(digest, "sub/x.ts", 0), 1);
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
}

TEST(Kscale, RoundsToTheNearestKilobyte)
{
    EXPECT_EQ(kscale(1, 511), 0);
    EXPECT_EQ(kscale(1, 512), 1);
    EXPECT_EQ(kscale(4000, 4096), 16000);
    EXPECT_EQ(kscale(2000000000, 4096), 8000000000LL);  // no 32-bit overflow
}

TEST_F(Storage, RemountMakesThePartitionWritableOnlyInsideTheWindow)
{
    sandbox::set_writable(4, false);
    EXPECT_FALSE(sandbox::is_writable("/mnt/hd4/video"));

    remount_fs(4, 1);
    EXPECT_TRUE(sandbox::is_writable("/mnt/hd4/video"));
    remount_fs(4, 0);
    EXPECT_FALSE(sandbox::is_writable("/mnt/hd4/video"));

    EXPECT_THAT(sandbox::calls(),
                ElementsAre("mount -o remount,noatime,nodiratime,rw "
                            "/dev/ide/host0/bus0/target0/lun0/part4 /mnt/hd4",
                            "mount -o remount,noatime,nodiratime,ro "
                            "/dev/ide/host0/bus0/target0/lun0/part4 /mnt/hd4"));
}

TEST_F(Storage, RemountOfAllOrOfNoPartition)
{
    remount_fs(0, 0);
    EXPECT_THAT(sandbox::calls(),
                ElementsAre("mount -o remount,noatime,nodiratime,ro "
                            "/dev/ide/host0/bus0/target0/lun0/part1 /mnt/hd1",
                            "mount -o remount,noatime,nodiratime,ro "
                            "/dev/ide/host0/bus0/target0/lun0/part2 /mnt/hd2",
                            "mount -o remount,noatime,nodiratime,ro "
                            "/dev/ide/host0/bus0/target0/lun0/part3 /mnt/hd3",
                            "mount -o remount,noatime,nodiratime,ro "
                            "/dev/ide/host0/bus0/target0/lun0/part4 /mnt/hd4"));
    EXPECT_FALSE(sandbox::is_writable("/mnt/hd1"));
    remount_fs(0, 1);
    EXPECT_TRUE(sandbox::is_writable("/mnt/hd1"));

    sandbox::clear_calls();
    remount_fs(5, 1);
    remount_fs(-1, 1);
    EXPECT_THAT(sandbox::calls(), IsEmpty());
}

TEST_F(Storage, FileExistsAndDirectoryListing)
{
    sandbox::write_file("/mnt/hd4/picture/a.jpg", "a");
    sandbox::write_file("/mnt/hd4/picture/b.png", "b");
    EXPECT_EQ(file_exists("/mnt/hd4/picture/a.jpg"), -1);
    EXPECT_EQ(file_exists("/mnt/hd4/picture/none.jpg"), 0);

    write_file_list("/mnt/hd4/picture", "/tmp/list.txt", nullptr);
    EXPECT_EQ(sandbox::read_file("/tmp/list.txt"), "a.jpg\nb.png\n");
    write_file_list("/mnt/hd4/picture", "/tmp/list.txt", "-r");
    EXPECT_EQ(sandbox::read_file("/tmp/list.txt"), "b.png\na.jpg\n");
}

}  // namespace
