// The download queue and manager over the sandbox's real media partition (128000 KB of
// tmpfs), the real md5sum and the real list. Whatever transfer thread the build has,
// each start is stopped, or run to its end from cms-sim through wget-compat, and its
// thread waited for before the next row.
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

#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/wget.h"
#include "schedule/player_state.h"
#include "storage/cleanup.h"
#include "storage/pelk_file.h"
#include "support/cms_sim.h"
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

    // Waits until the transfer thread a start began is gone, its file moved into place.
    void wait_for_transfer()
    {
        ASSERT_TRUE(sandbox::wait_until([&] { return std::ranges::includes(threads, thread_ids()); }));
    }

    // Stops the transfer a start began and waits until its thread is gone.
    void settle()
    {
        stop_media_download();
        wait_for_transfer();
        EXPECT_NE(status.code.load(), 255);  // every way out ends with a final code
        status.code = 0;
    }

    // Transfers that really run, from cms-sim through server 1
    // ("$DCMSERVER$/m/$MAC$/$FILE$..."), at a tenth of their pace.
    void real_transfers()
    {
        CmsSim::pace_transfers(platform);
        std::strcpy(call_home_address, CmsSim::url("").c_str());
    }

    static constexpr const char* kServed = "/m/001A2B3C4D5E/";

    // One download check with the flags as the main loop would leave them; its outcome:
    // dl_state, the two counts, out_of_memory_error, too_many_download_errors, then the
    // flags cleanup, content check, status post, call home, then g_tried_cleanup and
    // the next check's countdown.
    static std::vector<int> check(bool pending = false, int tried_cleanup = 0)
    {
        g_tried_cleanup = tried_cleanup;
        gPlayerState = {};
        gPlayerState.too_many_download_errors = 1;
        initiate_cleanup = initiate_content_check = initiate_post_status = initiate_call_home = 0;
        initiate_call_home_pending = initiate_cleanup_pending = initiate_send_log = pending;
        initiate_download_check = 1;
        process_download_check();
        const PLAYER_STATE& s = gPlayerState;
        EXPECT_EQ(initiate_download_check, 0);
        return {s.dl_state, s.dl_total_count, s.dl_priority_count, s.out_of_memory_error,
                s.too_many_download_errors, initiate_cleanup, initiate_content_check, initiate_post_status,
                initiate_call_home, g_tried_cleanup, download_check_timer};
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

// A file that arrived counts as complete only when the next rebuild of the queue finds
// it whole on the disk: by its size, and a web page also by its digest.
TEST_F(Downloads, ArrivedFilesAreCheckedAgainWhenTheQueueIsRebuilt)
{
    CmsSim cms({"--fault", "/m/*/slow-*", "rate=4k", "--fault", "/m/*/long.mp4", "extra=1000"});
    real_transfers();
    const std::string page = "<html><body>Opening hours: 9 to 5</body></html>\n", body(8192, 'w');
    const std::string temp = "/mnt/hd4/video/tempfile.xxx";
    const struct {
        const char* why;
        const char* name;
        int type;
        std::uint32_t fsize;  // as the document declares it
        const char* md5;
        std::function<void()> meanwhile;  // once the first bytes are on the disk
        int dl_state, dl_error;
        std::size_t stored;  // bytes the file holds afterwards; 0: not there
        int queued_again;
    } rows[] = {
        {"a web page whose digest holds", "page.html", 2, static_cast<std::uint32_t>(page.size()), "aeba", nullptr,
         2, 0, page.size(), 0},
        {"more bytes than the document declares", "big.mp4", 0, 4096, "", nullptr, 2, 0, body.size(), 1},
        {"more bytes than the answer declares", "long.mp4", 0, 8192, "", nullptr, 2, 0, body.size(), 0},
        // cms-sim reads the file as it sends it: emptied, it ends the answer short.
        {"the file vanishes from the server", "slow-gone.mp4", 0, 8192, "",
         [] { CmsSim::put(kServed + std::string("slow-gone.mp4"), ""); }, 3, 134, 0, 1},
        {"the temporary file vanishes", "slow-temp.mp4", 0, 8192, "", [&] { unlink(temp.c_str()); }, 2, 0, 0, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        sandbox::set_writable(4, true);
        std::system("rm -rf /mnt/hd4/video/* /mnt/hd4/html/browser/*");
        CmsSim::put(kServed + std::string(row.name), row.type == 2 ? page : body);
        content.filecount = 1;
        content.plcount = content.layoutcount = 0;
        content.files[0] = {0, row.type, 1, {}, row.fsize, {}, {}};
        std::strcpy(content.files[0].fname, row.name);
        std::strcpy(content.files[0].md5, row.md5);
        PL_EVENT ev{-1, -1, 0, 0};
        CONTENT_DL_STATUS dls;
        ASSERT_EQ(content_process_downloads(&content, &ev, &dls), 1);

        EXPECT_EQ(check()[0], DL_STATE_ACTIVE);
        if (row.meanwhile) {
            ASSERT_TRUE(sandbox::wait_until([&] {
                std::error_code ec;
                return std::filesystem::file_size(temp, ec) > 0 && !ec;
            }));
            row.meanwhile();
        }
        wait_for_transfer();
        EXPECT_EQ(check()[0], row.dl_state);
        EXPECT_EQ(gPlayerState.dl_error, row.dl_error);
        const std::string stored = (row.type == 2 ? "/mnt/hd4/html/browser/" : "/mnt/hd4/video/") + std::string(row.name);
        EXPECT_EQ(sandbox::exists(stored) ? sandbox::read_file(stored).size() : 0, row.stored);
        EXPECT_FALSE(sandbox::exists(temp));

        platform.clear();
        EXPECT_EQ(content_process_downloads(&content, &ev, &dls), row.queued_again);
        if (row.type == 2) {
            EXPECT_THAT(platform.commands(), ElementsAre("md5sum " + stored + " > /tmp/cpcksum"));
        }
    }
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
        std::vector<int> outcome;  // as check() gives it
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
        EXPECT_EQ(check(row.pending, row.tried_cleanup), row.outcome);
        EXPECT_EQ(initiate_send_log, row.pending ? 1 : 0);  // never cleared by the hand-back
        if (download_in_progress() && status.code != 255) settle();
        clear_active_download();
    }
    initiate_call_home_pending = initiate_cleanup_pending = initiate_send_log = 0;

    // Transfers that run to their end before the check collects them. A failed file is
    // not tried again until the queue is rebuilt from the content.
    CmsSim cms;
    real_transfers();
    const std::string body(4096, 'v');
    for (const char* name : {"a.mp4", "b.mp4", "c.mp4"}) CmsSim::put(kServed + std::string(name), body);
    // The queue: these files alone, as the row before left it, or rebuilt from a content.
    enum Queue { kFresh, kKept, kRebuilt };
    const struct {
        const char* why;
        Queue queue;
        std::vector<std::pair<const char*, int>> files;  // name, priority
        bool transfer;  // one started and run to its end before the check
        std::vector<int> outcome;
        int dl_error = 0;
        const char* stored = nullptr;  // in the video folder after the check
    } transfers[] = {
        {"the last priority file arrives", kFresh, {{"a.mp4", 1}}, true, {2, 0, 0, 0, 1, 0, 1, 1, 0, 0, 10}, 0,
         "a.mp4"},
        {"an ordinary file arrives, another waits", kFresh, {{"b.mp4", 0}, {"c.mp4", 0}}, true,
         {2, 1, 0, 0, 1, 0, 0, 1, 0, 0, 10}, 0, "b.mp4"},
        {"the server has no such file", kFresh, {{"gone.mp4", 1}}, true, {3, 1, 1, 0, 1, 0, 0, 1, 0, 0, 10}, 134},
        {"the failed file is not tried again", kKept, {}, false, {0, 1, 1, 0, 1, 0, 0, 1, 0, 0, 0}},
        {"the rebuilt queue starts it again", kRebuilt, {{"gone.mp4", 1}}, false, {1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 10}},
    };
    for (const auto& row : transfers) {
        SCOPED_TRACE(row.why);
        if (row.queue == kFresh) {
            download_clear_download_list();
            for (auto [name, priority] : row.files) queue(name, 4, priority, false, 1);
        } else if (row.queue == kRebuilt) {
            // The content names the file on server 1, in the playlist scheduled now.
            content.filecount = content.plcount = 1;
            content.layoutcount = 0;
            content.files[0] = {0, 0, 1, {}, 4096, {}, {}};
            std::strcpy(content.files[0].fname, row.files[0].first);
            content.playlists[0].itemCount = 1;
            content.playlists[0].PlItems[0].findex = 0;
            PL_EVENT ev{0, -1, 0, 0};
            CONTENT_DL_STATUS dls;
            content_process_downloads(&content, &ev, &dls);
        }
        if (row.transfer) {
            START_DL_RESULT r{};
            download_start(&r, nullptr);
            ASSERT_EQ(r.dlstat, DL_STARTED);
            wait_for_transfer();
        }
        EXPECT_EQ(check(), row.outcome);
        EXPECT_EQ(gPlayerState.dl_error, row.dl_error);
        if (row.stored) {
            EXPECT_EQ(sandbox::read_file(std::string("/mnt/hd4/video/") + row.stored), body);
        }
        if (download_in_progress()) settle();
        clear_active_download();
    }

    // Once a transfer's code is final the manager may fill in the next request while the
    // thread still moves its file into place and remounts: the thread works on its own
    // copy of the request (a ThreadSanitizer build reports it if it does not). The next
    // transfer may then find the partition put back to read-only under it, which the
    // check's countdown keeps from happening in the agent, so only its end is awaited.
    download_clear_download_list();
    queue("d.mp4", 4, 0, false, 1);
    queue("e.mp4", 4, 0, false, 1);
    CmsSim::put(kServed + std::string("d.mp4"), body);
    EXPECT_EQ(check()[0], DL_STATE_ACTIVE);
    ASSERT_TRUE(sandbox::wait_until([] { return status.code == 1; }));
    EXPECT_EQ(check()[0], DL_STATE_COMPLETE);
    EXPECT_EQ(check()[0], DL_STATE_ACTIVE);
    EXPECT_STREQ(status.fname, "e.mp4");
    wait_for_transfer();
    EXPECT_EQ(sandbox::read_file("/mnt/hd4/video/d.mp4"), body);
    EXPECT_NE(status.code.load(), 255);
    clear_active_download();
}

}  // namespace
