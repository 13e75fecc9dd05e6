/**
 * @file api.h
 * The marks that every public header of libvelkor uses. A program never needs to include this one itself.
 *
 * Conventions of the whole C interface, said once:
 * - A function answers a signed 32-bit integer: 0 (or a count) on success, -1 or a small negative code on
 *   failure, numbered in the order of its checks. A function that answers a pointer answers NULL on failure.
 * - "Thread-safe" means: any number of threads may call it at the same moment, on any arguments.
 *   "Reentrant" means: thread-safe as long as no two calls share a caller's buffer.
 * - Text is NUL-terminated and in the caller's character set unless said otherwise; NULL is allowed only
 *   where the parameter says so.
 * - Whoever allocates frees. Nothing keeps a pointer of the caller's after it returned, unless said.
 */
#ifndef VELKOR_API_H
#define VELKOR_API_H

#ifdef __cplusplus
#define VELKOR_BEGIN_C extern "C" {
#define VELKOR_END_C }
#else
/** Declarations of C begin: in C++ what follows is linked as C. */
#define VELKOR_BEGIN_C
/** Declarations of C end. */
#define VELKOR_END_C
#endif

/** An exported function or variable of libvelkor. */
#define VELKOR_API __attribute__((visibility("default")))

/** A printf() format is parameter number @p which (from 1), its arguments begin at number @p first. */
#define VELKOR_FORMAT(which, first) __attribute__((__format__(__printf__, which, first)))

#endif
