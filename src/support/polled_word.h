// A word that one side polls until another side changes it. Whoever polls sleeps on the word itself: woken at once by a
// writer that says so, and after the pause anyway, so that a writer that says nothing is served as by plain polling.
#pragma once

#include <linux/futex.h>
#include <stdint.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <bit>

namespace velkor {

// The kernel compares 32 bits: of a longer word, the lower half. Two values that differ only in the upper half cost one
// pause, since the writer's wake-up may come before the sleep.
template <typename Word>
uint32_t *compared_half(std::atomic<Word> &word) {
    static_assert(std::endian::native == std::endian::little && sizeof(Word) >= sizeof(uint32_t));
    return reinterpret_cast<uint32_t *>(&word);
}

// Sleeps while the word is what was seen, at most `microseconds` (less than a second). Returns early for no reason,
// too.
template <typename Word>
void pause_while(std::atomic<Word> &word, Word seen, long microseconds) {
    // What the kernel's call takes, whatever this C library's time_t is.
    const struct {
        long seconds;
        long nanoseconds;
    } pause = {0, microseconds * 1000};
    syscall(SYS_futex, compared_half(word), FUTEX_WAIT_PRIVATE, static_cast<uint32_t>(seen), &pause, nullptr, 0);
}

// To be called after the word was changed.
template <typename Word>
void wake_poller(std::atomic<Word> &word) {
    syscall(SYS_futex, compared_half(word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace velkor
