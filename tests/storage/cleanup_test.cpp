// The disk cleanup on the sandbox's real media partition (20000 KB of tmpfs: 50 blocks
// make 1 %), its logged mount and the real rm. The playing playlist's list is written
// by the real playlist module.
#include "storage/cleanup.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

#include "content/playlist.h"
#include "support/fake_platform.h"
#include "support/sandbox.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

DRAVIK_CONTENT content;  // in force, id "new"
DRAVIK_CONTENT playing;  // what the player still plays

// The names in the given media folders.
std::set<std::string> left(std::vector<std::string> dirs = {"/mnt/hd4/video", "/mnt/hd4/picture"})
{
    std::set<std::string> names;
    for (const auto& dir : dirs)
        for (const auto& e : std::filesystem::directory_iterator(dir)) names.insert(e.path().filename());
    return names;
}

void add_file(DRAVIK_CONTENT& c, const char* name) { std::strcpy(c.files[c.filecount++].fname, name); }

// A file of whole blocks, among the pictures when its name says so.
void fill(const std::string& name, int kb)
{
    bool picture = name.ends_with(".jpg") || name.ends_with(".png");
    sandbox::write_file((picture ? "/mnt/hd4/picture/" : "/mnt/hd4/video/") + name, std::string(kb * 1024, 'x'));
}

class Cleanup : public ::testing::Test {
protected:
    void SetUp() override
    {
        platform.run_commands(true);
        sandbox::set_writable(4, true);
        std::system("rm -rf /mnt/hd4/video /mnt/hd4/picture /mnt/hd4/audio/* /tmp/currentpl && "
                    "mkdir /mnt/hd4/video /mnt/hd4/picture");
        sandbox::clear_calls();
        content = {};
        playing = {};
        std::strcpy(content.id, "new");
    }
    void TearDown() override { sandbox::set_writable(4, false); }

    FakePlatform platform;
};

TEST_F(Cleanup, DeletesUnreferencedMediaTowardsHalfTheDiskAndAdaptsTheTrigger)
{
    struct File {
        const char* name;
        int kb;
        char role;  // K in the content, P in the playing playlist, U neither
        bool operator==(const File&) const = default;
    };
    const std::vector<File> mixed = {
        {"c1.mp4", 2000, 'K'}, {"c2.mp4", 2000, 'K'}, {"c3.mp4", 2000, 'K'}, {"c4.mp4", 2000, 'K'},
        {"c5.jpg", 2000, 'K'}, {"p1.mp4", 2000, 'P'}, {"p2.mp4", 2000, 'P'}, {"u1.ts", 1000, 'U'},
        {"u2.ts", 1000, 'U'},  {"u3.ts", 1000, 'U'},  {"u4.png", 1000, 'U'},
    };
    std::vector<File> referenced = mixed;
    for (File& f : referenced) f.role = 'K';
    std::vector<File> plenty = {{"c1.mp4", 2000, 'K'}, {"u9.png", 1000, 'U'}};
    for (const char* n : {"u1.ts", "u2.ts", "u3.ts", "u4.ts", "u5.ts", "u6.ts", "u7.ts", "u8.ts"})
        plenty.push_back({n, 2000, 'U'});

    const struct {
        const char* why;
        std::vector<File> files;
        const char* saved_id;
        std::size_t deleted;
        int trigger;  // from 12
    } rows[] = {
        // 10 % free: the target asks for 8 MB, more than may go; 30 % reached.
        {"new content: content and playing files stay", mixed, "old", 4, 20},
        {"same content: the playing list spares nothing", mixed, "new", 6, 30},
        {"everything referenced: nothing goes", referenced, "old", 0, 5},
        // 5 % free: 9 MB to go, so the fifth 2000 KB video ends the walk and the
        // picture, listed after every video, stays; 55 % reached.
        {"stops once enough is gone", plenty, "new", 5, 30},
        {"above the target", {{"c1.mp4", 2000, 'K'}, {"u1.ts", 7000, 'U'}}, "old", 0, 30},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        SetUp();
        std::strcpy(g_saved_content_id, row.saved_id);
        playing.plcount = 1;
        std::set<std::string> spared;
        for (const File& f : row.files) {
            fill(f.name, f.kb);
            if (f.role == 'K') add_file(content, f.name);
            if (f.role == 'P') {
                playing.playlists[0].PlItems[playing.playlists[0].itemCount++] = {0, playing.filecount, 10};
                add_file(playing, f.name);
            }
            if (f.role == 'K' || (f.role == 'P' && std::strcmp(row.saved_id, "old") == 0)) spared.insert(f.name);
        }
        if (row.files == plenty) spared.insert("u9.png");
        ASSERT_EQ(MakeTEMPPlaylist(0, &playing), 1);
        g_cleanup_trigger_free_pct = 12;

        process_cleanup(&content);
        std::set<std::string> now = left();
        EXPECT_TRUE(std::includes(now.begin(), now.end(), spared.begin(), spared.end()));
        EXPECT_EQ(row.files.size() - now.size(), row.deleted);
        EXPECT_EQ(g_cleanup_trigger_free_pct, row.trigger);
        // Writable only around the deletions, and not touched with room enough.
        if (row.trigger != 30 || row.deleted) {
            EXPECT_THAT(sandbox::calls(), ElementsAre(HasSubstr(",rw /dev/ide/host0/bus0/target0/lun0/part4"),
                                                      HasSubstr(",ro /dev/ide/host0/bus0/target0/lun0/part4")));
        } else {
            EXPECT_THAT(sandbox::calls(), ElementsAre());
        }
    }
}

