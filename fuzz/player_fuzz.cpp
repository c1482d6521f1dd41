// dA_ParsePlayer over arbitrary bytes, with a callback that checks each command.
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const DRAVIK_PLAYER& p = *dA_Player();
    auto parse = [](const char* path) { return dA_ParsePlayer(path, fuzz::check_item); };
    fuzz::parse_keeping(data, size, parse, dA_IsPlayerValid, p);
    FUZZ_CHECK(fuzz::terminated(p.current_playlist_id, p.next_playlist_id, p.next_playlist_start_time,
                                p.content_id, p.configuration_id, p.mode));
    FUZZ_CHECK(fuzz::within(p.dl_permitted, 0, 1));
    return 0;
}
