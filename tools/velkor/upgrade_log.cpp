// velkor upgrade-log: what an upgrade did.
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <fstream>
#include <iostream>
#include <memory>

#include "command_line.h"
#include "exit_status.h"
#include "output.h"

namespace tool::upgrade {

namespace {

struct UpgradeOptions {
    std::string directory = VELKOR_HOST_CONFIG_PATH;
    std::vector<std::string> fields;
    bool json = false;
};

void choose_directory(const UpgradeOptions &options) {
    if (velkor_host_set_config_path(options.directory.c_str()) != 0) {
        throw Failure(BAD_USE, "\"" + options.directory + "\" cannot be a configuration directory");
    }
}

std::string log_file() { return (std::string(Cfg_gConfigPath()) + "log/upgrade.log").substr(0, 63); }

int show_log(const UpgradeOptions &options) {
    std::ifstream file(log_file());
    if (!file) {
        throw Failure(NEGATIVE, "there is no " + log_file());
    }
    Json lines = Json::array();
    for (std::string line; std::getline(file, line);) {
        if (options.json) {
            lines.push_back(line);
        } else {
            std::cout << spelt_out(line) << '\n';
        }
    }
    if (options.json) {
        print_json(lines);
    }
    return SUCCESS;
}

int write_log(const UpgradeOptions &options) {
    const std::vector<std::string> &fields = options.fields;
    if (fields.size() != 3) {
        throw Failure(BAD_USE, "a line has three fields, not " + std::to_string(fields.size()));
    }
    if (upgrade_WriteLog(fields[0].c_str(), fields[1].c_str(), fields[2].c_str()) < 0) {
        throw Failure(NEGATIVE, "code -1: " + log_file() + " cannot be written: " + meaning_of(errno));
    }
    return SUCCESS;
}

int clear_log(const UpgradeOptions & /*options*/) {
    upgrade_UnlinkLog();
    return SUCCESS;
}

CLI::App &add(CLI::App &family, Run &chosen, const std::shared_ptr<UpgradeOptions> &options, const char *name,
              const char *description, int (*run)(const UpgradeOptions &)) {
    CLI::App &command = *family.add_subcommand(name, description);
    command.callback([options, &chosen, run] {
        chosen = [options, run] {
            choose_directory(*options);
            return run(*options);
        };
    });
    return command;
}

}  // namespace

}  // namespace tool::upgrade

void tool::add_upgrade_log(CLI::App &velkor, Run &chosen) {
    const auto options = std::make_shared<upgrade::UpgradeOptions>();
    CLI::App &family = *velkor.add_subcommand("upgrade-log", "The log of upgrades that survives a power cut");
    family.require_subcommand(1);
    family.add_option("--config", options->directory, "Configuration directory; the log is log/upgrade.log in it")
        ->type_name("DIR")
        ->capture_default_str();
    add_json(upgrade::add(family, chosen, options, "show", "Print it", upgrade::show_log), options->json);
    CLI::App &write =
        upgrade::add(family, chosen, options, "write", "Append a line of three fields", upgrade::write_log);
    add_words(write, "FIELD", options->fields, "Three texts")->required();
    upgrade::add(family, chosen, options, "clear", "Remove it", upgrade::clear_log);
}
