// SHA-1 with the five calls and the context record of RFC 3174.
#include <limits.h>
#include <stdint.h>
#include <string.h>

#include <velkor/text.h>

#include "sha1/plain.h"
#include "sha1/x86.h"
#include "support/best_version.h"
#include "support/x86_features.h"

static_assert(sizeof(SHA1Context) == 104);

namespace {

constexpr size_t BLOCK_SIZE = 64;
constexpr size_t LENGTH_AT = 56;

using Compress = void(velkor::Sha1Hash &, const uint8_t *, size_t);

Compress *best_here() {
#if defined(__x86_64__)
    if (velkor::cpu_has_sha()) {
        return velkor::sha1_compress_x86;
    }
#endif
    return velkor::sha1_compress_plain;
}

constinit velkor::BestVersion<Compress> best_version(best_here);

void compress(SHA1Context &context, const uint8_t *blocks, size_t count) {
    best_version.get()(context.Intermediate_Hash, blocks, count);
}

// A record that was never reset must not lead outside its block.
size_t bytes_held(const SHA1Context &context) { return static_cast<size_t>(context.Message_Block_Index) % BLOCK_SIZE; }

uint64_t bits_read(const SHA1Context &context) { return uint64_t{context.Length_High} << 32 | context.Length_Low; }

// How many more bytes carry the length out of its 64 bits.
uint64_t bytes_until_too_long(const SHA1Context &context) { return ~bits_read(context) / CHAR_BIT + 1; }

void count_bytes(SHA1Context &context, size_t count) {
    const uint64_t bits = bits_read(context) + uint64_t{count} * CHAR_BIT;
    context.Length_High = static_cast<uint32_t>(bits >> 32);
    context.Length_Low = static_cast<uint32_t>(bits);
}

// Whole blocks are compressed where they lie. The last of them is copied all the same: a caller that looks at the
// record finds the block that reading byte by byte would have left there.
void append(SHA1Context &context, const uint8_t *bytes, size_t count) {
    const size_t held = bytes_held(context);
    if (held + count < BLOCK_SIZE) {
        memcpy(context.Message_Block + held, bytes, count);
        context.Message_Block_Index = static_cast<int32_t>(held + count);
        return;
    }
    if (held != 0) {
        const size_t missing = BLOCK_SIZE - held;
        memcpy(context.Message_Block + held, bytes, missing);
        compress(context, context.Message_Block, 1);
        bytes += missing;
        count -= missing;
    }
    const size_t blocks = count / BLOCK_SIZE;
    const size_t rest = count % BLOCK_SIZE;
    if (blocks != 0) {
        compress(context, bytes, blocks);
        memcpy(context.Message_Block, bytes + (blocks - 1) * BLOCK_SIZE, BLOCK_SIZE);
    }
    memcpy(context.Message_Block, bytes + blocks * BLOCK_SIZE, rest);
    context.Message_Block_Index = static_cast<int32_t>(rest);
}

void store_big_endian(uint8_t *out, uint32_t word) {
    out[0] = static_cast<uint8_t>(word >> 24);
    out[1] = static_cast<uint8_t>(word >> 16);
    out[2] = static_cast<uint8_t>(word >> 8);
    out[3] = static_cast<uint8_t>(word);
}

void finish(SHA1Context &context) {
    SHA1PadMessage(&context);
    memset(context.Message_Block, 0, sizeof context.Message_Block);
    context.Length_Low = 0;
    context.Length_High = 0;
    context.Computed = 1;
}

}  // namespace

int SHA1Reset(SHA1Context *context) {
    if (context == nullptr) {
        return VELKOR_SHA1_NULL;
    }
    context->Length_Low = 0;
    context->Length_High = 0;
    context->Message_Block_Index = 0;
    context->Intermediate_Hash[0] = 0x67452301;
    context->Intermediate_Hash[1] = 0xEFCDAB89;
    context->Intermediate_Hash[2] = 0x98BADCFE;
    context->Intermediate_Hash[3] = 0x10325476;
    context->Intermediate_Hash[4] = 0xC3D2E1F0;
    context->Computed = 0;
    context->Corrupted = 0;
    return VELKOR_SHA1_SUCCESS;
}

int SHA1Input(SHA1Context *context, const uint8_t *bytes, uint32_t count) {
    if (count == 0) {
        return VELKOR_SHA1_SUCCESS;
    }
    if (context == nullptr || bytes == nullptr) {
        return VELKOR_SHA1_NULL;
    }
    if (context->Computed != 0) {
        context->Corrupted = VELKOR_SHA1_STATE_ERROR;
        return VELKOR_SHA1_STATE_ERROR;
    }
    if (context->Corrupted != 0) {
        return context->Corrupted;
    }
    // The byte that makes the message too long is still read, and this call still succeeds; the next ones do not.
    if (count >= bytes_until_too_long(*context)) {
        count = static_cast<uint32_t>(bytes_until_too_long(*context));
        context->Corrupted = 1;
    }
    append(*context, bytes, count);
    count_bytes(*context, count);
    return VELKOR_SHA1_SUCCESS;
}

void SHA1ProcessMessageBlock(SHA1Context *context) {
    if (context == nullptr) {
        return;
    }
    compress(*context, context->Message_Block, 1);
    context->Message_Block_Index = 0;
}

void SHA1PadMessage(SHA1Context *context) {
    if (context == nullptr) {
        return;
    }
    uint8_t *const block = context->Message_Block;
    const size_t held = bytes_held(*context);
    block[held] = 0x80;
    if (held < LENGTH_AT) {
        memset(block + held + 1, 0, LENGTH_AT - held - 1);
    } else {
        memset(block + held + 1, 0, BLOCK_SIZE - held - 1);
        SHA1ProcessMessageBlock(context);
        memset(block, 0, LENGTH_AT);
    }
    store_big_endian(block + LENGTH_AT, context->Length_High);
    store_big_endian(block + LENGTH_AT + 4, context->Length_Low);
    SHA1ProcessMessageBlock(context);
}

int SHA1Result(SHA1Context *context, uint8_t digest[VELKOR_SHA1_DIGEST_SIZE]) {
    if (context == nullptr || digest == nullptr) {
        return VELKOR_SHA1_NULL;
    }
    if (context->Corrupted != 0) {
        return context->Corrupted;
    }
    if (context->Computed == 0) {
        finish(*context);
    }
    for (size_t i = 0; i < 5; ++i) {
        store_big_endian(digest + 4 * i, context->Intermediate_Hash[i]);
    }
    return VELKOR_SHA1_SUCCESS;
}
