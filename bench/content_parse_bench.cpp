// How long dA_ParseContent takes over a maximal content document (every array at its
// capacity, 110,159 bytes), next to the tokenizer alone and libexpat tokenizing the same
// bytes. Run it in the sandbox (tools/bench): the document is written to its /tmp.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <expat.h>
#include <string>

#include "support/sandbox.h"
#include "xml/dravikAPI.h"
#include "xml/tokenizer.h"

namespace {

constexpr const char* kPath = "/tmp/bench-content.xml";

// `<name a="v" ...` of an element, its attributes given as name, value pairs.
std::string element(const char* name, std::initializer_list<std::pair<const char*, std::string>> attributes)
{
    std::string e = std::string("<") + name;
    for (const auto& [a, v] : attributes) e += std::string(" ") + a + "=\"" + v + "\"";
    return e;
}

std::string maximal_document()
{
    using std::to_string;
    const char* types[] = {"video", "img", "html"};
    std::string d = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" +
                    element("content", {{"id", "c-0123456789-0123456789-0123456789-01"},
                                        {"name", "Maximal content with every array at its capacity"}}) + ">\n  <servers>\n";
    for (int s = 0; s < kMaxServers; ++s)
        d += "    " + element("server_item", {{"id", to_string(s)}, {"addr", "http://media" + to_string(s) + ".example.com/content/files"}}) + "/>\n";
    d += "  </servers>\n  <files>\n";
    for (int f = 0; f < kMaxFiles; ++f)
        d += "    " + element("f_item", {{"findex", to_string(f)}, {"type", types[f % 3]}, {"server_id", to_string(f % kMaxServers)},
                                         {"file", "media-file-" + to_string(f) + ".mp4"}, {"size", to_string(1048576 + f)},
                                         {"path", "/content/2026/media"}, {"md5", "0123456789abcdef0123456789abcdef"}}) + "/>\n";
    d += "  </files>\n";
    for (int p = 0; p < kMaxPlaylists; ++p) {
        d += "  " + element("playlist", {{"pindex", to_string(p)}, {"name", "Playlist " + to_string(p)}}) + ">\n";
        for (int i = 0; i < kMaxPlaylistItems; ++i)
            d += "    " + element("pl_item", {{"type", types[i % 3]}, {"findex", to_string((p * 7 + i) % kMaxFiles)}, {"dur", to_string(10 + i % 50)}}) + "/>\n";
        d += "  </playlist>\n";
    }
    d += "  " + element("schedule", {{"default_pindex", "0"}, {"default_lindex", "0"}}) + ">\n";
    for (int s = 0; s < kMaxScheduleItems; ++s) {
        d += "    " + element("sched_item", {{"pindex", to_string(s)}, {"lindex", to_string(s)}, {"start", "2026-01-01T00:00:00"},
                                             {"end", "2026-12-31T23:59:59"}}) + ">\n";
        for (int i = 0; i < kMaxDayItems; ++i)
            d += "      " + element("day_item", {{"day", std::string("sumotuwethfrsa").substr(2 * (i % 7), 2)}, {"mode", i % 2 ? "off" : "on"},
                                                 {"time", to_string(6 + i % 12) + ":" + to_string(i % 60)}}) + "/>\n";
        d += "    </sched_item>\n";
    }
    d += "  </schedule>\n";
    for (int l = 0; l < kMaxLayouts; ++l) {
        d += "  " + element("layout", {{"lindex", to_string(l)}, {"name", "Layout " + to_string(l)}}) + ">\n"
             "    <vid_area_1080 x=\"0\" y=\"0\" width=\"1440\" height=\"810\"/>\n    <vid_area_720 x=\"0\" y=\"0\" width=\"960\" "
             "height=\"540\"/>\n    <vid_area_pct x=\"0\" y=\"0\" width=\"75\" height=\"75\"/>\n    <layout_files>\n";
        for (int i = 0; i < kMaxLayoutFiles; ++i)
            d += "      " + element("lo_file", {{"findex", to_string((l + i) % kMaxFiles)}, {"type", types[i % 3]}}) + "/>\n";
        d += "    </layout_files>\n    <layout_playlist>\n";
        for (int i = 0; i < kMaxLayoutPlItems; ++i)
            d += "      " + element("lo_pl_item", {{"url", "http://ticker.example.com/feed/" + to_string(i)}, {"dur", "30"}}) + "/>\n";
        d += "    </layout_playlist>\n  </layout>\n";
    }
    return d + "</content>\n";
}

// The document, written to kPath the first time it is asked for.
const std::string& document()
{
    static const std::string text = [] {
        std::string d = maximal_document();
        sandbox::write_file(kPath, d);  // throws, ending the run, when it cannot
        return d;
    }();
    return text;
}

void BM_ParseContent(benchmark::State& state)
{
    state.counters["document_bytes"] = static_cast<double>(document().size());
    const DRAVIK_CONTENT& c = *dA_Content();
    bool full = dA_ParseContent(kPath) == 0 && c.filecount == kMaxFiles && c.servercount == kMaxServers;
    for (int i = 0; i < kMaxPlaylists; ++i) full = full && c.playlists[i].itemCount == kMaxPlaylistItems;
    for (int i = 0; i < kMaxScheduleItems; ++i) full = full && c.schedule.schedItems[i].dayItemCount == kMaxDayItems;
    for (int i = 0; i < kMaxLayouts; ++i)
        full = full && c.layouts[i].fileCount == kMaxLayoutFiles && c.layouts[i].plItemCount == kMaxLayoutPlItems;
    if (!full || c.plcount != kMaxPlaylists || c.schedule.itemCount != kMaxScheduleItems || c.layoutcount != kMaxLayouts)
        return state.SkipWithError("the maximal document does not parse to full arrays");
    for (auto _ : state) benchmark::DoNotOptimize(dA_ParseContent(kPath));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * document().size()));
}

