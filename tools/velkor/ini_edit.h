// Changes of an INI file that leave every other byte alone.
#pragma once

#include <string>

namespace tool::ini {

// Both answer the new content, which has been loaded and compared entry by entry: only what was asked for differs. A
// Failure when that cannot be had.

// Changes the setting, or adds it to its section, or both to the file.
std::string with_setting(const std::string &content, const std::string &key, const std::string &value);

// Without the setting, every repetition of it too; without the section and all in it, when the key names one. A
// Failure when there is neither.
std::string without_key(const std::string &content, const std::string &key);

}  // namespace tool::ini
