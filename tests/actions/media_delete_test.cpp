// Deletions on the sandbox's real media partition, through its mount stand-in and the
// real rm; player-sim is the player that delete_all stops first.
#include "actions/media_delete.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/queues.h"
#include "support/sandbox.h"

namespace {

using Texts = std::vector<std::string>;

const Texts kFiles = {"video/clip.MP4", "video/clip.mp4", "video/a.b.ts", "video/x.mpg",
                      "video/it's a clip.mpg", "picture/logo.png", "picture/page.html",
                      "picture/README.", "picture/keep.jpg"};

std::string remount(int partition, const char* mode)
{
    std::string p = std::to_string(partition);
    return std::string("mount -o remount,noatime,nodiratime,") + mode +
           " /dev/ide/host0/bus0/target0/lun0/part" + p + " /mnt/hd" + p;
}

// `commands` inside a writable window of partition 4.
Texts on_hd4(Texts commands)
{
    commands.insert(commands.begin(), remount(4, "rw"));
    commands.push_back(remount(4, "ro"));
    return commands;
}

// Puts every file of kFiles back; returns those that were still there.
Texts refill()
{
    Texts left;
    sandbox::set_writable(4, true);
    for (const std::string& f : kFiles) {
        if (sandbox::exists("/mnt/hd4/" + f)) left.push_back(f);
        sandbox::write_file("/mnt/hd4/" + f, f);
    }
    sandbox::set_writable(4, false);
    return left;
}

TEST(MediaDelete, EachCommandRemovesWhatItNames)
{
    queues::drain_all();
    PlayerSim sim;
    FakePlatform platform;
    platform.run_commands(true);
    const Texts videos(kFiles.begin(), kFiles.begin() + 5), pictures(kFiles.begin() + 5, kFiles.end());
    auto file = [](const char* line) { return [line] { delete_file(std::string(line).data()); }; };
    const struct {
        std::function<void()> run;
        Texts commands, to_player;
        Texts gone;  // of kFiles
    } cases[] = {
        // The extension picks the folder without regard to case; the name keeps its case.
        {file("DeleteFile,clip.MP4\r\n"), on_hd4({"rm -f /mnt/hd4/video/clip.MP4"}), {}, {"video/clip.MP4"}},
        // Whatever is no video is looked for among the pictures, a web page too.
        {file("DeleteFile,page.html"), on_hd4({"rm -f /mnt/hd4/picture/page.html"}), {}, {"picture/page.html"}},
        {file("DeleteFile,  *.ts"), on_hd4({"rm -f /mnt/hd4/video/*.ts"}), {}, {"video/a.b.ts"}},
        {file("DeleteFile,README"), on_hd4({"rm -f /mnt/hd4/picture/README."}), {}, {"picture/README."}},
        {file("DeleteFile"), on_hd4({"rm -f /mnt/hd4/picture/."}), {}, {}},
        {file("DeleteFil"), {}, {}, {}},
        // A quote, blanks or a ";" stay part of the one name.
        {file("DeleteFile,it's a clip.mpg"), on_hd4({"rm -f /mnt/hd4/video/it\\'s\\ a\\ clip.mpg"}), {},
         {"video/it's a clip.mpg"}},
        {file("DeleteFile,x;touch /tmp/x.mpg"), on_hd4({"rm -f /mnt/hd4/video/x\\;touch\\ /tmp/x.mpg"}), {}, {}},
        // Whole folders go under a running player; only delete_all stops it first.
        {delete_video, on_hd4({"rm -f /mnt/hd4/video/*"}), {}, videos},
        {delete_image, on_hd4({"rm -f /mnt/hd4/picture/*"}), {}, pictures},
        {delete_all, on_hd4({"rm -f /mnt/hd4/video/*", "rm -f /mnt/hd4/picture/*"}),
         {"1.3.6.1.4.1.58321.3.3.9.0 i 1"}, kFiles},
    };
    std::size_t sent = 0;
    for (const auto& c : cases) {
        refill();
        platform.clear();
        initiate_content_check = 0;
        c.run();
        EXPECT_EQ(platform.commands(), c.commands);
        // Whatever removed media asks for a content check: what the schedule needs is
        // fetched again, and a player that delete_all stopped starts again.
        EXPECT_EQ(initiate_content_check, c.commands.empty() ? 0 : 1) << c.commands.size();
        Texts sets = PlayerSim::requests(kSnmpSetType);
        EXPECT_EQ(Texts(sets.begin() + static_cast<long>(sent), sets.end()), c.to_player);
        sent = sets.size();
        Texts left;
        for (const std::string& f : kFiles)
            if (std::find(c.gone.begin(), c.gone.end(), f) == c.gone.end()) left.push_back(f);
        EXPECT_EQ(refill(), left);
    }
    EXPECT_FALSE(sandbox::exists("/tmp/x"));
}

}  // namespace
