// A message in pieces, against the byte-by-byte reading: the whole record after each piece.
#include <velkor/text.h>

#include <algorithm>

#include "fuzzer.h"
#include "support/exact_bytes.h"
#include "support/text_models.h"

namespace {

void expect_same(const SHA1Context &context, const model::Sha1 &reference) {
    EXPECT_TRUE(std::equal(reference.hash, reference.hash + 5, context.Intermediate_Hash));
    EXPECT_TRUE(context.Length_Low == reference.low && context.Length_High == reference.high);
    EXPECT_TRUE(context.Message_Block_Index == reference.index);
    EXPECT_TRUE(std::equal(reference.block, reference.block + 64, context.Message_Block));
    EXPECT_TRUE(context.Corrupted == reference.corrupted);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    SHA1Context context = {};
    SHA1Reset(&context);
    model::Sha1 reference;
    if (input.number(0, 1) == 1) {  // near the longest message there is
        context.Length_High = reference.high = UINT32_MAX;
        context.Length_Low = reference.low = 0U - 8U * static_cast<unsigned>(input.number(1, 255));
    }
    for (int pieces = input.number(1, 20); pieces > 0; --pieces) {
        std::string bytes = input.bytes();
        bytes.resize(bytes.size() * static_cast<size_t>(input.number(1, 4)), 'x');
        const ExactBytes piece(bytes);
        const auto *const from = reinterpret_cast<const uint8_t *>(piece.get());
        EXPECT_TRUE(SHA1Input(&context, from, static_cast<uint32_t>(piece.size())) ==
                    reference.input(from, piece.size()));
        expect_same(context, reference);
    }
    SHA1PadMessage(&context);
    reference.pad();
    expect_same(context, reference);
    return 0;
}
