// dA_ParseConfigurationCH over arbitrary bytes. A failed parse leaves the global record
// exactly as it was.
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
    static DRAVIK_CONFIGURATION_CH before;
    std::memcpy(&before, dA_ConfigurationCH(), sizeof before);
    int r = dA_ParseConfigurationCH(fuzz::write_document(data, size));
    const DRAVIK_CONFIGURATION_CH& ch = *dA_ConfigurationCH();
    FUZZ_CHECK(r == 0 || r == -1);
    FUZZ_CHECK(dA_IsConfigurationCHValid() == (r == 0 ? 1 : 0));
    if (r != 0) FUZZ_CHECK(std::memcmp(&before, &ch, sizeof ch) == 0);
    FUZZ_CHECK(fuzz::terminated(ch.id) && fuzz::terminated(ch.primaryTS) &&
               fuzz::terminated(ch.secondaryTS) && fuzz::terminated(ch.loggingServer));
    FUZZ_CHECK(ch.aooItemCount >= 0 && ch.aooItemCount <= kMaxAooItems);
    for (int i = 0; i < ch.aooItemCount; ++i) {
        FUZZ_CHECK(ch.aooItems[i].day >= -1 && ch.aooItems[i].day <= 6);
        FUZZ_CHECK(ch.aooItems[i].mode == 0 || ch.aooItems[i].mode == 1);
    }
    FUZZ_CHECK(ch.autoOnOffEnable == 0 || ch.autoOnOffEnable == 1);
    FUZZ_CHECK(ch.loggingEnable == 0 || ch.loggingEnable == 1);
    return 0;
}
