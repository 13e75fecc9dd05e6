/**
 * @file configuration.h
 * INI configuration files that keep their comments when they are written back, and the dictionary under them.
 *
 *     dictionary *settings = iniparser_load("/dvrfile/net.ini");
 *     int port = iniparser_getint(settings, "server:port", 80);
 *     iniparser_setstr(settings, "server:host", "10.0.0.7");
 *     FILE *out = fopen("/dvrfile/net.ini.new", "w");
 *     iniparser_dump_ini(settings, out);
 *     fclose(out);
 *     iniparser_freedict(settings);
 *
 * A file looks like this; the names on the right are the keys under which its settings are found:
 *
 *     ; kept when the file is written back
 *     [Server]                        server                 (an entry without value)
 *     Host = 10.0.0.6 ; the gateway   server:host            10.0.0.6
 *     Banner = "a; b"                 server:banner          a; b
 *
 * - Names are lower-cased when they are read and when they are looked up; values keep their case.
 * - A plain value ends at the first ';'; white space around it is cut off. '#' belongs to the value. A value in
 *   double or single quotes may hold ';', and what follows the closing quote is kept like a comment.
 * - The first setting of a name wins; later ones are dropped, without a word. `velkor ini check` tells.
 * - A line that is no section, setting or comment (also a setting without a value) is kept as a blank line only.
 * - Lines are read in pieces of at most 1023 characters, and a name, value or comment takes at most 512.
 *
 * Reading a dictionary is thread-safe as long as no thread changes it meanwhile: nothing here locks a
 * dictionary. Nothing here logs.
 */
#ifndef VELKOR_CONFIGURATION_H
#define VELKOR_CONFIGURATION_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <velkor/api.h>

VELKOR_BEGIN_C

/** @name Dictionary
 * A string-to-string store whose entries sit in slots: a new entry takes the free slot with the lowest number, and
 * every list of entries is in the order of their slots. @{ */

/**
 * The store, made by dictionary_new() alone: more lies behind it than is shown, so a copy of the record is no
 * dictionary. Programs may read the fields, and change them through the functions.
 *
 * A slot is in use exactly when its key is not NULL. The dictionary owns all strings and arrays; a pointer into it
 * is valid until the entry is changed or removed.
 */
struct dictionary {
    int32_t count;             /**< entries in use */
    int32_t size;              /**< slots; doubles when they are all in use, never shrinks */
    char **values;             /**< value of each slot; NULL for an entry without value */
    char **keys;               /**< key of each slot; NULL marks a free slot */
    uint32_t *hashes;          /**< dictionary_hash() of each key, 0 for a free slot */
    int32_t comment_count;     /**< comments stored */
    int32_t comment_size;      /**< slots for comments */
    char **comment_texts;      /**< text of each comment; NULL when it is empty */
    uint32_t *comment_anchors; /**< hash of the name after which the comment is written, or COMMENT_ANCHOR_HEAD */
    uint8_t *comment_kinds;    /**< COMMENT_LINE to COMMENT_BLANK; 0 marks a free slot */
};
#ifndef __cplusplus
/** The store by its short name, which C++ knows without this. */
typedef struct dictionary dictionary;
#endif

/**
 * The hash of a key: R. J. Jenkins' "one-at-a-time" in 32 bits.
 *
 * @param key  NULL and "" give 0
 */
VELKOR_API uint32_t dictionary_hash(const char *key);

/**
 * A block of twice the length: the old bytes and as many zeros. The old block is freed.
 *
 * @param block   from malloc(); NULL gives NULL
 * @param length  its bytes
 * @return the new block; NULL when there is no memory for it: the old block is then untouched
 */
VELKOR_API void *mem_double(void *block, size_t length);

/**
 * Make an empty dictionary, to be released with dictionary_del().
 *
 * @param size  wanted number of slots; less than 512, also a negative number, gives 512
 * @return the dictionary; NULL without memory for the record. Where memory lacks for its arrays alone it is
 *         returned all the same, and refuses every entry.
 */
VELKOR_API dictionary *dictionary_new(int size);

/** Release the dictionary @p d and all that it owns. NULL does nothing. */
VELKOR_API void dictionary_del(dictionary *d);

/**
 * Look up a value.
 *
 * @param d    NULL gives @p def
 * @param key  NULL gives @p def
 * @param def  the answer when there is no such key; may be NULL
 * @return the value, owned by the dictionary and not to be written to. NULL for an entry without value, whatever
 *         the default.
 */
VELKOR_API char *dictionary_get(const dictionary *d, const char *key, const char *def);

/**
 * The first character of the value that dictionary_get() finds, or @p def when there is no such key.
 *
 * An entry without value must not be asked for. Callers that do get the default here, and have crashed elsewhere; the
 * same holds for dictionary_getint() and dictionary_getdouble().
 */
VELKOR_API unsigned char dictionary_getchar(const dictionary *d, const char *key, unsigned char def);

/**
 * The value that dictionary_get() finds as atoi() reads it (0 for "abc", 12 for "12abc"; beyond 32 bits the nearest
 * number that fits), or @p def when there is no such key.
 */
