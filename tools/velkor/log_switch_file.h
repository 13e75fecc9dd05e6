// The file that switches the log of all processes: what they read from it, and how to change it so that they notice.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tool::log {

inline constexpr const char *SWITCH_FILE = "/dvrfile/logman";

// A line that does not do what its writer may think.
struct Note {
    size_t line;
    std::string text;
    std::string why;
};

// What a process knows after it read the file.
struct Settings {
    int print = 0;
    std::vector<std::string> filters;
    std::vector<std::string> inverts;
    std::vector<Note> notes;
};

Settings read_settings(const std::string &content);

// The file at one moment.
struct SwitchFile {
    bool present = false;
    int error = 0;  // of the attempt to read it, 0 when it could be read
    std::string content;
    Settings settings;

    bool readable() const { return present && error == 0; }
    bool prints() const { return readable() && settings.print != 0; }
};

SwitchFile look_at_switch_file();

// Throws a Failure when the file is there and cannot be read: it must not be replaced by half of itself.
SwitchFile require_readable(SwitchFile file);

struct Edits {
    std::optional<int> print;
    bool clear_filters = false;
    bool clear_inverts = false;
    std::vector<std::string> filters;  // to add
    std::vector<std::string> inverts;

    bool empty() const;
};

// The content after the edits; every line that they do not concern stays as it is, byte for byte. Throws a Failure for
// a text that processes would not read as it was typed.
std::string edited(const std::string &content, const Edits &edits);

// Makes `content` the file, in a way that running processes notice: they read the file only after they saw that it was
// gone. The new file is complete on the disk before the old one goes.
void replace_switch_file(const std::string &content, std::chrono::milliseconds absence);

// False when it was not there.
bool remove_switch_file();

}  // namespace tool::log
