// Loads any bytes as an INI file, edits, dumps and loads again, against the model. What stands behind the last byte
// 0xFF chooses the edits, so that a plain INI file is an input.
#include <stddef.h>
#include <stdint.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/ini_lockstep.h"

namespace {

constexpr size_t MOST_EDITS = 256;  // bytes; longer sequences only take longer

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const ini::MemoryFile file;
    const std::string input(reinterpret_cast<const char *>(data), size);
    const size_t split = input.rfind('\xff');
    const std::string edits = split != std::string::npos ? input.substr(split + 1, MOST_EDITS) : "";
    const std::string difference = ini::difference(file, input.substr(0, split), edits);
    if (!difference.empty()) {
        fprintf(stderr, "%s\n", difference.c_str());
        abort();
    }
    return 0;
}