VELKOR_API int dictionary_getint(const dictionary *d, const char *key, int def);

/** The value that dictionary_get() finds as atof() reads it, or @p def when there is no such key. */
VELKOR_API double dictionary_getdouble(const dictionary *d, const char *key, double def);

/**
 * Change the value of an entry that exists. @p value may point into the entry itself.
 *
 * @param d      the dictionary
 * @param key    the entry's key
 * @param value  copied
 * @retval 0     changed
 * @retval 1000  it was equal already: nothing changed
 * @retval -1    an argument is NULL, there is no such key, or no memory: nothing changed
 */
VELKOR_API int dictionary_set(dictionary *d, const char *key, const char *value);

/**
 * Add an entry.
 *
 * @param d      the dictionary
 * @param key    copied
 * @param value  copied; NULL makes an entry without value
 * @retval 0   added
 * @retval -1  @p d or @p key is NULL, the key is there already (its value stays), or no memory
 */
VELKOR_API int dictionary_add(dictionary *d, const char *key, const char *value);

/**
 * Add an entry, or replace the value of the one that is there.
 *
 * @param d      the dictionary
 * @param key    copied
 * @param value  copied; NULL leaves an entry without value; may point into the entry itself
 * @retval 0   done
 * @retval -1  @p d or @p key is NULL, or no memory: nothing changed
 */
VELKOR_API int dictionary_modify(dictionary *d, const char *key, const char *value);

/** Remove the entry @p key of @p d; its slot is free then. Does nothing when there is none, or an argument is NULL. */
VELKOR_API void dictionary_unset(dictionary *d, const char *key);

/** dictionary_set() with a number as "%d" prints it. Like it, changes only an entry that exists. */
VELKOR_API int dictionary_setint(dictionary *d, const char *key, int value);

/** dictionary_set() with a number as "%g" prints it, that is with six digits. */
VELKOR_API int dictionary_setdouble(dictionary *d, const char *key, double value);

/**
 * Print every entry of @p d to @p out as a line: the key, right-aligned in 20 columns, a tab, the value in brackets or
 * "[UNDEF]".
 * "empty dictionary" when there is none. Does nothing when an argument is NULL.
 */
VELKOR_API void dictionary_dump(const dictionary *d, FILE *out);
/** @} */

/** @name Text helpers
 * Each has one buffer of 1025 bytes for the whole process, which it clears before it reads its argument: the result
 * holds until the next call of the same helper from any thread, and a helper's own result makes an empty text. NULL
 * gives NULL. White space is space, tab, newline, vertical tab, form feed and carriage return.
 *
 * Threads that call one helper at the same moment find a mixture of their results, which ends within the buffer. The
 * functions for INI files below leave the name that they lowered last in the buffer of strlwc(), and do not depend on
 * it: they may be called meanwhile. @{ */

/** The first 1024 characters of @p text in lower case. */
VELKOR_API char *strlwc(const char *text);

/** The first 1024 characters of @p text in upper case. */
VELKOR_API char *strupc(const char *text);

/** The first character that is no white space, or the terminator: a pointer into @p text. Reentrant, no buffer. */
VELKOR_API char *strskp(const char *text);

/** The first 1024 characters of @p text without white space at their end. */
VELKOR_API char *strcrop(const char *text);

/** @p text without white space at both ends: 1024 characters from its first one that is none. */
VELKOR_API char *strstrip(const char *text);
/** @} */

/** @name Comments
 * What becomes of a comment when its file is written back. @{ */

/** A line that begins with ';' or '#'. Written as it is, with its newline. */
#define COMMENT_LINE 1
/** Text behind a section or setting. Joins the end of the line before it, without a space, where streams can seek. */
#define COMMENT_TRAILING 2
/** A comment line with white space before it. Written after four spaces, with its newline. */
#define COMMENT_INDENTED 3
/** A blank line, or one that could not be read. Written as CR LF. */
#define COMMENT_BLANK 4
/** The anchor of a comment at the head of a file. */
#define COMMENT_ANCHOR_HEAD 65535
/** @} */

/** @name INI files
 * A key is "section:name" in any case; of a longer one the first 1024 characters count. @{ */

/**
 * Read a file. A byte-order mark at its begin is skipped.
 *
 * Each comment is anchored to the section and setting read last before it, and is written back after them. A line
 * that could not be read counts as such a setting too.
 *
 * @param path  the file; also a FIFO, a pipe or a terminal, which is read once from begin to end
 * @return the file's dictionary, to be released with iniparser_freedict(). NULL when the file cannot be opened, when
 *         there is no memory for all of it, or when nothing comes of a FIFO, pipe or terminal for five seconds, not
 *         even its end. A file that can be opened but not read reads as empty.
 */
VELKOR_API dictionary *iniparser_load(const char *path);

/** dictionary_del() of @p d. */
VELKOR_API void iniparser_freedict(dictionary *d);

