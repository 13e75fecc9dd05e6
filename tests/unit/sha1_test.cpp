#include <gtest/gtest.h>
#include <string.h>
#include <velkor/text.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "sha1/plain.h"
#include "sha1/x86.h"
#include "support/exact_bytes.h"
#include "support/place.h"
#include "support/random_text.h"
#include "support/text_models.h"
#include "support/x86_features.h"

namespace {

const uint8_t *bytes_of(const std::string &text) { return reinterpret_cast<const uint8_t *>(text.data()); }

std::string in_hexadecimal(const uint8_t *bytes, size_t size) {
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += "0123456789abcdef"[bytes[i] >> 4];
        text += "0123456789abcdef"[bytes[i] & 15];
    }
    return text;
}

std::string digest_of(SHA1Context &context) {
    uint8_t digest[VELKOR_SHA1_DIGEST_SIZE] = {};
    EXPECT_EQ(SHA1Result(&context, digest), 0);
    return in_hexadecimal(digest, sizeof digest);
}

std::string sha1(const std::string &message, size_t piece = SIZE_MAX) {
    SHA1Context context;
    EXPECT_EQ(SHA1Reset(&context), 0);
    for (size_t at = 0; at < message.size(); at += std::min(piece, message.size() - at)) {
        const size_t count = std::min(piece, message.size() - at);
        EXPECT_EQ(SHA1Input(&context, bytes_of(message) + at, static_cast<uint32_t>(count)), 0);
    }
    return digest_of(context);
}

SHA1Context fresh() {
    SHA1Context context;
    SHA1Reset(&context);
    return context;
}

void expect_same(const SHA1Context &context, const model::Sha1 &reference) {
    ASSERT_TRUE(std::ranges::equal(context.Intermediate_Hash, reference.hash));
    ASSERT_EQ(context.Length_Low, reference.low);
    ASSERT_EQ(context.Length_High, reference.high);
    ASSERT_EQ(context.Message_Block_Index, reference.index);
    ASSERT_TRUE(std::ranges::equal(context.Message_Block, reference.block));
    ASSERT_EQ(context.Computed, reference.computed);
    ASSERT_EQ(context.Corrupted, reference.corrupted);
}

