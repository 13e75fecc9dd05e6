#include "log_switch_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/diagnostics.h>
#include <velkor/text.h>

#include <algorithm>
#include <thread>

#include "descriptor.h"
#include "exit_status.h"
#include "file_text.h"
#include "interruption.h"
#include "temporary_file.h"

namespace tool::log {

namespace {

constexpr size_t LONGEST_PIECE = 1022;  // what a process reads of a line at a time
constexpr size_t LONGEST_TEXT = VELKOR_LOGMAN_SLOT_SIZE - 1;
constexpr size_t SLOTS = VELKOR_LOGMAN_SLOTS;

// ---- Reading as a process does ----

class Reader {
public:
    // One piece without its line end. Processes see it as a C string.
    void take(std::string piece, size_t line) {
        piece.resize(std::min(piece.size(), piece.find('\0')));
        const size_t equals = piece.find('=');
        if (equals == std::string::npos) {
            if (piece.find_first_not_of(" \t\r\n") != std::string::npos) {
                note(line, piece, "no \"=\"");
            }
            return;
        }
        std::string value = piece.substr(equals + 1);
        value.resize(std::min(value.size(), value.find_first_of("\r\n")));
        if (piece.starts_with("dbg")) {
            take_print(piece, value, line);
        } else if (piece.starts_with("filter")) {
            take_text(settings_.filters, filters_++, piece, value, line);
        } else if (piece.starts_with("invert")) {
            take_text(settings_.inverts, inverts_++, piece, value, line);
        } else {
            note(line, piece, "unknown key");
        }
    }

    Settings finish() {
        std::ranges::stable_sort(settings_.notes, {}, &Note::line);
        return std::move(settings_);
    }

private:
    void take_print(const std::string &piece, const std::string &value, size_t line) {
        if (print_line_ != 0) {
            note(print_line_, print_piece_, "overridden by line " + std::to_string(line));
        }
        settings_.print = vk_atoi(value.c_str());
        print_line_ = line;
        print_piece_ = piece;
    }

    void take_text(std::vector<std::string> &texts, size_t index, const std::string &piece, const std::string &text,
                   size_t line) {
        if (index >= SLOTS) {
            note(line, piece, "dropped: only " + std::to_string(SLOTS) + " are kept");
            return;
        }
        if (text.size() > LONGEST_TEXT) {
            note(line, piece, "cut after " + std::to_string(LONGEST_TEXT) + " characters");
        }
        texts.push_back(text.substr(0, LONGEST_TEXT));
    }

    void note(size_t line, std::string text, const std::string &why) {
        text.resize(std::min(text.size(), text.find_last_not_of("\r\n") + 1));
        settings_.notes.push_back({line, std::move(text), why});
    }

