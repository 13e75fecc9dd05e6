// velkor ini: configuration files as a recorder's processes read and write them.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "command_line.h"
#include "exit_status.h"
#include "file_replacement.h"
#include "file_text.h"
#include "ini_check.h"
#include "ini_edit.h"
#include "ini_file.h"
#include "line_diff.h"
#include "output.h"

namespace tool::ini {

namespace {

struct Options {
    std::string file;
    std::string key;
    std::string value;
    std::string type = "string";
    std::string colour = "auto";
    bool json = false;
};

// A line without its newline; a carriage return shows.
std::string shown_line(std::string text) {
    if (text.ends_with('\n')) {
        text.pop_back();
    }
    return spelt_out(text);
}

// ---- get ----

// The value as a process reads it that asks for a number or a yes or no.
Json read_as(const Options &options, const dictionary &d, const char *value) {
    const char *const key = options.key.c_str();
    const auto remark_unless_all_was_read = [&](const char *end) {
        if (end == value || *end != '\0') {
            remark(in_quotes(value) + " is not all a number: processes read what you see");
        }
    };
    char *end = nullptr;
    if (options.type == "int") {
        static_cast<void>(strtoll(value, &end, 10));
        remark_unless_all_was_read(end);
        return iniparser_getint(&d, key, 0);
    }
    if (options.type == "double") {
        static_cast<void>(strtod(value, &end));
        remark_unless_all_was_read(end);
        return iniparser_getdouble(&d, key, 0);
    }
    if (options.type == "boolean") {
        const int answer = iniparser_getboolean(&d, key, -1);
        if (answer < 0) {
            throw Failure(NEGATIVE, in_quotes(value) + " is neither yes nor no: processes use their default");
        }
        return answer == 1;
    }
    return value;
}

int get(const Options &options) {
    const Loaded d = load_text(read_file(options.file));
    if (iniparser_find_entry(d.get(), options.key.c_str()) == 0) {
        throw Failure(NEGATIVE, "there is no " + in_quotes(options.key) + " in " + options.file);
    }
    const char *const value = iniparser_getstr(d.get(), options.key.c_str());
    if (value == nullptr) {
        throw Failure(NEGATIVE, in_quotes(options.key) + " is a section, it has no value");
    }
    const Json read = read_as(options, *d, value);
    if (options.json) {
        print_json({{"key", lower(options.key)}, {"value", read}});
    } else {
        std::cout << (read.is_string() ? value : json_text(read)) << '\n';
    }
    return SUCCESS;
}

// ---- set, unset ----

int change(const Options &options, const std::string &before, const std::string &after, const FileReplacement &file) {
    const bool is_changed = before != after;
    if (is_changed) {
        file.replace_by(after);
    }
    if (options.json) {
        print_json({{"file", options.file}, {"key", lower(options.key)}, {"changed", is_changed}});
    } else {
        std::cout << options.file << (is_changed ? " written\n" : " is so already\n");
    }
    return SUCCESS;
}

int set(const Options &options) {
    if (options.key.find(':') == std::string::npos) {
        throw Failure(BAD_USE, "a setting's key is SECTION:NAME, or :NAME without a section");
    }
    if (options.value.find('\n') != std::string::npos) {
        throw Failure(BAD_USE, "a value is one line");
    }
    const FileReplacement file(options.file);
    const std::string content = read_file(options.file);
    const Loaded d = load_text(content);
    const char *const value = iniparser_getstr(d.get(), options.key.c_str());
    const bool is_set = value != nullptr && value == options.value;
    return change(options, content, is_set ? content : with_setting(content, options.key, options.value), file);
}

int unset(const Options &options) {
    const FileReplacement file(options.file);
    const std::string content = read_file(options.file);
    return change(options, content, without_key(content, options.key), file);
}

// ---- sections, list ----

int sections(const Options &options) {
    const Loaded d = load_text(read_file(options.file));
    Json names = Json::array();
    for (int i = 0; i < iniparser_getnsec(d.get()); ++i) {
        names.push_back(iniparser_getsecname(d.get(), i));
    }
    if (options.json) {
        print_json(names);
        return SUCCESS;
    }
    for (const auto &name : names) {
        std::cout << spelt_out(name.get<std::string>()) << '\n';
    }
    return SUCCESS;
}

int list(const Options &options) {
    const Loaded d = load_text(read_file(options.file));
    if (options.json) {
        Json entries = Json::array();
        for (const Entry &entry : entries_of(*d)) {
            entries.push_back({{"key", entry.key}, {"value", entry.value ? Json(*entry.value) : Json(nullptr)}});
        }
        print_json(entries);
        return SUCCESS;
    }
    Table table;
    for (const Entry &entry : entries_of(*d)) {
        if (entry.value) {
            table.add(spelt_out(entry.key), in_quotes(*entry.value));
        }
    }
    table.print();
    return SUCCESS;
}

// ---- check, diff ----

int check(const Options &options) {
    const std::vector<Note> notes = notes_on(read_file(options.file));
    if (options.json) {
        Json array = Json::array();
        for (const Note &note : notes) {
            array.push_back({{"line", note.line}, {"text", note.text}, {"why", note.why}});
        }
        print_json({{"file", options.file}, {"notes", array}});
    } else {
        for (const Note &note : notes) {
            std::cout << options.file << ':' << note.line << ": " << note.why << "\n    " << spelt_out(note.text)
                      << '\n';
        }
    }
    return notes.empty() ? SUCCESS : NEGATIVE;
}

Json in_json(const DiffLine &line) {
    const bool is_added = line.kind == DiffLine::Kind::added;
    return {{"change", is_added ? "added" : "removed"}, {"text", line.text}};
}

void show(const DiffLine &line, const Palette &palette) {
    switch (line.kind) {
        case DiffLine::Kind::removed:
            std::cout << palette.red("-" + shown_line(line.text)) << '\n';
            break;
        case DiffLine::Kind::added:
            std::cout << palette.green("+" + shown_line(line.text)) << '\n';
            break;
        default:
            std::cout << ' ' << shown_line(line.text) << '\n';
    }
}

int diff(const Options &options) {
    const std::string content = read_file(options.file);
    const std::string written = written_back(*load_text(content));
    const std::vector<DiffLine> lines = difference_of(lines_of(content), lines_of(written));
    const Palette palette(is_coloured(options.colour, STDOUT_FILENO));
    Json changes = Json::array();
    for (const DiffLine &line : lines) {
        if (options.json && line.kind != DiffLine::Kind::same) {
            changes.push_back(in_json(line));
        } else if (!options.json && content != written) {
            show(line, palette);
        }
    }
    if (options.json) {
        print_json({{"file", options.file}, {"changes", changes}});
    }
    return content == written ? SUCCESS : NEGATIVE;
}

// ---- What a person types ----

class Family {
public:
    Family(CLI::App &ini, Run &chosen) : ini_(ini), chosen_(chosen) {}

