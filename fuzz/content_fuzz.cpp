// dA_ParseContent over arbitrary bytes: whatever the document, every count stays within
// its array and every text field keeps its terminator, whether the parse succeeds or
// fails halfway.
#include "fuzz/fuzz_support.h"
#include "xml/dravikAPI.h"

extern "C" int LLVMFuzzerInitialize(int*, char*** argv)
{
    fuzz::require_sandbox((*argv)[0]);
    dA_Initialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    int r = dA_ParseContent(fuzz::write_document(data, size));
    const DRAVIK_CONTENT& c = *dA_Content();
    FUZZ_CHECK(r == 0 || r == -1);
    FUZZ_CHECK(dA_IsContentValid() == (r == 0 ? 1 : 0));
    FUZZ_CHECK(fuzz::terminated(c.id) && fuzz::terminated(c.name));
    FUZZ_CHECK(c.plcount >= 0 && c.plcount <= kMaxPlaylists);
    FUZZ_CHECK(c.filecount >= 0 && c.filecount <= kMaxFiles);
    FUZZ_CHECK(c.servercount >= 0 && c.servercount <= kMaxServers);
    FUZZ_CHECK(c.layoutcount >= 0 && c.layoutcount <= kMaxLayouts);
    FUZZ_CHECK(c.schedule.itemCount >= 0 && c.schedule.itemCount <= kMaxScheduleItems);
    for (int i = 0; i < c.plcount; ++i) {
        const DRAVIK_PLAYLIST& p = c.playlists[i];
        FUZZ_CHECK(fuzz::terminated(p.name));
        FUZZ_CHECK(p.itemCount >= 0 && p.itemCount <= kMaxPlaylistItems);
        for (int j = 0; j < p.itemCount; ++j) FUZZ_CHECK(p.PlItems[j].type >= -1 && p.PlItems[j].type <= 2);
    }
    for (int i = 0; i < c.filecount; ++i) {
        const DRAVIK_FILE_ITEM& f = c.files[i];
        FUZZ_CHECK(fuzz::terminated(f.fname) && fuzz::terminated(f.path) && fuzz::terminated(f.md5));
        FUZZ_CHECK(f.type >= -1 && f.type <= 2);
    }
    for (int i = 0; i < c.schedule.itemCount; ++i) {
        const SCHEDULE_ITEM& s = c.schedule.schedItems[i];
        FUZZ_CHECK(fuzz::terminated(s.stime) && fuzz::terminated(s.etime));
        FUZZ_CHECK(s.dayItemCount >= 0 && s.dayItemCount <= kMaxDayItems);
        for (int j = 0; j < s.dayItemCount; ++j) {
            FUZZ_CHECK(s.dayItems[j].day >= -1 && s.dayItems[j].day <= 6);
            FUZZ_CHECK(s.dayItems[j].mode == 0 || s.dayItems[j].mode == 1);
        }
    }
    for (int i = 0; i < c.servercount; ++i) FUZZ_CHECK(fuzz::terminated(c.servers[i].address));
    for (int i = 0; i < c.layoutcount; ++i) {
        const DRAVIK_LAYOUT& l = c.layouts[i];
        FUZZ_CHECK(fuzz::terminated(l.name));
        FUZZ_CHECK(l.fileCount >= 0 && l.fileCount <= kMaxLayoutFiles);
        FUZZ_CHECK(l.plItemCount >= 0 && l.plItemCount <= kMaxLayoutPlItems);
        for (int j = 0; j < l.plItemCount; ++j) FUZZ_CHECK(fuzz::terminated(l.layoutPLItems[j].url));
    }
    return 0;
}
