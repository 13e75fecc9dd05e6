/* A process that does one thing with libvelkor and nothing else, or, compiled with -DBARE, the same process without it.
 * With an argument it shows what of it is in memory. It brings the words that libvelkor imports, as a recorder's
 * firmware would; of the functions none is called. */
#include <stdio.h>

#ifdef BARE
static int is_logging(void) { return 0; }
#else
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

FILE *fpDebugFile;
CfgDaylightSaving g_stDaylightSaving;
unsigned char *g_ptGuiSysStatus;

static int is_logging(void) { return vk_GetLogmanEnable(); }
#endif

int main(int count, char **words) {
    const int logging = is_logging();
    if (count > 1 && words[1][0] == '-') {
        FILE *maps = fopen("/proc/self/smaps", "r");
        if (maps == NULL)
            return 2;
        for (int byte = getc(maps); byte != EOF; byte = getc(maps))
            putchar(byte);
        fclose(maps);
    }
    return logging;
}
