// Output for people and for programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// Keeps the order in which members were added, which is the order in which a person would read them.
using Json = nlohmann::ordered_json;

// Log text is bytes from anywhere: what is not UTF-8 becomes the replacement character.
std::string json_text(const Json &value, int indent = -1);

// One value on standard output, laid out for reading as well.
void print_json(const Json &value);

// Whether output to this descriptor is coloured: "always", "never", or "auto", which means on a terminal that can,
// unless NO_COLOR is set.
bool is_coloured(const std::string &when, int descriptor);

// Marks parts of a text for a terminal, or leaves them alone.
class Palette {
public:
    explicit Palette(bool on) : on_(on) {}
    bool on() const { return on_; }

    std::string dim(std::string_view text) const { return paint("2", text); }
    std::string bold(std::string_view text) const { return paint("1", text); }
    std::string red(std::string_view text) const { return paint("1;31", text); }
    std::string green(std::string_view text) const { return paint("32", text); }
    std::string cyan(std::string_view text) const { return paint("36", text); }
    std::string blue(std::string_view text) const { return paint("34", text); }

private:
    std::string paint(const char *code, std::string_view text) const;

    bool on_;
};

// Control characters spelt out ("^["): what a recorder logs must not steer an engineer's terminal.
std::string spelt_out(std::string_view text);

// The same between double quotes.
std::string in_quotes(std::string_view text);

// Rows of a name and its values, the values below each other.
class Table {
public:
    void add(std::string name, std::string value) { rows_.push_back({std::move(name), std::move(value)}); }
    void print() const;

private:
    struct Row {
        std::string name;
        std::string value;
    };
    std::vector<Row> rows_;
};

// "1 line", "2 lines"
std::string counted(size_t number, const std::string &thing);

// A remark to the person who typed, beside the output.
void remark(const std::string &text);

}  // namespace tool
