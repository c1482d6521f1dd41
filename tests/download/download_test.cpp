// The download queue and manager over the sandbox's real media partition (128000 KB of
// tmpfs), the real md5sum and the real list. Each start is stopped, or run to its end
// from cms-sim through wget-compat, and its thread waited for before the next row. Then
// wget's own part: the document fetches through the real wget-compat from cms-sim on
// loopback, at a tenth of their pace (CmsSim::pace_transfers), and the URL's preparation.
#include "download/download.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "core/text.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/wget.h"
#include "schedule/player_state.h"
#include "storage/cleanup.h"
#include "storage/pelk_file.h"
#include "support/cms_sim.h"
#include "support/fake_platform.h"
#include "support/record_text.h"
#include "support/sandbox.h"

using ::testing::ElementsAre;

namespace {

DRAVIK_CONTENT content;  // tens of kilobytes: never on the stack

std::set<std::string> thread_ids()
{
    std::set<std::string> ids;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
        ids.insert(task.path().filename().string());
    return ids;
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
        // A sanitizer starts a helper thread with the first thread: have it running before
        // the threads that settle() waits to return to. Threads are told apart by id, not
        // counted: under qemu a joined thread's task lingers a moment after the join.
        std::thread([] {}).join();
        threads = thread_ids();
        FREESPACE_RESULTS fs{};
        ASSERT_EQ(get_free_space(&fs), 0);
        fit = static_cast<int>(fs.freeKB) - 30000;  // KB that leave exactly the margin
    }

    // Queues one file of `kb` KB; `failed` marks it as having failed once.
    static void queue(const char* name, int kb, int priority = 0, bool failed = false, int server = 0)
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

    // One download check with the flags as the main loop would leave them; its outcome:
    // dl_state, the two counts, out_of_memory_error, too_many_download_errors, then the
    // flags cleanup, content check, status post, call home, then g_tried_cleanup and the
    // next check's countdown.
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
        return {s.dl_state, s.dl_total_count, s.dl_priority_count, s.out_of_memory_error, s.too_many_download_errors,
                initiate_cleanup, initiate_content_check, initiate_post_status, initiate_call_home, g_tried_cleanup,
                download_check_timer};
    }

    FakePlatform platform;
    std::set<std::string> threads;
    int fit = 0;
};

// queue.xml's files against the disk.
TEST_F(Downloads, QueueHoldsWhatTheDiskLacksPriorityFilesFirstAndReversed)
{
    std::system("rm -rf /mnt/hd4/video/* /mnt/hd4/html/browser/*");
    sandbox::write_file("/mnt/hd4/video/a.mp4", "ab");
    sandbox::write_file("/mnt/hd4/video/b.mp4", "abc");
    for (const char* page : {"page.html", "old.html", "up.html"}) sandbox::write_file(std::string("/mnt/hd4/html/browser/") + page, "hello\n");
    ASSERT_EQ(dA_ParseContent(QUEUE), 0);
    content = *dA_Content();
    PL_EVENT ev{0, 0, 0, 0};
    CONTENT_DL_STATUS dls;
    EXPECT_EQ(content_process_downloads(&content, &ev, &dls), 6);
    std::vector<std::string> names;
    for (int i = 0; i < download_pending_count(); ++i) names.emplace_back(static_cast<DOWNLOAD_ITEM*>(listGet(XLIST, i))->name);
    EXPECT_THAT(names, ElementsAre("dir/f.mp4", "d.jpg", "c.jpg", "b.mp4", "old.html", "e.mp4"));
    EXPECT_EQ(fields(dls.contentID, dls.dlcount_current_pl, download_priority_count()), "content-7,3,3");
    EXPECT_THAT(std::vector<int>(dls.FileFlag, dls.FileFlag + 9), ElementsAre(1, 0, 1, 0, 1, 0, 0, 0, 0));
    EXPECT_THAT(std::vector<int>(dls.completePL, dls.completePL + 5), ElementsAre(0, 1, 1, 0, 0));
    EXPECT_THAT(std::vector<int>(dls.completeLayout, dls.completeLayout + 3), ElementsAre(0, 1, 0));
    // Only web pages are digested.
    std::vector<std::string> digested;
    for (const auto& c : platform.commands())
        if (c.rfind("md5sum", 0) == 0) digested.push_back(c.substr(0, c.find(" > ")));
    EXPECT_THAT(digested, ElementsAre("md5sum /mnt/hd4/html/browser/page.html", "md5sum /mnt/hd4/html/browser/old.html",
                                      "md5sum /mnt/hd4/html/browser/up.html"));
}

