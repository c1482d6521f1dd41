// dA_ParseConfigurationCH over arbitrary bytes. A failed parse leaves the global record
// exactly as it was.
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const DRAVIK_CONFIGURATION_CH& ch = *dA_ConfigurationCH();
    fuzz::parse_keeping(data, size, dA_ParseConfigurationCH, dA_IsConfigurationCHValid, ch);
    FUZZ_CHECK(fuzz::terminated(ch.id, ch.primaryTS, ch.secondaryTS, ch.loggingServer));
    FUZZ_CHECK(fuzz::within(ch.aooItemCount, 0, kMaxAooItems));
    for (int i = 0; i < ch.aooItemCount; ++i)
        FUZZ_CHECK(fuzz::within(ch.aooItems[i].day, -1, 6) && fuzz::within(ch.aooItems[i].mode, 0, 1));
    FUZZ_CHECK(fuzz::within(ch.autoOnOffEnable, 0, 1) && fuzz::within(ch.loggingEnable, 0, 1));
    return 0;
}
