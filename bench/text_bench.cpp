// The hot text helpers beside what the C library and OpenSSL have for the same work.
#include <benchmark/benchmark.h>
#include <inttypes.h>
#include <openssl/evp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <velkor/text.h>

#include <random>
#include <string>
#include <vector>

namespace {

std::string random_bytes(size_t size) {
    std::mt19937 random(1);
    std::string bytes(size, '\0');
    for (char &byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

void count_bytes(benchmark::State &state, size_t size) {
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

// ---- base64 ----

void Base64(benchmark::State &state) {
    const std::string data = random_bytes(static_cast<size_t>(state.range(0)));
    std::string out(data.size() * 2 + 4, '\0');
    for ([[maybe_unused]] auto pass : state) {
        int length = 0;
        to_base64(out.data(), data.data(), static_cast<int>(data.size()), &length);
        benchmark::DoNotOptimize(out.data());
    }
    count_bytes(state, data.size());
}

void Base64OfOpenssl(benchmark::State &state) {
    const std::string data = random_bytes(static_cast<size_t>(state.range(0)));
    std::string out(data.size() * 2 + 4, '\0');
    for ([[maybe_unused]] auto pass : state) {
        EVP_EncodeBlock(reinterpret_cast<unsigned char *>(out.data()),
                        reinterpret_cast<const unsigned char *>(data.data()), static_cast<int>(data.size()));
        benchmark::DoNotOptimize(out.data());
    }
    count_bytes(state, data.size());
}

BENCHMARK(Base64)->Name("Base64/velkor")->Arg(64)->Arg(1024)->Arg(65536);
BENCHMARK(Base64OfOpenssl)->Name("Base64/openssl")->Arg(64)->Arg(1024)->Arg(65536);

// ---- searching bytes ----

struct Search {
    std::string data;
    std::string pattern;
};

constexpr size_t SEARCHED = size_t{512} * 1024;

Search in_random(size_t length) { return {random_bytes(SEARCHED), std::string(length, '\x7f')}; }

// A stream of units of some kilobytes behind start codes, with the stuffing that keeps start codes out of them and the
// zeros that pad some; the unit that is looked for is not there.
Search in_video() {
    constexpr size_t UNIT = 3000;
    constexpr size_t PADDING = 100;
    std::string data = random_bytes(SEARCHED);
    for (size_t unit = 0; unit + UNIT <= data.size(); unit += UNIT) {
        data.replace(unit, 4, std::string("\0\0\1\x41", 4));
        data.replace(unit + UNIT - PADDING, PADDING, PADDING, '\0');
    }
    for (size_t i = 0; i + 3 < data.size(); ++i) {
        const bool is_code = data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1;
        if (is_code && data[i + 3] != '\x41') {
            data[i + 2] = 3;
        }
    }
    return {data, std::string("\0\0\1\x67", 4)};
}

Search in_zeros(size_t length, size_t one_at) {
    std::string pattern(length, '\0');
    pattern[one_at] = 1;
    return {std::string(SEARCHED, '\0'), pattern};
}

// Copy after copy of the pattern, each with one wrong byte.
Search in_near_copies(size_t length) {
    const std::string pattern = random_bytes(length);
    std::mt19937 random(2);
    std::string data;
    while (data.size() < SEARCHED) {
        std::string copy = pattern;
        copy[random() % length] ^= 1;
        data += copy;
    }
    return {data, pattern};
}

void find_by_velkor(benchmark::State &state, const Search &search) {
    for ([[maybe_unused]] auto pass : state) {
        benchmark::DoNotOptimize(FindPosByFlag(search.data.data(), static_cast<int>(search.data.size()),
                                               search.pattern.data(), static_cast<int>(search.pattern.size())));
    }
    count_bytes(state, search.data.size());
}

void find_by_memmem(benchmark::State &state, const Search &search) {
    for ([[maybe_unused]] auto pass : state) {
        benchmark::DoNotOptimize(
            memmem(search.data.data(), search.data.size(), search.pattern.data(), search.pattern.size()));
    }
    count_bytes(state, search.data.size());
}

void add_search(const std::string &name, const Search &search) {
    benchmark::RegisterBenchmark(("Find/" + name + "/velkor").c_str(), find_by_velkor, search);
    benchmark::RegisterBenchmark(("Find/" + name + "/memmem").c_str(), find_by_memmem, search);
}

[[maybe_unused]] const bool SEARCHES_ADDED = [] {
    for (const size_t length : {3U, 4U, 8U, 16U}) {
        add_search("random_" + std::to_string(length), in_random(length));
    }
    add_search("video", in_video());
    for (const size_t length : {4U, 64U}) {
        const std::string size = std::to_string(length);
        add_search("zeros_one_first_" + size, in_zeros(length, 0));
        add_search("zeros_one_within_" + size, in_zeros(length, length / 2));
        add_search("zeros_one_last_" + size, in_zeros(length, length - 1));
    }
    for (const size_t length : {8U, 16U, 32U, 64U, 128U, 512U}) {
        add_search("near_copies_" + std::to_string(length), in_near_copies(length));
    }
    return true;
}();

// ---- splitting ----

constexpr size_t PIECES = 64;
constexpr size_t PIECE_SIZE = 80;

struct PieceBuffers {
    std::vector<char> bytes = std::vector<char>(PIECES * PIECE_SIZE, '\0');
    std::vector<char *> pieces = std::vector<char *>(PIECES, nullptr);

    PieceBuffers() {
        for (size_t i = 0; i < PIECES; ++i) {
            pieces[i] = bytes.data() + i * PIECE_SIZE;
        }
    }
};

// As many fields of one length as a recorder's configuration lines have.
std::string fields(size_t length) {
    constexpr size_t FIELDS = 32;
    std::string text;
    for (size_t i = 0; i < FIELDS; ++i) {
        text += std::string(length, static_cast<char>('a' + i % 26)) + ",";
    }
    text.pop_back();
    return text;
}

std::string text_to_split(int64_t length) {
    return length == 0 ? "192.168.101.254" : fields(static_cast<size_t>(length));
}

void Split(benchmark::State &state) {
    const std::string text = text_to_split(state.range(0));
    const char *const delimiter = state.range(0) == 0 ? "." : ",";
    const PieceBuffers buffers;
    for ([[maybe_unused]] auto pass : state) {
        benchmark::DoNotOptimize(SplitString(text.c_str(), delimiter, buffers.pieces.data(), PIECE_SIZE, PIECES));
        benchmark::ClobberMemory();
    }
    count_bytes(state, text.size());
}

// The same result: the text stays whole, and each piece is in its buffer.
void SplitByStrsep(benchmark::State &state) {
    const std::string text = text_to_split(state.range(0));
    const char *const delimiter = state.range(0) == 0 ? "." : ",";
    const PieceBuffers buffers;
    std::string copy(text.size() + 1, '\0');
    for ([[maybe_unused]] auto pass : state) {
        memcpy(copy.data(), text.c_str(), text.size() + 1);
        char *rest = copy.data();
        for (size_t i = 0; rest != nullptr && i < PIECES; ++i) {
            const char *const piece = strsep(&rest, delimiter);
            strncpy(buffers.pieces[i], piece, strnlen(piece, PIECE_SIZE - 1));
        }
        benchmark::ClobberMemory();
    }
    count_bytes(state, text.size());
}

// Only where the pieces begin, and the text is lost.
void StrsepAlone(benchmark::State &state) {
    const std::string text = text_to_split(state.range(0));
    const char *const delimiter = state.range(0) == 0 ? "." : ",";
    std::string copy(text.size() + 1, '\0');
    for ([[maybe_unused]] auto pass : state) {
        memcpy(copy.data(), text.c_str(), text.size() + 1);
        char *rest = copy.data();
        while (rest != nullptr) {
            benchmark::DoNotOptimize(strsep(&rest, delimiter));
        }
    }
    count_bytes(state, text.size());
}

// 0 is an IPv4 address, anything else the length of 32 fields.
BENCHMARK(Split)->Name("Split/velkor")->Arg(0)->Arg(2)->Arg(8)->Arg(20)->Arg(64);
BENCHMARK(SplitByStrsep)->Name("Split/strsep_into_buffers")->Arg(0)->Arg(2)->Arg(8)->Arg(20)->Arg(64);
BENCHMARK(StrsepAlone)->Name("Split/strsep_alone")->Arg(0)->Arg(2)->Arg(8)->Arg(20)->Arg(64);

// ---- trigger sets ----

constexpr uint64_t SET[VELKOR_TRIGGER_WORDS] = {0x0123456789ABCDEF, 0xFEDCBA9876543210, 0x8000000000000001,
                                                0x9000000000000000};

void TriggerToText(benchmark::State &state) {
    char out[VELKOR_TRIGGER_TEXT_SIZE] = "";
    for ([[maybe_unused]] auto pass : state) {
        benchmark::DoNotOptimize(SET);
        db_Trigger2Str(SET, out);
        benchmark::DoNotOptimize(out);
    }
}

void WordsBySnprintf(benchmark::State &state) {
    char out[VELKOR_TRIGGER_TEXT_SIZE] = "";
    for ([[maybe_unused]] auto pass : state) {
        benchmark::DoNotOptimize(SET);
        snprintf(out, sizeof out, "%" PRIX64 "%016" PRIX64 "%016" PRIX64 "%016" PRIX64, SET[3], SET[2], SET[1], SET[0]);
        benchmark::DoNotOptimize(out);
    }
}

void TextToTrigger(benchmark::State &state) {
    char text[VELKOR_TRIGGER_TEXT_SIZE] = "";
    db_Trigger2Str(SET, text);
    for ([[maybe_unused]] auto pass : state) {
        uint64_t set[VELKOR_TRIGGER_WORDS] = {};
        benchmark::DoNotOptimize(text);
        db_Str2Trigger(set, text);
        benchmark::DoNotOptimize(set);
    }
}

// The same digits, already cut into words for it.
void WordsByStrtoul(benchmark::State &state) {
    char texts[VELKOR_TRIGGER_WORDS][17] = {};
    for (size_t i = 0; i < VELKOR_TRIGGER_WORDS; ++i) {
        snprintf(texts[i], sizeof texts[i], "%016" PRIX64, SET[i]);
    }
    for ([[maybe_unused]] auto pass : state) {
        uint64_t set[VELKOR_TRIGGER_WORDS] = {};
        benchmark::DoNotOptimize(texts);
        for (size_t i = 0; i < VELKOR_TRIGGER_WORDS; ++i) {
            set[i] = strtoul(texts[i], nullptr, 16);
        }
        benchmark::DoNotOptimize(set);
    }
}

BENCHMARK(TriggerToText)->Name("Trigger/to_text/velkor");
BENCHMARK(WordsBySnprintf)->Name("Trigger/to_text/snprintf");
BENCHMARK(TextToTrigger)->Name("Trigger/from_text/velkor");
BENCHMARK(WordsByStrtoul)->Name("Trigger/from_text/strtoul");

}  // namespace
