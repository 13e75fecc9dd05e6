// How wide a function's parameters and its result are, as text: "64(32, *8, double)" takes 32 bits, a pointer to bytes
// and a double, and returns 64 bits. What two types have in common when a machine passes them is all that the text
// keeps: `int` and `unsigned` are both "32", `char *` and `unsigned char *` both "*8", but `short *` is "*16".
#pragma once

#include <stddef.h>

#include <string_view>
#include <type_traits>

namespace widths {

#ifdef __arm__
inline constexpr bool IS_FOR_THE_RECORDER = true;
// Programs pass characters above 127 as numbers without a sign.
static_assert(static_cast<char>(-1) > 0, "the recorder's plain char has no sign");
#else
inline constexpr bool IS_FOR_THE_RECORDER = false;
#endif

// A text that can be a template's argument, so that the compiler prints it where two differ.
struct Text {
    char letters[160] = {};
    size_t length = 0;

    constexpr void add(std::string_view more) {
        for (const char letter : more) {
            letters[length++] = letter;  // a longer text does not compile
        }
    }
    constexpr bool operator==(const Text &) const = default;
};

// The name of a record that callers and library share, given where its layout is.
template <typename Record>
inline constexpr std::string_view name_of;

template <typename Type>
struct Write;

template <typename Type>
constexpr void write(Text &out) {
    Write<std::remove_cv_t<Type>>::to(out);
}

constexpr void write_number(Text &out, size_t number) {
    if (number >= 10) {
        write_number(out, number / 10);
    }
    const char digit = static_cast<char>('0' + number % 10);
    out.add({&digit, 1});
}

// The caller extends a number to a register, and the function relies on it, so that a narrow number's sign matters.
template <typename Number>
constexpr bool is_extended_by_sign = sizeof(Number) < 4 && std::is_signed_v<Number> && !std::is_same_v<Number, char>;

template <typename Type>
struct Write {
    static constexpr void to(Text &out) {
        if constexpr (std::is_void_v<Type>) {
            out.add("void");
        } else if constexpr (std::is_same_v<Type, bool>) {
            out.add("bool");
        } else if constexpr (std::is_integral_v<Type> || std::is_enum_v<Type>) {
            out.add(is_extended_by_sign<Type> ? "signed " : "");
            write_number(out, sizeof(Type) * 8);
        } else if constexpr (std::is_floating_point_v<Type>) {
            out.add(std::is_same_v<Type, double> ? "double" : "another floating point");
        } else {
            static_assert(!name_of<Type>.empty(), "a record without a name here");
            out.add(name_of<Type>);
        }
    }
};

template <typename Type>
struct Write<Type *> {
    static constexpr void to(Text &out) {
        out.add("*");
        write<Type>(out);
    }
};

template <typename Type>
constexpr void write_extents(Text &out) {
    if constexpr (std::is_array_v<Type>) {
        out.add("[");
        write_number(out, std::extent_v<Type>);
        out.add("]");
        write_extents<std::remove_extent_t<Type>>(out);
    }
}

template <typename Type, size_t count>
struct Write<Type[count]> {
    static constexpr void to(Text &out) {
        write<std::remove_all_extents_t<Type>>(out);
        write_extents<Type[count]>(out);
    }
};

template <typename... Parameters>
constexpr void write_parameters(Text &out) {
    bool is_first = true;
    ((out.add(is_first ? "" : ", "), is_first = false, write<Parameters>(out)), ...);
}

template <typename Result, typename... Parameters>
struct Write<Result(Parameters...)> {
    static constexpr void to(Text &out) {
        write<Result>(out);
        out.add("(");
        write_parameters<Parameters...>(out);
        out.add(")");
    }
};

template <typename Result, typename... Parameters>
struct Write<Result(Parameters..., ...)> {
    static constexpr void to(Text &out) {
        write<Result>(out);
        out.add("(");
        write_parameters<Parameters...>(out);
        out.add(sizeof...(Parameters) == 0 ? "...)" : ", ...)");
    }
};

template <typename Type>
consteval Text of() {
    Text out;
    write<Type>(out);
    return out;
}

// Takes the next word, or a single character between two words, off the text.
constexpr std::string_view take_token(std::string_view &text) {
    const size_t end = text.find_first_of("*,.()[] ");
    const std::string_view token = text.substr(0, end == 0 ? 1 : end);
    text.remove_prefix(token.size());
    return token;
}

// What a text of the table means on this platform.
consteval Text here(std::string_view text) {
    Text out;
    while (!text.empty()) {
        const std::string_view token = take_token(text);
        if (token == "address") {
            write_number(out, sizeof(void *) * 8);
        } else if (token == "time") {
            write_number(out, sizeof(long) * 8);
        } else {
            out.add(token);
        }
    }
    return out;
}

// The compiler names both texts where they differ.
template <Text in_the_header, Text of_callers>
struct Comparison {
    static_assert(in_the_header == of_callers, "a width in a header is not that of the programs in the field");
    static constexpr bool is_made = true;
};

}  // namespace widths
