// Deletion commands on the sandbox's real media partition, through its mount stand-in
// and the real rm; player-sim is the player that delete_all stops first.
#include "actions/media_delete.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/timer.h"
#include "core/usb_xapp.h"
#include "support/fake_platform.h"
#include "support/player_sim.h"
#include "support/queues.h"
#include "support/sandbox.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::string remount(int partition, const char* mode)
{
    return std::string("mount -o remount,noatime,nodiratime,") + mode +
           " /dev/ide/host0/bus0/target0/lun0/part" + std::to_string(partition) + " /mnt/hd" +
           std::to_string(partition);
}

// `command` inside a writable window of partition 4.
std::vector<std::string> on_hd4(std::vector<std::string> commands)
{
    commands.insert(commands.begin(), remount(4, "rw"));
    commands.push_back(remount(4, "ro"));
    return commands;
}

class MediaDelete : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (int key : {kPlayerQueueKey, kBridgeRequestKey, kBridgeReplyKey, kNotifyQueueKey})
            queues::drain(key);
        sandbox::set_writable(4, true);
        std::system("rm -rf /mnt/hd4/video/* /mnt/hd4/picture/*");
        for (const char* f : kFiles) sandbox::write_file(std::string("/mnt/hd4/") + f, f);
        sandbox::set_writable(4, false);
        platform.run_commands(true);
    }

    static std::vector<std::string> left()
    {
        std::vector<std::string> found;
        for (const char* f : kFiles)
            if (sandbox::exists(std::string("/mnt/hd4/") + f)) found.push_back(f);
        return found;
    }

    static constexpr const char* kFiles[] = {
        "video/clip.MP4", "video/clip.mp4", "video/a.b.ts", "video/x.mpg", "video/y.mpg",
        "video/it's a clip.mpg", "picture/logo.png", "picture/page.html", "picture/README.",
        "picture/keep.jpg",
    };
    FakePlatform platform;
};

TEST_F(MediaDelete, DeleteFileRemovesFromTheFolderOfItsExtension)
{
    const struct {
        const char* line;
        const char* command;  // nullptr: nothing at all
    } cases[] = {
        // The extension decides the folder without regard to case; the name keeps it.
        {"DeleteFile,clip.MP4\r\n", "rm -f /mnt/hd4/video/clip.MP4"},
        // Whatever is not video goes to the picture folder, a web page too.
        {"DeleteFile,logo.png", "rm -f /mnt/hd4/picture/logo.png"},
        {"DeleteFile,page.html", "rm -f /mnt/hd4/picture/page.html"},
        {"DeleteFile,a.b.ts", "rm -f /mnt/hd4/video/a.b.ts"},  // split at the last dot
        {"DeleteFile,  *.mpg", "rm -f /mnt/hd4/video/*.mpg"},  // wild cards act
        {"DeleteFile,README", "rm -f /mnt/hd4/picture/README."},
        {"DeleteFile", "rm -f /mnt/hd4/picture/."},  // no name at all
        {"DeleteFil", nullptr},
        // A quote, blanks or a ";" in a name stay part of the one name.
        {"DeleteFile,it's a clip.mpg", "rm -f /mnt/hd4/video/it\\'s\\ a\\ clip.mpg"},
        {"DeleteFile,x;touch /tmp/x.mpg", "rm -f /mnt/hd4/video/x\\;touch\\ /tmp/x.mpg"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        platform.clear();
        std::string line = c.line;
        delete_file(line.data());
        if (c.command) EXPECT_EQ(platform.commands(), on_hd4({c.command}));
        else EXPECT_THAT(platform.commands(), IsEmpty());
        EXPECT_FALSE(sandbox::is_writable("/mnt/hd4"));
    }
    EXPECT_THAT(left(), ElementsAre("video/clip.mp4", "picture/keep.jpg"));
    EXPECT_FALSE(sandbox::exists("/tmp/x"));
}

TEST_F(MediaDelete, WholeFoldersGoUnderARunningPlayerOnlyDeleteAllStopsItFirst)
{
    PlayerSim sim;
    const std::vector<std::string> videos = {"video/clip.MP4", "video/clip.mp4", "video/a.b.ts",
                                             "video/x.mpg", "video/y.mpg", "video/it's a clip.mpg"};
    const std::vector<std::string> pictures = {"picture/logo.png", "picture/page.html",
                                               "picture/README.", "picture/keep.jpg"};
    const struct {
        void (*run)();
        std::vector<std::string> commands;
        std::vector<std::string> to_player;
        std::vector<unsigned> sleeps;
        std::vector<std::string> left;
    } cases[] = {
        {delete_video, on_hd4({"rm -f /mnt/hd4/video/*"}), {}, {}, pictures},
        {delete_image, on_hd4({"rm -f /mnt/hd4/picture/*"}), {}, {}, videos},
        {delete_all, on_hd4({"rm -f /mnt/hd4/video/*", "rm -f /mnt/hd4/picture/*"}),
         {"1.3.6.1.4.1.58321.3.3.9.0 i 1"}, {5, 10}, {}},
    };
    std::size_t sent = 0;
    for (const auto& c : cases) {
        SetUp();
        platform.clear();
        c.run();
        EXPECT_EQ(platform.commands(), c.commands);
        std::vector<std::string> sets = PlayerSim::requests(kSnmpSetType);
        EXPECT_EQ(std::vector<std::string>(sets.begin() + static_cast<long>(sent), sets.end()), c.to_player);
        sent = sets.size();
        EXPECT_EQ(platform.sleeps(), c.sleeps);
        EXPECT_EQ(left(), c.left);
    }

    // The stored call-home settings go, and calls home stop with them.
    sandbox::set_writable(3, true);
    sandbox::write_file("/mnt/hd3/USB.CONF", "CallHomeInterval,600\n");
    sandbox::set_writable(3, false);
    call_home_timer = 42;
    initiate_call_home = 1;
    platform.clear();
    delete_usb_config();
    EXPECT_THAT(platform.commands(),
                ElementsAre(remount(3, "rw"), "rm -f /mnt/hd3/USB.CONF", remount(3, "ro")));
    EXPECT_FALSE(sandbox::exists("/mnt/hd3/USB.CONF"));
    EXPECT_EQ(call_home_timer + initiate_call_home, 0);
    EXPECT_EQ(timer_stopped, 1);
}

}  // namespace
