#include "settings.h"

#include <stdio.h>
#include <unistd.h>
#include <velkor/configuration.h>

#include <fstream>
#include <iterator>
#include <memory>

#include "log.h"
#include "text.h"

namespace recorder {

namespace {

constexpr const char *FILE_NAME = "recorder.ini";
constexpr const char *NEW_FILE = "recorder.ini.new";
constexpr int FIRST_BITRATE = 4000;

// What an installer has left behind, comments and all.
std::string file_with(int bitrate) {
    return "# yard camera, fitted in spring\n"
           "[channel1]\n"
           "name = yard\n"
           "; more than 8000 is too much for the wireless bridge\n"
           "bitrate = " +
           std::to_string(bitrate) +
           "\n"
           "[network]\n"
           "address = 10.7.0.1\n"
           "# asked for by the plant's administrator\n"
           "port = 8000\n";
}

std::string content_of(const char *path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Beside the file and then into its place: a power cut leaves the one or the other, never half of one.
bool save(const dictionary *settings) {
    FILE *const file = fopen(NEW_FILE, "we");
    if (file == nullptr) {
        return false;
    }
    iniparser_dump_ini(settings, file);
    const bool is_written = ferror(file) == 0;
    return fclose(file) == 0 && is_written && rename(NEW_FILE, FILE_NAME) == 0;
}

}  // namespace

void Settings::prepare() {
    bitrate_ = FIRST_BITRATE;
    std::ofstream(FILE_NAME) << file_with(bitrate_);
}

void Settings::turn() {
    const std::unique_ptr<dictionary, void (*)(dictionary *)> settings(iniparser_load(FILE_NAME), iniparser_freedict);
    if (!expect(settings != nullptr, "the settings are loaded")) {
        return;
    }
    const int bitrate = iniparser_getint(settings.get(), "channel1:bitrate", -1);
    expect(bitrate == bitrate_, "the setting is what was saved last");
    const int next = FIRST_BITRATE + static_cast<int>(saved_ + 1) % 4000;
    expect(iniparser_setstr(settings.get(), "channel1:bitrate", std::to_string(next).c_str()) == 0,
           "a setting is changed");
    if (!expect(save(settings.get()), "the settings are saved")) {
        return;
    }
    bitrate_ = next;
    ++saved_;
    const std::string content = content_of(FILE_NAME);
    bytes_ = static_cast<unsigned>(content.size());
    expect(content == file_with(next), "nothing but the setting changes in the file");
    RECORDER_LOG("settings", "channel 1 has %d kbit/s from now on", next);
}

void Settings::conclude() {
    expect(saved_ > 0 && content_of(FILE_NAME) == file_with(bitrate_), "the file is what was saved last");
}

Panel Settings::panel() const {
    return {format("%s saved %u times", FILE_NAME, saved_.load()),
            format("bitrate = %d, 3 comments kept", bitrate_.load())};
}

std::string Settings::tally() const { return format("%u settings", saved_.load()); }

std::string Settings::summary() const {
    return format("%u times loaded, edited and saved; its %u bytes are the first ones but for the setting",
                  saved_.load(), bytes_.load());
}

}  // namespace recorder
