// dA_ParseDLRequest over arbitrary bytes.
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
    int before = dA_DLRequest()->allow;
    int r = dA_ParseDLRequest(fuzz::write_document(data, size));
    FUZZ_CHECK(r == 0 || r == -1);
    FUZZ_CHECK(dA_IsDLRequestValid() == (r == 0 ? 1 : 0));
    if (r != 0) FUZZ_CHECK(dA_DLRequest()->allow == before);
    return 0;
}