// The tokenizer alone over the same file: what the parser's own work adds.
void BM_TokenizeContent(benchmark::State& state)
{
    document();
    for (auto _ : state) {
        XmlDocument doc(kPath);
        int tokens = 0;
        while (xt_get_token() > 0) ++tokens;
        benchmark::DoNotOptimize(tokens);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * document().size()));
}

// Expat with handlers that count elements, attributes and text runs, so that it does the
// work of a tokenizer, fed the same file through the same 1,024-byte blocks, or (for
// reference) the bytes already in memory.
void BM_Expat(benchmark::State& state, bool from_file)
{
    document();
    for (auto _ : state) {
        int counts[3] = {};  // elements, attributes, text runs
        XML_Parser p = XML_ParserCreate(nullptr);
        XML_SetUserData(p, counts);
        XML_SetElementHandler(
            p,
            [](void* data, const XML_Char*, const XML_Char** atts) {
                for (++static_cast<int*>(data)[0]; *atts != nullptr; atts += 2) ++static_cast<int*>(data)[1];
            },
            [](void*, const XML_Char*) {});
        XML_SetCharacterDataHandler(p, [](void* data, const XML_Char*, int) { ++static_cast<int*>(data)[2]; });
        bool ok = true;
        if (from_file) {
            FILE* f = std::fopen(kPath, "r");
            char block[1024];
            for (std::size_t n; ok && f != nullptr && (n = std::fread(block, 1, sizeof block, f)) > 0;)
                ok = XML_Parse(p, block, static_cast<int>(n), 0) == XML_STATUS_OK;
            ok = ok && f != nullptr && std::fclose(f) == 0 && XML_Parse(p, block, 0, 1) == XML_STATUS_OK;
        } else {
            ok = XML_Parse(p, document().data(), static_cast<int>(document().size()), 1) == XML_STATUS_OK;
        }
        XML_ParserFree(p);
        if (!ok) return state.SkipWithError("expat rejected the document");
        benchmark::DoNotOptimize(counts);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * document().size()));
}

BENCHMARK(BM_ParseContent)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_TokenizeContent)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Expat, FromFile, true)->Name("BM_ExpatFromFile")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Expat, InMemory, false)->Name("BM_ExpatInMemory")->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
