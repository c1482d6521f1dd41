// dA_ParseConfiguration over arbitrary bytes, with a callback that checks each item.
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    auto parse = [](const char* path) { return dA_ParseConfiguration(path, fuzz::check_item); };
    fuzz::parse_keeping(data, size, parse, dA_IsConfigurationValid, *dA_Configuration());
    FUZZ_CHECK(fuzz::terminated(dA_Configuration()->id));
    return 0;
}