/**
 * Add a section, or a setting. Names are taken as they are: write them in lower case, or no look-up finds them.
 *
 * @param d        the dictionary
 * @param section  the section's name
 * @param key      the setting's name; NULL adds the section itself
 * @param value    the setting's value; NULL for none
 * @retval 0   added; of "section:key" the first 2048 characters are kept
 * @retval 1   refused by dictionary_add(): it is there already, or no memory
 * @retval -1  @p d or @p section is NULL
 */
VELKOR_API int iniparser_add_entry(dictionary *d, const char *section, const char *key, const char *value);

/**
 * Add a comment behind a section (@p key is "") or a setting. Both names empty mean the head of the file; the first
 * 1023 characters of "section:key" count.
 *
 * @param d        the dictionary
 * @param section  the section's name
 * @param key      the setting's name
 * @param text     copied; NULL or "" for none
 * @param kind     COMMENT_LINE to COMMENT_BLANK; other kinds are kept and never written
 * @retval 0   added
 * @retval -1  @p d, @p section or @p key is NULL, @p kind is 0, or no memory
 */
VELKOR_API int iniparser_add_comment(dictionary *d, const char *section, const char *key, const char *text,
                                     unsigned char kind);

/** dictionary_get() with the key in lower case. Thread-safe as said above. */
VELKOR_API char *iniparser_getstring(const dictionary *d, const char *key, const char *def);

/** iniparser_getstring() with a NULL default. */
VELKOR_API char *iniparser_getstr(const dictionary *d, const char *key);

/**
 * The value that iniparser_getstring() finds as atoi() reads it, or @p def when there is no such key.
 *
 * A section has no value and must not be asked for. Callers that do get the default here, and have crashed elsewhere;
 * the same holds for iniparser_getdouble() and iniparser_getboolean().
 */
VELKOR_API int iniparser_getint(const dictionary *d, const char *key, int def);

/** The value that iniparser_getstring() finds as atof() reads it, or @p def when there is no such key. */
VELKOR_API double iniparser_getdouble(const dictionary *d, const char *key, double def);

/**
 * The value that iniparser_getstring() finds as yes or no, by its first character: y, Y, t, T, 1 give 1; n, N, f, F, 0
 * give 0; anything else ("on", an empty value, no such key) gives @p def.
 */
VELKOR_API int iniparser_getboolean(const dictionary *d, const char *key, int def);

/** 1 when @p d has a section or setting @p key, else 0. */
VELKOR_API int iniparser_find_entry(const dictionary *d, const char *key);

/**
 * Change a setting that exists. @p value may point into the setting itself.
 *
 * @param d      the dictionary
 * @param key    the setting, in any case
 * @param value  copied
 * @retval 0     changed
 * @retval 1000  it was equal already
 * @retval 1     there is no such setting, an argument is NULL, or no memory: nothing changed
 */
VELKOR_API int iniparser_setstr(dictionary *d, const char *key, const char *value);

/** Remove the setting @p key of @p d, or a section's own entry (its settings stay). Does nothing when there is none. */
VELKOR_API void iniparser_unset(dictionary *d, const char *key);

/** Number of sections of @p d (of entries whose key holds no ':'). -1 for NULL. */
VELKOR_API int iniparser_getnsec(const dictionary *d);

/**
 * The name of a section.
 *
 * @param d      the dictionary
 * @param index  from 0
 * @return the name, owned by the dictionary; NULL when @p d is NULL or there is no such section
 */
VELKOR_API char *iniparser_getsecname(const dictionary *d, int index);

/** Print every entry of @p d to @p out as "[key]=[value]" or "[key]=UNDEF". Does nothing when an argument is NULL. */
VELKOR_API void iniparser_dump(const dictionary *d, FILE *out);

/**
 * Write the file back, with its comments. Does nothing when an argument is NULL; look at ferror() afterwards.
 *
 * Settings are written as "key = value", names of one character padded with a space, quotes gone, section by
 * section. Surprises, of which `velkor ini diff` shows which concern a file:
 * - settings before the first section are not written when there is a section;
 * - without any section each setting is written twice, with its leading ':';
 * - blank lines end in CR LF, comments behind a value lose the space before them;
 * - a comment behind a section or a value is on a line of its own where the newline before it cannot be taken back:
 *   on a pipe or a terminal, and on a stream that appends. Write to a file, or to memory, what is to be loaded again.
 *
 * @param d    the dictionary
 * @param out  any stream
 */
VELKOR_API void iniparser_dump_ini(const dictionary *d, FILE *out);

#if defined __cplusplus || (defined __STDC_VERSION__ && __STDC_VERSION__ >= 202311L)
#define VELKOR_ANY_ARGUMENTS ...
#else
/** Any arguments: C++ and C from 2023 on say so by three dots, older C by saying nothing. */
#define VELKOR_ANY_ARGUMENTS
#endif

/** Kept for callers of old, with whatever arguments. @return always 0 */
VELKOR_API int iniparser_sec_getNLowLever(VELKOR_ANY_ARGUMENTS);

/** Kept for callers of old, with whatever arguments. @return always 0 */
VELKOR_API int iniparser_sec_getLowLever(VELKOR_ANY_ARGUMENTS);
/** @} */

VELKOR_END_C

#endif
