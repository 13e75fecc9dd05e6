#include "picture.h"

#include <algorithm>

namespace recorder {

namespace {

constexpr size_t PANEL_WIDTH = 40;
constexpr size_t PANEL_ROWS = 3;
constexpr size_t LOG_ROWS = 3;  // at least, where there is room for any panel at all

class Painter {
public:
    explicit Painter(bool is_coloured) : is_coloured_(is_coloured) {}
    std::string paint(const char *code, const std::string &text) const {
        return is_coloured_ ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
    }

private:
    bool is_coloured_;
};

// Cut or filled up to a width; what is no plain character would move the cursor.
std::string fit(std::string text, size_t width) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    text.resize(width, ' ');
    return text;
}

// "[2026/11/15 10:25:17] [12 log]text" as "10:25:17 [12 log]text": there is little room.
std::string without_day(const std::string &line) {
    constexpr size_t TIME_AT = 12;
    constexpr size_t TIME_LENGTH = 8;
    const size_t rest = TIME_AT + TIME_LENGTH + 1;
    return line.size() > rest ? line.substr(TIME_AT, TIME_LENGTH) + line.substr(rest) : line;
}

std::string heading(const std::string &name, const std::string &state, size_t width) {
    std::string text = "-- " + name + " ";
    const std::string end = " " + state + " -";
    if (text.size() + end.size() < width) {
        text.resize(width - end.size(), '-');
    }
    return fit(text + end, width);
}

// One row of one panel: 0 is its heading.
std::string panel_row(const Subsystem &part, size_t row, size_t width, const Painter &painter) {
    if (row == 0) {
        const bool has_failed = !part.failures().empty();
        const char *const state = has_failed ? "FAILED" : part.is_troubled() ? "trouble" : "ok";
        const char *const colour = has_failed ? "1;31" : part.is_troubled() ? "1;33" : "1;32";
        return painter.paint(colour, heading(part.name(), state, width));
    }
    const Panel panel = part.panel();
    return fit(row == 1 ? panel.first : panel.second, width);
}

void add_panels(std::vector<std::string> &rows, const Recorder &recorder, Size size, const Painter &painter) {
    const size_t across = std::clamp<size_t>(size.columns / PANEL_WIDTH, 1, recorder.parts.size());
    const size_t width = size.columns / across;
    for (size_t first = 0; first < recorder.parts.size(); first += across) {
        if (rows.size() + PANEL_ROWS + LOG_ROWS > size.rows) {
            return;
        }
        const size_t count = std::min(across, recorder.parts.size() - first);
        for (size_t row = 0; row < PANEL_ROWS; ++row) {
            std::string line;
            for (size_t i = 0; i < count; ++i) {
                line += panel_row(*recorder.parts[first + i], row, width - 1, painter) + " ";
            }
            rows.push_back(line + std::string(size.columns - count * width, ' '));
        }
    }
}

}  // namespace

std::vector<std::string> picture_of(const Recorder &recorder, const std::string &title, bool is_calm, Size size,
                                    bool is_coloured) {
    const Painter painter(is_coloured);
    std::vector<std::string> rows = {painter.paint(is_calm ? "1;7" : "1;7;33", fit(title, size.columns))};
    add_panels(rows, recorder, size, painter);
    if (rows.size() < size.rows) {
        rows.push_back(painter.paint("1", heading("last lines of the log", "/tmp/tty.logman", size.columns)));
    }
    for (const std::string &line : recorder.log.last_lines(size.rows - rows.size())) {
        rows.push_back(painter.paint("2", fit(without_day(line), size.columns)));
    }
    rows.resize(size.rows, std::string(size.columns, ' '));
    return rows;
}

}  // namespace recorder
