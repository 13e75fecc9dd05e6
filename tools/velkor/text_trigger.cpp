// velkor text trigger: the sets of channels that the recorder's database keeps as hexadecimal text.
#include <velkor/text.h>

#include <charconv>
#include <iostream>
#include <memory>

#include "exit_status.h"
#include "output.h"
#include "text_commands.h"

namespace tool::text {

namespace {

struct Options {
    std::string set;
    std::vector<std::string> channels;
    bool json = false;
};

class TriggerSet {
public:
    // The library would read anything as a set; a person who mistyped wants to know.
    explicit TriggerSet(const std::string &text) {
        const bool is_set = !text.empty() && text.size() < VELKOR_TRIGGER_TEXT_SIZE &&
                            text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
        if (!is_set) {
            throw Failure(BAD_USE, "\"" + spelt_out(text) + "\" is no set: 1 to 64 hexadecimal digits");
        }
        db_Str2Trigger(words_, text.c_str());
    }

    void set(uint64_t channel) { db_SetTriggerBit(words_, channel); }
    void clear(uint64_t channel) { db_ClrTriggerBit(words_, channel); }

    // The library writes nothing for a set without channels.
    std::string text() const {
        char out[VELKOR_TRIGGER_TEXT_SIZE] = "0";
        db_Trigger2Str(words_, out);
        return out;
    }

    std::vector<unsigned> channels() const {
        std::vector<unsigned> found;
        for (unsigned channel = 0; channel < VELKOR_TRIGGER_BITS; ++channel) {
            if (db_GetTriggerBit(words_, channel) != 0) {
                found.push_back(channel);
            }
        }
        return found;
    }

private:
    uint64_t words_[VELKOR_TRIGGER_WORDS] = {};
};

// "0-3, 7"
std::string in_ranges(const std::vector<unsigned> &channels) {
    std::string text;
    for (size_t i = 0; i < channels.size();) {
        size_t end = i + 1;
        while (end < channels.size() && channels[end] == channels[end - 1] + 1) {
            ++end;
        }
        text += (text.empty() ? "" : ", ") + std::to_string(channels[i]);
        if (end - i > 1) {
            text += "-" + std::to_string(channels[end - 1]);
        }
        i = end;
    }
    return text;
}

struct Range {
    uint64_t first;
    uint64_t last;
};

bool read_channel(const char *&from, const char *end, uint64_t &channel) {
    const auto [stopped, error] = std::from_chars(from, end, channel);
    from = stopped;
    return error == std::errc() && channel < VELKOR_TRIGGER_BITS;
}

// "7" or "0-3"
Range range_of(const std::string &word) {
    Range range = {};
    const char *from = word.data();
    const char *const end = from + word.size();
    bool is_good = read_channel(from, end, range.first);
    range.last = range.first;
    if (is_good && from != end && *from == '-') {
        is_good = read_channel(++from, end, range.last) && range.last >= range.first;
    }
    if (!is_good || from != end) {
        throw Failure(BAD_USE, "\"" + spelt_out(word) + "\" is no channel: 0 to 255, or two with \"-\" between");
    }
    return range;
}

void print(const TriggerSet &set, const Options &options, bool in_full) {
    const std::vector<unsigned> channels = set.channels();
    if (options.json) {
        print_json({{"set", set.text()}, {"channels", channels}});
    } else if (!in_full) {
        std::cout << set.text() << '\n';
    } else {
        std::cout << (channels.empty() ? "no channel" : in_ranges(channels)) << '\n';
    }
}

using Change = void (TriggerSet::*)(uint64_t);

int change(const Options &options, Change change) {
    TriggerSet set(options.set);
    for (const std::string &word : options.channels) {
        const Range range = range_of(word);
        for (uint64_t channel = range.first; channel <= range.last; ++channel) {
            (set.*change)(channel);
        }
    }
    print(set, options, false);
    return SUCCESS;
}

int show(const Options &options) {
    const TriggerSet set(options.set);
    print(set, options, true);
    return set.channels().empty() ? NEGATIVE : SUCCESS;
}

CLI::App &add_command(CLI::App &trigger, const char *name, const char *description, Options &options) {
    CLI::App &command = *trigger.add_subcommand(name, description);
    command.add_option("SET", options.set, "1 to 64 hexadecimal digits; 0 is the empty set")->required();
    add_json(command, options.json);
    return command;
}

void add_changing(CLI::App &trigger, Run &chosen, const char *name, const char *description, Change how) {
    const auto options = std::make_shared<Options>();
    CLI::App &command = add_command(trigger, name, description, *options);
    add_words(command, "CHANNEL", options->channels, "0 to 255, or a range as 0-7")->required();
    command.callback([options, how, &chosen] { chosen = [options, how] { return change(*options, how); }; });
}

}  // namespace

void add_trigger(CLI::App &text, Run &chosen) {
    CLI::App &family = *text.add_subcommand("trigger", "Set, clear and show channels in a hexadecimal set");
    family.require_subcommand(1);
    add_changing(family, chosen, "set", "Add channels to a set", &TriggerSet::set);
    add_changing(family, chosen, "clear", "Take channels out of a set", &TriggerSet::clear);
    const auto options = std::make_shared<Options>();
    CLI::App &command = add_command(family, "show", "List the channels of a set", *options);
    command.footer("Status 1 when there is none.");
    command.callback([options, &chosen] { chosen = [options] { return show(*options); }; });
}

}  // namespace tool::text
