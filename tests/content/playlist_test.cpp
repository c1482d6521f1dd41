// The playlist files, written into the sandbox's /tmp and compared byte for byte with
// the files kept in tests/content/expected/.
#include "content/playlist.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "core/text.h"
#include "support/sandbox.h"

namespace {

DRAVIK_CONTENT content;  // static storage: tens of kilobytes

std::string expected(const std::string& name)
{
    std::string path = std::string(EXPECTED_DIR) + "/" + name;
    EXPECT_TRUE(sandbox::exists(path)) << path;
    return sandbox::read_file(path);
}

void add_file(const char* name, int type)
{
    DRAVIK_FILE_ITEM& f = content.files[content.filecount];
    f.findex = content.filecount++;
    f.type = type;
    copy_text(f.fname, name);
}

DRAVIK_PLAYLIST& add_playlist(const char* name, std::initializer_list<DRAVIK_PLAYLIST_ITEM> items)
{
    DRAVIK_PLAYLIST& p = content.playlists[content.plcount];
    p.pindex = content.plcount++;
    copy_text(p.name, name);
    for (const auto& it : items) p.PlItems[p.itemCount++] = it;
    return p;
}

class Playlist : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::system("rm -rf /tmp/playlists /tmp/currentpl /tmp/currentlo");
        mkdir("/tmp/playlists", 0755);
        content = {};
        copy_text(content.id, "3f2a");
        add_file("a.mpg", 0);         // 0
        add_file("b.jpg", 1);         // 1
        add_file("page.html", 2);     // 2
        add_file("clip two.mpg", 0);  // 3
        add_playlist("empty", {});
        add_playlist("mixed", {{0, 0, 0}, {-1, 2, 5}, {1, 1, 10}, {2, 2, 7}, {0, 3, 0}});
        // The second item names a file index one past the document's files.
        add_playlist("cut", {{0, 0, 0}, {0, 4, 0}, {1, 1, 10}});
        add_playlist("no file", {{0, -1, 0}});

        DRAVIK_LAYOUT& empty = content.layouts[content.layoutcount++];
        copy_text(empty.name, "bare");
        DRAVIK_LAYOUT& lo = content.layouts[content.layoutcount++];
        copy_text(lo.name, "board");
        lo.plItemCount = 3;
        copy_text(lo.layoutPLItems[0].url, "http://cms.example/board.html?a=1&b=2");
        copy_text(lo.layoutPLItems[1].url, "http://cms.example/second.html");
        copy_text(lo.layoutPLItems[2].url, "http://cms.example/third.html");
        lo.layoutPLItems[0].dur = 30;
        lo.fileCount = 4;
        lo.layoutFiles[0] = {0, 0};
        lo.layoutFiles[1] = {1, 1};
        lo.layoutFiles[2] = {7, 3};  // an unknown type is skipped
        lo.layoutFiles[3] = {2, 2};
    }
};

TEST_F(Playlist, VideoPlaylistsNumberTheirEntriesWithoutGaps)
{
    EXPECT_EQ(MakeRAMVideoPlaylist(0, 0, &content), 1);
    EXPECT_EQ(sandbox::read_file("/tmp/playlists/r0"), expected("video_empty"));

    // A picture carries its duration; an item of unknown type and a web page take no
    // number of their own.
    EXPECT_EQ(MakeRAMVideoPlaylist(1, 1, &content), 1);
    EXPECT_EQ(sandbox::read_file("/tmp/playlists/r1"), expected("video_mixed"));

    // Writing the same slot again replaces the file.
    EXPECT_EQ(MakeRAMVideoPlaylist(1, 0, &content), 1);
    EXPECT_EQ(sandbox::read_file("/tmp/playlists/r1"), expected("video_empty"));
}

TEST_F(Playlist, AFileIndexOutsideTheDocumentCutsThePlaylistShort)
{
    // The entries before it stay, and no LOOP line follows.
    EXPECT_EQ(MakeRAMVideoPlaylist(2, 2, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/playlists/r2"), expected("video_cut"));
    EXPECT_EQ(MakeTEMPPlaylist(2, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/currentpl"), "a.mpg\n");

    // An item without a file (index -1) stops at once too, never reading before the table.
    EXPECT_EQ(MakeRAMVideoPlaylist(3, 3, &content), 0);
    EXPECT_EQ(MakeTEMPPlaylist(3, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/currentpl"), "");
}

TEST_F(Playlist, LayoutPlaylistShowsOnlyTheFirstPage)
{
    EXPECT_EQ(MakeRAMLayoutPlaylist(3, 1, &content), 1);
    EXPECT_EQ(sandbox::read_file("/tmp/playlists/r3"), expected("layout_first_page"));
    EXPECT_EQ(MakeRAMLayoutPlaylist(2, 0, &content), 1);
    EXPECT_EQ(sandbox::read_file("/tmp/playlists/r2"), expected("layout_no_page"));
}

TEST_F(Playlist, SideFilesListTheMediaInUse)
{
    EXPECT_EQ(MakeTEMPPlaylist(1, &content), 1);
    EXPECT_EQ(sandbox::read_file(playlist_temp_playlist_filename()), expected("currentpl_mixed"));
    EXPECT_EQ(MakeTEMPPlaylist(0, &content), 1);
    EXPECT_EQ(sandbox::read_file("/tmp/currentpl"), "");

    EXPECT_EQ(MakeTEMPLayoutFileList(1, &content), 1);
    EXPECT_EQ(sandbox::read_file(playlist_temp_layout_filename()), expected("currentlo"));
    EXPECT_EQ(MakeTEMPLayoutFileList(0, &content), 1);
    EXPECT_EQ(sandbox::read_file("/tmp/currentlo"), "");

    content.layouts[1].layoutFiles[1].findex = 4;
    EXPECT_EQ(MakeTEMPLayoutFileList(1, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/currentlo"), "a.mpg\n");
    EXPECT_STREQ(playlist_temp_playlist_filename(), "/tmp/currentpl");
    EXPECT_STREQ(playlist_temp_layout_filename(), "/tmp/currentlo");
}

TEST_F(Playlist, UnwritableFilesAndUnknownIndices)
{
    // A RAM playlist that cannot be written reports done; a side file reports failure.
    rmdir("/tmp/playlists");
    EXPECT_EQ(MakeRAMVideoPlaylist(0, 1, &content), 1);
    EXPECT_EQ(MakeRAMLayoutPlaylist(2, 1, &content), 1);
    mkdir("/tmp/currentpl", 0755);
    mkdir("/tmp/currentlo", 0755);
    EXPECT_EQ(MakeTEMPPlaylist(1, &content), 0);
    EXPECT_EQ(MakeTEMPLayoutFileList(1, &content), 0);

    // An index the document does not have leaves the files as they were.
    mkdir("/tmp/playlists", 0755);
    sandbox::write_file("/tmp/playlists/r0", "old");
    for (int bad : {-1, 4, kMaxPlaylists}) EXPECT_EQ(MakeRAMVideoPlaylist(0, bad, &content), 0);
    for (int bad : {-1, 2, kMaxLayouts}) EXPECT_EQ(MakeRAMLayoutPlaylist(0, bad, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/playlists/r0"), "old");
    rmdir("/tmp/currentpl");
    EXPECT_EQ(MakeTEMPPlaylist(7, &content), 0);
    EXPECT_EQ(MakeTEMPLayoutFileList(-3, &content), 0);
    EXPECT_FALSE(sandbox::exists("/tmp/currentpl"));
}

}  // namespace
