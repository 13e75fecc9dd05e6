/* The smallest program that logs: build it against libvelkor, and on a PC against libvelkor-host as well. */
#include <stdio.h>
#include <unistd.h>
#include <velkor/diagnostics.h>

int main(void) {
    logman_init();
    if (!vk_GetLogmanEnable()) {
        fputs("the log is off: write dbgprint=1 into /dvrfile/logman\n", stderr);
        return 1;
    }
    const int accepted = vk_printftomem(0, "hello", 0, "%s %d the recorder says hello", __func__, __LINE__);
    sleep(1); /* the draining thread copies the line to /tmp/tty.logman */
    return accepted == 0 ? 0 : 1;
}