TEST(Sha1, KnowsThePublishedDigests) {
    EXPECT_EQ(sha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(sha1("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(sha1(std::string(1000000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
    EXPECT_EQ(sha1(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    std::string repeated;
    for (int i = 0; i < 10; ++i) {
        repeated += "0123456701234567012345670123456701234567012345670123456701234567";
    }
    EXPECT_EQ(sha1(repeated), "dea356a2cddd90c7a7ecedc5ebb563934f460452");
}

TEST(Sha1, AgreesWithTheSystemsToolOnRealFiles) {
    const std::string expected =
        place::output_of("cd " VELKOR_SOURCE_DIR " && find src include docs cmake -type f | sort | xargs sha1sum");
    size_t files = 0;
    for (size_t at = 0; at < expected.size(); ++files) {
        const size_t end = expected.find('\n', at);
        const std::string path = std::string(VELKOR_SOURCE_DIR "/") + expected.substr(at + 42, end - at - 42);
        EXPECT_EQ(sha1(place::read_file(path), 4096), expected.substr(at, 40)) << path;
        at = end + 1;
    }
    EXPECT_GT(files, 40U);
}

TEST(Sha1, GivesTheSameDigestWhateverThePieces) {
    const std::string message = RandomText(1).bytes(20000) + std::string(300, 'x');
    const std::string whole = sha1(message);
    for (const size_t piece : {1U, 3U, 63U, 64U, 65U, 127U, 128U, 1000U}) {
        EXPECT_EQ(sha1(message, piece), whole) << piece;
    }
}

TEST(Sha1, PadsEveryLengthOfTheLastBlock) {
    for (size_t length = 0; length <= 200; ++length) {
        const std::string message(length, 'q');
        model::Sha1 reference;
        reference.input(bytes_of(message), length);
        reference.pad();
        std::string expected;
        for (const uint32_t word : reference.hash) {
            const uint8_t bytes[] = {static_cast<uint8_t>(word >> 24), static_cast<uint8_t>(word >> 16),
                                     static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word)};
            expected += in_hexadecimal(bytes, 4);
        }
        EXPECT_EQ(sha1(message), expected) << length;
    }
}

// Whatever way the bytes go inside, the record holds what reading them one by one leaves: block, index, lengths.
TEST(Sha1, KeepsTheRecordOfAByteByByteReading) {
    RandomText random(2);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        SHA1Context context = fresh();
        memset(context.Message_Block, 0, sizeof context.Message_Block);
        model::Sha1 reference;
        for (unsigned pieces = random.number(2) + 1; pieces > 0; --pieces) {
            const ExactBytes piece(random.bytes(pieces == 2 ? 200 : 80));
            const auto *const bytes = reinterpret_cast<const uint8_t *>(piece.get());
            ASSERT_EQ(SHA1Input(&context, bytes, static_cast<uint32_t>(piece.size())),
                      reference.input(bytes, piece.size()));
            ASSERT_NO_FATAL_FAILURE(expect_same(context, reference));
        }
        SHA1PadMessage(&context);
        reference.pad();
        ASSERT_NO_FATAL_FAILURE(expect_same(context, reference));
    }
}

TEST(Sha1, AnswersNoBytesBeforeItLooksAtPointers) {
    SHA1Context context = fresh();
    EXPECT_EQ(SHA1Input(nullptr, nullptr, 0), 0);
    EXPECT_EQ(SHA1Input(&context, nullptr, 0), 0);
    digest_of(context);
    EXPECT_EQ(SHA1Input(&context, bytes_of("x"), 0), 0);  // no input at all, so none after the result
    EXPECT_EQ(context.Corrupted, 0);
}

TEST(Sha1, AnswersOneForNull) {
    SHA1Context context = fresh();
    uint8_t digest[VELKOR_SHA1_DIGEST_SIZE];
    EXPECT_EQ(SHA1Reset(nullptr), 1);
    EXPECT_EQ(SHA1Input(nullptr, bytes_of("a"), 1), 1);
    EXPECT_EQ(SHA1Input(&context, nullptr, 1), 1);
    EXPECT_EQ(SHA1Result(nullptr, digest), 1);
    EXPECT_EQ(SHA1Result(&context, nullptr), 1);
    EXPECT_EQ(context.Corrupted, 0);
    EXPECT_EQ(context.Computed, 0);
    SHA1ProcessMessageBlock(nullptr);
    SHA1PadMessage(nullptr);
}

TEST(Sha1, RefusesInputAfterTheResultForGood) {
    SHA1Context context = fresh();
    uint8_t digest[VELKOR_SHA1_DIGEST_SIZE];
    EXPECT_EQ(SHA1Input(&context, bytes_of("abc"), 3), 0);
    EXPECT_EQ(SHA1Result(&context, digest), 0);
    EXPECT_EQ(SHA1Input(&context, bytes_of("d"), 1), 3);
    EXPECT_EQ(context.Corrupted, 3);
    EXPECT_EQ(SHA1Input(&context, bytes_of("d"), 1), 3);
    EXPECT_EQ(SHA1Result(&context, digest), 3);
    EXPECT_EQ(SHA1Reset(&context), 0);
    EXPECT_EQ(SHA1Input(&context, bytes_of("abc"), 3), 0);
    EXPECT_EQ(digest_of(context), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST(Sha1, AnswersAStoredCodeAsItIs) {
    SHA1Context context = fresh();
    uint8_t digest[VELKOR_SHA1_DIGEST_SIZE];
    context.Corrupted = 2;
    EXPECT_EQ(SHA1Input(&context, bytes_of("a"), 1), 2);
    EXPECT_EQ(SHA1Result(&context, digest), 2);
}

TEST(Sha1, RepeatsItsResultAndClearsTheBlock) {
    SHA1Context context = fresh();
    SHA1Input(&context, bytes_of("abc"), 3);
    const std::string first = digest_of(context);
    EXPECT_EQ(context.Computed, 1);
    EXPECT_EQ(context.Length_Low, 0U);
    EXPECT_EQ(context.Length_High, 0U);
    EXPECT_EQ(std::ranges::count(context.Message_Block, 0), 64);
    EXPECT_EQ(digest_of(context), first);
    EXPECT_EQ(digest_of(context), first);
}

TEST(Sha1, ResetLeavesTheBlockAlone) {
    SHA1Context context;
    memset(&context, 0x5a, sizeof context);
    EXPECT_EQ(SHA1Reset(&context), 0);
    EXPECT_EQ(context.Intermediate_Hash[4], 0xC3D2E1F0U);
    EXPECT_EQ(context.Message_Block_Index, 0);
    EXPECT_EQ(std::ranges::count(context.Message_Block, 0x5a), 64);
}

// The length is near its end: how far byte-by-byte reading gets, and with which code it stops.
TEST(Sha1, StopsWithCodeOneWhenTheLengthIsCarriedOut) {
    for (unsigned bytes_left = 1; bytes_left <= 200; ++bytes_left) {
        SHA1Context context = fresh();
        memset(context.Message_Block, 0, sizeof context.Message_Block);
        model::Sha1 reference;
        reference.high = context.Length_High = UINT32_MAX;
        reference.low = context.Length_Low = 0U - bytes_left * 8;
        const std::string bytes = std::string(150, 'a') + std::string(50, 'b');
        EXPECT_EQ(SHA1Input(&context, bytes_of(bytes), 150), 0);
        EXPECT_EQ(reference.input(bytes_of(bytes), 150), 0);
        ASSERT_NO_FATAL_FAILURE(expect_same(context, reference)) << bytes_left;
        EXPECT_EQ(context.Corrupted, bytes_left <= 150 ? 1 : 0);
        EXPECT_EQ(SHA1Input(&context, bytes_of(bytes), 1), reference.input(bytes_of(bytes), 1));
        ASSERT_NO_FATAL_FAILURE(expect_same(context, reference)) << bytes_left;
    }
}

TEST(Sha1, CarriesTheLowWordIntoTheHighOne) {
    SHA1Context context = fresh();
    context.Length_Low = 0U - 8;
    EXPECT_EQ(SHA1Input(&context, bytes_of("ab"), 2), 0);
    EXPECT_EQ(context.Length_Low, 8U);
    EXPECT_EQ(context.Length_High, 1U);
    EXPECT_EQ(context.Corrupted, 0);
}

TEST(Sha1, StaysInsideARecordThatWasNeverReset) {
    SHA1Context context;
    memset(&context, 0, sizeof context);
    context.Message_Block_Index = -1;
    EXPECT_EQ(SHA1Input(&context, bytes_of("abcd"), 4), 0);
    EXPECT_EQ(context.Message_Block_Index, 3);
    context.Message_Block_Index = 1000000;
    SHA1PadMessage(&context);
    EXPECT_EQ(context.Message_Block_Index, 0);
}

TEST(Sha1, CompressesTheBlockOnDemand) {
    SHA1Context context = fresh();
    model::Sha1 reference;
    for (uint8_t i = 0; i < 64; ++i) {
        context.Message_Block[i] = reference.block[i] = i;
    }
    context.Message_Block_Index = reference.index = 17;
    SHA1ProcessMessageBlock(&context);
    reference.process();
    expect_same(context, reference);
}

using Compress = void(velkor::Sha1Hash &, const uint8_t *, size_t);

// What the library chooses from on this processor.
std::vector<Compress *> versions() {
    std::vector<Compress *> found = {velkor::sha1_compress_plain};
#if defined(__x86_64__)
    if (velkor::cpu_has_sha()) {
        found.push_back(velkor::sha1_compress_x86);
    }
#endif
    return found;
}

TEST(Sha1, CompressesAsTheReferenceInEachOfItsVersions) {
    const std::vector<Compress *> here = versions();
    RandomText random(3);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        model::Sha1 reference;
        for (uint32_t &word : reference.hash) {
            word = static_cast<uint32_t>(random.word());
        }
        std::array<velkor::Sha1Hash, 2> hashes;
        for (velkor::Sha1Hash &hash : hashes) {
            std::ranges::copy(reference.hash, hash);
        }
        std::vector<uint8_t> blocks(random.number(3) * sizeof reference.block);
        for (size_t at = 0; at < blocks.size(); at += sizeof reference.block) {
            for (uint8_t &byte : reference.block) {
                byte = static_cast<uint8_t>(random.number(255));
            }
            std::ranges::copy(reference.block, blocks.begin() + static_cast<ptrdiff_t>(at));
            reference.process();
        }
        for (size_t version = 0; version < here.size(); ++version) {
            here[version](hashes[version], blocks.data(), blocks.size() / sizeof reference.block);
            ASSERT_TRUE(std::ranges::equal(hashes[version], reference.hash)) << version;
        }
    }
}

}  // namespace
