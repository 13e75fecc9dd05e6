/**
 * @file text.h
 * Text helpers: splitting, searching, replacing, checking and converting text; numbers, base64, character sets;
 * trigger sets; SHA-1; bounded copies and integer parsing.
 *
 * All functions are reentrant and keep no state. Lengths and counts are in bytes. "Piece", "token" and "field" are
 * parts of a text between separators; arrays of them belong to the caller. Buffers in which results are built must
 * not overlap the arguments unless said otherwise.
 */
#ifndef VELKOR_TEXT_H
#define VELKOR_TEXT_H

#include <stdint.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

/** @name Bounded copies and integer parsing
 * @{ */

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

/** atoi() of @p text for 0 to 255; any other value, and NULL, gives 0. */
VELKOR_API unsigned char vk_atou8(const char *text);

/** @} */

/** @name Splitting
 * @{ */

/**
 * Split @p text at the first character of @p delimiter (its other characters mean nothing; an empty one never
 * occurs). Characters are copied one by one and **no terminator is written**: hand in cleared buffers.
 *
 * The text is read from left to right, and the first limit that it meets decides the result; the pieces and
 * characters before it stay. With @p max below 1 there is no room for any piece, and nothing is written.
 *
 * @param text       the text
 * @param delimiter  its first character separates
 * @param pieces     @p max buffers of @p piece_size bytes each
 * @param piece_size a piece has fewer characters than this; the character that reaches it is still written
 * @param max        buffers in @p pieces
 * @return the number of pieces, which is that of the delimiters and one more
 * @retval -1  an argument is NULL, or the buffer of a piece that has a character
 * @retval -2  a piece reaches @p piece_size characters
 * @retval -3  the delimiters reach @p max
 */
VELKOR_API int SplitString(const char *text, const char *delimiter, char *const pieces[], int piece_size, int max);

/**
 * Split @p text at each occurrence of the text @p separator. **The field behind the last separator is counted and
 * stored as an empty piece:** "a,b" at "," gives "a" and "", and 2; a text without separator gives one empty piece.
 * A text that ends in a separator loses nothing. An empty @p separator occurs everywhere: all pieces are empty and
 * the result is -1. @p text may be the buffer of a piece.
 *
 * @param text       the text
 * @param separator  what separates
 * @param pieces     @p max buffers, each with room for the longest field and its terminator
 * @param max        buffers in @p pieces
 * @return the number of pieces, at most @p max - 1
 * @retval -1  an argument or the buffer of a piece is NULL, or the count reached @p max; the pieces before stay
 */
VELKOR_API int SplitStringToArrayEx(const char *text, const char *separator, char *const pieces[], int max);

/**
 * The part of @p text before the first occurrence of @p separator; empty when it does not occur, or one of the two
 * is NULL. @p out may be the buffer of @p text.
 *
 * @param text       the text
 * @param separator  what separates
 * @param out        room for the part and its terminator; NULL: nothing happens
 * @return always 0
 */
VELKOR_API int OnCharLeft(const char *text, const char *separator, char *out);

/** The part of @p text behind the first occurrence of @p separator. Otherwise as OnCharLeft(). */
VELKOR_API int OnCharRight(const char *text, const char *separator, char *out);

/**
 * Cut @p text into tokens in place. Each occurrence of @p separator is overwritten with a terminator, and the next
 * token begins **one byte behind it, however long the separator is**: the rest of a longer separator is the head of
 * the next token. No token begins behind the text's end, as an empty separator would have it.
 *
 * @param text       the text; changed
 * @param separator  what separates
 * @param tokens     @p max pointers into @p text; those behind the result are untouched
 * @param max        pointers in @p tokens; that many occurrences are overwritten at most
 * @return the number of tokens; @p max also when the text goes on
 * @retval -1  @p max is below 1, or an argument is NULL
 */
VELKOR_API int strtoken_r(char *text, const char *separator, char *tokens[], int max);

/**
 * Whether one of @p count entries equals @p text. Entries that are NULL equal nothing.
 *
 * @retval 0   one does
 * @retval -1  none does, @p list or @p text is NULL, or @p count is negative
 */
VELKOR_API int spilt_strcmp(char *const list[], int count, const char *text);

/**
 * Whether one of @p count entries, read by vk_atoi(), is @p value. Entries that are NULL are passed over.
 *
 * @retval 0   one is
 * @retval -1  none is, @p list is NULL, or @p count is negative
 */
