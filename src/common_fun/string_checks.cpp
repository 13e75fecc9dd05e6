// What a text may hold: names that people type must not break the configuration files that they end up in.
#include <string.h>

#include <velkor/text.h>

namespace {

bool is_empty(const char *text) { return text == nullptr || *text == '\0'; }

// Not isalpha() and its like: their answer would depend on the locale.
constexpr bool is_lower(unsigned char byte) { return byte >= 'a' && byte <= 'z'; }
constexpr bool is_upper(unsigned char byte) { return byte >= 'A' && byte <= 'Z'; }
constexpr bool is_digit(unsigned char byte) { return byte >= '0' && byte <= '9'; }
constexpr bool is_ascii(unsigned char byte) { return byte < 128; }

template <typename Passes>
int check_each(const char *text, Passes passes) {
    if (is_empty(text)) {
        return 0;
    }
    for (; *text != '\0'; ++text) {
        if (!passes(static_cast<unsigned char>(*text))) {
            return 0;
        }
    }
    return 1;
}

}  // namespace

int check_string(const char *text) { return !is_empty(text) && strpbrk(text, "#;:\\'\"") == nullptr ? 1 : 0; }

int check_string_ascii(const char *text) {
    return check_each(text, [](unsigned char byte) { return is_ascii(byte) && !is_lower(byte); });
}

int check_visual_string(const char *text) {
    return check_each(
        text, [](unsigned char byte) { return is_digit(byte) || is_lower(byte) || is_upper(byte) || !is_ascii(byte); });
}
