#include "log_line.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

namespace tool::log {

namespace {

bool consists_of(std::string_view text, std::string_view allowed) {
    return !text.empty() && text.find_first_not_of(allowed) == std::string_view::npos;
}

// Words that an engineer looks for, by how they begin.
bool is_alarming(std::string_view word) {
    static constexpr std::array<std::string_view, 9> BEGINNINGS = {"error",  "fail",    "fatal",   "panic", "abort",
                                                                   "denied", "refused", "corrupt", "cannot"};
    std::string lower(word);
    std::ranges::transform(lower, lower.begin(), [](unsigned char letter) { return std::tolower(letter); });
    return lower == "err" ||
           std::ranges::any_of(BEGINNINGS, [&](auto beginning) { return lower.starts_with(beginning); });
}

bool is_letter(char character) { return std::isalpha(static_cast<unsigned char>(character)) != 0; }

std::string with_alarms(std::string_view text, const Palette &palette) {
    std::string result;
    for (auto at = text.begin(); at != text.end();) {
        const auto end = std::find_if(at, text.end(), [&](char next) { return is_letter(next) != is_letter(*at); });
        const std::string_view piece(at, end);
        result += is_alarming(piece) ? palette.red(piece) : spelt_out(piece);
        at = end;
    }
    return result;
}

}  // namespace

Line::Line(std::string_view text) : message(text) {
    const size_t stamp_end = text.find("] [");
    const size_t thread_end = text.find(' ', stamp_end + 3);
    const size_t module_end = text.find(']', thread_end);
    if (!text.starts_with('[') || stamp_end == std::string_view::npos || thread_end == std::string_view::npos ||
        module_end == std::string_view::npos) {
        return;
    }
    const std::string_view first = text.substr(1, stamp_end - 1);
    const std::string_view second = text.substr(stamp_end + 3, thread_end - stamp_end - 3);
    if (!consists_of(first, "0123456789/: ") || !consists_of(second, "0123456789")) {
        return;
    }
    stamp = first;
    thread = second;
    module = text.substr(thread_end + 1, module_end - thread_end - 1);
    message = text.substr(module_end + 1);
}

std::string for_people(const Line &line, const Palette &palette) {
    std::string head;
    if (line.has_head()) {
        head = palette.dim("[" + std::string(line.stamp) + "]") + " [" + palette.cyan(line.thread) + " " +
               palette.bold(palette.on() ? spelt_out(line.module) : std::string(line.module)) + "]";
    }
    return head + (palette.on() ? with_alarms(line.message, palette) : std::string(line.message));
}

Json for_programs(const Line &line) {
    Json object = {{"time", nullptr}, {"thread", nullptr}, {"module", nullptr}, {"message", line.message}};
    if (line.has_head()) {
        long thread = 0;
        std::from_chars(line.thread.data(), line.thread.data() + line.thread.size(), thread);
        object["time"] = line.stamp;
        object["thread"] = thread;
        object["module"] = line.module;
    }
    return object;
}

TextFilter::TextFilter(std::vector<std::string> wanted, std::vector<std::string> unwanted)
    : wanted_(std::move(wanted)), unwanted_(std::move(unwanted)) {}

bool TextFilter::keeps(std::string_view line) const {
    const auto occurs = [&](const std::string &text) { return line.find(text) != std::string_view::npos; };
    return (wanted_.empty() || std::ranges::any_of(wanted_, occurs)) && std::ranges::none_of(unwanted_, occurs);
}

}  // namespace tool::log