VELKOR_API int split_intcmp(char *const list[], int count, int value);

/**
 * Split @p text with SplitString() into at most 256 pieces of @p piece_size + 1 bytes, and have them compared. The
 * pieces are one block of dvrMalloc(), cleared, which is gone when the function returns.
 *
 * A text that cannot be split is logged.
 *
 * @param text       the text
 * @param delimiter  its first character separates
 * @param piece_size pieces have fewer characters than this
 * @param compare    gets the pieces, their number and @p argument, on the caller's thread
 * @param argument   handed on
 * @return what @p compare answers
 * @retval -1  @p text, @p delimiter or @p compare is NULL, @p piece_size is below 1 or so large that an `int` cannot
 *             count the block's bytes, there is no memory, or the text cannot be split
 */
VELKOR_API int SplitStrCmp(const char *text, const char *delimiter, int piece_size,
                           int (*compare)(char **pieces, int count, void *argument), void *argument);

/**
 * Find the fields of @p size bytes: the runs of bytes that differ from @p separator. Zero bytes are bytes like any
 * other. There are no empty fields.
 *
 * Fields number 0 to **@p max, inclusive,** are stored; those behind are only counted.
 *
 * @param data       the bytes
 * @param size       their number
 * @param separator  the byte between fields
 * @param starts     @p max + 1 pointers into @p data, or NULL
 * @param lengths    @p max + 1 lengths, or NULL
 * @param max        the last field to store
 * @return the number of fields
 * @retval -1  @p data is NULL, or @p size is not positive
 */
VELKOR_API int vk_strnchr(const char *data, int size, char separator, char *starts[], int lengths[], int max);
/** @} */

/** @name Searching bytes
 * Linear in the data whatever is searched in whatever; the processor's wide registers are used where it has them.
 * @{ */

/**
 * The first offset at which the @p length bytes of @p pattern lie wholly within the @p size bytes of @p data. An empty
 * pattern lies at 0.
 *
 * @retval -1  there is none, a pointer is NULL, or a size is negative
 */
VELKOR_API int FindPosByFlag(const void *data, int size, const void *pattern, int length);

/**
 * The first offset at which the @p length bytes of @p pattern lie in the @p size bytes of @p data, and **the byte right
 * behind it** is @p next1 or @p next2. A pattern at the very end of the data has no byte behind it and does not count.
 * A value that is no byte (0 to 255) equals none: -1 asks for one next byte only.
 *
 * @retval -1  there is none, a pointer is NULL, or a size is negative
 */
VELKOR_API int FindPosByFlag_Fast(const void *data, int size, const void *pattern, int length, int next1, int next2);
/** @} */

/** @name Replacing and trimming
 * @{ */

/**
 * Copy @p text into @p out with each occurrence of @p old_text replaced. **No terminator is written:** clear @p out
 * before.
 *
 * @param text      the text
 * @param old_text  what is replaced, from left to right
 * @param new_text  what it is replaced with
 * @param out       room for the result
 * @return the number of bytes written; 0, and nothing is written, when an argument is NULL or @p old_text or
 *         @p new_text is empty
 */
VELKOR_API int vk_strst(const char *text, const char *old_text, const char *new_text, char *out);

/**
 * Replace every character @p from of @p text with @p to, in place. With 0 as @p to, the characters behind are replaced
 * too.
 */
VELKOR_API void StringReplace(char *text, char from, char to);

/**
 * Replace occurrences of @p old_text in place, from left to right, going on behind what was inserted. After each
 * replacement, **before the next search, the text is cut** to @p size - 1 characters: what was pushed over the end is
 * not found any more, and does not come back when a later replacement makes the text shorter.
 *
 * An empty @p old_text occurs everywhere: @p new_text is inserted again and again until the buffer is full. With both
 * empty nothing happens. Nothing happens either when an argument is NULL, @p size is not positive, the text has no
 * end within @p size bytes, or there is no memory for two blocks of @p size bytes of dvrMalloc().
 *
 * @param text      @p size bytes
 * @param size      room in @p text, with the terminator
 * @param old_text  what is replaced
 * @param new_text  what it is replaced with
 */
VELKOR_API void StringReplaceSub(char *text, int size, const char *old_text, const char *new_text);

/**
 * Remove blanks and line feeds, and nothing else, from the end of @p text.
 *
 * @return the index of the last character that stays; -1 when none does, and for NULL
 */
VELKOR_API int vk_rtrim(char *text);

