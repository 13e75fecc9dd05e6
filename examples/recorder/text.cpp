#include "text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace recorder {

std::string format(const char *format, ...) {
    std::array<char, 512> text;
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    return text.data();
}

std::string bar(double fraction, unsigned width) {
    const double known = std::isfinite(fraction) ? std::clamp(fraction, 0.0, 1.0) : 0;
    const auto filled = static_cast<unsigned>(std::lround(known * width));
    return "[" + std::string(filled, '#') + std::string(width - filled, '-') + "]";
}

}  // namespace recorder
