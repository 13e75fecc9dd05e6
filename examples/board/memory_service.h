/* What the board's memory service tells a person, beside the functions of velkor/firmware.h that it brings. */
#ifndef BOARD_MEMORY_SERVICE_H
#define BOARD_MEMORY_SERVICE_H

#include <stdio.h>

/* A line for each pool that was ever opened: its name, the bytes in use, and its limit. */
void board_memory_report(FILE *out);

#endif