/** Reverse @p text in place. NULL: nothing happens. */
VELKOR_API void ReverseString(char *text);

/**
 * Make "a" to "z" upper-case in place, whatever the locale.
 *
 * @retval 0   done
 * @retval -1  @p text is NULL
 */
VELKOR_API int ConverStrLowerToUper(char *text);

/** Does nothing, whatever @p text and @p c are. Kept because programs link it. */
VELKOR_API void vk_strchr(const char *text, int c);
/** @} */

/** @name Checks
 * @{ */

/**
 * Whether @p text is free of the six characters number sign, semicolon, colon, backslash, apostrophe and double quote.
 *
 * @retval 1  it is
 * @retval 0  it is not; NULL; an empty text
 */
VELKOR_API int check_string(const char *text);

/**
 * Whether every byte of @p text is below 128 and **none is a lower-case letter**. Digits, signs and control characters
 * pass.
 *
 * @retval 1  all pass
 * @retval 0  one does not; NULL; an empty text
 */
VELKOR_API int check_string_ascii(const char *text);

/**
 * Whether every byte of @p text is a digit, an ASCII letter, or 128 or more (a part of a character of several bytes).
 *
 * @retval 1  all are
 * @retval 0  one is not; NULL; an empty text
 */
VELKOR_API int check_visual_string(const char *text);
/** @} */

/** @name Numbers and base64
 * @{ */

/** Write @p value in decimal, without sign or padding, into @p out (11 bytes; NULL: nothing happens). */
VELKOR_API void itoa(unsigned value, char *out);

/**
 * @p base to the power @p exponent, cut to 32 bits: 2 to the power 31 is negative, 2 to the power 32 is 0.
 *
 * @retval 0  also when one of the two is negative
 * @retval 1  also for 0 to the power 0
 */
VELKOR_API int pow1(int base, int exponent);

/**
 * Write @p length bytes as base64 (RFC 4648, section 4), padded and terminated. A negative length, NULL @p data and
 * a length whose text an `int` cannot count are written as no bytes: an empty text.
 *
 * @param out         (@p length + 2) / 3 * 4 + 1 bytes; NULL: nothing is written
 * @param data        the bytes
 * @param length      their number
 * @param out_length  gets the number of characters, without the terminator; may be NULL
 */
VELKOR_API void to_base64(char *out, const void *data, int length, int *out_length);
/** @} */

/** @name Character sets
 * The firmware's converters do the work (firmware.h); what a bad text leaves in the buffer is theirs to say.
 * @{ */

/**
 * Convert @p text from GB2312 to UTF-8 in place, when @p mode is 1. The buffer is cleared up to the text's end first,
 * and **only the first 2047 bytes** of the text are converted.
 *
 * @param mode  1 converts; anything else does nothing
 * @param text  @p size bytes
 * @param size  bytes that @p text holds
 * @return what GB2312ToUTF8() answers; the length of @p text in another mode; -1 for NULL
 */
VELKOR_API int vk_TextGB2312ToUtf8(int mode, char *text, int size);

/** Convert @p text from UTF-8 to GB2312 with UTF8ToGB2312(). Otherwise as vk_TextGB2312ToUtf8(). */
VELKOR_API int vk_TextUtf8ToGB2312(int mode, char *text, int size);
/** @} */

/** @name Firmware state
 * @{ */

/** What vk_cmd_gAutoTestState() (firmware.h) answers to @p first, @p second, @p third and @p fourth. */
VELKOR_API int get_NvrAutoTestState(uintptr_t first, uintptr_t second, uintptr_t third, uintptr_t fourth);

/** Always 0: this recorder has no fish-eye view. */
VELKOR_API int getFishEyeEnable(void);
/** @} */

/** @name Trigger sets
 * 256 numbered bits, of the channels, inputs or outputs that an event acts on: four words, bit n in word n / 64 at
 * bit n % 64. As text they are hexadecimal digits, the most significant first, without leading zeros.
 *
 * All five functions answer 0 and change nothing for NULL.
 * @{ */

/** Words of a trigger set. */
#define VELKOR_TRIGGER_WORDS 4
/** Bits of a trigger set. */
#define VELKOR_TRIGGER_BITS 256
/** Bytes of the text of a trigger set, its terminator included. */
#define VELKOR_TRIGGER_TEXT_SIZE 65

/** Set bit number @p bit of @p set; numbers from 256 up are ignored. @return always 0 */
VELKOR_API int db_SetTriggerBit(uint64_t set[VELKOR_TRIGGER_WORDS], uint64_t bit);

