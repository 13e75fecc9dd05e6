#include "file_text.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "exit_status.h"

namespace tool {

std::string read_all(int descriptor, const std::string &path) {
    std::string content;
    std::array<char, 16384> block;
    for (;;) {
        const ssize_t length = read(descriptor, block.data(), block.size());
        if (length == 0) {
            return content;
        }
        if (length < 0 && errno != EINTR) {
            fail_call("read " + path);
        }
        content.append(block.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
    }
}

std::vector<std::string> lines_of(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.emplace_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

}  // namespace tool
