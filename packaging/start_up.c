/* How long programs take from their start to their end: for each the quickest of many runs, in microseconds, because
 * what a run takes more is other work of the machine. They run in turn, so that it meets all of them.
 *     start_up RUNS PROGRAM... */
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>

extern char **environ;

static double microseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec * 1e6 + (double)now.tv_nsec / 1e3;
}

/* A negative time when the program does not run or does not succeed. */
static double one_run(char *program) {
    char *words[] = {program, NULL};
    pid_t child;
    int status;
    const double begin = microseconds();
    if (posix_spawn(&child, program, NULL, NULL, words, environ) != 0 || waitpid(child, &status, 0) != child ||
        status != 0)
        return -1;
    return microseconds() - begin;
}

int main(int count, char **words) {
    const int runs = count > 2 ? atoi(words[1]) : 0;
    if (runs <= 0) {
        fputs("usage: start_up RUNS PROGRAM...\n", stderr);
        return 2;
    }
    double quickest[8];
    const int programs = count - 2 < 8 ? count - 2 : 8;
    for (int run = 0; run < runs; run++) {
        for (int program = 0; program < programs; program++) {
            const double time = one_run(words[2 + program]);
            if (time < 0) {
                fprintf(stderr, "start_up: %s does not run\n", words[2 + program]);
                return 1;
            }
            if (run == 0 || time < quickest[program])
                quickest[program] = time;
        }
    }
    for (int program = 0; program < programs; program++)
        printf("%.0f\n", quickest[program]);
    return 0;
}
