/*
 * A program of a board: linked with libvelkor, with the board's own memory service, and, for all that the board does
 * not bring yet, with libvelkor-host. What the program brings itself wins.
 */
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/allocation.h>

#include "memory_service.h"

#define KIB ((size_t)1024)

static const char CAMERA[] = "src/board_camera/frames.c";

/* The service must work in a child as well, which libvelkor promises to its callers. */
static int child_can_allocate(void) {
    fflush(stdout); /* what is printed so far is not the child's to print */
    const pid_t child = fork();
    if (child == 0) {
        char *const copy = dvrStrdup("in the child", CAMERA, __LINE__);
        _exit(copy != NULL && dvrFree(copy) == 0 ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

int main(void) {
    /* The first 64 KiB are the camera's, whoever else may want them, and it gets no more. */
    if (dvrRegMem("board_camera", 64) != 0) {
        return 1;
    }
    char *frame = dvrMalloc(40 * KIB, CAMERA, __LINE__);
    char *const second = dvrMalloc(40 * KIB, CAMERA, __LINE__);
    char *const note = dvrStrdup("the front door", "src/elsewhere.c", __LINE__);
    printf("a first frame of 40 KiB: %s, a second: %s\n", frame ? "there" : "refused", second ? "there" : "refused");
    if (frame == NULL || second != NULL || note == NULL) {
        return 1;
    }
    board_memory_report(stdout);

    memset(frame, 1, 40 * KIB);
    frame = dvrRealloc(frame, 16 * KIB, CAMERA, __LINE__);
    if (frame == NULL || frame[16 * KIB - 1] != 1) {
        return 1;
    }
    printf("once more, the frame at 16 KiB\n");
    board_memory_report(stdout);

    const int released = dvrFree(note) == 0 && dvrFree(frame) == 0;
    printf("released: %s\n", released ? "yes" : "no");
    printf("in a child: %s\n", child_can_allocate() ? "works" : "fails");
    board_memory_report(stdout);
    return 0;
}