// A download check from the queue alone: the file a start takes (the first that fits with
// the margin kept), its address, and what the check does about the start.
TEST_F(Downloads, CheckStartsTheFirstFileThatFitsAndActsOnTheStart)
{
    const int failed = -1;
    const struct {
        const char* why;
        std::vector<std::pair<const char*, int>> queue;  // name, KB (0 unknown, failed)
        int server, code;                                // the transfer before
        bool active, pending;  // a transfer in hand; call home and cleanup put off
        int tried_cleanup;
        std::vector<int> outcome;   // as check() gives it
        const char* url = nullptr;  // of the file taken, if one is
        const char* fname = nullptr;
        int media_index = 0;
    } rows[] = {
        // Tokens replaced at their first place only, in the order MAC, FILE, DCMSERVER; an
        // unknown size always asks for a cleanup.
        {"unknown size, whatever the room", {{"b.jpg", 0}}, 1, 1, false, false, 0, {1, 1, 0, 0, 0, 1, 0, 0, 0, 0, 10},
         "http://cms.example:8080/m/001A2B3C4D5E/b.jpg?again=$FILE$&$MAC$", "b.jpg", 2},
        {"room to spare", {{"a.mp4", 4}}, 0, 0, false, false, 0, {1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 10}, "http://media.example/a.mp4", "a.mp4"},
        {"margin kept exactly, below the trigger", {{"my c $MAC$.mp4", fit}}, 0, 134, false, false, 0,
         {1, 1, 0, 0, 0, 1, 0, 0, 0, 0, 10}, "http://media.example/my+c+$MAC$.mp4", "my c $MAC$.mp4"},
        {"too big skipped", {{"d.mp4", fit + 1}, {"sub/e f.jpg", 4}}, 0, 0, false, false, 0, {1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 10},
         "http://media.example/sub/e+f.jpg", "e f.jpg", 2},
        {"beyond the content's servers", {{"g.mp4", 4}}, 2, 0, false, false, 0, {1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 10}, "", "g.mp4"},
        {"busy", {{"a.mp4", 4}}, 0, 255, false, false, 0, {1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 10}},
        {"queue empty", {}, 0, 0, false, false, 0, {0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
        {"one KB over the margin: a cleanup first", {{"d.mp4", fit + 1}}, 0, 0, false, false, 0, {0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 10}},
        {"too big after a cleanup", {{"d.mp4", fit + 1}}, 0, 0, false, false, 1, {0, 1, 0, 1, 0, 0, 0, 1, 0, 1, 0}},
        // A size read from 32 bits with the sign: 2 GiB and more never fit.
        {"4 GiB less a KB", {{"huge.ts", 4 * 1024 * 1024 - 1}}, 0, 0, false, false, 1, {0, 1, 0, 1, 0, 0, 0, 1, 0, 1, 0}},
        {"every file failed", {{"f.mp4", failed}}, 0, 0, false, false, 0, {0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0}},
        // Deliberately, the outcome depends on the last file looked at.
        {"failed after too big", {{"d.mp4", fit + 1}, {"f.mp4", failed}}, 0, 0, false, false, 1, {0, 2, 0, 0, 1, 0, 0, 1, 0, 1, 0}},
        {"too big after failed", {{"f.mp4", failed}, {"d.mp4", fit + 1}}, 0, 0, false, false, 1, {0, 2, 0, 1, 0, 0, 0, 1, 0, 1, 0}},
        // Put-off work is handed back only between transfers, the log's trigger left standing.
        {"pending work waits for the transfer", {{"a.mp4", 4}}, 0, 255, true, true, 0, {0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 10}},
        {"pending work handed back, nothing started", {{"a.mp4", 4}}, 0, 0, false, true, 0, {0, 0, 0, 0, 1, 1, 0, 0, 1, 0, 10}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        download_clear_download_list();
        for (const auto& [name, kb] : row.queue) queue(name, kb == failed ? 4 : kb, 0, kb == failed, row.server);
        if (row.active) {
            START_DL_RESULT r{};
            download_start(&r, nullptr);
            settle();
        }
        status.code = row.code;
        EXPECT_EQ(check(row.pending, row.tried_cleanup), row.outcome);
        EXPECT_EQ(initiate_send_log, row.pending ? 1 : 0);
        EXPECT_EQ(download_in_progress(), row.url || row.active ? 1 : 0);
        if (row.url) {
            EXPECT_EQ(listSize(XLIST), static_cast<int>(row.queue.size()));  // queued until done
            settle();
            EXPECT_EQ(fields(status.url, status.fname, status.auth, status.media_index), fields(row.url, row.fname, "", row.media_index));
        }
        clear_active_download();
    }
    initiate_call_home_pending = initiate_cleanup_pending = initiate_send_log = 0;

    // An address that would outgrow the URL keeps its token; nothing overflows.
    std::string address = "$MAC$$FILE$" + std::string(233, 'x') + "$DCMSERVER$", name(255, 'n');
    std::strcpy(content.servers[0].address, address.c_str());
    download_set_servers(&content);
    download_clear_download_list();
    queue(name.c_str(), 4);
    START_DL_RESULT r{};
    download_start(&r, nullptr);
    settle();
    EXPECT_EQ(status.url, "001A2B3C4D5E" + name + std::string(233, 'x') + "$DCMSERVER$");
    clear_active_download();

    // Once a transfer's code is final the manager may fill in the next request while the
    // thread still moves its file into place and remounts: the thread works on its own copy
    // of the request (a ThreadSanitizer build reports it if it does not). The next transfer
    // may find the partition read-only again, which the check's countdown keeps from
    // happening in the agent, so only its end is awaited.
    CmsSim cms;
    CmsSim::pace_transfers(platform);
    std::strcpy(call_home_address, CmsSim::url("").c_str());
    CmsSim::put("/m/001A2B3C4D5E/d.mp4", std::string(4096, 'v'));
    download_clear_download_list();
    queue("d.mp4", 4, 0, false, 1);
    queue("e.mp4", 4, 0, false, 1);
    EXPECT_EQ(check()[0], DL_STATE_ACTIVE);
    ASSERT_TRUE(sandbox::wait_until([] { return status.code == 1; }));
    EXPECT_EQ(check()[0], DL_STATE_COMPLETE);
    EXPECT_EQ(check()[0], DL_STATE_ACTIVE);
    EXPECT_STREQ(status.fname, "e.mp4");
    wait_for_transfer();
    EXPECT_EQ(sandbox::read_file("/mnt/hd4/video/d.mp4"), std::string(4096, 'v'));
    clear_active_download();
}

// Transfers run from cms-sim through wget-compat to their end before the check collects
// them. A file that arrived counts as complete only when the next rebuild of the queue
// finds it whole: by its size, and a web page also by its digest. A failed file is not
// tried again until the queue is rebuilt (which starts it again: the TruncatedMedia
// scenario).
TEST_F(Downloads, TransfersRunToTheirEndAndArrivedFilesAreCheckedAgain)
{
    CmsSim cms({"--fault", "/m/*/slow-*", "rate=4k", "--fault", "/m/*/long.mp4", "extra=1000", "--fault", "/m/*/login.mp4",
                "status=401", "--fault", "/m/*/stuck.mp4", "stall=100"});
    CmsSim::pace_transfers(platform);
    std::strcpy(call_home_address, CmsSim::url("").c_str());
    const std::string page = "<html><body>Opening hours: 9 to 5</body></html>\n", body(8192, 'w');
    const std::string temp = "/mnt/hd4/video/tempfile.xxx";
    const struct {
        const char* why;
        const char* name;
        int type;
        std::uint32_t fsize;  // as the document declares it
        const char* md5;
        bool rebuild, transfer;           // the queue built from the content; a transfer run first
        std::function<void()> meanwhile;  // once the first bytes are on the disk
        std::vector<int> outcome;         // of the check
        int dl_error;
        std::size_t stored;  // bytes the file holds afterwards
        int queued_again;    // by the next rebuild; -1: none
    } rows[] = {
        {"the last priority file arrives", "a.mp4", 0, 8192, "", true, true, nullptr,
         {2, 0, 0, 0, 1, 0, 1, 1, 0, 0, 10}, 0, body.size(), 0},
        {"a web page whose digest holds", "page.html", 2, static_cast<std::uint32_t>(page.size()), "aeba", true, true,
         nullptr, {2, 0, 0, 0, 1, 0, 1, 1, 0, 0, 10}, 0, page.size(), 0},
        {"more bytes than the document declares", "big.mp4", 0, 4096, "", true, true, nullptr,
         {2, 0, 0, 0, 1, 0, 1, 1, 0, 0, 10}, 0, body.size(), 1},
        {"more bytes than the answer declares", "long.mp4", 0, 8192, "", true, true, nullptr,
         {2, 0, 0, 0, 1, 0, 1, 1, 0, 0, 10}, 0, body.size(), 0},
        // cms-sim reads the file as it sends it: emptied, it ends the answer short.
        {"the file vanishes from the server", "slow-gone.mp4", 0, 8192, "", true, true,
         [] { CmsSim::put("/m/001A2B3C4D5E/slow-gone.mp4", ""); }, {3, 1, 1, 0, 1, 0, 0, 1, 0, 0, 10}, 134, 0, 1},
        {"the temporary file vanishes", "slow-temp.mp4", 0, 8192, "", true, true, [&] { unlink(temp.c_str()); },
         {2, 0, 0, 0, 1, 0, 1, 1, 0, 0, 10}, 0, 0, 1},
        // The error each way a transfer fails gives, as the status reports it.
        {"a body under 32 bytes", "short.mp4", 0, 20, "", true, true, nullptr, {3, 1, 1, 0, 1, 0, 0, 1, 0, 0, 10}, 132, 0, -1},
        {"a login wanted", "login.mp4", 0, 8192, "", true, true, nullptr, {3, 1, 1, 0, 1, 0, 0, 1, 0, 0, 10}, 133, 0, -1},
        {"stalled for good", "stuck.mp4", 0, 8192, "", true, true, nullptr, {3, 1, 1, 0, 1, 0, 0, 1, 0, 0, 10}, 134, 0, -1},
        {"the server has no such file", "gone.mp4", 0, 8192, "", true, true, nullptr, {3, 1, 1, 0, 1, 0, 0, 1, 0, 0, 10},
         134, 0, -1},
        {"the failed file is not tried again", "gone.mp4", 0, 8192, "", false, false, nullptr,
         {0, 1, 1, 0, 1, 0, 0, 1, 0, 0, 0}, 0, 0, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        sandbox::set_writable(4, true);
        std::system("rm -rf /mnt/hd4/video/* /mnt/hd4/html/browser/*");
        const std::string name = row.name;
        if (name != "gone.mp4") CmsSim::put("/m/001A2B3C4D5E/" + name, row.type == 2 ? page : name == "short.mp4" ? std::string(20, 's') : body);
        // The content names the file on server 1, in the playlist scheduled now.
        content.filecount = content.plcount = content.playlists[0].itemCount = 1;
        content.layoutcount = content.playlists[0].PlItems[0].findex = 0;
        content.files[0] = {0, row.type, 1, {}, row.fsize, {}, {}};
        std::strcpy(content.files[0].fname, row.name);
        std::strcpy(content.files[0].md5, row.md5);
        PL_EVENT ev{0, -1, 0, 0};
        CONTENT_DL_STATUS dls;
        if (row.rebuild) {
            ASSERT_EQ(content_process_downloads(&content, &ev, &dls), 1);
        }
        if (row.transfer) {
            EXPECT_EQ(check()[0], DL_STATE_ACTIVE);
            if (row.meanwhile) {
                ASSERT_TRUE(sandbox::wait_until([&] {
                    std::error_code ec;
                    return std::filesystem::file_size(temp, ec) > 0 && !ec;
                }));
                row.meanwhile();
            }
            wait_for_transfer();
        }
        EXPECT_EQ(check(), row.outcome);
        EXPECT_EQ(gPlayerState.dl_error, row.dl_error);
        const std::string stored = (row.type == 2 ? "/mnt/hd4/html/browser/" : "/mnt/hd4/video/") + std::string(row.name);
        EXPECT_EQ(sandbox::read_file(stored).size(), row.stored);
        EXPECT_FALSE(sandbox::exists(temp));
        if (download_in_progress()) settle();
        clear_active_download();
        if (row.queued_again >= 0) {
            platform.clear();
            EXPECT_EQ(content_process_downloads(&content, &ev, &dls), row.queued_again);
            if (row.type == 2) {
                EXPECT_THAT(platform.commands(), ElementsAre("md5sum " + stored + " > /tmp/cpcksum"));
            }
        }
    }
}

// Whether a process named wget is left, given a moment to die after a kill.
bool wget_left()
{
    return !sandbox::wait_until([] { return std::system("killall -0 wget 2>/dev/null") != 0; }, std::chrono::seconds(3));
}

TEST(Transfers, UrlPreparation)
{
    // Only an http URL gets its scheme in lower case and its blanks escaped, and only while
    // the result stays within 511 characters; otherwise it stays as it was.
    const std::string path(490, 'p'), q9(9, 'q'), q10(10, 'q');
    const std::pair<std::string, std::string> cases[] = {
        {"HTTP://host/a b c.mp4", "http://host/a%20b%20c.mp4"}, {"hTtP://host/x", "http://host/x"},
        {"ftp://host/a b.mp4", "ftp://host/a b.mp4"},           {"https://host/a b", "https://host/a b"},
        {"HTTP://h/" + path + q9 + " ", "http://h/" + path + q9 + "%20"},
        {"HTTP://h/" + path + q10 + " ", "HTTP://h/" + path + q10 + " "},
    };
    for (const auto& [in, out] : cases) {
        char url[513];
        copy_text(url, in);
        initialize_wget_transfer(url);
        EXPECT_EQ(std::string(url), out) << in.substr(0, 20);
    }
    // A URL of 513 characters or more starts nothing.
    FakePlatform fake;
    char long_url[600];
    copy_text(long_url, "ftp://h/" + std::string(520, 'x'));
    EXPECT_EQ(ftp_file(long_url, "/tmp/doc", 0, nullptr), 0);
    EXPECT_TRUE(fake.commands().empty());
}

TEST(Transfers, DocumentFetchersKeepToTheirLimits)
{
    CmsSim cms({"--fault", "/stuck/*", "stall=0"});
    FakePlatform fake;
    CmsSim::pace_transfers(fake);
    for (const char* doc : {"command.txt", "dlreq.aspx"}) {
        CmsSim::put(std::string("/ok/") + doc, std::string(16384, 'd'));
        CmsSim::put(std::string("/big/") + doc, std::string(16385, 'd'));
    }
    CmsSim::put("/ok/content.xml", std::string(102400, 'c'));
    CmsSim::put("/big/content.xml", std::string(102401, 'c'));
    CmsSim::put("/stuck/content.xml", std::string(300, 'c'));
    const std::string ok = CmsSim::url("/ok"), big = CmsSim::url("/big"), stuck = CmsSim::url("/stuck");
    const struct {
        const char* what;
        std::function<int()> fetch;
        std::size_t bytes;  // of /tmp/doc after a success; 0: the fetch fails
        bool started;       // wget was run
    } cases[] = {
        {"command list at its limit", [&] { return get_command_file(ok.c_str(), "", "/tmp/doc"); }, 16384, true},
        {"command list one byte over", [&] { return get_command_file(big.c_str(), "", "/tmp/doc"); }, 0, true},
        {"content at its limit", [&] { return get_content_file(ok.c_str(), "", "/tmp/doc"); }, 102400, true},
        {"content one byte over", [&] { return get_content_file(big.c_str(), "", "/tmp/doc"); }, 0, true},
        {"download request", [&] { return get_dl_request_file(ok.c_str(), "001A2B3C4D5E", 2, "/tmp/doc"); }, 16384, true},
        {"download request over", [&] { return get_dl_request_file(big.c_str(), "m", 1, "/tmp/doc"); }, 0, true},
        {"command list, no server", [] { return get_command_file("", "", "/tmp/doc"); }, 0, false},
        {"download request, no server", [] { return get_dl_request_file("", "m", 1, "/tmp/doc"); }, 0, false},
        // The configuration is fetched even from an empty server, which wget then refuses.
        {"config, no server", [] { return get_config_file("", "", "/tmp/doc"); }, 0, true},
        {"missing document", [&] { return get_config_file(ok.c_str(), "", "/tmp/doc"); }, 0, true},
        {"stalled for good", [&] { return get_content_file(stuck.c_str(), "", "/tmp/doc"); }, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        unlink("/tmp/doc");
        fake.clear();
        EXPECT_EQ(c.fetch(), c.bytes ? 1 : 0);
        if (c.bytes) {
            EXPECT_EQ(sandbox::read_file("/tmp/doc").size(), c.bytes);
        }
        // wget is killed on every way out, success included.
        const auto commands = fake.commands();
        EXPECT_EQ(commands.empty() ? "" : commands.back(), c.started ? "killall -9 wget" : "");
        EXPECT_FALSE(wget_left());
    }
    // The last row's stall: one second before the start, then ten 2-second polls without a byte.
    const auto sleeps = fake.sleeps();
    EXPECT_EQ(std::accumulate(sleeps.begin(), sleeps.end(), 0u), 21u);
    EXPECT_EQ(CmsSim::requests("GET /ok/dlreq.aspx?player=001A2B3C4D5E&pri=2 200 16384").size(), 1u);
}

// A URL that fills the transfer's record without an end fails before wget starts, and
// leaves the media partition writable, as it always has. (The outcomes of real media
// transfers are the download manager's test.)
TEST(Transfers, MediaUrlWithoutAnEnd)
{
    FakePlatform fake;
    fake.run_commands(true);
    std::memset(status.url, 'x', sizeof status.url);
    ftp_file_to_hd(nullptr);
    EXPECT_EQ(status.code, 134);
    EXPECT_TRUE(sandbox::is_writable("/mnt/hd4"));
    for (const auto& command : fake.commands()) EXPECT_EQ(command.find("wget"), std::string::npos) << command;
}

}  // namespace
