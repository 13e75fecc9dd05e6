// velkor sha1: digests of files, written and checked as the system's own tool does.
#include <fcntl.h>
#include <unistd.h>
#include <velkor/text.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string_view>

#include "command_line.h"
#include "descriptor.h"
#include "exit_status.h"
#include "output.h"

namespace tool::sha1 {

namespace {

constexpr const char *STANDARD_INPUT = "-";
constexpr size_t DIGITS = size_t{2} * VELKOR_SHA1_DIGEST_SIZE;

struct Options {
    std::vector<std::string> files;
    bool check = false;
    bool quiet = false;
    bool json = false;
};

// A call that failed ends one file, not the command.
struct Outcome {
    std::string digest;
    int error = 0;
};

std::string in_hexadecimal(const std::array<uint8_t, VELKOR_SHA1_DIGEST_SIZE> &bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

Outcome digest_of(int descriptor) {
    SHA1Context context;
    SHA1Reset(&context);
    std::vector<uint8_t> piece(size_t{64} * 1024);
    for (;;) {
        const ssize_t length = read(descriptor, piece.data(), piece.size());
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0) {
            return {"", errno};
        }
        if (length == 0) {
            break;
        }
        SHA1Input(&context, piece.data(), static_cast<uint32_t>(length));
    }
    std::array<uint8_t, VELKOR_SHA1_DIGEST_SIZE> digest = {};
    SHA1Result(&context, digest.data());
    return {in_hexadecimal(digest), 0};
}

Outcome digest_of(const std::string &file) {
    if (file == STANDARD_INPUT) {
        return digest_of(STDIN_FILENO);
    }
    const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    return descriptor ? digest_of(descriptor.get()) : Outcome{"", errno};
}

void remark_failure(const std::string &file, int error) {
    remark("cannot read " + spelt_out(file) + ": " + meaning_of(error));
}

// ---- names in lines ----

// A line feed in a name would end the line.
std::string escaped(const std::string &file) {
    std::string name;
    for (const char character : file) {
        switch (character) {
            case '\n':
                name += "\\n";
                break;
            case '\r':
                name += "\\r";
                break;
            case '\\':
                name += "\\\\";
                break;
            default:
                name += character;
        }
    }
    return name;
}

// The name as it was; none when a backslash stands where none can.
std::optional<std::string> unescaped(std::string_view name) {
    std::string text;
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] != '\\') {
            text += name[i];
            continue;
        }
        const char next = ++i < name.size() ? name[i] : '\0';
        if (next != 'n' && next != 'r' && next != '\\') {
            return std::nullopt;
        }
        text += next == 'n' ? '\n' : next == 'r' ? '\r' : '\\';
    }
    return text;
}

// ---- writing ----

std::string line_of(const std::string &digest, const std::string &file) {
    const std::string name = escaped(file);
    return (name != file ? "\\" : "") + digest + "  " + name;
}

int write_digests(const Options &options) {
    int status = SUCCESS;
    Json array = Json::array();
    for (const std::string &file : options.files) {
        const Outcome outcome = digest_of(file);
        if (outcome.error != 0) {
            remark_failure(file, outcome.error);
            status = NEGATIVE;
        } else if (!options.json) {
            std::cout << line_of(outcome.digest, file) << '\n';
        }
        if (options.json) {
            Json entry = {{"file", file}, {"sha1", nullptr}, {"error", outcome.error}};
            if (outcome.error == 0) {
                entry["sha1"] = outcome.digest;
            }
            array.push_back(entry);
        }
    }
    if (options.json) {
        print_json(array);
    }
    return status;
}

// ---- checking ----

struct Expected {
    std::string digest;
    std::string file;
};

bool is_digest(std::string_view text) {
    return text.size() == DIGITS && text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

std::string in_lower_case(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c; });
    return text;
}

bool take(std::string_view &line, std::string_view head) {
    if (!line.starts_with(head)) {
        return false;
    }
    line.remove_prefix(head.size());
    return true;
}

void skip_blanks(std::string_view &line) { line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size())); }

// What stands behind "SHA1 (" in "SHA1 (FILE) = DIGEST".
Expected from_tagged(std::string_view line) {
    const size_t end = std::min(line.rfind(')'), line.size());
    std::string_view digest = line.substr(end);
    take(digest, ")");
    skip_blanks(digest);
    if (!take(digest, "=")) {
        return {};
    }
    skip_blanks(digest);
    return {std::string(digest), std::string(line.substr(0, end))};
}

// "DIGEST  FILE", or "DIGEST *FILE".
Expected from_plain(std::string_view line) {
    if (line.size() <= DIGITS + 2) {
        return {};
    }
    const std::string_view between = line.substr(DIGITS, 2);
    if (between != "  " && between != " *") {
        return {};
    }
    return {std::string(line.substr(0, DIGITS)), std::string(line.substr(DIGITS + 2))};
}

