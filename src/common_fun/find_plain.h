// Where a pattern of bytes occurs, in time that is linear in the data whatever is searched in whatever: Two-Way
// (Crochemore and Perrin, 1991) with a table of how far the bytes under the pattern's end let it move.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <tuple>

namespace velkor {

inline constexpr ptrdiff_t NOT_FOUND = -1;

// The pattern, and which byte must follow it: one of two, or any where the pattern alone is looked for. A byte that
// must follow has to lie within the data too.
struct Sought {
    const uint8_t *pattern;
    size_t length;
    bool has_next = false;
    uint8_t next[2] = {};

    size_t span() const { return length + (has_next ? 1 : 0); }
    bool is_followed(const uint8_t *at) const { return !has_next || at[length] == next[0] || at[length] == next[1]; }
};

// Where the two first differ; `length` when they do not.
inline size_t first_difference(const uint8_t *one, const uint8_t *other, size_t length) {
    size_t at = 0;
    for (; at + sizeof(uintptr_t) <= length; at += sizeof(uintptr_t)) {
        uintptr_t word = 0;
        uintptr_t other_word = 0;
        memcpy(&word, one + at, sizeof word);
        memcpy(&other_word, other + at, sizeof other_word);
        if (word != other_word) {
            break;
        }
    }
    while (at < length && one[at] == other[at]) {
        ++at;
    }
    return at;
}

// Cuts the pattern in two where no repetition of its parts hides a match: the later of its greatest suffixes under
// the order of bytes and under the opposite order.
struct Factorization {
    size_t cut = 0;     // length of the left part
    size_t period = 1;  // of the right part; of the whole pattern when that is periodic

    Factorization(const uint8_t *pattern, size_t length) {
        const Suffix rising = greatest_suffix(pattern, length, false);
        const Suffix falling = greatest_suffix(pattern, length, true);
        const Suffix &later = rising.begin > falling.begin ? rising : falling;
        cut = later.begin;
        period = later.period;
    }

private:
    struct Suffix {
        size_t begin;
        size_t period;
    };

    static Suffix greatest_suffix(const uint8_t *pattern, size_t length, bool falling) {
        Suffix best = {0, 1};
        size_t candidate = 1;
        size_t equal = 0;  // characters of the candidate that equal those of the best
        while (candidate + equal < length) {
            const uint8_t ours = pattern[candidate + equal];
            const uint8_t theirs = pattern[best.begin + equal];
            if (ours == theirs) {
                if (++equal == best.period) {
                    candidate += best.period;
                    equal = 0;
                }
            } else if ((ours < theirs) != falling) {
                candidate += equal + 1;
                equal = 0;
                best.period = candidate - best.begin;
            } else {
                best = {candidate, 1};
                ++candidate;
                equal = 0;
            }
        }
        return best;
    }
};

// How far a window may move when these bytes lie under the pattern's end: 0 = it may match here. The longer the
// pattern, the more bytes are looked at together: they are rarer, and the moves they allow are longer.
class EndShifts {
public:
    EndShifts(const uint8_t *pattern, size_t length) : together_(length < 8 ? 1 : length < 32 ? 2 : 4) {
        // Long patterns move no further than their end says: a move fits a byte.
        const size_t known = std::min<size_t>(length, UINT8_MAX);
        const size_t farthest = known - together_ + 1;
        shifts_.fill(static_cast<uint8_t>(farthest));
        const uint8_t *const from = pattern + (length - known);
        for (size_t end = together_; end <= known; ++end) {
            shifts_[index_of(from + end)] = static_cast<uint8_t>(known - end);
        }
    }
    size_t before(const uint8_t *end) const { return shifts_[index_of(end)]; }

private:
    // Different bytes may share an index, which makes a move shorter, never too long.
    size_t index_of(const uint8_t *end) const {
        if (together_ == 1) {
            return end[-1];
        }
        if (together_ == 2) {
            return (end[-1] + end[-2] * 16U) % std::tuple_size_v<decltype(shifts_)>;
        }
        uint32_t word = 0;
        memcpy(&word, end - sizeof word, sizeof word);
        return word * 0x9E3779B1U >> 24;  // the multiplier of Fibonacci hashing
    }

    size_t together_;
    std::array<uint8_t, UINT8_MAX + 1> shifts_;
};

class TwoWay {
public:
    // `sought` has at least one byte.
    explicit TwoWay(const Sought &sought)
        : sought_(sought), parts_(sought.pattern, sought.length), shifts_(sought.pattern, sought.length) {
        is_periodic_ = memcmp(sought.pattern, sought.pattern + parts_.period, parts_.cut) == 0;
        move_ = is_periodic_ ? parts_.period : std::max(parts_.cut, sought.length - parts_.cut) + 1;
    }

    ptrdiff_t find(const uint8_t *data, size_t size) const {
        const size_t length = sought_.length;
        size_t known = 0;  // bytes at the pattern's begin that match already, after moving by a period
        for (size_t at = 0; at + sought_.span() <= size;) {
            if (known == 0) {
                if (const size_t shift = shifts_.before(data + at + length); shift > 0) {
                    at += shift;
                    continue;
                }
            }
            const size_t right = matching_right(data + at, std::max(parts_.cut, known));
            if (right < length) {
                at += right - parts_.cut + 1;
                known = 0;
                continue;
            }
            if (is_left_matching(data + at, known) && sought_.is_followed(data + at)) {
                return static_cast<ptrdiff_t>(at);
            }
            at += move_;
            known = is_periodic_ ? length - parts_.period : 0;
        }
        return NOT_FOUND;
    }

private:
    // The first position from `from` on that differs; the pattern's length when none does.
    size_t matching_right(const uint8_t *at, size_t from) const {
        return from + first_difference(sought_.pattern + from, at + from, sought_.length - from);
    }
    bool is_left_matching(const uint8_t *at, size_t known) const {
        return parts_.cut <= known || memcmp(sought_.pattern + known, at + known, parts_.cut - known) == 0;
    }

    const Sought &sought_;
    Factorization parts_;
    EndShifts shifts_;
    bool is_periodic_;
    size_t move_;
};

// Too little data to prepare anything.
inline ptrdiff_t find_in_few(const uint8_t *data, size_t size, const Sought &sought) {
    for (size_t at = 0; at + sought.span() <= size; ++at) {
        if (data[at] == sought.pattern[0] && memcmp(data + at, sought.pattern, sought.length) == 0 &&
            sought.is_followed(data + at)) {
            return static_cast<ptrdiff_t>(at);
        }
    }
    return NOT_FOUND;
}

// `sought` has at least one byte.
inline ptrdiff_t find_plain(const uint8_t *data, size_t size, const Sought &sought) {
    constexpr size_t FEW = 64;
    return size <= FEW ? find_in_few(data, size, sought) : TwoWay(sought).find(data, size);
}

}  // namespace velkor
