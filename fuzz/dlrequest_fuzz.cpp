// dA_ParseDLRequest over arbitrary bytes.
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::parse_keeping(data, size, dA_ParseDLRequest, dA_IsDLRequestValid, *dA_DLRequest());
    return 0;
}
