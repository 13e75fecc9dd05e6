// The directives that log lines are mostly made of, formatted without the C library's machinery: that is half of what
// a log line costs its caller (bench/logman_bench.cpp). Everything else is left to the C library.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <optional>

namespace velkor {

// Where the next character goes, and how many more fit. Handed on by value: a byte that is stored could otherwise be
// one of the pointers, for all that the compiler knows, and each would be read again for each byte.
struct Cursor {
    char *at;
    char *end;

    Cursor put(const char *text, size_t length) const {
        const size_t fitting = std::min(length, static_cast<size_t>(end - at));
        memcpy(at, text, fitting);
        return {at + fitting, end};
    }

    Cursor put(const char *text) const {
        text = text != nullptr ? text : "(null)";
        return put(text, strnlen(text, static_cast<size_t>(end - at)));
    }

    template <typename Number>
    Cursor put_number(Number number, int base = 10) const {
        char digits[24];
        const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, number, base);
        return put(digits, static_cast<size_t>(result.ptr - digits));
    }
};

// Formats as vsnprintf() would, `size` being at least 1. Answers the length of the text, or nothing when the format
// holds a directive with flags, a width, a precision, or another conversion than those below. What is in `out` then is
// of no use, and vsnprintf() must be asked, with arguments that were not used here.
inline std::optional<size_t> format_plainly(char *out, size_t size, const char *format, va_list arguments) {
    Cursor cursor = {out, out + size - 1};
    while (*format != '\0' && cursor.at != cursor.end) {
        if (*format != '%') {
            *cursor.at++ = *format++;
            continue;
        }
        ++format;
        const bool is_long = *format == 'l';
        format += is_long ? 1 : 0;
        switch (*format++) {
            case 'd':
            case 'i':
                cursor =
                    is_long ? cursor.put_number(va_arg(arguments, long)) : cursor.put_number(va_arg(arguments, int));
                break;
            case 'u':
                cursor = is_long ? cursor.put_number(va_arg(arguments, unsigned long))
                                 : cursor.put_number(va_arg(arguments, unsigned));
                break;
            case 'x':
                cursor = is_long ? cursor.put_number(va_arg(arguments, unsigned long), 16)
                                 : cursor.put_number(va_arg(arguments, unsigned), 16);
                break;
            case 's':
                if (is_long) {
                    return std::nullopt;
                }
                cursor = cursor.put(va_arg(arguments, const char *));
                break;
            default:
                return std::nullopt;
        }
    }
    // A full text is done, unless a directive could still do more than print.
    if (*format != '\0' && strchr(format, '%') != nullptr) {
        return std::nullopt;
    }
    *cursor.at = '\0';
    return static_cast<size_t>(cursor.at - out);
}

}  // namespace velkor
