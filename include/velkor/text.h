/**
 * @file text.h
 * Text helpers: bounded copies and integer parsing. All are reentrant and keep no state.
 */
#ifndef VELKOR_TEXT_H
#define VELKOR_TEXT_H

#include <velkor/api.h>

VELKOR_BEGIN_C

/**
 * strncpy() and a terminator: copies at most @p n characters, fills up to @p n with zeros, and writes 0 at
 * `dst[n]`. Does nothing when a pointer is NULL or @p n is negative.
 *
 * @param dst  n + 1 bytes
 * @param src  the text
 * @param n    most characters to copy
 */
VELKOR_API void strncopy(char *dst, const char *src, int n);

/**
 * Copy at most min(@p size - 1, @p n) characters and terminate right behind that many. Nothing is written when a
 * pointer is NULL, @p size is not positive or @p n is negative.
 *
 * @param dst   @p size bytes
 * @param size  bytes that @p dst holds
 * @param src   the text
 * @param n     most characters to copy
 */
VELKOR_API void vk_strncpy(char *dst, int size, const char *src, int n);

/**
 * strtoll() in base 10. `errno` is 0 afterwards unless the number is out of range (ERANGE, and a log line).
 *
 * @param text  the number's text; NULL gives 0
 * @return the value, clamped to the 64-bit range
 */
VELKOR_API long long vk_atoll(const char *text);

/** vk_atoll() cut to its low 32 bits: 4294967297 gives 1. */
VELKOR_API int vk_atoi(const char *text);

/** atoi() for 0 to 255; any other value, and NULL, gives 0. */
VELKOR_API unsigned char vk_atou8(const char *text);

VELKOR_END_C

#endif