// A backslash at the begin says that the name is escaped.
std::optional<Expected> parsed(std::string_view line) {
    skip_blanks(line);
    const bool is_escaped = take(line, "\\");
    Expected expected = take(line, "SHA1 (") || take(line, "SHA1(") ? from_tagged(line) : from_plain(line);
    if (!is_digest(expected.digest)) {
        return std::nullopt;
    }
    if (is_escaped) {
        const std::optional<std::string> name = unescaped(expected.file);
        if (!name) {
            return std::nullopt;
        }
        expected.file = *name;
    }
    expected.digest = in_lower_case(expected.digest);
    return expected;
}

// The line of a checked file: of the names only those that would break it are escaped.
std::string line_of_verdict(const std::string &file, const char *verdict) {
    const bool would_break = file.find('\n') != std::string::npos;
    return (would_break ? "\\" + escaped(file) : file) + ": " + verdict;
}

struct Counts {
    size_t good = 0;
    size_t wrong = 0;
    size_t unreadable = 0;
    size_t malformed = 0;

    size_t entries() const { return good + wrong + unreadable; }
};

class Check {
public:
    explicit Check(const Options &options) : options_(options) {}

    void read_list(const std::string &list, std::istream &stream) {
        const size_t before = counts_.entries();
        for (std::string line; std::getline(stream, line);) {
            if (line.ends_with('\r')) {
                line.pop_back();
            }
            if (!line.empty() && !line.starts_with('#')) {
                check_line(line);
            }
        }
        if (stream.bad()) {
            failed_ = true;
            remark("cannot read " + spelt_out(list));
        } else if (counts_.entries() == before) {
            failed_ = true;
            remark(spelt_out(list) + ": no properly formatted checksum lines found");
        }
    }

    void miss_list(const std::string &list, int error) {
        failed_ = true;
        remark_failure(list, error);
    }

    int report() const {
        if (options_.json) {
            print_json({{"files", files_}, {"malformed_lines", counts_.malformed}});
        }
        warn(counts_.malformed, "line",
             counts_.malformed == 1 ? "is improperly formatted" : "are improperly formatted");
        warn(counts_.unreadable, "listed file", "could not be read");
        warn(counts_.wrong, "computed checksum", "did NOT match");
        return failed_ || counts_.wrong != 0 || counts_.unreadable != 0 ? NEGATIVE : SUCCESS;
    }

private:
    static void warn(size_t number, const std::string &thing, const std::string &what) {
        if (number != 0) {
            remark("WARNING: " + counted(number, thing) + " " + what);
        }
    }

    void check_line(const std::string &line) {
        if (const std::optional<Expected> expected = parsed(line)) {
            check(*expected);
        } else {
            ++counts_.malformed;
        }
    }

    void check(const Expected &expected) {
        const Outcome outcome = digest_of(expected.file);
        const bool is_good = outcome.error == 0 && outcome.digest == expected.digest;
        ++(is_good ? counts_.good : outcome.error != 0 ? counts_.unreadable : counts_.wrong);
        if (outcome.error != 0) {
            remark_failure(expected.file, outcome.error);
        }
        if (options_.json) {
            files_.push_back({{"file", expected.file}, {"ok", is_good}, {"error", outcome.error}});
        } else if (!is_good || !options_.quiet) {
            const char *const verdict = is_good ? "OK" : outcome.error != 0 ? "FAILED open or read" : "FAILED";
            std::cout << line_of_verdict(expected.file, verdict) << '\n';
        }
    }

    const Options &options_;
    Counts counts_;
    Json files_ = Json::array();
    bool failed_ = false;
};

int check_digests(const Options &options) {
    Check check(options);
    for (const std::string &list : options.files) {
        if (list == STANDARD_INPUT) {
            check.read_list("standard input", std::cin);
            continue;
        }
        std::ifstream stream(list, std::ios::binary);
        if (stream) {
            check.read_list(list, stream);
        } else {
            check.miss_list(list, errno);
        }
    }
    return check.report();
}

int run(Options options) {
    if (options.files.empty()) {
        options.files.emplace_back(STANDARD_INPUT);
    }
    return options.check ? check_digests(options) : write_digests(options);
}

}  // namespace

}  // namespace tool::sha1

void tool::add_sha1(CLI::App &velkor, Run &chosen) {
    const auto options = std::make_shared<sha1::Options>();
    CLI::App &command = *velkor.add_subcommand("sha1", "Write or check SHA-1 digests of files");
    add_words(command, "FILE", options->files, "Files; \"-\", or no file at all, is standard input");
    command.add_flag("-c,--check", options->check, "Read digests from the files, and check the files named in them");
    command.add_flag("-q,--quiet", options->quiet, "With --check: say nothing about files that are as they should be");
    add_json(command, options->json);
    command.footer(
        "Writes and reads the lines of sha1sum: digest, two blanks, name; and answers as it does.\n"
        "Status 1 when a file cannot be read, or a digest does not match.\n"
        "SHA-1 finds damage, not deceit: files with equal digests can be made.");
    command.callback([options, &chosen] { chosen = [options] { return sha1::run(*options); }; });
}
