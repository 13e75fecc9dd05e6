/* What a check of a program in the field says when it fails, and the groups of checks. */
#ifndef VELKOR_TESTS_TARGET_CHECKS_H
#define VELKOR_TESTS_TARGET_CHECKS_H

void check(int holds, const char *what, const char *file, int line);
#define CHECK(condition) check((condition) != 0, #condition, __FILE__, __LINE__)

void check_system(void); /* what needs the kernel, threads, other processes, or the firmware's other libraries */

#endif
