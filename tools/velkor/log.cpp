// velkor log: the log pipeline from outside.
#include <iostream>
#include <memory>

#include "exit_status.h"
#include "log_commands.h"
#include "log_switch_file.h"
#include "log_terminal.h"
#include "output.h"

namespace tool::log {

void Settling::add_to(CLI::App &command) {
    command.add_option("--settle-ms", milliseconds_, "How long the switch file stays away, for processes to notice")
        ->type_name("MS")
        ->check(CLI::Range(0U, 60000U).description(""))
        ->capture_default_str();
}

namespace {

// ---- config ----

struct ConfigOptions {
    Edits edits;
    bool off = false;
    bool rearm = false;
    bool json = false;
    Settling settling;
};

Json in_json(const Settings &settings) {
    Json notes = Json::array();
    for (const Note &note : settings.notes) {
        notes.push_back({{"line", note.line}, {"text", note.text}, {"why", note.why}});
    }
    return {{"print", settings.print}, {"filters", settings.filters}, {"inverts", settings.inverts}, {"notes", notes}};
}

Json in_json(const SwitchFile &file) {
    Json object = {{"file", SWITCH_FILE}, {"present", file.present}, {"readable", file.readable()}};
    if (file.present) {
        object.update(in_json(file.settings));
    }
    return object;
}

void add_slots(Table &table, const std::string &kind, const std::vector<std::string> &texts) {
    for (size_t slot = 0; slot < texts.size(); ++slot) {
        table.add(kind + " " + std::to_string(slot),
                  texts[slot].empty() ? "empty, says nothing" : in_quotes(texts[slot]));
    }
}

std::string print_text(int print) { return std::to_string(print) + (print != 0 ? " (on)" : " (off)"); }

void show_settings(const SwitchFile &file) {
    Table table;
    table.add("file", SWITCH_FILE);
    if (!file.present) {
        table.add("state", "absent, the log is off");
    } else if (!file.readable()) {
        table.add("state", "cannot be read, nothing is printed: " + meaning_of(file.error));
    } else {
        table.add("print", print_text(file.settings.print));
        add_slots(table, "filter", file.settings.filters);
        add_slots(table, "invert", file.settings.inverts);
        for (const Note &note : file.settings.notes) {
            table.add("line " + std::to_string(note.line), in_quotes(note.text) + ": " + note.why);
        }
    }
    table.print();
}

int show_config(const ConfigOptions &options) {
    const SwitchFile file = look_at_switch_file();
    if (options.json) {
        print_json(in_json(file));
    } else {
        show_settings(file);
    }
    return file.readable() ? SUCCESS : NEGATIVE;
}

int switch_off(const ConfigOptions &options) {
    const bool was_there = remove_switch_file();
    if (options.json) {
        print_json(in_json(look_at_switch_file()));
    } else {
        std::cout << SWITCH_FILE
                  << (was_there ? " removed: the log is off\n" : " was not there: the log is off already\n");
    }
    return SUCCESS;
}

int change_config(const ConfigOptions &options) {
    const SwitchFile file = require_readable(look_at_switch_file());
    if (options.rearm && !file.present && options.edits.empty()) {
        throw Failure(NEGATIVE, std::string("there is no ") + SWITCH_FILE + " to read again: the log is off");
    }
    replace_switch_file(edited(file.content, options.edits), options.settling.time());
    const SwitchFile written = look_at_switch_file();
    if (options.json) {
        print_json(in_json(written));
        return SUCCESS;
    }
    std::cout << SWITCH_FILE << " was away for " << options.settling.time().count()
              << " ms and is written: running processes read it again now\n";
    show_settings(written);
    return SUCCESS;
}

int config(const ConfigOptions &options) {
    const bool changes = !options.edits.empty() || options.rearm;
    if (options.off && changes) {
        throw Failure(BAD_USE, "--off removes the file: no other change goes with it");
    }
    if (options.off) {
        return switch_off(options);
    }
    return changes ? change_config(options) : show_config(options);
}

void add_config(CLI::App &log, Run &chosen) {
    const auto options = std::make_shared<ConfigOptions>();
    CLI::App &command = *log.add_subcommand("config", "Show or change what processes read from /dvrfile/logman");
    command.add_option("--print", options->edits.print, "Set dbgprint: any number but 0 switches printing on")
        ->type_name("N");
    add_texts(command, "--filter", options->edits.filters, "Add a text of which a line must contain one");
    add_texts(command, "--invert", options->edits.inverts, "Add a text that a line must not contain");
    command.add_flag("--clear-filters", options->edits.clear_filters, "Remove the filter texts that are there");
    command.add_flag("--clear-inverts", options->edits.clear_inverts, "Remove the invert texts that are there");
    command.add_flag("--rearm", options->rearm, "Have running processes read the file again, as it is");
    command.add_flag("--off", options->off, "Remove the file: switch the log off");
    options->settling.add_to(command);
    add_json(command, options->json);
    command.footer(
        "Processes read the file when it appears after having been away. So a change is written to a file\n"
        "beside, the old file is removed, and the new one gets its name after a while. Lines that a change\n"
        "does not concern stay as they are.\n"
        "Status 1 when there is no file, or it cannot be read.\n"
        "Example: velkor log config --print 1 --clear-filters --filter dvrMalloc");
    command.callback([options, &chosen] { chosen = [options] { return config(*options); }; });
}

// ---- status ----

// What would become of a line of a process that starts now.
struct Verdict {
    bool enabled;
    bool printing;
    bool terminal;

