#include "support/ini_model.h"

#include <ctype.h>
#include <string.h>

namespace {

uint32_t hash_of(const std::string &key) {
    uint32_t hash = 0;
    for (const char character : key) {
        hash += static_cast<unsigned char>(character);
        hash += hash << 10;
        hash ^= hash >> 6;
    }
    hash += hash << 3;
    hash ^= hash >> 11;
    hash += hash << 15;
    return hash;
}

std::string lower(const std::string &text) {
    std::string result = text.substr(0, 1024);
    for (char &character : result) {
        character = static_cast<char>(tolower(static_cast<unsigned char>(character)));
    }
    return result;
}

std::string cropped(const std::string &text) {
    std::string result = text.substr(0, 1024);
    while (!result.empty() && isspace(static_cast<unsigned char>(result.back())) != 0) {
        result.pop_back();
    }
    return result;
}

uint32_t anchor_of(const std::string &section, const std::string &key) {
    char name[1024];
    if (section.empty() && key.empty()) {
        return 65535;
    }
    if (section.empty() || key.empty()) {
        snprintf(name, sizeof name, "%s%s", section.c_str(), key.c_str());
    } else {
        snprintf(name, sizeof name, "%s:%s", section.c_str(), key.c_str());
    }
    return hash_of(name);
}

bool is_section(const std::string &key) { return key.find(':') == std::string::npos; }

const char *or_blank(const std::optional<std::string> &text) { return text ? text->c_str() : " "; }

}  // namespace

IniModel::Entry *IniModel::find(const std::string &key) {
    for (auto &slot : slots_) {
        if (slot && slot->key == key) {
            return &*slot;
        }
    }
    return nullptr;
}

const IniModel::Entry *IniModel::find(const std::string &key) const { return const_cast<IniModel *>(this)->find(key); }

int IniModel::set(const std::string &key, const std::string &value) {
    Entry *const entry = find(key);
    if (entry == nullptr) {
        return -1;
    }
    if (entry->value == value) {
        return 1000;
    }
    entry->value = value;
    return 0;
}

int IniModel::add(const std::string &key, const std::optional<std::string> &value) {
    if (find(key) != nullptr) {
        return -1;
    }
    for (auto &slot : slots_) {
        if (!slot) {
            slot = Entry{key, value};
            return 0;
        }
    }
    slots_.push_back(Entry{key, value});
    return 0;
}

int IniModel::modify(const std::string &key, const std::optional<std::string> &value) {
    if (Entry *const entry = find(key)) {
        entry->value = value;
        return 0;
    }
    return add(key, value);
}

void IniModel::unset(const std::string &key) {
    for (auto &slot : slots_) {
        if (slot && slot->key == key) {
            slot.reset();
        }
    }
}

int IniModel::add_entry(const std::string &section, const std::optional<std::string> &key,
                        const std::optional<std::string> &value) {
    char name[2049];
    if (key) {
        snprintf(name, sizeof name, "%s:%s", section.c_str(), key->c_str());
    } else {
        snprintf(name, sizeof name, "%s", section.c_str());
    }
    return add(name, value) == 0 ? 0 : 1;
}

int IniModel::add_comment(const std::string &section, const std::string &key, const std::string &text,
                          unsigned char kind) {
    if (kind == 0) {
        return -1;
    }
    comments_.push_back({anchor_of(section, key), kind, text.empty() ? std::nullopt : std::optional(text)});
    return 0;
}

bool IniModel::load(const std::string &path) {
    FILE *const file = fopen(path.c_str(), "r");
    if (file == nullptr) {
        return false;
    }
    char line[1024];
    if (fgets(line, sizeof line, file) != nullptr) {
        rewind(file);
        if (memcmp(line, "\xEF\xBB\xBF", 3) == 0) {
            fseek(file, 3, SEEK_SET);
        }
    }
    while (fgets(line, sizeof line, file) != nullptr) {
        take_line(line);
    }
    fclose(file);
    return true;
}

void IniModel::take_line(const char *line) {
    char trailing[513] = "";
    char value[513] = "";
    if (line[0] == ';' || line[0] == '#') {
        add_comment(section_, key_, std::string(line).substr(0, 512), 1);
        return;
    }
    const char *rest = line;
    while (isspace(static_cast<unsigned char>(*rest)) != 0) {
        ++rest;
    }
    if (*rest == ';' || *rest == '#') {
        add_comment(section_, key_, std::string(rest).substr(0, 512), 3);
        return;
    }
    if (sscanf(rest, "[%512[^]] ] %512[^\n]", section_, trailing) == 2 || sscanf(rest, "[%512[^]]", section_) == 1) {
        key_[0] = '\0';
        strcpy(section_, lower(section_).c_str());
        add_entry(section_, std::nullopt, std::nullopt);
        if (trailing[0] != '\0') {
            add_comment(section_, key_, trailing, 2);
        }
        return;
    }
    if (sscanf(rest, "%512[^=] = \"%512[^\"]\" %512[^\n]", key_, value, trailing) == 3 ||
        sscanf(rest, "%512[^=] = \"%512[^\"]\"", key_, value) == 2 ||
        sscanf(rest, "%512[^=] = '%512[^']' %512[^\n]", key_, value, trailing) == 3 ||
        sscanf(rest, "%512[^=] = '%512[^']'", key_, value) == 2 ||
        sscanf(rest, "%512[^=] = %512[^;] %512[^\n]", key_, value, trailing) == 3 ||
        sscanf(rest, "%512[^=] = %512[^;]", key_, value) == 2) {
        strcpy(key_, lower(cropped(key_)).c_str());
        if (strcmp(value, "\"\"") == 0 || strcmp(value, "''") == 0) {
            value[0] = '\0';
        }
        add_entry(section_, key_, cropped(value));
        if (trailing[0] != '\0') {
            add_comment(section_, key_, trailing, 2);
        }
        return;
    }
    add_comment(section_, key_, "", 4);
}

