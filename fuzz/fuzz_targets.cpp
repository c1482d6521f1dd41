// The libFuzzer targets, one program each, FUZZ_TARGET naming it: the tokenizer and its
// accessors over arbitrary bytes, and one per document parser (content, config_ch,
// configuration, player, dlrequest). The parsers read documents by path, so their input
// is written to a file on the sandbox's tmpfs and parsed from there. Whatever the
// document, the parse gives 0 or -1 with the validity flag to match, every count stays
// within its array and every text keeps its terminator, and a failed configuration-side
// parse leaves its global record byte for byte as it was. A failed check stops the run.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <unistd.h>

#include "xml/dravikAPI.h"
#include "xml/tokenizer.h"

#define FUZZ_CHECK(cond) ((cond) ? void() : fail(#cond, __LINE__))

// A named namespace: each program uses only its own target's part of what follows.
namespace fuzz {

constexpr std::string_view kTarget = FUZZ_TARGET;
static_assert(kTarget == "tokenizer" || kTarget == "content" || kTarget == "config_ch" || kTarget == "configuration" ||
              kTarget == "player" || kTarget == "dlrequest");

[[noreturn]] void fail(const char* what, int line)
{
    std::fprintf(stderr, "fuzz check failed at line %d: %s\n", line, what);
    std::abort();
}

// Every fixed character array given holds its terminator.
template <typename... Texts>
bool terminated(const Texts&... texts)
{
    return (... && (std::memchr(texts, '\0', sizeof texts) != nullptr));
}

bool within(int value, int low, int high) { return value >= low && value <= high; }

// The callback of the player and plain configuration parsers: every item terminated.
void check_item(DRAVIK_NAME_DATA* item) { FUZZ_CHECK(terminated(item->name, item->data)); }

// Writes the input to a file of this process's own (parallel runs never share one).
const char* write_document(const std::uint8_t* data, std::size_t size)
{
    static const std::string path = "/tmp/fuzz-document-" + std::to_string(getpid()) + ".xml";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr || std::fwrite(data, 1, size, f) != size || std::fclose(f) != 0) fail(path.c_str(), __LINE__);
    return path.c_str();
}

// Parses the input with `parse`, checks the outcome against the validity flag and, for a
// record that a failed parse must keep, the record against its copy from before.
template <typename Record>
void parse(const std::uint8_t* data, std::size_t size, int (*parse_path)(const char*), int (*valid)(), const Record* kept)
{
    static Record before;
    if (kept) std::memcpy(&before, kept, sizeof before);
    int r = parse_path(write_document(data, size));
    FUZZ_CHECK((r == 0 || r == -1) && valid() == (r == 0 ? 1 : 0));
    if (kept && r != 0) FUZZ_CHECK(std::memcmp(&before, kept, sizeof before) == 0);
}

void check(const DRAVIK_CONTENT& c)
{
    FUZZ_CHECK(terminated(c.id, c.name) && within(c.plcount, 0, kMaxPlaylists) && within(c.filecount, 0, kMaxFiles));
    FUZZ_CHECK(within(c.servercount, 0, kMaxServers) && within(c.layoutcount, 0, kMaxLayouts));
    FUZZ_CHECK(within(c.schedule.itemCount, 0, kMaxScheduleItems));
    for (const DRAVIK_PLAYLIST& p : std::span(c.playlists, c.plcount)) {
        FUZZ_CHECK(terminated(p.name) && within(p.itemCount, 0, kMaxPlaylistItems));
        for (const DRAVIK_PLAYLIST_ITEM& i : std::span(p.PlItems, p.itemCount)) FUZZ_CHECK(within(i.type, -1, 2));
    }
    for (const DRAVIK_FILE_ITEM& f : std::span(c.files, c.filecount)) FUZZ_CHECK(terminated(f.fname, f.path, f.md5) && within(f.type, -1, 2));
    for (const SCHEDULE_ITEM& s : std::span(c.schedule.schedItems, c.schedule.itemCount)) {
        FUZZ_CHECK(terminated(s.stime, s.etime) && within(s.dayItemCount, 0, kMaxDayItems));
        for (const DAY_ITEM& d : std::span(s.dayItems, s.dayItemCount)) FUZZ_CHECK(within(d.day, -1, 6) && within(d.mode, 0, 1));
    }
    for (const DRAVIK_SERVER_ITEM& s : std::span(c.servers, c.servercount)) FUZZ_CHECK(terminated(s.address));
    for (const DRAVIK_LAYOUT& l : std::span(c.layouts, c.layoutcount)) {
        FUZZ_CHECK(terminated(l.name) && within(l.fileCount, 0, kMaxLayoutFiles) && within(l.plItemCount, 0, kMaxLayoutPlItems));
        for (const LAYOUT_PL_ITEM& i : std::span(l.layoutPLItems, l.plItemCount)) FUZZ_CHECK(terminated(i.url));
    }
}

