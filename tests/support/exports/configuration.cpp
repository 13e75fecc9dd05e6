#include <velkor/configuration.h>

#include <cstdlib>
#include <memory>

#include "support/export_table.h"
#include "support/place.h"

namespace exports {
namespace {

constexpr const char *FILE_NAME = "/tmp/storm.ini";
constexpr const char *SHARES = "one buffer for the whole process: the result holds until the next call from any thread";

std::shared_ptr<void> prepare() {
    place::write_file(
        FILE_NAME, "; the head\n[Server]\nHost = 10.0.0.6 ; the gateway\nPort = 80\nRatio = 1.5\nOn = yes\n[Empty]\n");
    return nullptr;
}

std::shared_ptr<dictionary> loaded() {
    return {iniparser_load(FILE_NAME), [](dictionary *d) { iniparser_freedict(d); }};
}

// What all threads read at once.
const dictionary *settings() {
    static const std::shared_ptr<dictionary> SETTINGS = loaded();
    return SETTINGS.get();
}

template <typename Print>
std::string printed(const dictionary *d, Print print) {
    char *text = nullptr;
    size_t size = 0;
    FILE *const out = open_memstream(&text, &size);
    print(d, out);
    fclose(out);
    std::string copy(text, size);
    free(text);
    return copy;
}

// A dictionary of the call's own, for nothing locks one.
template <typename Change>
std::string changed_settings(Change change) {
    const std::shared_ptr<dictionary> own = loaded();
    const std::string results = change(own.get());
    return results + printed(own.get(), iniparser_dump_ini);
}

std::string changed_by_keys(dictionary *d) {
    const int added = dictionary_add(d, "server:user", "a");
    const int set = dictionary_set(d, "server:port", "81");
    const int modified = dictionary_modify(d, "empty:new", "b");
    dictionary_unset(d, "server:host");
    const int numbered = dictionary_setint(d, "server:port", 82);
    const int halved = dictionary_setdouble(d, "server:ratio", 0.5);
    return text_of(added, set, modified, numbered, halved);
}

std::string changed_by_names(dictionary *d) {
    const int added = iniparser_add_entry(d, "server", "user", "a");
    const int explained = iniparser_add_comment(d, "server", "user", "; b\n", COMMENT_LINE);
    const int set = iniparser_setstr(d, "Server:Port", "81");
    iniparser_unset(d, "Server:Host");
    return text_of(added, explained, set);
}

std::string made() {
    dictionary *const d = dictionary_new(0);
    const std::string text = text_of(d->count, d->size);
    dictionary_del(d);
    return text;
}

std::string doubled() {
    void *const block = strdup("text");
    char *const twice = static_cast<char *>(mem_double(block, 5));
    const std::string text = text_of(twice, twice[9]);
    free(twice);
    return text;
}

std::string all_of_the_file() { return printed(loaded().get(), dictionary_dump); }

// What loads and look-ups lower is nobody else's text.
template <typename Read>
std::string beside_strlwc(Read read) {
    strlwc("THE TEXT OF ANOTHER");
    return read();
}

std::string host() { return text_of(iniparser_getstring(settings(), "Server:Host", "none")); }

constexpr Row ROWS[] = {
    {"dictionary_new dictionary_del", made},
    {"dictionary_hash", [] { return text_of(dictionary_hash("server:host")); }, PLAIN},
    {"mem_double", doubled},
    {"dictionary_get", [] { return text_of(dictionary_get(settings(), "server:host", "none")); }, PLAIN},
    {"dictionary_getchar", [] { return text_of(dictionary_getchar(settings(), "server:host", 0)); }, PLAIN},
    {"dictionary_getint", [] { return text_of(dictionary_getint(settings(), "server:port", 0)); }, PLAIN},
    {"dictionary_getdouble", [] { return text_of(dictionary_getdouble(settings(), "server:ratio", 0)); }, PLAIN},
    {"dictionary_add dictionary_set dictionary_modify dictionary_unset dictionary_setint dictionary_setdouble",
     [] { return changed_settings(changed_by_keys); }},
    {"dictionary_dump", [] { return printed(settings(), dictionary_dump); }},

    {"strlwc", [] { return shared_text(strlwc("Some Text")); }, sharing(SHARES)},
    {"strupc", [] { return shared_text(strupc("Some Text")); }, sharing(SHARES)},
    {"strskp", [] { return text_of(strskp(" \t text ")); }, PLAIN},
    {"strcrop", [] { return shared_text(strcrop("text with an end  \n")); }, sharing(SHARES)},
    {"strstrip", [] { return shared_text(strstrip("  text with two ends  \n")); }, sharing(SHARES)},

    {"iniparser_load iniparser_freedict", all_of_the_file},
    {"iniparser_load (beside strlwc)", [] { return beside_strlwc(all_of_the_file); }},
    {"iniparser_add_entry iniparser_add_comment iniparser_setstr iniparser_unset",
     [] { return changed_settings(changed_by_names); }},
    {"iniparser_getstring", host},
    {"iniparser_getstring (beside strlwc)", [] { return beside_strlwc(host); }},
    {"iniparser_getstr", [] { return text_of(iniparser_getstr(settings(), "Server:Host")); }},
    {"iniparser_getint", [] { return text_of(iniparser_getint(settings(), "Server:Port", 0)); }},
    {"iniparser_getdouble", [] { return text_of(iniparser_getdouble(settings(), "Server:Ratio", 0)); }},
    {"iniparser_getboolean", [] { return text_of(iniparser_getboolean(settings(), "Server:On", -1)); }},
    {"iniparser_find_entry", [] { return text_of(iniparser_find_entry(settings(), "Server:Host")); }},
    {"iniparser_getnsec", [] { return text_of(iniparser_getnsec(settings())); }, PLAIN},
    {"iniparser_getsecname", [] { return text_of(iniparser_getsecname(settings(), 1)); }, PLAIN},
    {"iniparser_dump", [] { return printed(settings(), iniparser_dump); }},
    {"iniparser_dump_ini", [] { return printed(settings(), iniparser_dump_ini); }},
    {"iniparser_sec_getNLowLever", [] { return text_of(iniparser_sec_getNLowLever(settings(), "server")); }, PLAIN},
    {"iniparser_sec_getLowLever", [] { return text_of(iniparser_sec_getLowLever(settings(), "server")); }, PLAIN},
};

}  // namespace

const Group CONFIGURATION = {ROWS, prepare};

}  // namespace exports