std::optional<std::string> IniModel::getstring(const std::string &key, const std::string &otherwise) const {
    const Entry *const entry = find(lower(key));
    return entry != nullptr ? entry->value : otherwise;
}

int IniModel::getboolean(const std::string &key, int otherwise) const {
    const Entry *const entry = find(lower(key));
    if (entry == nullptr || !entry->value || entry->value->empty()) {
        return otherwise;
    }
    const char first = entry->value->front();
    return strchr("yYtT1", first) != nullptr ? 1 : strchr("nNfF0", first) != nullptr ? 0 : otherwise;
}

int IniModel::setstr(const std::string &key, const std::string &value) {
    const int result = set(lower(key), value);
    return result == 0 || result == 1000 ? result : 1;
}

void IniModel::unset_lower(const std::string &key) { unset(lower(key)); }

int IniModel::getnsec() const {
    int sections = 0;
    while (getsecname(sections)) {
        ++sections;
    }
    return sections;
}

std::optional<std::string> IniModel::getsecname(int index) const {
    for (const auto &slot : slots_) {
        if (slot && is_section(slot->key) && index-- == 0) {
            return slot->key;
        }
    }
    return std::nullopt;
}

std::string IniModel::store() const {
    std::string text;
    for (size_t i = 0; i < slots_.size(); ++i) {
        if (slots_[i]) {
            text += "slot " + std::to_string(i) + " " + slots_[i]->key + " " + std::to_string(hash_of(slots_[i]->key)) +
                    "\n";
        }
    }
    for (const Comment &comment : comments_) {
        text += "comment " + std::to_string(comment.kind) + " " + std::to_string(comment.anchor) + " " +
                comment.text.value_or("NULL") + "\n";
    }
    return text;
}

void IniModel::dictionary_dump(FILE *out) const {
    bool is_empty = true;
    for (const auto &slot : slots_) {
        if (slot) {
            fprintf(out, "%20s\t[%s]\n", slot->key.c_str(), slot->value ? slot->value->c_str() : "UNDEF");
            is_empty = false;
        }
    }
    if (is_empty) {
        fprintf(out, "empty dictionary\n");
    }
}

void IniModel::dump(FILE *out) const {
    for (const auto &slot : slots_) {
        if (slot && slot->value) {
            fprintf(out, "[%s]=[%s]\n", slot->key.c_str(), slot->value->c_str());
        } else if (slot) {
            fprintf(out, "[%s]=UNDEF\n", slot->key.c_str());
        }
    }
}

void IniModel::dump_comments(uint32_t anchor, FILE *out) const {
    for (const Comment &comment : comments_) {
        if (comment.anchor != anchor) {
            continue;
        }
        if (comment.kind == 1) {
            fprintf(out, "%s", or_blank(comment.text));
        } else if (comment.kind == 2) {
            fseek(out, -1, SEEK_CUR);
            fprintf(out, "%s\n", or_blank(comment.text));
        } else if (comment.kind == 3) {
            fprintf(out, "%4s%s", " ", or_blank(comment.text));
        } else if (comment.kind == 4) {
            fprintf(out, "\r\n");
        }
    }
}

void IniModel::dump_ini(FILE *out) const {
    dump_comments(65535, out);
    const int sections = getnsec();
    for (int i = 0; i < sections; ++i) {
        const std::string name = *getsecname(i);
        fprintf(out, "[%s]\n", name.c_str());
        dump_comments(hash_of(name), out);
        const std::string prefix = name + ":";
        for (const auto &slot : slots_) {
            if (slot && slot->key.compare(0, prefix.size(), prefix) == 0) {
                fprintf(out, "%-2s = %-2s\n", slot->key.c_str() + prefix.size(), or_blank(slot->value));
                dump_comments(hash_of(slot->key), out);
            }
        }
    }
    for (size_t i = 0; sections == 0 && i < slots_.size(); ++i) {
        if (const auto &slot = slots_[i]) {
            fprintf(out, "%-2s = %-2s\n", slot->key.c_str(), slot->value ? slot->value->c_str() : "(null)");
            fprintf(out, "%-2s = %-2s\n", slot->key.c_str(), or_blank(slot->value));
            dump_comments(hash_of(slot->key), out);
        }
    }
}
