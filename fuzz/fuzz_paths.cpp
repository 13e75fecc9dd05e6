// Any two texts as paths: what comes out is what a second way of taking them apart gives, and fits its place.
#include <stdint.h>
#include <string.h>
#include <velkor/files.h>
#include <velkor/firmware.h>

#include <memory>
#include <string>

#include "fuzzer.h"

namespace {

// In a block of exactly the text and a byte to spare.
std::unique_ptr<char[]> in_place(const std::string &text) {
    auto path = std::make_unique<char[]>(text.size() + 2);
    memcpy(path.get(), text.c_str(), text.size() + 1);
    return path;
}

void check_name(const std::string &text) {
    const auto path = in_place(text);
    if (extract_file_name(path.get()) != 0) {
        EXPECT_TRUE(text.size() > VELKOR_PATH_LENGTH);
        return;
    }
    const size_t slash = text.rfind('/');
    const std::string expected = text.empty() ? "" : text.substr(slash == std::string::npos ? 1 : slash + 1);
    EXPECT_TRUE(expected == path.get());
}

void check_directory(const std::string &text) {
    const auto path = in_place(text);
    if (is_dir(text.c_str()) != 0) {
        return;
    }
    if (extract_file_path(path.get()) != 0) {
        EXPECT_TRUE(text.size() > VELKOR_PATH_LENGTH);
        return;
    }
    const std::string cut = text.ends_with('/') ? text.substr(0, text.size() - 1) : text;
    const size_t slash = cut.rfind('/');
    EXPECT_TRUE(text.substr(0, slash == std::string::npos ? 1 : slash + 1) == path.get());
}

void check_join(const std::string &directory, const std::string &name) {
    char *const path = concat_path_file(directory.c_str(), name.c_str());
    const size_t first = name.find_first_not_of('/');
    const std::string rest = first == std::string::npos ? "" : name.substr(first);
    const std::string expected = directory + (directory.ends_with('/') ? "" : "/") + rest;
    EXPECT_TRUE((path == nullptr) == (expected.size() > VELKOR_PATH_LENGTH));
    EXPECT_TRUE(path == nullptr || expected == path);
    vkmem_GlobalFree(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string all(reinterpret_cast<const char *>(data), size);
    const std::string first = all.substr(0, all.find('\0'));
    const std::string second = first.size() < all.size() ? all.c_str() + first.size() + 1 : "";
    check_name(first);
    check_directory(first);
    check_join(first, second);
    return 0;
}
