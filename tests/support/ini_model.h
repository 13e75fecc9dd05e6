// The INI parser as its format was defined: with the C library's own fgets(), sscanf() and fprintf(), one step after
// the other, as slow and as plain as can be. The library is held against it.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <optional>
#include <string>
#include <vector>

class IniModel {
public:
    bool load(const std::string &path);

    // As the library's functions of these names.
    int set(const std::string &key, const std::string &value);
    int add(const std::string &key, const std::optional<std::string> &value);
    int modify(const std::string &key, const std::optional<std::string> &value);
    void unset(const std::string &key);
    int add_entry(const std::string &section, const std::optional<std::string> &key,
                  const std::optional<std::string> &value);
    int add_comment(const std::string &section, const std::string &key, const std::string &text, unsigned char kind);
    std::optional<std::string> getstring(const std::string &key, const std::string &otherwise) const;
    int getboolean(const std::string &key, int otherwise) const;
    int setstr(const std::string &key, const std::string &value);
    void unset_lower(const std::string &key);
    int getnsec() const;
    std::optional<std::string> getsecname(int index) const;

    // Every slot and comment, one a line; see store_of() in ini_lockstep.cpp.
    std::string store() const;
    void dictionary_dump(FILE *out) const;
    void dump(FILE *out) const;
    void dump_ini(FILE *out) const;

private:
    struct Entry {
        std::string key;
        std::optional<std::string> value;
    };
    struct Comment {
        uint32_t anchor;
        unsigned char kind;
        std::optional<std::string> text;
    };

    void take_line(const char *line);
    Entry *find(const std::string &key);
    const Entry *find(const std::string &key) const;
    void dump_comments(uint32_t anchor, FILE *out) const;

    std::vector<std::optional<Entry>> slots_;
    std::vector<Comment> comments_;
    char section_[513] = "";
    char key_[513] = "";
};
