// Heap allocations (and time) of the download check and the disk cleanup at their
// capacities: a queue of 200 files, a candidate list of 512 files. Run it in the sandbox
// (tools/bench): it fills /mnt/hd4.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "core/usb_xapp.h"
#include "counting.h"
#include "download/download.h"
#include "download/wget.h"
#include "storage/cleanup.h"
#include "storage/pelk_file.h"
#include "support/sandbox.h"

namespace {

using counting::measure;
counting::Quiet quiet;  // the cleanup's rm is not run: it would change what the next run sees
DRAVIK_CONTENT content;
auto nothing = [] {};

int thread_count()
{
    auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

// A full queue of 200 files: all too big for the disk, so that every pass walks them all;
// or all failed but the last, so that a pass walks 199 failed files, builds the last
// one's address and starts the transfer thread.
void full_queue(bool last_starts)
{
    download_init();
    for (int i = 0; i < kDownloadCapacity; ++i) {
        download_add_file(("media-file-" + std::to_string(i) + ".mp4").c_str(), last_starts ? 1048576 : 0x7fffffff, 0,
                          last_starts ? 0 : i % 2, 3);
        if (last_starts && i + 1 < kDownloadCapacity) static_cast<DOWNLOAD_ITEM*>(listGet(XLIST, i))->errors = 1;
    }
}

void BM_DownloadCheckFullQueueNothingFits(benchmark::State& state)
{
    full_queue(false);
    g_tried_cleanup = 1;
    measure(state, nothing, process_download_check, nothing);
}

void BM_DownloadCheckFullQueueStarts(benchmark::State& state)
{
    full_queue(true);
    content.servercount = 1;
    std::strcpy(content.servers[0].address, "$DCMSERVER$/media/$MAC$/$FILE$");
    download_set_servers(&content);
    int threads = thread_count();
    measure(state, nothing, process_download_check, [&] {
        stop_media_download();
        while (thread_count() != threads) std::this_thread::yield();
        if (!download_in_progress()) state.SkipWithError("the pass started nothing");
        clear_active_download();
        status.code = 0;
    });
}

// A transfer running: the pass only looks at its state.
void BM_DownloadCheckWhileTransferring(benchmark::State& state)
{
    download_init();
    download_add_file("a.mp4", 1024, 0, 0, 0);
    gActiveDownload.active = 1;
    status.code = 255;
    measure(state, nothing, process_download_check, nothing);
    clear_active_download();
    status.code = 0;
}

// A full candidate list: 512 videos, none referenced by the 200 files of the content nor by
// the playing playlist's 100 lines, which are all compared; every candidate's command is
// formatted (and not run).
void BM_CleanupDiskFullList(benchmark::State& state)
{
    content = {};
    std::strcpy(content.id, "new");
    content.filecount = kMaxFiles;
    for (int i = 0; i < kMaxFiles; ++i)
        std::snprintf(content.files[i].fname, sizeof content.files[i].fname, "content-file-%03d.mp4", i);
    std::FILE* list = std::fopen(kPlayingMediaList, "w");
    for (int i = 0; i < 100; ++i) std::fprintf(list, "playing-file-%03d.mp4\n", i);
    std::fclose(list);
    CLEANUP_RESULTS results{};
    measure(state, nothing, [&] { cleanup_disk(&content, "old", 50, &results); }, [&] {
        if (results.files_deleted != kCleanupCapacity) state.SkipWithError("the list was not full");
    });
}

BENCHMARK(BM_DownloadCheckFullQueueNothingFits)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DownloadCheckFullQueueStarts)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DownloadCheckWhileTransferring)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CleanupDiskFullList)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv)
{
    // The media partition more than half full of files the cleanup may delete, made
    // writable through the sandbox's mount before the seam is quieted.
    remount_fs(4, 1);
    for (int i = 0; i < kCleanupCapacity; ++i)
        std::fclose(std::fopen(("/mnt/hd4/video/candidate-" + std::to_string(i) + ".mp4").c_str(), "w"));
    FREESPACE_RESULTS fs{};
    get_free_space(&fs);
    sandbox::write_file("/mnt/hd4/audio/filler", std::string((fs.allKB * 6 / 10 + 1023) / 1024 * 1024 * 1024, 'x'));

    seam::install(&quiet);
    std::strcpy(macAddress, "001A2B3C4D5E");
    std::strcpy(call_home_address, "http://cms.example:8080");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
