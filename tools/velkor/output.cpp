#include "output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace tool {

std::string json_text(const Json &value, int indent) {
    return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

void print_json(const Json &value) { std::cout << json_text(value, 2) << '\n'; }

bool is_coloured(const std::string &when, int descriptor) {
    if (when != "auto") {
        return when == "always";
    }
    const char *const refused = getenv("NO_COLOR");
    const char *const terminal = getenv("TERM");
    const bool able = terminal == nullptr || strcmp(terminal, "dumb") != 0;
    return isatty(descriptor) == 1 && able && (refused == nullptr || *refused == '\0');
}

std::string Palette::paint(const char *code, std::string_view text) const {
    if (!on_ || text.empty()) {
        return std::string(text);
    }
    return "\033[" + std::string(code) + "m" + std::string(text) + "\033[0m";
}

std::string spelt_out(std::string_view text) {
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte == 0x7f) {
            result += {'^', static_cast<char>(byte ^ 0x40)};
        } else {
            result += character;
        }
    }
    return result;
}

std::string in_quotes(std::string_view text) { return "\"" + spelt_out(text) + "\""; }

void Table::print() const {
    size_t width = 0;
    for (const Row &row : rows_) {
        width = std::max(width, row.name.size());
    }
    for (const Row &row : rows_) {
        std::cout << row.name << std::string(width + 2 - row.name.size(), ' ') << row.value << '\n';
    }
}

std::string counted(size_t number, const std::string &thing) {
    return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

void remark(const std::string &text) { std::cerr << "velkor: " << text << std::endl; }

}  // namespace tool
