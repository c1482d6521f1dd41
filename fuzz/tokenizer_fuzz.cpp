// The tokenizer and its accessors over arbitrary bytes. The first byte chooses which
// accessors are tried where; the rest is the document.
#include "fuzz/fuzz_support.h"
#include "xml/tokenizer.h"

namespace {

const std::uint8_t* input;
std::size_t input_size;
std::size_t input_pos;
int reads_after_end;

int memory_getchar()
{
    if (input_pos < input_size) return input[input_pos++];
    ++reads_after_end;
    return 0;
}

void check_buffers()
{
    FUZZ_CHECK(std::strlen(xt_get_tag_name()) < kXtNameSize && std::strlen(xt_get_attr_name()) < kXtNameSize &&
               std::strlen(xt_get_value()) < kXtValueSize);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    const unsigned mode = data[0];
    input = data + 1;
    input_size = size - 1;
    input_pos = 0;
    reads_after_end = 0;
    xt_initialize(memory_getchar);

    // Every call consumes input or ends a section, so a tokenizer that makes progress
    // never reaches this bound.
    const std::size_t limit = 4 * size + 16;
    int kind = XT_START_TAG;
    // Parsers stop at an error; sometimes go on past it.
    for (std::size_t calls = 0; kind != XT_END && (kind != XT_ERROR || (mode & 1)); ++calls) {
        FUZZ_CHECK(calls < limit);
        kind = xt_get_token();
        FUZZ_CHECK(fuzz::within(kind, XT_ERROR, XT_ENTITY_DECL_END));
        check_buffers();
        if (kind == XT_START_TAG && (mode & 2)) {
            char small[8];  // sizes up to its own, so that ASan sees a write past the size given
            char big[300];
            int v = 0;
            long l = 0;
            switch ((mode >> 2) & 7) {
            case 0: getStringVal(small, 1 + static_cast<int>(calls % sizeof small)); break;
            case 1: getStringVal(big, sizeof big); FUZZ_CHECK(std::strlen(big) < sizeof big); break;
            case 2: getIntVal(&v); break;
            case 3: getLongVal(&l); break;
            case 4: getBoolVal(&v); FUZZ_CHECK(v == 0 || v == 1); break;
            default: break;
            }
            check_buffers();
        }
        if (kind == XT_ATTRIBUTE && (mode & 32)) {
            char s[5];
            int v = 0;
            long l = 0;
            getAttributeStringVal(s, sizeof s);
            getAttributeIntegerVal(&v);
            getAttributeLongVal(&l);
            getAttributeBoolVal(&v);
            FUZZ_CHECK(std::strlen(s) < sizeof s && (v == 0 || v == 1));
        }
    }
    // The end of the input stays the end, and nothing is read past it.
    if (kind == XT_END) FUZZ_CHECK(xt_get_token() == XT_END);
    FUZZ_CHECK(reads_after_end <= 1);
    return 0;
}
