// The beginning of a text.
#pragma once

#include <stddef.h>

#include <string_view>

namespace velkor {

// At most `length` characters. string_view::substr(), and starts_with() of a text, would have a build without
// optimisation ask for the C++ library, which reports a beginning outside the text.
constexpr std::string_view text_head(std::string_view text, size_t length) {
    return length < text.size() ? std::string_view(text.data(), length) : text;
}

}  // namespace velkor