void check(const DRAVIK_CONFIGURATION_CH& ch)
{
    FUZZ_CHECK(terminated(ch.id, ch.primaryTS, ch.secondaryTS, ch.loggingServer) && within(ch.aooItemCount, 0, kMaxAooItems));
    for (const AOO_ITEM& i : std::span(ch.aooItems, ch.aooItemCount)) FUZZ_CHECK(within(i.day, -1, 6) && within(i.mode, 0, 1));
    FUZZ_CHECK(within(ch.autoOnOffEnable, 0, 1) && within(ch.loggingEnable, 0, 1));
}

void check(const DRAVIK_PLAYER& p)
{
    FUZZ_CHECK(terminated(p.current_playlist_id, p.next_playlist_id, p.next_playlist_start_time, p.content_id,
                          p.configuration_id, p.mode) && within(p.dl_permitted, 0, 1));
}

const std::uint8_t* input;
std::size_t input_size, input_pos;
int reads_after_end;

int memory_getchar()
{
    if (input_pos < input_size) return input[input_pos++];
    ++reads_after_end;
    return 0;
}

void check_buffers()
{
    FUZZ_CHECK(std::strlen(xt_get_tag_name()) < kXtNameSize && std::strlen(xt_get_attr_name()) < kXtNameSize &&
               std::strlen(xt_get_value()) < kXtValueSize);
}

// The first byte chooses which accessors are tried where; the rest is the document.
void tokenize(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return;
    const unsigned mode = data[0];
    std::tie(input, input_size, input_pos, reads_after_end) = std::tuple(data + 1, size - 1, 0, 0);
    xt_initialize(memory_getchar);
    // Every call consumes input or ends a section, so a tokenizer that makes progress never
    // reaches this bound. Parsers stop at an error; sometimes go on past it.
    const std::size_t limit = 4 * size + 16;
    int kind = XT_START_TAG;
    for (std::size_t calls = 0; kind != XT_END && (kind != XT_ERROR || (mode & 1)); ++calls) {
        FUZZ_CHECK(calls < limit);
        kind = xt_get_token();
        FUZZ_CHECK(within(kind, XT_ERROR, XT_ENTITY_DECL_END));
        check_buffers();
        char small[8], big[300], s[5];  // small: sizes up to its own, so that ASan sees a write past the size given
        int v = 0;
        long l = 0;
        if (kind == XT_START_TAG && (mode & 2)) {
            switch ((mode >> 2) & 7) {
            case 0: getStringVal(small, 1 + static_cast<int>(calls % sizeof small)); break;
            case 1: getStringVal(big, sizeof big); FUZZ_CHECK(std::strlen(big) < sizeof big); break;
            case 2: getIntVal(&v); break;
            case 3: getLongVal(&l); break;
            case 4: getBoolVal(&v); FUZZ_CHECK(v == 0 || v == 1); break;
            default: break;
            }
            check_buffers();
        }
        if (kind == XT_ATTRIBUTE && (mode & 32)) {
            getAttributeStringVal(s, sizeof s);
            getAttributeIntegerVal(&v);
            getAttributeLongVal(&l);
            getAttributeBoolVal(&v);
            FUZZ_CHECK(std::strlen(s) < sizeof s && (v == 0 || v == 1));
        }
    }
    // The end of the input stays the end, and nothing is read past it.
    if (kind == XT_END) FUZZ_CHECK(xt_get_token() == XT_END);
    FUZZ_CHECK(reads_after_end <= 1);
}

}  // namespace fuzz

using namespace fuzz;

// Like the tests, the targets run only in the sandbox.
extern "C" int LLVMFuzzerInitialize(int*, char*** argv)
{
    if (std::getenv("SIGNAGE_SANDBOX") == nullptr || access("/run/sandbox/calls.log", W_OK) != 0) {
        std::fprintf(stderr, "%s: fuzz targets run only inside the sandbox: tools/fuzz\n", (*argv)[0]);
        std::exit(2);
    }
    dA_Initialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if constexpr (kTarget == "tokenizer") {
        tokenize(data, size);
    } else if constexpr (kTarget == "content") {
        parse<DRAVIK_CONTENT>(data, size, dA_ParseContent, dA_IsContentValid, nullptr);  // no record kept
        check(*dA_Content());
    } else if constexpr (kTarget == "config_ch") {
        parse(data, size, dA_ParseConfigurationCH, dA_IsConfigurationCHValid, dA_ConfigurationCH());
        check(*dA_ConfigurationCH());
    } else if constexpr (kTarget == "configuration") {
        parse(data, size, [](const char* path) { return dA_ParseConfiguration(path, check_item); }, dA_IsConfigurationValid, dA_Configuration());
        FUZZ_CHECK(terminated(dA_Configuration()->id));
    } else if constexpr (kTarget == "player") {
        parse(data, size, [](const char* path) { return dA_ParsePlayer(path, check_item); }, dA_IsPlayerValid, dA_Player());
        check(*dA_Player());
    } else {
        parse(data, size, dA_ParseDLRequest, dA_IsDLRequestValid, dA_DLRequest());
    }
    return 0;
}
