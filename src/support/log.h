// The library's log call. A macro, because the arguments of a process whose log is off are not evaluated.
// Answers what the log call answers, or 0 when the log is off.
#pragma once

#include <velkor/diagnostics.h>

#define VK_LOG_FLAGS(flags, ...) (vk_GetLogmanEnable() != 0 ? vk_printftomem(0, "libvelkor", (flags), __VA_ARGS__) : 0)

#define VK_LOG(...) VK_LOG_FLAGS(0, __VA_ARGS__)
