// The file in which a person at the bench says what the stand-ins cannot know: velkor_host.h describes it.
#pragma once

#include <stddef.h>

namespace velkor_host {

// Copies the value of a name in a section. False, with `out` empty, when there is none or it does not fit.
[[gnu::visibility("hidden")]] bool find_setting(const char *section, const char *name, char *out, size_t size);

// The same as a number; `otherwise` when there is none.
[[gnu::visibility("hidden")]] int find_number(const char *section, const char *name, int otherwise);

}  // namespace velkor_host
