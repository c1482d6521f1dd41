// Heap allocations (and time) of the agent in its steady state: a main-loop pass with
// nothing due, and a content check while the player already plays what the schedule asks
// for (the check asks the player, rebuilds the download queue, finds nothing to do).
// player-sim answers for the player on the real queues, so run it in the sandbox
// (tools/footprint); the media are tiny files on the sandbox's /mnt/hd4.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "actions/config.h"
#include "agent/agent.h"
#include "content/current_item.h"
#include "core/timer.h"
#include "counting.h"
#include "download/download.h"
#include "schedule/player_state.h"
#include "storage/pelk_file.h"
#include "support/player_sim.h"
#include "xml/dravikAPI.h"

namespace {

using counting::measure;
counting::Quiet quiet;

void BM_MainLoopPassNothingDue(benchmark::State& state)
{
    measure(state, [] {}, agent_main_loop_pass, [] {});
}

void BM_ContentCheckAlreadyPlaying(benchmark::State& state)
{
    measure(state, [] { initiate_content_check = 1; }, agent_main_loop_pass, [&] {
        if (initiate_content_check != 0) state.SkipWithError("the pass left the check standing");
        if (!gPlayerState.scheduled_pl_active) state.SkipWithError("the playlist is not playing");
    });
}

BENCHMARK(BM_MainLoopPassNothingDue)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ContentCheckAlreadyPlaying)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv)
{
    // One playlist of two videos scheduled every day for years; the default is the same.
    remount_fs(4, 1);
    for (const char* f : {"/mnt/hd4/video/one.mpg", "/mnt/hd4/video/two.mpg"}) std::ofstream(f) << "12345";
    std::ofstream("/tmp/dacontent.xml") << R"(<content id="c-steady" name="Steady">
  <servers><server_item id="0" addr="http://127.0.0.1:8080/media/$FILE$"/></servers>
  <playlist pindex="0" name="Loop"><pl_item type="video" findex="0"/><pl_item type="video" findex="1"/></playlist>
  <files><f_item server_id="0" file="one.mpg" size="5"/><f_item server_id="0" file="two.mpg" size="5"/></files>
  <schedule default_pindex="0"><sched_item pindex="0" lindex="-1" start="2020-01-01T00:00:00"
    end="2037-01-01T00:00:00"/></schedule>
</content>)";
    if (dA_ParseContent("/tmp/dacontent.xml") != 0) {
        std::fprintf(stderr, "steady_state_bench: the document does not parse\n");
        return 1;
    }
    currentContent = *dA_Content();
    std::strcpy(g_saved_content_id, currentContent.id);  // nothing left to save
    player_state_clear(&gPlayerState);
    download_init();
    AutoOnOffMode = 1;

    PlayerSim sim;  // ready when constructed, stopped by its process id at the end
    seam::install(&quiet);
    // The first check starts the playlist; every later one finds it playing.
    process_content_check(&currentContent);
    initiate_content_check = initiate_post_status = initiate_download_check = 0;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
