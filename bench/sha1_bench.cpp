// SHA-1 of one message, from begin to digest, beside OpenSSL and nettle. The program runs itself again with OpenSSL
// kept from the SHA instructions, and once more with it kept from all that not every x86-64 has: OpenSSL reads at its
// start what it may use.
#define OPENSSL_SUPPRESS_DEPRECATED  // the calls of old are OpenSSL's fastest for short messages
#include <benchmark/benchmark.h>
#include <nettle/sha1.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/text.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "sha1/plain.h"

namespace {

constexpr const char *OPENSSL_MAY = "OPENSSL_ia32cap";
constexpr const char *WITHOUT_SHA = ":~0x20000000";
constexpr const char *WITHOUT_ANY = "0:0";

using Digest = std::array<uint8_t, VELKOR_SHA1_DIGEST_SIZE>;
using Bytes = std::vector<uint8_t>;

template <void (*HASH)(const Bytes &, Digest &)>
void Sha1(benchmark::State &state) {
    Bytes bytes(static_cast<size_t>(state.range(0)));
    std::mt19937 random(1);
    for (uint8_t &byte : bytes) {
        byte = static_cast<uint8_t>(random());
    }
    Digest digest = {};
    for ([[maybe_unused]] auto pass : state) {
        benchmark::DoNotOptimize(bytes.data());
        HASH(bytes, digest);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void by_velkor(const Bytes &bytes, Digest &digest) {
    SHA1Context context;
    SHA1Reset(&context);
    SHA1Input(&context, bytes.data(), static_cast<uint32_t>(bytes.size()));
    SHA1Result(&context, digest.data());
}

// What the recorder runs. The messages here are whole blocks, and one of padding.
void by_velkor_plain(const Bytes &bytes, Digest &digest) {
    velkor::Sha1Hash hash = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    velkor::sha1_compress_plain(hash, bytes.data(), bytes.size() / 64);
    uint8_t padding[64] = {0x80};
    const uint64_t bits = __builtin_bswap64(uint64_t{bytes.size()} * 8);
    memcpy(padding + 56, &bits, sizeof bits);
    velkor::sha1_compress_plain(hash, padding, 1);
    for (size_t i = 0; i < std::size(hash); ++i) {
        const uint32_t word = __builtin_bswap32(hash[i]);
        memcpy(digest.data() + sizeof word * i, &word, sizeof word);
    }
}

void by_openssl(const Bytes &bytes, Digest &digest) {
    SHA_CTX context;
    SHA1_Init(&context);
    SHA1_Update(&context, bytes.data(), bytes.size());
    SHA1_Final(digest.data(), &context);
}

void by_openssl_evp(const Bytes &bytes, Digest &digest) {
    static EVP_MD *const algorithm = EVP_MD_fetch(nullptr, "SHA1", nullptr);
    static EVP_MD_CTX *const context = EVP_MD_CTX_new();
    EVP_DigestInit_ex2(context, algorithm, nullptr);
    EVP_DigestUpdate(context, bytes.data(), bytes.size());
    EVP_DigestFinal_ex(context, digest.data(), nullptr);
}

void by_nettle(const Bytes &bytes, Digest &digest) {
    struct sha1_ctx context;
    sha1_init(&context);
    sha1_update(&context, bytes.size(), bytes.data());
    sha1_digest(&context, digest.size(), digest.data());
}

template <void (*HASH)(const Bytes &, Digest &)>
void add(const std::string &name) {
    benchmark::RegisterBenchmark(("Sha1/" + name).c_str(), Sha1<HASH>)->Arg(64)->Arg(1024)->Arg(1 << 20);
}

// The same program once more, with OpenSSL kept from something.
int run_again(char **argv, const char *without) {
    setenv(OPENSSL_MAY, without, 1);
    pid_t child = 0;
    if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, argv, environ) != 0) {
        return 1;
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    const char *const kept_from = getenv(OPENSSL_MAY);
    std::vector<char *> arguments(argv, argv + argc + 1);  // as they are before the library takes its own out
    if (kept_from == nullptr) {
        add<by_velkor>("velkor");
        add<by_openssl>("openssl");
        add<by_openssl_evp>("openssl_evp");
        add<by_nettle>("nettle");
    } else if (kept_from == std::string(WITHOUT_SHA)) {
        add<by_openssl>("openssl_without_sha");
    } else {
        add<by_velkor_plain>("velkor_plain");
        add<by_openssl>("openssl_plain");
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    if (kept_from != nullptr) {
        return 0;
    }
    return run_again(arguments.data(), WITHOUT_SHA) + run_again(arguments.data(), WITHOUT_ANY);
}
