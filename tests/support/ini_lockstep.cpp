#include "support/ini_lockstep.h"

#include <linux/memfd.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "support/ini_model.h"

namespace ini {

namespace {

template <typename Print>
std::string print_to_memory(Print print) {
    char *text = nullptr;
    size_t length = 0;
    FILE *const stream = open_memstream(&text, &length);
    print(stream);
    fclose(stream);
    std::string result(text, length);
    free(text);
    return result;
}

std::optional<std::string> as_optional(const char *text) {
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

const char *as_pointer(const std::optional<std::string> &text) { return text ? text->c_str() : nullptr; }

// Small numbers and short texts out of bytes; zeros when they run out.
class Choices {
public:
    explicit Choices(const std::string &bytes) : bytes_(bytes) {}

    bool any() const { return at_ < bytes_.size(); }
    unsigned number(unsigned below) { return (any() ? static_cast<unsigned char>(bytes_[at_++]) : 0U) % below; }

    std::string name() {
        static constexpr const char *NAMES[] = {"",    "a",     "b",      "net",   "Net", "net:ip", "NET:IP",
                                                "a:b", "a:b:c", ":alone", "alone", "key", "net:a",  " net "};
        return NAMES[number(std::size(NAMES))];
    }

    std::string text() {
        static constexpr const char *TEXTS[] = {"",     "1",  "yes",   "; note", "# line\n", "off",   "two",  "a; b",
                                                "\"\"", "\n", "12abc", "F",      "''",       "x = y", "; c\n"};
        const unsigned choice = number(std::size(TEXTS) + 2);
        return choice < std::size(TEXTS) ? TEXTS[choice] : std::string(choice == std::size(TEXTS) ? 600 : 1030, 'q');
    }

    std::optional<std::string> perhaps(const std::string &text) {
        return number(4) == 0 ? std::nullopt : std::optional(text);
    }

private:
    const std::string &bytes_;
    size_t at_ = 0;
};

// The record itself: comments whose anchor nothing has are in no dump.
std::string store_of(const dictionary &d) {
    std::string text;
    for (int slot = 0; slot < d.size; ++slot) {
        if (d.keys[slot] != nullptr) {
            text += "slot " + std::to_string(slot) + " " + d.keys[slot] + " " + std::to_string(d.hashes[slot]) + "\n";
        }
    }
    for (int slot = 0; slot < d.comment_size; ++slot) {
        if (d.comment_kinds[slot] != 0) {
            text += "comment " + std::to_string(d.comment_kinds[slot]) + " " + std::to_string(d.comment_anchors[slot]) +
                    " " + as_optional(d.comment_texts[slot]).value_or("NULL") + "\n";
        }
    }
    return text;
}

class Lockstep {
public:
    bool load(const std::string &path) {
        library_.reset(iniparser_load(path.c_str()));
        const bool loaded = model_.load(path);
        compare("load", library_ != nullptr, loaded);
        return library_ != nullptr && loaded;
    }

    void edit(Choices &choices) {
        dictionary *const d = library_.get();
        const unsigned call = choices.number(12);
        const std::string one = choices.name();
        const std::string two = choices.name();
        const std::string text = choices.text();
        const std::optional<std::string> perhaps_two = choices.perhaps(two);
        const std::optional<std::string> perhaps_text = choices.perhaps(text);
        switch (call) {
            case 0:
                return compare("set", dictionary_set(d, one.c_str(), text.c_str()), model_.set(one, text));
            case 1:
                return compare("add", dictionary_add(d, one.c_str(), as_pointer(perhaps_text)),
                               model_.add(one, perhaps_text));
            case 2:
                return compare("modify", dictionary_modify(d, one.c_str(), as_pointer(perhaps_text)),
                               model_.modify(one, perhaps_text));
            case 3:
                dictionary_unset(d, one.c_str());
                return model_.unset(one);
            case 4:
            case 5:
                return compare("add_entry",
                               iniparser_add_entry(d, one.c_str(), as_pointer(perhaps_two), as_pointer(perhaps_text)),
                               model_.add_entry(one, perhaps_two, perhaps_text));
            case 6:
            case 7: {
                const auto kind = static_cast<unsigned char>(choices.number(6));
                return compare("add_comment", iniparser_add_comment(d, one.c_str(), two.c_str(), text.c_str(), kind),
                               model_.add_comment(one, two, text, kind));
            }
            case 8:
            case 9:
                return compare("setstr", iniparser_setstr(d, one.c_str(), text.c_str()), model_.setstr(one, text));
            case 10:
                iniparser_unset(d, one.c_str());
                return model_.unset_lower(one);
            default:
                compare("getstring", as_optional(iniparser_getstring(d, one.c_str(), text.c_str())),
                        model_.getstring(one, text));
                return compare("getboolean", iniparser_getboolean(d, one.c_str(), 7), model_.getboolean(one, 7));
        }
    }

    void compare_all() {
        const dictionary *const d = library_.get();
        compare("getnsec", iniparser_getnsec(d), model_.getnsec());
        for (int i = 0; i <= model_.getnsec(); ++i) {
            compare("getsecname", as_optional(iniparser_getsecname(d, i)), model_.getsecname(i));
        }
        compare("store", store_of(*d), model_.store());
        compare("dictionary_dump", printed(dictionary_dump, d),
                print_to_memory([this](FILE *out) { model_.dictionary_dump(out); }));
        compare("dump", printed(iniparser_dump, d), print_to_memory([this](FILE *out) { model_.dump(out); }));
        written_ = printed(iniparser_dump_ini, d);
        compare("dump_ini", written_, print_to_memory([this](FILE *out) { model_.dump_ini(out); }));
    }

    const std::string &written() const { return written_; }
    const std::string &difference() const { return difference_; }

private:
    static std::string shown(int number) { return std::to_string(number); }
    static std::string shown(const std::string &text) { return text; }
    static std::string shown(const std::optional<std::string> &text) { return text ? *text : "NULL"; }

    template <typename Answer>
    void compare(const char *what, const Answer &library, const Answer &model) {
        if (library != model && difference_.empty()) {
            difference_ = std::string(what) + ":\n--- library\n" + shown(library) + "\n--- model\n" + shown(model);
        }
    }

    Owned library_;
    IniModel model_;
    std::string written_;
    std::string difference_;
};

}  // namespace

std::string printed(void (*dump)(const dictionary *, FILE *), const dictionary *d) {
    return print_to_memory([=](FILE *out) { dump(d, out); });
}

// Boards have C libraries that know no memfd_create().
MemoryFile::MemoryFile(const std::string &content)
    : descriptor_(static_cast<int>(syscall(SYS_memfd_create, "ini", MFD_CLOEXEC))) {
    write(content);
}

MemoryFile::~MemoryFile() { close(descriptor_); }

void MemoryFile::write(const std::string &content) const {
    if (ftruncate(descriptor_, 0) != 0 ||
        pwrite(descriptor_, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
        abort();
    }
}

std::string MemoryFile::path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

std::string difference(const MemoryFile &file, const std::string &content, const std::string &edits) {
    file.write(content);
    Lockstep first;
    if (!first.load(file.path())) {
        return first.difference();
    }
    first.compare_all();
    for (Choices choices(edits); choices.any();) {
        first.edit(choices);
    }
    first.compare_all();
    file.write(first.written());
    Lockstep second;
    if (second.load(file.path())) {
        second.compare_all();
    }
    return first.difference() + second.difference();
}

namespace {

unsigned below(std::mt19937 &random, unsigned limit) { return static_cast<unsigned>(random() % limit); }

std::string repeated(std::mt19937 &random) {
    static constexpr unsigned LENGTHS[] = {510, 511, 512, 513, 514, 600, 1018, 1022, 1023, 1024, 1025, 1100, 2050};
    const unsigned length = LENGTHS[below(random, std::size(LENGTHS))];
    static constexpr char CHARACTERS[] = {'x', ' ', 'K', '=', ';', '"', '\xe9'};
    return std::string(length, CHARACTERS[below(random, std::size(CHARACTERS))]);
}

std::string piece(std::mt19937 &random) {
    static constexpr const char *PIECES[] = {
        "[",           "]",         "=",      ";",    "#",     "\"",           "'",    " ",     "\t",  "\r",
        "\v",          "a",         "B",      "net",  "Net",   "key",          "KEY",  ":",     "ip",  "\"\"",
        "''",          " = ",       "; note", "# no", "1",     "yes",          "\xe9", "[net]", "[a]", "a = b",
        "b=\"c;d\" e", "k='v' ; t", "  ",     "=;",   "[ n ]", "\xEF\xBB\xBF", "\f"};
    return PIECES[below(random, std::size(PIECES))];
}

std::string line(std::mt19937 &random) {
    static constexpr const char *LINES[] = {"[Net]",
                                            "[a]",
                                            "[B] ; behind",
                                            "IP = 1.2.3.4",
                                            "ip=5 ; again",
                                            "a = 1",
                                            "; a line",
                                            "# another",
                                            "   ; indented",
                                            "",
                                            "   ",
                                            "text without sign",
                                            "empty =",
                                            "e = ; c",
                                            "q = \"a; b\" ; c",
                                            "q2 = 'x' y",
                                            "two = \"\"",
                                            "two = \"\";",
                                            "one = ''",
                                            "[open",
                                            "a:b = c",
                                            "[a:b]",
                                            "[]",
                                            "[] = x"};
    std::string text;
    if (below(random, 3) != 0) {
        text = LINES[below(random, std::size(LINES))];
    }
    if (text.empty() || below(random, 8) == 0) {
        for (unsigned pieces = below(random, 7); pieces > 0; --pieces) {
            text += piece(random);
        }
    }
    if (below(random, 40) == 0) {
        text.insert(below(random, static_cast<unsigned>(text.size()) + 1), repeated(random));
    }
    if (below(random, 60) == 0) {
        text.insert(below(random, static_cast<unsigned>(text.size()) + 1), 1, '\0');
    }
    return text;
}

}  // namespace

std::string random_content(std::mt19937 &random) {
    std::string content = below(random, 20) == 0 ? "\xEF\xBB\xBF" : "";
    const char *const line_end = below(random, 4) == 0 ? "\r\n" : "\n";
    for (unsigned lines = below(random, below(random, 10) == 0 ? 60 : 12); lines > 0; --lines) {
        content += line(random) + line_end;
    }
    if (below(random, 3) == 0) {
        content += line(random);
    }
    return content;
}

std::string random_edits(std::mt19937 &random) {
    std::string edits(below(random, 4) == 0 ? below(random, 60) : 0U, '\0');
    for (char &byte : edits) {
        byte = static_cast<char>(random());
    }
    return edits;
}

}  // namespace ini
