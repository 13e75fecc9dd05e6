// Any bytes as the log's switch file: the texts that come out are those of a second reader, written another way.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <velkor/diagnostics.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr const char *SWITCH_FILE = "/dvrfile/logman";

struct Model {
    std::vector<std::string> filters;
    std::vector<std::string> inverts;

    explicit Model(std::string content) {
        while (!content.empty()) {
            const size_t newline = content.find('\n');
            const size_t length = std::min(newline == std::string::npos ? content.size() : newline + 1, size_t{1022});
            take(content.substr(0, length));
            content.erase(0, length);
        }
    }

    void take(std::string line) {
        line = line.c_str();  // ends at a zero
        const size_t equals = line.find('=');
        if (equals == std::string::npos) {
            return;
        }
        std::string value = line.substr(equals + 1);
        value = value.substr(0, value.find_first_of("\r\n")).substr(0, 255);
        if (line.starts_with("dbg")) {
            return;
        }
        if (line.starts_with("filter")) {
            filters.push_back(value);
        } else if (line.starts_with("invert")) {
            inverts.push_back(value);
        }
    }
};

void expect_same(const char *list, const std::vector<std::string> &texts) {
    for (size_t slot = 0; slot < VELKOR_LOGMAN_SLOTS; ++slot) {
        const std::string expected = slot < texts.size() ? texts[slot] : "";
        if (expected != list + slot * VELKOR_LOGMAN_SLOT_SIZE) {
            abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *const file = fopen(SWITCH_FILE, "w");
    if (file == nullptr) {
        fprintf(stderr, "run it in ./dev sandbox: cannot write %s\n", SWITCH_FILE);
        exit(1);
    }
    fwrite(data, 1, size, file);
    fclose(file);
    if (logman_read_config() != 0) {
        abort();
    }
    const Model model(std::string(reinterpret_cast<const char *>(data), size));
    expect_same(g_logman_filter, model.filters);
    expect_same(g_logman_invert, model.inverts);
    return 0;
}