TEST_F(Cleanup, OddNamesFoldersAndCrowdedFolders)
{
    // Names from the listing reach rm as one word each: * removes only itself, and no
    // substitution runs. A folder is a candidate too, but rm -f leaves it.
    ASSERT_EQ(chdir("/tmp"), 0);
    fill("keep.mp4", 12000);  // 40 % free: 2 MB to go, more than the odd files hold
    add_file(content, "media/keep.mp4");  // stored under its bare name
    fill("both.jpg", 4);                  // a referenced name in both folders: either may be in use
    sandbox::write_file("/mnt/hd4/video/both.jpg", "v");
    add_file(content, "both.jpg");
    for (const char* n : {"a b.mp4", "it's \"q\".ts", "*", "$(touch pwned).ts", "-rf", "x;y|z&.mp4", "new\nline.ts"})
        fill(n, 4);
    std::system("mkdir /mnt/hd4/video/sub && touch /mnt/hd4/video/sub/inner.mp4");
    process_cleanup(&content);
    EXPECT_THAT(left({"/mnt/hd4/video"}), ElementsAre("both.jpg", "keep.mp4", "sub"));
    EXPECT_THAT(left({"/mnt/hd4/picture", "/mnt/hd4/video/sub"}), ElementsAre("both.jpg", "inner.mp4"));
    EXPECT_FALSE(sandbox::exists("/tmp/pwned"));

    // More names than the list holds: 512 go; the rest and the pictures wait.
    SetUp();
    std::system("cd /mnt/hd4/video && for i in $(seq 1 600); do : > e$i; done");
    fill("pic.jpg", 4);
    sandbox::write_file("/mnt/hd4/audio/filler", std::string(12000 * 1024, 'x'));
    process_cleanup(&content);
    EXPECT_EQ(left().size(), 89u);
    EXPECT_TRUE(left().count("pic.jpg"));

    // A media folder that cannot be read: nothing deleted, the trigger left alone.
    sandbox::set_writable(4, true);
    std::system("rm -rf /mnt/hd4/picture");
    g_cleanup_trigger_free_pct = 17;
    process_cleanup(&content);
    EXPECT_EQ(left({"/mnt/hd4/video"}).size(), 88u);
    EXPECT_EQ(g_cleanup_trigger_free_pct, 17);
}

}  // namespace
