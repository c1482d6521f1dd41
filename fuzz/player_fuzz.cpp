// dA_ParsePlayer over arbitrary bytes, with a callback that checks each command.
#include "fuzz/fuzz_support.h"
#include "xml/dravikAPI.h"

namespace {
void check_command(DRAVIK_NAME_DATA* item)
{
    FUZZ_CHECK(fuzz::terminated(item->name) && fuzz::terminated(item->data));
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char*** argv)
{
    fuzz::require_sandbox((*argv)[0]);
    dA_Initialize();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static DRAVIK_PLAYER before;
    std::memcpy(&before, dA_Player(), sizeof before);
    int r = dA_ParsePlayer(fuzz::write_document(data, size), check_command);
    const DRAVIK_PLAYER& p = *dA_Player();
    FUZZ_CHECK(r == 0 || r == -1);
    FUZZ_CHECK(dA_IsPlayerValid() == (r == 0 ? 1 : 0));
    if (r != 0) FUZZ_CHECK(std::memcmp(&before, &p, sizeof p) == 0);
    FUZZ_CHECK(fuzz::terminated(p.current_playlist_id) && fuzz::terminated(p.next_playlist_id) &&
               fuzz::terminated(p.next_playlist_start_time) && fuzz::terminated(p.content_id) &&
               fuzz::terminated(p.configuration_id) && fuzz::terminated(p.mode));
    FUZZ_CHECK(p.dl_permitted == 0 || p.dl_permitted == 1);
    return 0;
}