/** Clear bit number @p bit of @p set; numbers from 256 up are ignored. @return always 0 */
VELKOR_API int db_ClrTriggerBit(uint64_t set[VELKOR_TRIGGER_WORDS], uint64_t bit);

/** Bit number @p bit of @p set. @return 0 or 1; 0 for numbers from 256 up */
VELKOR_API int db_GetTriggerBit(const uint64_t set[VELKOR_TRIGGER_WORDS], uint64_t bit);

/**
 * Add the bits of @p text to @p set, **which is not cleared before**. A character that is no hexadecimal digit counts
 * as 0. Of a text longer than 64 characters the first 64 are read, as if it ended there.
 *
 * @return always 0
 */
VELKOR_API int db_Str2Trigger(uint64_t set[VELKOR_TRIGGER_WORDS], const char *text);

/**
 * Write @p set as upper-case hexadecimal digits and a terminator. **For a set without bits nothing at all is written,
 * not even the terminator:** clear @p out before.
 *
 * @param set  the set
 * @param out  VELKOR_TRIGGER_TEXT_SIZE bytes
 * @return always 0
 */
VELKOR_API int db_Trigger2Str(const uint64_t set[VELKOR_TRIGGER_WORDS], char *out);
/** @} */

/** @name SHA-1
 * The message digest of FIPS 180-1, with the interface and the states of RFC 3174. Not for signatures: messages with
 * equal digests can be made.
 *
 *     SHA1Context context;
 *     uint8_t digest[VELKOR_SHA1_DIGEST_SIZE];
 *     SHA1Reset(&context);
 *     SHA1Input(&context, bytes, count);   // as often as there are bytes
 *     SHA1Result(&context, digest);
 * @{ */

/** Bytes of a digest. */
#define VELKOR_SHA1_DIGEST_SIZE 20

/** Results of the SHA-1 functions. */
enum velkor_sha1_result {
    VELKOR_SHA1_SUCCESS = 0,
    VELKOR_SHA1_NULL = 1,           /**< an argument is NULL */
    VELKOR_SHA1_INPUT_TOO_LONG = 2, /**< of the RFC's set; nothing answers it */
    VELKOR_SHA1_STATE_ERROR = 3     /**< input after the result was taken */
};

/**
 * A digest in the making. At every return it holds what reading the bytes one by one would have left, so a program may
 * look at it, and copy it to go on from here twice.
 */
typedef struct SHA1Context {
    uint32_t Intermediate_Hash[5]; /**< H0 to H4 */
    uint32_t Length_Low;           /**< message length in bits, low word */
    uint32_t Length_High;          /**< message length in bits, high word */
    int32_t Message_Block_Index;   /**< bytes held in the block, 0 to 63 */
    uint8_t Message_Block[64];     /**< the block being filled */
    int32_t Computed;              /**< 1 once the digest was taken */
    int32_t Corrupted;             /**< 0, or the code that stopped the context */
} SHA1Context;

/**
 * Begin a message.
 *
 * @retval 0  begun
 * @retval 1  @p context is NULL
 */
VELKOR_API int SHA1Reset(SHA1Context *context);

/**
 * Read @p count more bytes of the message. The byte that carries the length out of its 64 bits is read, this call
 * answers 0, and the context is stopped with code 1; the bytes behind it are not read.
 *
 * @retval 0  read; also for a @p count of 0, whatever the pointers are
 * @retval 1  @p context or @p bytes is NULL, or the message has become too long
 * @retval 3  the digest was taken before; the context is stopped
 */
VELKOR_API int SHA1Input(SHA1Context *context, const uint8_t *bytes, uint32_t count);

/**
 * End the message of @p context and take its digest. Later calls give the same digest again.
 *
 * @retval 0  @p digest is filled
 * @retval 1  an argument is NULL, or the message was too long
 * @retval 3  there was input after the result
 */
VELKOR_API int SHA1Result(SHA1Context *context, uint8_t digest[VELKOR_SHA1_DIGEST_SIZE]);

/** The inner step: compress the message block of @p context as it is, and begin an empty one. NULL: nothing happens. */
VELKOR_API void SHA1ProcessMessageBlock(SHA1Context *context);

/**
 * The inner step of SHA1Result(): append the padding and the length to the message of @p context, and compress. NULL:
 * nothing happens.
 */
VELKOR_API void SHA1PadMessage(SHA1Context *context);
/** @} */

VELKOR_END_C

#endif
