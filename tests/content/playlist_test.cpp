// The playlist files, written into the sandbox's /tmp and compared byte for byte with
// the files kept in tests/content/expected/.
#include "content/playlist.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "core/text.h"
#include "support/record_text.h"
#include "support/sandbox.h"

namespace {

DRAVIK_CONTENT content;  // static storage: tens of kilobytes

std::string expected(const std::string& name) { return sandbox::read_file(std::string(EXPECTED_DIR) + "/" + name); }

// playlists.xml, parsed.
void make_content()
{
    ASSERT_EQ(dA_ParseContent(DOCUMENT), 0);
    content = *dA_Content();
}

TEST(Playlist, FilesAreWrittenByteForByte)
{
    std::system("rm -rf /tmp/playlists /tmp/currentpl /tmp/currentlo && mkdir /tmp/playlists");
    make_content();
    // Entries are numbered without gaps (an unknown type and a web page take no number)
    // and a picture carries its duration. A file index outside the document cuts the
    // playlist short without its LOOP line, as it always has, and returns 0; so does an
    // item without a file, never reading before the table. A layout shows its first page.
    const struct {
        int (*make)(int, int, DRAVIK_CONTENT*);
        int slot, index, ret;
        const char* file;
    } cases[] = {
        {MakeRAMVideoPlaylist, 0, 0, 1, "video_empty"},        {MakeRAMVideoPlaylist, 1, 1, 1, "video_mixed"},
        {MakeRAMVideoPlaylist, 1, 0, 1, "video_empty"},        {MakeRAMVideoPlaylist, 2, 2, 0, "video_cut"},
        {MakeRAMLayoutPlaylist, 3, 1, 1, "layout_first_page"}, {MakeRAMLayoutPlaylist, 2, 0, 1, "layout_no_page"},
        {MakeRAMVideoPlaylist, 3, 3, 0, nullptr},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.make(c.slot, c.index, &content), c.ret) << c.file;
        if (c.file) {
            EXPECT_EQ(sandbox::read_file("/tmp/playlists/r" + std::to_string(c.slot)), expected(c.file)) << c.file;
        }
    }

    // The lists of the media in use, which the disk cleanup spares; a file index outside
    // the document ends the list where it stands, and returns 0.
    EXPECT_EQ(fields(playlist_temp_playlist_filename(), playlist_temp_layout_filename()), "/tmp/currentpl,/tmp/currentlo");
    EXPECT_EQ(MakeTEMPPlaylist(1, &content) + MakeTEMPLayoutFileList(1, &content), 2);
    EXPECT_EQ(sandbox::read_file("/tmp/currentpl"), expected("currentpl_mixed"));
    EXPECT_EQ(sandbox::read_file("/tmp/currentlo"), expected("currentlo"));
    EXPECT_EQ(MakeTEMPPlaylist(0, &content) + MakeTEMPLayoutFileList(0, &content), 2);
    EXPECT_EQ(sandbox::read_file("/tmp/currentpl") + sandbox::read_file("/tmp/currentlo"), "");
    EXPECT_EQ(MakeTEMPPlaylist(2, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/currentpl"), "a.mpg\n");
    content.layouts[1].layoutFiles[1].findex = 4;
    EXPECT_EQ(MakeTEMPLayoutFileList(1, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/currentlo"), "a.mpg\n");
}

TEST(Playlist, UnwritableFilesAndUnknownIndices)
{
    make_content();
    // Deliberately, a RAM playlist that cannot be written reports done, and a list of the
    // media in use reports failure.
    std::system("rm -rf /tmp/playlists /tmp/currentpl /tmp/currentlo && mkdir /tmp/currentpl /tmp/currentlo");
    EXPECT_EQ(MakeRAMVideoPlaylist(0, 1, &content) + MakeRAMLayoutPlaylist(2, 1, &content), 2);
    EXPECT_EQ(MakeTEMPPlaylist(1, &content) + MakeTEMPLayoutFileList(1, &content), 0);

    // An index the document does not have leaves the files as they were.
    std::system("mkdir /tmp/playlists && rmdir /tmp/currentpl");
    sandbox::write_file("/tmp/playlists/r0", "old");
    for (int bad : {-1, 4, kMaxPlaylists}) EXPECT_EQ(MakeRAMVideoPlaylist(0, bad, &content), 0);
    for (int bad : {-1, 2, kMaxLayouts}) EXPECT_EQ(MakeRAMLayoutPlaylist(0, bad, &content), 0);
    EXPECT_EQ(MakeTEMPPlaylist(7, &content) + MakeTEMPLayoutFileList(-3, &content), 0);
    EXPECT_EQ(sandbox::read_file("/tmp/playlists/r0"), "old");
    EXPECT_FALSE(sandbox::exists("/tmp/currentpl"));
}

}  // namespace
