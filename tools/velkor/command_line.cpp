#include "command_line.h"

namespace tool {

namespace {

// More than a command line can hold. As the least number it makes the parser take word after word; its own unlimited
// lists would take texts in brackets apart.
constexpr int ANY_NUMBER = 1 << 24;

CLI::callback_t keep_in(std::vector<std::string> &texts) {
    return [&texts](const CLI::results_t &results) {
        texts = results;
        return true;
    };
}

}  // namespace

CLI::Option *add_texts(CLI::App &command, const std::string &name, std::vector<std::string> &texts,
                       const std::string &description) {
    return command.add_option(name, keep_in(texts), description)
        ->type_name("TEXT")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CLI::Option *add_words(CLI::App &command, const std::string &name, std::vector<std::string> &words,
                       const std::string &description) {
    return command.add_option(name, keep_in(words), description)
        ->option_text("...")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)  // this first: it changes the numbers
        ->expected(ANY_NUMBER, CLI::detail::expected_max_vector_size);
}

CLI::Option *add_json(CLI::App &command, bool &json, const std::string &description) {
    return command.add_flag("--json", json, description);
}

}  // namespace tool
