// What every command family needs to describe itself to the argument parser.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace tool {

// The command that was typed, ready to run; answers the exit status. Commands are only chosen while arguments are
// read, so that nothing has happened yet when a later argument turns out to be wrong.
using Run = std::function<int()>;

// An option that may be given several times, with one text each. Unlike the parser's own lists it takes a text in
// brackets, a pair of braces, or anything else as it is: log lines are full of them.
CLI::Option *add_texts(CLI::App &command, const std::string &name, std::vector<std::string> &texts,
                       const std::string &description);

// All words that are not options, in their order, equally untouched.
CLI::Option *add_words(CLI::App &command, const std::string &name, std::vector<std::string> &words,
                       const std::string &description);

// "--json"
CLI::Option *add_json(CLI::App &command, bool &json, const std::string &description = "Print JSON, for programs");

// The families; each adds its sub-commands to `velkor`.
void add_calendar(CLI::App &velkor, Run &chosen);
void add_copy(CLI::App &velkor, Run &chosen);
void add_debug(CLI::App &velkor, Run &chosen);
void add_files(CLI::App &velkor, Run &chosen);
void add_ini(CLI::App &velkor, Run &chosen);
void add_log(CLI::App &velkor, Run &chosen);
void add_net(CLI::App &velkor, Run &chosen);
void add_run(CLI::App &velkor, Run &chosen);
void add_sha1(CLI::App &velkor, Run &chosen);
void add_sys(CLI::App &velkor, Run &chosen);
void add_text(CLI::App &velkor, Run &chosen);
void add_upgrade_log(CLI::App &velkor, Run &chosen);
void add_zone(CLI::App &velkor, Run &chosen);

}  // namespace tool
