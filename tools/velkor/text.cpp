// velkor text: the library's text helpers from the command line, with all their traits.
#include <string.h>
#include <unistd.h>
#include <velkor/text.h>
#include <velkor_host.h>

#include <climits>
#include <iostream>
#include <iterator>
#include <memory>

#include "exit_status.h"
#include "output.h"
#include "text_commands.h"

namespace tool::text {

namespace {

std::string all_of_standard_input() {
    std::string content((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
    if (std::cin.bad()) {
        throw Failure(NEGATIVE, "cannot read standard input");
    }
    return content;
}

// The words of the command line as one text, or each line of standard input.
template <typename Each>
int for_each_text(const std::vector<std::string> &words, Each each) {
    if (!words.empty()) {
        std::string text = words.front();
        for (size_t i = 1; i < words.size(); ++i) {
            text.append(" ").append(words[i]);
        }
        return each(text);
    }
    int status = SUCCESS;
    for (std::string line; std::getline(std::cin, line);) {
        if (line.find('\0') != std::string::npos) {
            throw Failure(NEGATIVE, "a line that holds a zero is no text");
        }
        status = std::max(status, each(line));
    }
    return status;
}

CLI::Option *add_text_words(CLI::App &command, std::vector<std::string> &words) {
    return add_words(command, "TEXT", words, "The text's words; without any, standard input line by line");
}

// ---- split ----

struct SplitOptions {
    std::string at = ",";
    int size = 256;
    int most = 256;
    bool json = false;
    std::vector<std::string> words;
};

std::string meaning_of_split(int code) {
    const std::string meaning = code == -2   ? "a piece has as many characters as --size"
                                : code == -3 ? "as many separators as --max"
                                             : "bad arguments";
    return "error " + std::to_string(code) + ", " + meaning;
}

int split_one(const SplitOptions &options, const std::string &text) {
    const auto most = static_cast<size_t>(options.most);
    std::vector<std::string> buffers(most, std::string(static_cast<size_t>(options.size), '\0'));
    std::vector<char *> pieces;
    for (std::string &buffer : buffers) {
        pieces.push_back(buffer.data());
    }
    const int result = SplitString(text.c_str(), options.at.c_str(), pieces.data(), options.size, options.most);
    const size_t count = result > 0 ? static_cast<size_t>(result) : 0;
    if (options.json) {
        Json array = Json::array();
        for (size_t i = 0; i < count; ++i) {
            array.push_back(pieces[i]);
        }
        print_json({{"result", result}, {"pieces", array}});
    } else {
        for (size_t i = 0; i < count; ++i) {
            std::cout << pieces[i] << '\n';
        }
    }
    if (result < 0) {
        remark("cannot split \"" + spelt_out(text) + "\": " + meaning_of_split(result));
    }
    return result < 0 ? NEGATIVE : SUCCESS;
}

void add_split(CLI::App &family, Run &chosen) {
    const auto options = std::make_shared<SplitOptions>();
    CLI::App &command = *family.add_subcommand("split", "Split a text at a character, a piece a line");
    command.add_option("--at", options->at, "The character; of a longer text, its first")
        ->type_name("CHARACTER")
        ->capture_default_str();
    command.add_option("--size", options->size, "A piece has fewer characters than this")
        ->type_name("N")
        ->check(CLI::Range(1, 1 << 20).description(""))
        ->capture_default_str();
    command.add_option("--max", options->most, "Most pieces")
        ->type_name("N")
        ->check(CLI::Range(1, 4096).description(""))
        ->capture_default_str();
    add_text_words(command, options->words);
    add_json(command, options->json);
    command.footer("Status 1 when a text cannot be split: a piece is too long (-2), there are too many (-3).");
    command.callback([options, &chosen] {
        chosen = [options] {
            return for_each_text(options->words, [&](const std::string &text) { return split_one(*options, text); });
        };
    });
}

// ---- replace ----

struct ReplaceOptions {
    std::string old_text;
    std::string new_text;
    int size = 0;
    std::vector<std::string> words;
};

// Room for the longest result there can be, when nobody says how much there is.
size_t room_for(const ReplaceOptions &options, const std::string &text) {
    if (options.size != 0) {
        return static_cast<size_t>(options.size);
    }
    const size_t most = text.size() / options.old_text.size();
    return text.size() + most * options.new_text.size() + 1;
}

int replace_one(const ReplaceOptions &options, const std::string &text) {
    const size_t room = room_for(options, text);
    if (room > INT_MAX || text.size() >= room) {
        throw Failure(NEGATIVE, "a text of " + counted(text.size(), "character") + " does not fit");
    }
    std::string buffer = text;
    buffer.resize(room, '\0');
    StringReplaceSub(buffer.data(), static_cast<int>(room), options.old_text.c_str(), options.new_text.c_str());
    std::cout << buffer.c_str() << '\n';
    return SUCCESS;
}

void add_replace(CLI::App &family, Run &chosen) {
    const auto options = std::make_shared<ReplaceOptions>();
    CLI::App &command = *family.add_subcommand("replace", "Replace every occurrence of a text by another");
    command.add_option("OLD", options->old_text, "What is replaced, from left to right")->required();
    command.add_option("NEW", options->new_text, "What it is replaced with")->required();
    command.add_option("--size", options->size, "Replace in a buffer of N bytes, as a process on the recorder does")
        ->type_name("N")
        ->check(CLI::Range(1, 1 << 24).description(""));
    add_text_words(command, options->words);
    command.footer("With --size the text is cut to N - 1 characters after each replacement.");
    command.callback([options, &chosen] {
        chosen = [options] {
            if (options->old_text.empty()) {
                throw Failure(BAD_USE, "OLD is empty: it would be found everywhere");
            }
            return for_each_text(options->words, [&](const std::string &text) { return replace_one(*options, text); });
        };
    });
}

// ---- base64 ----

int base64(const std::vector<std::string> &words) {
    const auto encode = [](const std::string &bytes) {
        std::string out((bytes.size() + 2) / 3 * 4 + 1, '\0');
        if (out.size() > INT_MAX) {
            throw Failure(NEGATIVE, counted(bytes.size(), "byte") + " are too many");
        }
        to_base64(out.data(), bytes.data(), static_cast<int>(bytes.size()), nullptr);
        std::cout << out.c_str() << '\n';
        return static_cast<int>(SUCCESS);
    };
    return words.empty() ? encode(all_of_standard_input()) : for_each_text(words, encode);
}

void add_base64(CLI::App &family, Run &chosen) {
    const auto words = std::make_shared<std::vector<std::string>>();
    CLI::App &command = *family.add_subcommand("base64", "Write a text, or the bytes of standard input, as base64");
    add_words(command, "TEXT", *words, "The text's words; without any, all bytes of standard input");
    command.callback([words, &chosen] { chosen = [words] { return base64(*words); }; });
}

// ---- gb2312 ----

using Convert = int (*)(int mode, char *text, int size);

std::string meaning_of_conversion(int code) {
    switch (code) {
        case VELKOR_HOST_TEXT_BAD_SEQUENCE:
            return "error -2, no such character";
        case VELKOR_HOST_TEXT_NO_ROOM:
            return "error -3, no room";
        case VELKOR_HOST_TEXT_NO_CONVERTER:
            return "error -4, the C library has no such conversion here";
        default:
            return "error " + std::to_string(code);
    }
}

int convert_one(Convert convert, const std::string &text) {
    constexpr size_t MOST = 2047;
    constexpr size_t WIDEST = 3;  // what two bytes of GB2312 become
    if (text.size() > MOST) {
        remark("cannot convert a text of " + counted(text.size(), "byte") + ": " + std::to_string(MOST) +
               " are the most");
        return NEGATIVE;
    }
    std::string buffer = text;
    buffer.resize(text.size() * WIDEST + 1, '\0');
    const int result = convert(1, buffer.data(), static_cast<int>(buffer.size()));
    if (result < 0) {
        remark("cannot convert a text behind its first " + counted(strlen(buffer.c_str()), "converted byte") + ": " +
               meaning_of_conversion(result));
        return NEGATIVE;
    }
    std::cout << buffer.c_str() << '\n';
    return SUCCESS;
}

void add_conversion(CLI::App &gb2312, Run &chosen, const char *name, const char *description, Convert convert) {
    const auto words = std::make_shared<std::vector<std::string>>();
    CLI::App &command = *gb2312.add_subcommand(name, description);
    add_text_words(command, *words);
    command.footer("Status 1 when a text holds what is no character of its set, or of the other.");
    command.callback([words, convert, &chosen] {
        chosen = [words, convert] {
            return for_each_text(*words, [=](const std::string &text) { return convert_one(convert, text); });
        };
    });
}

void add_gb2312(CLI::App &family, Run &chosen) {
    CLI::App &command = *family.add_subcommand("gb2312", "Convert between GB2312 and UTF-8");
    command.require_subcommand(1);
    add_conversion(command, chosen, "decode", "From GB2312 to UTF-8", vk_TextGB2312ToUtf8);
    add_conversion(command, chosen, "encode", "From UTF-8 to GB2312", vk_TextUtf8ToGB2312);
}

}  // namespace

}  // namespace tool::text

void tool::add_text(CLI::App &velkor, Run &chosen) {
    CLI::App &family = *velkor.add_subcommand("text", "Split, replace, encode and convert text; trigger sets");
    family.require_subcommand(1);
    text::add_split(family, chosen);
    text::add_replace(family, chosen);
    text::add_base64(family, chosen);
    text::add_gb2312(family, chosen);
    text::add_trigger(family, chosen);
}
