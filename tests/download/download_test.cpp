// The download queue and manager over the sandbox's real media partition (128000 KB of
// tmpfs), the real md5sum and the real list. Whatever transfer thread the build has,
// each start is stopped and its thread waited for before the next row.
#include "download/download.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "content/player_state.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/wget.h"
#include "storage/cleanup.h"
#include "storage/pelk_file.h"
#include "support/fake_platform.h"
#include "support/sandbox.h"

using ::testing::ElementsAre;

namespace {

DRAVIK_CONTENT content;  // tens of kilobytes: never on the stack

// The ids of this process's threads.
std::set<std::string> thread_ids()
{
    std::set<std::string> ids;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
        ids.insert(task.path().filename().string());
    return ids;
}

std::vector<std::string> queue_names()
{
    std::vector<std::string> names;
    for (int i = 0; i < download_pending_count(); ++i)
        names.emplace_back(static_cast<DOWNLOAD_ITEM*>(listGet(XLIST, i))->name);
    return names;
}

class Downloads : public ::testing::Test {
protected:
    void SetUp() override
    {
        platform.run_commands(true);  // md5sum on the real files
        platform.scale_sleeps(1);     // a transfer thread polls at once instead of parking
        sandbox::set_writable(4, true);
        download_init();
        std::strcpy(macAddress, "001A2B3C4D5E");
        std::strcpy(call_home_address, "http://cms.example:8080");
        content.servercount = 2;
        std::strcpy(content.servers[0].address, "http://media.example/$FILE$");
        std::strcpy(content.servers[1].address, "$DCMSERVER$/m/$MAC$/$FILE$?again=$FILE$&$MAC$");
        download_set_servers(&content);
        // A sanitizer starts a helper thread of its own with the first thread: have it
        // running before the threads that settle() waits to return to. Threads are told
        // apart by id, not counted: under qemu a joined thread's task lingers a moment
        // after the join returns, and a count taken then would let settle() return while
        // the transfer thread still runs.
        std::thread([] {}).join();
        threads = thread_ids();
        FREESPACE_RESULTS fs{};
        ASSERT_EQ(get_free_space(&fs), 0);
        fit = static_cast<int>(fs.freeKB) - 30000;  // KB that leave exactly the margin
        free_pct = fs.free_percent;
        after = [fs](int kb) { return static_cast<int>((fs.freeKB - kb) / 1024 * 100 / (fs.allKB / 1024)); };
    }

    // Queues one file of `kb` KB; `failed` marks it as having failed once.
    void queue(const char* name, int kb, int priority = 0, bool failed = false, int server = 0)
    {
        download_add_file(name, static_cast<int>(static_cast<unsigned>(kb) * 1024u), server, priority, 3);
        if (failed) static_cast<DOWNLOAD_ITEM*>(listGet(XLIST, listSize(XLIST) - 1))->errors = 1;
    }

    // Stops the transfer a start began and waits until its thread is gone.
    void settle()
    {
        stop_media_download();
        ASSERT_TRUE(sandbox::wait_until([&] {
            return std::ranges::includes(threads, thread_ids());
        }));
        EXPECT_NE(status.code.load(), 255);  // every way out ends with a final code
        status.code = 0;
    }

