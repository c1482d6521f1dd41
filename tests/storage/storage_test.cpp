// The file utilities and the disk cleanup on the sandbox's real media partition
// (20000 KB of tmpfs: 50 blocks make 1 %), its logged mount and the real rm.
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <string>

#include "storage/cleanup.h"
#include "storage/pelk_file.h"
#include "support/sandbox.h"

namespace {

// A file of `kb` kilobytes under /mnt/hd4.
void put(const std::string& path, int kb)
{
    sandbox::set_writable(4, true);
    sandbox::write_file("/mnt/hd4/" + path, std::string(kb * 1024, 'x'));
}

std::set<std::string> media_left()
{
    std::set<std::string> names;
    for (const char* dir : {"/mnt/hd4/video", "/mnt/hd4/picture"})
        for (const auto& e : std::filesystem::directory_iterator(dir)) names.insert(e.path().filename());
    return names;
}

class Storage : public ::testing::Test {
protected:
    void SetUp() override
    {
        sandbox::set_writable(4, true);
        std::system("rm -rf /mnt/hd4/video /mnt/hd4/picture /mnt/hd4/audio/* && mkdir /mnt/hd4/video /mnt/hd4/picture");
        content = {};
        std::strcpy(content.id, "new");
    }

    DRAVIK_CONTENT content;
};

// The utilities no bigger caller reaches in every case: names that fit no folder, and
// those offered for callers that nothing in the agent uses.
TEST_F(Storage, FileUtilities)
{
    put("video/clip.mp4", 1);
    unsigned long long size = 0;
    EXPECT_EQ(guess_file_type("page.html"), 3);  // web pages are typed by the document
    EXPECT_EQ(check_file_exists("dir/clip.mp4", &size, 3) + check_file_exists("clip.mp4", &size, 4), 1);
    EXPECT_EQ(check_file_exists((std::string(600, 'x') + ".mp4").c_str(), &size, 0), 0);
    EXPECT_EQ(file_exists("/mnt/hd4/video/clip.mp4") + file_exists("/mnt/hd4/video/none.mp4"), -1);
    write_file_list("/mnt/hd4/v*", "/tmp/list", "-1");
    EXPECT_EQ(sandbox::read_file("/tmp/list"), "clip.mp4\n");
    remount_fs(0, 0);  // all four partitions
    EXPECT_FALSE(sandbox::is_writable("/mnt/hd1") || sandbox::is_writable("/mnt/hd4"));
}

TEST_F(Storage, CleanupDeletesUnreferencedMediaTowardsHalfTheDisk)
{
    // The pool's slot array is four times the pool, as the device has it.
    static_assert(sizeof cuArray / sizeof cuArray[0] == 4 * kCleanupCapacity);
    const struct {
        const char* why;
        int filler_kb;  // taken outside the media folders
        const char* saved_id;
        bool all_referenced;
        std::set<std::string> left;
        int trigger;
    } rows[] = {
        // 20 % free: 6 MB to go, more than may go.
        {"new content waits: the playing playlist's file stays", 9000, "old", false, {"c.mp4", "p.mp4"}, 25},
        {"the same content: only its own files stay", 9000, "new", false, {"c.mp4"}, 35},
        {"everything referenced: the trigger drops, to 5 at least", 11000, "old", true,
         {"c.mp4", "p.mp4", "u1.ts", "u2.ts", "u3.png"}, 5},
        // 45 % free: 1 MB to go, gone with the second video; the picture comes after them.
        {"stops once enough is gone", 4000, "old", false, {"c.mp4", "p.mp4", "u3.png"}, 30},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        SetUp();
        std::strcpy(content.files[content.filecount++].fname, "media/c.mp4");  // stored by its bare name
        for (auto [name, kb] : {std::pair{"c.mp4", 2000}, {"p.mp4", 2000}, {"u1.ts", 1000}, {"u2.ts", 1000}}) {
            put(std::string("video/") + name, kb);
            if (row.all_referenced) std::strcpy(content.files[content.filecount++].fname, name);
        }
        put("picture/u3.png", 1000);
        if (row.all_referenced) std::strcpy(content.files[content.filecount++].fname, "u3.png");
        put("audio/filler", row.filler_kb);
        sandbox::write_file(kPlayingMediaList, "p.mp4\n");
        std::strcpy(g_saved_content_id, row.saved_id);
        process_cleanup(&content);
        EXPECT_EQ(media_left(), row.left);
        EXPECT_EQ(g_cleanup_trigger_free_pct, row.trigger);
        EXPECT_FALSE(sandbox::is_writable("/mnt/hd4"));
    }
}

TEST_F(Storage, CleanupOfAFolderThatCannotBeRead)
{
    // Nothing deleted, the trigger left alone.
    put("video/old.mp4", 12000);
    std::system("rm -rf /mnt/hd4/picture");
    g_cleanup_trigger_free_pct = 17;
    process_cleanup(&content);
    EXPECT_TRUE(sandbox::exists("/mnt/hd4/video/old.mp4"));
    EXPECT_EQ(g_cleanup_trigger_free_pct, 17);
}

}  // namespace