    Settings settings_;
    size_t filters_ = 0;
    size_t inverts_ = 0;
    size_t print_line_ = 0;
    std::string print_piece_;
};

// ---- Editing ----

bool has_key(const std::string &line, const char *key) {
    return line.starts_with(key) && line.find('=') != std::string::npos;
}

std::string line_end_of(const std::string &line) {
    const size_t end = line.find_last_not_of("\r\n");
    return end == std::string::npos ? line : line.substr(end + 1);
}

void remove_key(std::vector<std::string> &lines, const char *key) {
    std::erase_if(lines, [&](const std::string &line) { return has_key(line, key); });
}

void end_last_line(std::vector<std::string> &lines) {
    if (!lines.empty() && !lines.back().ends_with('\n')) {
        lines.back() += '\n';
    }
}

// The last such line is the one that counts.
void set_print(std::vector<std::string> &lines, int print) {
    const std::string setting = "dbgprint=" + std::to_string(print);
    const auto last = std::find_if(lines.rbegin(), lines.rend(), [](const auto &line) { return has_key(line, "dbg"); });
    if (last != lines.rend()) {
        *last = setting + line_end_of(*last);
    } else {
        lines.insert(lines.begin(), setting + "\n");
    }
}

void check_text(const std::string &kind, const std::string &text) {
    if (text.empty()) {
        throw Failure(BAD_USE, "an empty " + kind + " text says nothing");
    }
    if (text.size() > LONGEST_TEXT) {
        throw Failure(BAD_USE, "a " + kind + " text has at most " + std::to_string(LONGEST_TEXT) + " bytes, this has " +
                                   std::to_string(text.size()));
    }
    if (text.find_first_of("\r\n") != std::string::npos) {
        throw Failure(BAD_USE, "a " + kind + " text is one line");
    }
}

void add_texts(std::vector<std::string> &lines, const std::string &kind, const std::vector<std::string> &texts) {
    const auto there = std::ranges::count_if(lines, [&](const auto &line) { return has_key(line, kind.c_str()); });
    if (!texts.empty() && static_cast<size_t>(there) + texts.size() > SLOTS) {
        throw Failure(BAD_USE, "processes keep " + std::to_string(SLOTS) + " " + kind + " texts, and " +
                                   std::to_string(there) + " are there: see --clear-" + kind + "s");
    }
    for (const std::string &text : texts) {
        check_text(kind, text);
        end_last_line(lines);
        lines.push_back(std::string(kind).append("=").append(text).append("\n"));
    }
}

// ---- Writing ----

// Whoever may read the old file may read the new one. Its owner is kept where that is allowed.
void look_like_old_file(const TemporaryFile &file) {
    struct stat old = {};
    const bool there = stat(SWITCH_FILE, &old) == 0;
    if (there && fchown(file.descriptor(), old.st_uid, old.st_gid) != 0 && errno != EPERM) {
        fail_call(std::string("give the new file to the owner of ") + SWITCH_FILE);
    }
    file.set_mode(there ? old.st_mode : 0644);
}

}  // namespace

Settings read_settings(const std::string &content) {
    Reader reader;
    size_t line = 1;
    for (size_t at = 0; at < content.size();) {
        const size_t line_end = std::min(content.find('\n', at), content.size() - 1) + 1;
        const size_t end = std::min(line_end, at + LONGEST_PIECE);
        reader.take(content.substr(at, end - at), line);
        line += content[end - 1] == '\n' ? 1U : 0U;
        at = end;
    }
    return reader.finish();
}

SwitchFile look_at_switch_file() {
    SwitchFile file;
    struct stat status = {};
    file.present = stat(SWITCH_FILE, &status) == 0;
    if (!file.present) {
        return file;
    }
    const Descriptor descriptor(open(SWITCH_FILE, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!descriptor) {
        file.error = errno;
        return file;
    }
    if (S_ISREG(status.st_mode)) {
        file.content = read_all(descriptor.get(), SWITCH_FILE);
    }
    file.settings = read_settings(file.content);
    return file;
}

SwitchFile require_readable(SwitchFile file) {
    if (file.present && !file.readable()) {
        fail_call(std::string("read ") + SWITCH_FILE, file.error);
    }
    return file;
}

bool Edits::empty() const { return !print && !clear_filters && !clear_inverts && filters.empty() && inverts.empty(); }

std::string edited(const std::string &content, const Edits &edits) {
    std::vector<std::string> lines = lines_of(content);
    if (edits.clear_filters) {
        remove_key(lines, "filter");
    }
    if (edits.clear_inverts) {
        remove_key(lines, "invert");
    }
    if (edits.print) {
        set_print(lines, *edits.print);
    }
    add_texts(lines, "filter", edits.filters);
    add_texts(lines, "invert", edits.inverts);
    std::string result;
    for (const std::string &line : lines) {
        result += line;
    }
    return result;
}

void replace_switch_file(const std::string &content, std::chrono::milliseconds absence) {
    const Interruption held;
    TemporaryFile replacement(SWITCH_FILE);
    look_like_old_file(replacement);
    replacement.write(content);
    remove_switch_file();
    replacement.keep();  // from now on it holds all there is, even if it cannot get its name
    std::this_thread::sleep_for(absence);
    replacement.take_name(SWITCH_FILE);
}

bool remove_switch_file() {
    if (unlink(SWITCH_FILE) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        fail_call(std::string("remove ") + SWITCH_FILE);
    }
    return false;
}

}  // namespace tool::log
