// A word that one side polls until another side changes it. Whoever polls sleeps on the word itself: woken at once by a
// writer that says so, and after the pause anyway, so that a writer that says nothing is served as by plain polling.
#pragma once

#include <errno.h>
#include <linux/futex.h>
#include <stdint.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <bit>

#include "support/pause.h"

namespace velkor {

// Who polls and who writes. The kernel finds a word of one process by its address, which is quicker, and a word in
// memory that several processes share by the page behind it.
enum class Reach { one_process = FUTEX_PRIVATE_FLAG, several_processes = 0 };

// The kernel compares 32 bits: of a longer word, the lower half. Two values that differ only in the upper half cost one
// pause, since the writer's wake-up may come before the sleep.
template <typename Word>
uint32_t *compared_half(std::atomic<Word> &word) {
    static_assert(std::endian::native == std::endian::little && sizeof(Word) >= sizeof(uint32_t));
    return reinterpret_cast<uint32_t *>(&word);
}

// Sleeps while the word is what was seen, at most `microseconds`. A wake-up may come for no reason, but a signal is
// none: the wait is for a moment, and continues after the signal's handler.
template <typename Word>
void pause_while(std::atomic<Word> &word, Word seen, long microseconds, Reach reach = Reach::one_process) {
    const struct timespec end = moment_after_us(microseconds);
    // What the kernel's call takes, whatever this C library's time_t is.
    const struct {
        long seconds;
        long nanoseconds;
    } moment = {static_cast<long>(end.tv_sec), end.tv_nsec};
    const int until = FUTEX_WAIT_BITSET | static_cast<int>(reach);
    long result;
    do {
        result = syscall(SYS_futex, compared_half(word), until, static_cast<uint32_t>(seen), &moment, nullptr,
                         FUTEX_BITSET_MATCH_ANY);
    } while (result < 0 && errno == EINTR);
}

// To be called after the word was changed.
template <typename Word>
void wake_poller(std::atomic<Word> &word, Reach reach = Reach::one_process) {
    syscall(SYS_futex, compared_half(word), FUTEX_WAKE | static_cast<int>(reach), 1, nullptr, nullptr, 0);
}

}  // namespace velkor
