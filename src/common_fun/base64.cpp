// Base64.
#include <limits.h>
#include <stddef.h>
#include <stdint.h>

#include <velkor/text.h>

#include "common_fun/base64_plain.h"
#include "common_fun/base64_x86.h"
#include "support/best_version.h"
#include "support/x86_features.h"

namespace {

using Encode = void(char *, const uint8_t *, size_t);

Encode *best_here() {
#if defined(__x86_64__)
    if (velkor::cpu_has_avx2()) {
        return velkor::base64_x86;
    }
#endif
    return velkor::base64_plain;
}

constinit velkor::BestVersion<Encode> best_version(best_here);

// What cannot be encoded is encoded as nothing: an empty text, and 0 characters. That is also a length whose text an
// `int` cannot count.
size_t encodable(const void *data, int length) {
    if (data == nullptr || length < 0) {
        return 0;
    }
    const auto size = static_cast<size_t>(length);
    return velkor::base64_length(size) <= INT_MAX ? size : 0;
}

}  // namespace

void to_base64(char *out, const void *data, int length, int *out_length) {
    int written = 0;
    if (out != nullptr) {
        const size_t size = encodable(data, length);
        best_version.get()(out, static_cast<const uint8_t *>(data), size);
        written = static_cast<int>(velkor::base64_length(size));
        out[written] = '\0';
    }
    if (out_length != nullptr) {
        *out_length = written;
    }
}