    Verdict(const SwitchFile &file, const TerminalView &view)
        : enabled(file.present), printing(file.prints()), terminal(view.error == 0) {}

    bool prints() const { return enabled && printing && terminal; }
};

std::string reason(const Verdict &verdict, const SwitchFile &file, const TerminalView &view) {
    if (!verdict.enabled) {
        return std::string("no: there is no ") + SWITCH_FILE;
    }
    if (!file.readable()) {
        return std::string("no: cannot read ") + SWITCH_FILE + ": " + meaning_of(file.error);
    }
    if (!verdict.printing) {
        return "no: printing is off";
    }
    if (!verdict.terminal) {
        return std::string("no: cannot open ") + TERMINAL + ": " + meaning_of(view.error);
    }
    const bool chosen = !file.settings.filters.empty() || !file.settings.inverts.empty();
    return chosen ? "yes, those that the texts let through" : "yes";
}

void show_status(const SwitchFile &file, const TerminalView &view, const std::vector<Holder> &holders,
                 const Verdict &verdict) {
    const Palette palette(is_coloured("auto", STDOUT_FILENO));
    const auto marked = [&](bool good, const std::string &text) {
        return good ? palette.green(text) : palette.red(text);
    };
    Table table;
    table.add("switch file", std::string(SWITCH_FILE) + (file.present ? "" : ", absent"));
    if (file.readable()) {
        table.add("print", print_text(file.settings.print));
        add_slots(table, "filter", file.settings.filters);
        add_slots(table, "invert", file.settings.inverts);
    }
    table.add("terminal", std::string(TERMINAL) + ", " + view.description());
    for (const Holder &holder : holders) {
        table.add("held open by", std::to_string(holder.process) + " " + spelt_out(holder.name));
    }
    table.add("lines get there", marked(verdict.prints(), reason(verdict, file, view)));
    table.print();
}

Json in_json(const TerminalView &view) {
    Json object = {{"path", TERMINAL}, {"kind", view.kind_name()}, {"target", nullptr}, {"error", view.error}};
    if (!view.target.empty()) {
        object["target"] = view.target;
    }
    return object;
}

Json in_json(const std::vector<Holder> &holders) {
    Json array = Json::array();
    for (const Holder &holder : holders) {
        array.push_back({{"pid", holder.process}, {"name", holder.name}});
    }
    return array;
}

int status(bool json) {
    const SwitchFile file = look_at_switch_file();
    const TerminalView view = look_at_terminal();
    const std::vector<Holder> holders = holders_of_terminal();
    const Verdict verdict(file, view);
    if (json) {
        print_json({{"switch", in_json(file)},
                    {"terminal", in_json(view)},
                    {"holders", in_json(holders)},
                    {"enabled", verdict.enabled},
                    {"printing", verdict.printing},
                    {"opens", verdict.terminal},
                    {"prints", verdict.prints()}});
    } else {
        show_status(file, view, holders, verdict);
    }
    return verdict.prints() ? SUCCESS : NEGATIVE;
}

void add_status(CLI::App &log, Run &chosen) {
    const auto json = std::make_shared<bool>(false);
    CLI::App &command = *log.add_subcommand("status", "Whether lines of a process that starts now would be seen");
    add_json(command, *json);
    command.footer("Status 0 when they would reach the terminal, 1 when not.");
    command.callback([json, &chosen] { chosen = [json] { return status(*json); }; });
}

}  // namespace

}  // namespace tool::log

void tool::add_log(CLI::App &velkor, Run &chosen) {
    CLI::App &family = *velkor.add_subcommand("log", "Follow, write, configure and examine the log");
    family.require_subcommand(1);
    log::add_follow(family, chosen);
    log::add_write(family, chosen);
    log::add_config(family, chosen);
    log::add_status(family, chosen);
}
