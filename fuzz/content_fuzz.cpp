// dA_ParseContent over arbitrary bytes: whatever the document, every count stays within
// its array and every text field keeps its terminator, whether the parse succeeds or
// fails halfway.
#include "fuzz/fuzz_support.h"

using fuzz::terminated;
using fuzz::within;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::parse(data, size, dA_ParseContent, dA_IsContentValid);
    const DRAVIK_CONTENT& c = *dA_Content();
    FUZZ_CHECK(terminated(c.id, c.name));
    FUZZ_CHECK(within(c.plcount, 0, kMaxPlaylists) && within(c.filecount, 0, kMaxFiles));
    FUZZ_CHECK(within(c.servercount, 0, kMaxServers) && within(c.layoutcount, 0, kMaxLayouts));
    FUZZ_CHECK(within(c.schedule.itemCount, 0, kMaxScheduleItems));
    for (int i = 0; i < c.plcount; ++i) {
        const DRAVIK_PLAYLIST& p = c.playlists[i];
        FUZZ_CHECK(terminated(p.name) && within(p.itemCount, 0, kMaxPlaylistItems));
        for (int j = 0; j < p.itemCount; ++j) FUZZ_CHECK(within(p.PlItems[j].type, -1, 2));
    }
    for (int i = 0; i < c.filecount; ++i) {
        const DRAVIK_FILE_ITEM& f = c.files[i];
        FUZZ_CHECK(terminated(f.fname, f.path, f.md5) && within(f.type, -1, 2));
    }
    for (int i = 0; i < c.schedule.itemCount; ++i) {
        const SCHEDULE_ITEM& s = c.schedule.schedItems[i];
        FUZZ_CHECK(terminated(s.stime, s.etime) && within(s.dayItemCount, 0, kMaxDayItems));
        for (int j = 0; j < s.dayItemCount; ++j)
            FUZZ_CHECK(within(s.dayItems[j].day, -1, 6) && within(s.dayItems[j].mode, 0, 1));
    }
    for (int i = 0; i < c.servercount; ++i) FUZZ_CHECK(terminated(c.servers[i].address));
    for (int i = 0; i < c.layoutcount; ++i) {
        const DRAVIK_LAYOUT& l = c.layouts[i];
        FUZZ_CHECK(terminated(l.name) && within(l.fileCount, 0, kMaxLayoutFiles));
        FUZZ_CHECK(within(l.plItemCount, 0, kMaxLayoutPlItems));
        for (int j = 0; j < l.plItemCount; ++j) FUZZ_CHECK(terminated(l.layoutPLItems[j].url));
    }
    return 0;
}