    FakePlatform platform;
    std::set<std::string> threads;
    int fit = 0;
    int free_pct = 0;
    std::function<int(int)> after;  // percent free after a file of that many KB
};

TEST_F(Downloads, QueueHoldsWhatTheDiskLacksPriorityFilesFirstAndReversed)
{
    const struct {
        const char* name;
        int type;
        std::uint32_t fsize;
        const char* md5;
        const char* on_disk;  // nullptr: missing
    } files[] = {
        {"a.mp4", 0, 2, "", "ab"},               // 0: complete by size alone
        {"b.mp4", 0, 2, "", "abc"},              // 1: wrong size
        {"page.html", 2, 6, "b194", "hello\n"},  // 2: size and digest prefix right
        {"old.html", 2, 6, "ffff", "hello\n"},   // 3: digest prefix differs
        {"up.html", 2, 6, "B194", "hello\n"},    // 4: the same digest in upper case
        {"c.jpg", 1, 10, "", nullptr},           // 5: playlist 0
        {"d.jpg", 3, 10, "", nullptr},           // 6: layout 0
        {"e.mp4", 0, 10, "", nullptr},           // 7
        {"dir/f.mp4", 0, 10, "", nullptr},       // 8: playlist 0
    };
    std::system("rm -rf /mnt/hd4/video/* /mnt/hd4/html/browser/*");
    content.filecount = std::size(files);
    for (int i = 0; i < content.filecount; ++i) {
        DRAVIK_FILE_ITEM& f = content.files[i];
        f = {i, files[i].type, 0, {}, files[i].fsize, {}, {}};
        std::strcpy(f.fname, files[i].name);
        std::strcpy(f.md5, files[i].md5);
        const char* dir = f.type == 2 ? "/mnt/hd4/html/browser/" : "/mnt/hd4/video/";
        if (files[i].on_disk) sandbox::write_file(dir + std::string(files[i].name), files[i].on_disk);
    }
    const std::vector<std::vector<int>> playlists = {{5, 0, 8}, {0, 2, 4}, {}, {150}};
    content.plcount = playlists.size();
    for (int p = 0; p < content.plcount; ++p) {
        content.playlists[p].itemCount = playlists[p].size();
        for (std::size_t i = 0; i < playlists[p].size(); ++i) content.playlists[p].PlItems[i].findex = playlists[p][i];
    }
    const std::vector<std::vector<int>> layouts = {{6, 2}, {2}};
    content.layoutcount = layouts.size();
    for (int l = 0; l < content.layoutcount; ++l) {
        content.layouts[l].fileCount = layouts[l].size();
        for (std::size_t i = 0; i < layouts[l].size(); ++i) content.layouts[l].layoutFiles[i].findex = layouts[l][i];
    }
    std::strcpy(content.id, "content-7");

    PL_EVENT ev{0, 0, 0, 0};
    CONTENT_DL_STATUS dls;
    EXPECT_EQ(content_process_downloads(&content, &ev, &dls), 6);
    EXPECT_THAT(queue_names(), ElementsAre("dir/f.mp4", "d.jpg", "c.jpg", "b.mp4", "old.html", "e.mp4"));
    EXPECT_EQ(dls.dlcount_current_pl, 3);
    EXPECT_EQ(download_priority_count(), 3);
    EXPECT_STREQ(dls.contentID, "content-7");
    EXPECT_THAT(std::vector<int>(dls.FileFlag, dls.FileFlag + 9), ElementsAre(1, 0, 1, 0, 1, 0, 0, 0, 0));
    // An empty playlist is complete; one naming a file the content lacks never is.
    EXPECT_THAT(std::vector<int>(dls.completePL, dls.completePL + 5), ElementsAre(0, 1, 1, 0, 0));
    EXPECT_THAT(std::vector<int>(dls.completeLayout, dls.completeLayout + 3), ElementsAre(0, 1, 0));
    // Only web pages are digested.
    std::vector<std::string> digested;
    for (const auto& c : platform.commands())
        if (c.rfind("md5sum", 0) == 0) digested.push_back(c);
    EXPECT_THAT(digested, ElementsAre("md5sum /mnt/hd4/html/browser/page.html > /tmp/cpcksum",
                                      "md5sum /mnt/hd4/html/browser/old.html > /tmp/cpcksum",
                                      "md5sum /mnt/hd4/html/browser/up.html > /tmp/cpcksum"));
}

TEST_F(Downloads, StartTakesTheFirstFileThatFitsWithTheMarginAndFillsItsAddress)
{
    const int failed = -1;
    const struct {
        const char* why;
        std::vector<std::pair<const char*, int>> queue;  // name, KB (0 unknown)
        int server;
        int code;  // of the transfer before
        START_DL_STATUS dlstat;
        int after;        // -2: as before
        const char* url = nullptr;  // of the file taken, if one is
        const char* fname = nullptr;
        int media_index = 0;
    } rows[] = {
        // Tokens replaced at their first place only, in the order MAC, FILE, DCMSERVER.
        {"unknown size, whatever the room", {{"b.jpg", 0}}, 1, 1, DL_STARTED, -1,
         "http://cms.example:8080/m/001A2B3C4D5E/b.jpg?again=$FILE$&$MAC$", "b.jpg", 2},
        {"margin kept exactly", {{"my c $MAC$.mp4", fit}}, 0, 134, DL_STARTED, after(fit),
         "http://media.example/my+c+$MAC$.mp4", "my c $MAC$.mp4", 0},
        {"one KB over the margin", {{"d.mp4", fit + 1}}, 0, 0, DL_OUT_OF_MEMORY, -2},
        {"too big skipped", {{"d.mp4", fit + 1}, {"sub/e f.jpg", 4}}, 0, 0, DL_STARTED, after(4),
         "http://media.example/sub/e+f.jpg", "e f.jpg", 2},
        {"failed after too big", {{"d.mp4", fit + 1}, {"f.mp4", failed}}, 0, 0, DL_TOO_MANY_ERRORS, -2},
        {"too big after failed", {{"f.mp4", failed}, {"d.mp4", fit + 1}}, 0, 0, DL_OUT_OF_MEMORY, -2},
        // A size read from 32 bits with the sign: 2 GiB and more never fit.
        {"4 GiB less a KB", {{"huge.ts", 4 * 1024 * 1024 - 1}}, 0, 0, DL_OUT_OF_MEMORY, -2},
        {"beyond the content's servers", {{"g.mp4", 4}}, 2, 0, DL_STARTED, after(4), "", "g.mp4", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        download_clear_download_list();
        for (const auto& [name, kb] : row.queue) queue(name, kb == failed ? 4 : kb, 0, kb == failed, row.server);
        status.code = row.code;
        START_DL_RESULT r{};
        download_start(&r, pre_download_start);
        EXPECT_EQ(r.dlstat, row.dlstat);
        EXPECT_EQ(r.free_space_before, free_pct);
        EXPECT_EQ(r.free_space_after, row.after == -2 ? free_pct : row.after);
        EXPECT_EQ(download_in_progress(), row.url ? 1 : 0);
        if (row.url) {
            EXPECT_EQ(listSize(XLIST), static_cast<int>(row.queue.size()));  // queued until done
            settle();
            EXPECT_STREQ(status.url, row.url);
            EXPECT_STREQ(status.fname, row.fname);
            EXPECT_STREQ(status.auth, "");
            EXPECT_EQ(status.media_index, row.media_index);
        }
    }

    // The hook is asked once the file is chosen.
    START_DL_RESULT r{};
    download_start(&r, [](char*, unsigned long long) { return 1; });
    EXPECT_EQ(r.dlstat, DL_DENIED_BY_CALLER);
    EXPECT_EQ(r.free_space_after, after(4));
    EXPECT_EQ(download_in_progress(), 0);

    // An address that would outgrow the URL keeps its token; nothing overflows.
    std::string address = "$MAC$$FILE$" + std::string(233, 'x') + "$DCMSERVER$";
    std::string name(255, 'n');
    std::strcpy(content.servers[0].address, address.c_str());
    download_set_servers(&content);
    download_clear_download_list();
    queue(name.c_str(), 4);
    download_start(&r, nullptr);
    settle();
    EXPECT_EQ(status.url, "001A2B3C4D5E" + name + std::string(233, 'x') + "$DCMSERVER$");
}

TEST_F(Downloads, CheckActsOnTheStartAndHandsBackPendingWorkOnlyBetweenTransfers)
{
    const int none = -2;
    const int failed = -1;
    const struct {
        const char* why;
        int kb;
        int code;      // of the transfer before
        bool active;   // a transfer in hand
        bool pending;  // call home and cleanup put off, the log's trigger left standing
        int tried_cleanup;
        // dl_state, the two counts, out_of_memory_error, too_many_download_errors, then the
        // flags cleanup, content check, status post, call home, then g_tried_cleanup and
        // the next check's countdown.
        std::vector<int> outcome;
    } rows[] = {
        {"started with room to spare", 4, 0, false, false, 0, {1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 10}},
        {"started below the trigger", fit, 0, false, false, 0, {1, 1, 1, 0, 0, 1, 0, 0, 0, 0, 10}},
        {"started with an unknown size", 0, 0, false, false, 0, {1, 1, 1, 0, 0, 1, 0, 0, 0, 0, 10}},
        {"busy", 4, 255, false, false, 0, {1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 10}},
        {"queue empty", none, 0, false, false, 0, {0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
        {"too big: a cleanup first", fit + 1, 0, false, false, 0, {0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 10}},
        {"too big after a cleanup", fit + 1, 0, false, false, 1, {0, 1, 1, 1, 0, 0, 0, 1, 0, 1, 0}},
        {"every file failed", failed, 0, false, false, 0, {0, 1, 1, 0, 1, 0, 0, 1, 0, 0, 0}},
        {"pending work waits for the transfer", 4, 255, true, true, 0, {0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 10}},
        {"pending work handed back, nothing started", 4, 0, false, true, 0, {0, 0, 0, 0, 1, 1, 0, 0, 1, 0, 10}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        download_clear_download_list();
        if (row.kb != none) queue("a.mp4", row.kb == failed ? 4 : row.kb, 1, row.kb == failed);
        if (row.active) {
            START_DL_RESULT r{};
            download_start(&r, nullptr);
            settle();
        }
        status.code = row.code;
        g_tried_cleanup = row.tried_cleanup;
        gPlayerState = {};
        gPlayerState.too_many_download_errors = 1;
        initiate_cleanup = initiate_content_check = initiate_post_status = initiate_call_home = 0;
        initiate_call_home_pending = initiate_cleanup_pending = initiate_send_log = row.pending;
        initiate_download_check = 1;

        process_download_check();
        const PLAYER_STATE& s = gPlayerState;
        EXPECT_EQ(std::vector<int>({s.dl_state, s.dl_total_count, s.dl_priority_count, s.out_of_memory_error,
                                    s.too_many_download_errors, initiate_cleanup, initiate_content_check,
                                    initiate_post_status, initiate_call_home, g_tried_cleanup, download_check_timer}),
                  row.outcome);
        EXPECT_EQ(initiate_send_log, row.pending ? 1 : 0);  // never cleared by the hand-back
        EXPECT_EQ(initiate_download_check, 0);
        if (download_in_progress() && status.code != 255) settle();
        clear_active_download();
    }
    initiate_call_home_pending = initiate_cleanup_pending = initiate_send_log = 0;
}

}  // namespace
