// How long dA_ParseContent takes over a maximal content document (every array at its
// capacity, about 100 KB), next to libexpat tokenizing the same bytes. Run it in the
// sandbox (tools/bench): the document is written to its /tmp.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <expat.h>
#include <string>

#include "xml/dravikAPI.h"
#include "xml/tokenizer.h"

namespace {

constexpr const char* kPath = "/tmp/bench-content.xml";

// ` name="value"`
std::string attr(const char* name, const std::string& v) { return std::string(" ") + name + "=\"" + v + "\""; }
std::string attr(const char* name, int v) { return attr(name, std::to_string(v)); }

std::string maximal_document()
{
    const char* types[] = {"video", "img", "html"};
    std::string d = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<content" + attr("id", "c-0123456789-0123456789-0123456789-01") +
                    attr("name", "Maximal content with every array at its capacity") + ">\n  <servers>\n";
    for (int s = 0; s < kMaxServers; ++s)
        d += "    <server_item" + attr("id", s) + attr("addr", "http://media" + std::to_string(s) + ".example.com/content/files") + "/>\n";
    d += "  </servers>\n  <files>\n";
    for (int f = 0; f < kMaxFiles; ++f)
        d += "    <f_item" + attr("findex", f) + attr("type", types[f % 3]) + attr("server_id", f % kMaxServers) +
             attr("file", "media-file-" + std::to_string(f) + ".mp4") + attr("size", 1048576 + f) +
             attr("path", "/content/2026/media") + attr("md5", "0123456789abcdef0123456789abcdef") + "/>\n";
    d += "  </files>\n";
    for (int p = 0; p < kMaxPlaylists; ++p) {
        d += "  <playlist" + attr("pindex", p) + attr("name", "Playlist " + std::to_string(p)) + ">\n";
        for (int i = 0; i < kMaxPlaylistItems; ++i)
            d += "    <pl_item" + attr("type", types[i % 3]) + attr("findex", (p * 7 + i) % kMaxFiles) + attr("dur", 10 + i % 50) + "/>\n";
        d += "  </playlist>\n";
    }
    d += "  <schedule" + attr("default_pindex", 0) + attr("default_lindex", 0) + ">\n";
    for (int s = 0; s < kMaxScheduleItems; ++s) {
        d += "    <sched_item" + attr("pindex", s) + attr("lindex", s) + attr("start", "2026-01-01T00:00:00") +
             attr("end", "2026-12-31T23:59:59") + ">\n";
        for (int i = 0; i < kMaxDayItems; ++i)
            d += "      <day_item" + attr("day", std::string("sumotuwethfrsa").substr(2 * (i % 7), 2)) +
                 attr("mode", i % 2 ? "off" : "on") + attr("time", std::to_string(6 + i % 12) + ":" + std::to_string(i % 60)) + "/>\n";
        d += "    </sched_item>\n";
    }
    d += "  </schedule>\n";
    for (int l = 0; l < kMaxLayouts; ++l) {
        d += "  <layout" + attr("lindex", l) + attr("name", "Layout " + std::to_string(l)) + ">\n"
             "    <vid_area_1080 x=\"0\" y=\"0\" width=\"1440\" height=\"810\"/>\n"
             "    <vid_area_720 x=\"0\" y=\"0\" width=\"960\" height=\"540\"/>\n"
             "    <vid_area_pct x=\"0\" y=\"0\" width=\"75\" height=\"75\"/>\n    <layout_files>\n";
        for (int i = 0; i < kMaxLayoutFiles; ++i)
            d += "      <lo_file" + attr("findex", (l + i) % kMaxFiles) + attr("type", types[i % 3]) + "/>\n";
        d += "    </layout_files>\n    <layout_playlist>\n";
        for (int i = 0; i < kMaxLayoutPlItems; ++i)
            d += "      <lo_pl_item" + attr("url", "http://ticker.example.com/feed/" + std::to_string(i)) + attr("dur", 30) + "/>\n";
        d += "    </layout_playlist>\n  </layout>\n";
    }
    return d + "</content>\n";
}

// The document, written to kPath the first time it is asked for.
const std::string& document()
{
    static const std::string text = [] {
        std::string d = maximal_document();
        FILE* f = std::fopen(kPath, "w");
        if (f == nullptr || std::fwrite(d.data(), 1, d.size(), f) != d.size() || std::fclose(f) != 0) {
            std::perror(kPath);
            std::exit(1);
        }
        return d;
    }();
    return text;
}

// Whether the parse filled every array of the record to its capacity.
bool full(const DRAVIK_CONTENT& c)
{
    bool ok = c.plcount == kMaxPlaylists && c.filecount == kMaxFiles && c.servercount == kMaxServers &&
              c.layoutcount == kMaxLayouts && c.schedule.itemCount == kMaxScheduleItems;
    for (const DRAVIK_PLAYLIST& p : c.playlists) ok = ok && p.itemCount == kMaxPlaylistItems;
    for (const SCHEDULE_ITEM& s : c.schedule.schedItems) ok = ok && s.dayItemCount == kMaxDayItems;
    for (const DRAVIK_LAYOUT& l : c.layouts)
        ok = ok && l.fileCount == kMaxLayoutFiles && l.plItemCount == kMaxLayoutPlItems;
    return ok;
}

void BM_ParseContent(benchmark::State& state)
{
    state.counters["document_bytes"] = static_cast<double>(document().size());
    if (dA_ParseContent(kPath) != 0 || !full(*dA_Content())) {
        state.SkipWithError("the maximal document does not parse to full arrays");
        return;
    }
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

// Expat with handlers that count elements, attributes and text runs, so that it does
// the work of a tokenizer; `feed` hands it the document and says whether it was accepted.
template <typename Feed>
void expat_benchmark(benchmark::State& state, Feed feed)
{
    struct Counts {
        int elements = 0, attributes = 0, text = 0;
    };
    document();
    for (auto _ : state) {
        Counts counts;
        XML_Parser p = XML_ParserCreate(nullptr);
        XML_SetUserData(p, &counts);
        XML_SetElementHandler(
            p,
            [](void* data, const XML_Char*, const XML_Char** atts) {
                auto* c = static_cast<Counts*>(data);
                ++c->elements;
                for (; *atts != nullptr; atts += 2) ++c->attributes;
            },
            [](void*, const XML_Char*) {});
        XML_SetCharacterDataHandler(p, [](void* data, const XML_Char*, int) { ++static_cast<Counts*>(data)->text; });
        bool ok = feed(p);
        XML_ParserFree(p);
        if (!ok) {
            state.SkipWithError("expat rejected the document");
            return;
        }
        benchmark::DoNotOptimize(counts);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * document().size()));
}

// Expat reading the same file through the same 1,024-byte blocks.
void BM_ExpatFromFile(benchmark::State& state)
{
    expat_benchmark(state, [](XML_Parser p) {
        FILE* f = std::fopen(kPath, "r");
        char block[1024];
        bool ok = f != nullptr;
        for (std::size_t n; ok && (n = std::fread(block, 1, sizeof block, f)) > 0;)
            ok = XML_Parse(p, block, static_cast<int>(n), 0) == XML_STATUS_OK;
        if (f != nullptr) std::fclose(f);
        return ok && XML_Parse(p, block, 0, 1) == XML_STATUS_OK;
    });
}

// Expat over the bytes already in memory, for reference.
void BM_ExpatInMemory(benchmark::State& state)
{
    expat_benchmark(state, [](XML_Parser p) {
        return XML_Parse(p, document().data(), static_cast<int>(document().size()), 1) == XML_STATUS_OK;
    });
}

BENCHMARK(BM_ParseContent)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_TokenizeContent)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ExpatFromFile)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ExpatInMemory)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