    // A command on a file; `describe` adds what else it takes.
    template <typename Describe>
    CLI::App &add(const std::string &name, const std::string &description, int (*run)(const Options &),
                  Describe describe) {
        const auto options = std::make_shared<Options>();
        CLI::App &command = *ini_.add_subcommand(name, description);
        command.add_option("FILE", options->file, "The INI file")->required()->type_name("");
        describe(command, *options);
        add_json(command, options->json);
        Run &chosen = chosen_;
        command.callback([options, run, &chosen] { chosen = [options, run] { return run(*options); }; });
        return command;
    }

private:
    CLI::App &ini_;
    Run &chosen_;
};

void add_nothing(CLI::App & /*command*/, Options & /*options*/) {}

void add_key(CLI::App &command, Options &options) {
    command.add_option("KEY", options.key, "SECTION:NAME, in any case")->required()->type_name("");
}

void add_key_and_type(CLI::App &command, Options &options) {
    add_key(command, options);
    command.add_option("--type", options.type, "Read it as a process does: string, int, double or boolean")
        ->type_name("TYPE")
        ->check(CLI::IsMember({"string", "int", "double", "boolean"}).description(""))
        ->capture_default_str();
}

void add_key_and_value(CLI::App &command, Options &options) {
    add_key(command, options);
    command.add_option("VALUE", options.value, "The value")->required()->type_name("");
}

void add_colour(CLI::App &command, Options &options) {
    command.add_option("--colour", options.colour, "Colours: auto, always or never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->capture_default_str();
}

}  // namespace

}  // namespace tool::ini

namespace tool {

void add_ini(CLI::App &velkor, Run &chosen) {
    using namespace ini;
    CLI::App &command = *velkor.add_subcommand("ini", "Configuration files: what processes read, and what they write");
    command.require_subcommand(1);
    Family family(command, chosen);
    family.add("get", "Print one value", get, add_key_and_type)
        .footer("Status 1 when there is no such setting.\nExample: velkor ini get /dvrfile/net.ini net:ip");
    family.add("set", "Change a setting, or add it", set, add_key_and_value)
        .footer(
            "Every other byte of the file stays. The file is replaced in one step, mode and owner kept: a full disk\n"
            "or a lost process leaves the old one. What a process would not read as typed is refused, status 1.\n"
            "A value that begins with \"-\" stands behind \"--\".");
    family.add("unset", "Remove a setting, or a section with all in it", unset, add_key)
        .footer("Repetitions that processes drop today go too. Status 1 when there is nothing to remove.");
    family.add("sections", "Print the names of the sections", sections, add_nothing);
    family.add("list", "Print every setting under its key", list, add_nothing);
    family.add("check", "Tell what processes drop, and what a write-back would lose", check, add_nothing)
        .footer("Status 1 when there is something to tell.");
    family.add("diff", "Show what a write-back by a process would change", diff, add_colour)
        .footer("Status 1 when it would change anything. \"^M\" is a carriage return.");
}

}  // namespace tool
