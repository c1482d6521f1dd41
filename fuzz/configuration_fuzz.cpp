// dA_ParseConfiguration over arbitrary bytes, with a callback that checks each item.
#include "fuzz/fuzz_support.h"
#include "xml/dravikAPI.h"

namespace {
void check_item(DRAVIK_NAME_DATA* item)
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
    static DRAVIK_CONFIGURATION before;
    std::memcpy(&before, dA_Configuration(), sizeof before);
    int r = dA_ParseConfiguration(fuzz::write_document(data, size), check_item);
    FUZZ_CHECK(r == 0 || r == -1);
    FUZZ_CHECK(dA_IsConfigurationValid() == (r == 0 ? 1 : 0));
    if (r != 0) FUZZ_CHECK(std::memcmp(&before, dA_Configuration(), sizeof before) == 0);
    FUZZ_CHECK(fuzz::terminated(dA_Configuration()->id));
    return 0;
}
