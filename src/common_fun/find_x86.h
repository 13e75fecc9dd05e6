// Where a pattern of bytes occurs, 128 places at a time: only places where some bytes of the pattern fit, the probes,
// are looked at. A recorder looks for start codes in video, where such places are rare.
#pragma once

#if defined(__x86_64__)

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <bit>

#include "common_fun/find_plain.h"

namespace velkor {

#define VELKOR_AVX2_CODE [[gnu::target("avx2")]]

// A place of the pattern, and the byte there.
struct Probe {
    size_t offset;
    uint8_t byte;
};

// Each byte that gives a near match away becomes a probe: the first one at once, so that data full of the same near
// match is skipped as fast as any other; the older ones only where the first two fit.
template <bool TWO_ENDS>
class ProbingSearch {
public:
    static constexpr size_t WIDTH = 32;

    ProbingSearch(const uint8_t *data, size_t size, const Sought &sought)
        : data_(data),
          size_(size),
          places_(size - sought.span() + 1),
          sought_(sought),
          first_{0, sought.pattern[0]},
          gain_(std::clamp<ptrdiff_t>(static_cast<ptrdiff_t>(256 / sought.length), 1, 8)),
          effort_left_(static_cast<ptrdiff_t>(EFFORT_AT_FIRST + sought.length / 4)) {
        const uint8_t last = sought.pattern[sought.length - 1];
        end_[0] = sought.has_next ? sought.next[0] : last;
        end_[1] = sought.has_next ? sought.next[1] : last;
    }

    // There are at least WIDTH places.
    VELKOR_AVX2_CODE ptrdiff_t find() {
        size_t at = 0;
        for (;; at += STEP) {
            Places places = skip_quiet(at);
            if (!places) {
                break;
            }
            if (const ptrdiff_t found = look(at, places); found != NOT_FOUND) {
                return found;
            }
            if (effort_left_ < 0) {
                return find_linearly(at + STEP);
            }
        }
        for (; at + WIDTH <= places_; at += WIDTH) {
            if (const ptrdiff_t found = look_at_few(at); found != NOT_FOUND) {
                return found;
            }
        }
        // The last places, some of them for the second time.
        return at < places_ ? look_at_few(places_ - WIDTH) : NOT_FOUND;
    }

private:
    static constexpr size_t STEP = 4 * WIDTH;
    static constexpr size_t MOST_PROBES = 8;
    // What was skipped must outweigh what was looked at in vain, counted in comparisons of one register.
    static constexpr size_t EFFORT_AT_FIRST = 1024;
    static constexpr size_t EFFORT_OF_A_LOOK = 4;

    VELKOR_AVX2_CODE static __m256i all(uint8_t byte) { return _mm256_set1_epi8(static_cast<char>(byte)); }
    VELKOR_AVX2_CODE static __m256i equal(const uint8_t *from, __m256i bytes) {
        return _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(from)), bytes);
    }
    VELKOR_AVX2_CODE static bool is_equal(const uint8_t *one, const uint8_t *other) {
        return mask(equal(one, _mm256_loadu_si256(reinterpret_cast<const __m256i *>(other)))) == UINT32_MAX;
    }
    VELKOR_AVX2_CODE static unsigned mask(__m256i bytes) { return static_cast<unsigned>(_mm256_movemask_epi8(bytes)); }

    // The two probes that every place must pass, ready in registers.
    struct Sieve {
        const uint8_t *first;
        const uint8_t *end;
        __m256i at_first;
        __m256i at_end;
        __m256i or_at_end;

        VELKOR_AVX2_CODE explicit Sieve(const ProbingSearch &search)
            : first(search.data_ + search.first_.offset),
              end(search.data_ + search.sought_.span() - 1),
              at_first(all(search.first_.byte)),
              at_end(all(search.end_[0])),
              or_at_end(all(search.end_[1])) {}

        VELKOR_AVX2_CODE __m256i pass(size_t at) const {
            __m256i ends = equal(end + at, at_end);
            if constexpr (TWO_ENDS) {
                ends = _mm256_or_si256(ends, equal(end + at, or_at_end));
            }
            return _mm256_and_si256(ends, equal(first + at, at_first));
        }
    };

    // Places of one step, the first in the lowest bit.
    struct Places {
        uint64_t low = 0;
        uint64_t high = 0;

        // A few places are compared sooner than sifted.
        bool is_crowded() const { return without_two(low) != 0 || without_two(high) != 0; }
        explicit operator bool() const { return (low | high) != 0; }
        size_t take_first() {
            uint64_t &half = low != 0 ? low : high;
            const size_t first = static_cast<size_t>(std::countr_zero(half)) + (low != 0 ? 0 : 64);
            half &= half - 1;
            return first;
        }

    private:
        static uint64_t without_two(uint64_t bits) {
            bits &= bits - 1;
            return bits & (bits - 1);
        }
    };

    VELKOR_AVX2_CODE static uint64_t masks(__m256i low, __m256i high) {
        return mask(low) | static_cast<uint64_t>(mask(high)) << WIDTH;
    }

    VELKOR_AVX2_CODE uint64_t fitting(size_t at, const Probe &probe) const {
        const __m256i bytes = all(probe.byte);
        const uint8_t *const from = data_ + at + probe.offset;
        return masks(equal(from, bytes), equal(from + WIDTH, bytes));
    }

    // Keeps those where this probe fits too.
    VELKOR_AVX2_CODE void sift(Places &places, size_t at, const Probe &probe) const {
        if (places.low != 0) {
            places.low &= fitting(at, probe);
        }
        if (places.high != 0) {
            places.high &= fitting(at + 2 * WIDTH, probe);
        }
    }

    // Goes to the next step that holds places where the first two probes fit, and answers those; none when no whole
    // step is left.
    VELKOR_AVX2_CODE Places skip_quiet(size_t &at) {
        const size_t begin = at;
        const Sieve sieve(*this);
        Places places;
        for (; at + STEP <= places_; at += STEP) {
            const __m256i a = sieve.pass(at);
            const __m256i b = sieve.pass(at + WIDTH);
            const __m256i c = sieve.pass(at + 2 * WIDTH);
            const __m256i d = sieve.pass(at + 3 * WIDTH);
            const __m256i any = _mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d));
            if (_mm256_testz_si256(any, any) == 0) {
                places = {masks(a, b), masks(c, d)};
                break;
            }
        }
        effort_left_ += gain_ * static_cast<ptrdiff_t>((at - begin) / WIDTH);
        return places;
    }

    // The first match among these places of a step.
    VELKOR_AVX2_CODE ptrdiff_t look(size_t at, Places places) {
        if (places.is_crowded()) {
            for (size_t i = 0; i < learned_; ++i) {
                sift(places, at, more_[i]);
            }
        }
        while (places) {
            const size_t place = at + places.take_first();
            if (is_match(place)) {
                return static_cast<ptrdiff_t>(place);
            }
            if (learned_ < MOST_PROBES && learn(place)) {
                sift(places, at, first_);
            }
        }
        effort_left_ += gain_ * static_cast<ptrdiff_t>(STEP / WIDTH);
        return NOT_FOUND;
    }

    // The same for WIDTH places, which are not worth learning from.
    VELKOR_AVX2_CODE ptrdiff_t look_at_few(size_t at) {
        Places places = {mask(Sieve(*this).pass(at)), 0};
        while (places) {
            const size_t place = at + places.take_first();
            if (is_match(place)) {
                return static_cast<ptrdiff_t>(place);
            }
        }
        return NOT_FOUND;
    }

    VELKOR_AVX2_CODE bool is_match(size_t place) {
        effort_left_ -= static_cast<ptrdiff_t>(EFFORT_OF_A_LOOK + sought_.length / WIDTH);
        return is_pattern(data_ + place) && sought_.is_followed(data_ + place);
    }

    // The last register overlaps the one before.
    VELKOR_AVX2_CODE bool is_pattern(const uint8_t *at) const {
        if (sought_.length < WIDTH) {
            return memcmp(at, sought_.pattern, sought_.length) == 0;
        }
        const size_t last = sought_.length - WIDTH;
        for (size_t i = 0; i < last; i += WIDTH) {
            if (!is_equal(at + i, sought_.pattern + i)) {
                return false;
            }
        }
        return is_equal(at + last, sought_.pattern + last);
    }

    // False where only the byte that must follow was wrong.
    bool learn(size_t place) {
        const size_t wrong = first_difference(data_ + place, sought_.pattern, sought_.length);
        if (wrong == sought_.length) {
            return false;
        }
        more_[learned_++] = first_;
        first_ = {wrong, sought_.pattern[wrong]};
        return true;
    }

    ptrdiff_t find_linearly(size_t at) const {
        const ptrdiff_t found = find_plain(data_ + at, size_ - at, sought_);
        return found == NOT_FOUND ? NOT_FOUND : static_cast<ptrdiff_t>(at) + found;
    }

    const uint8_t *data_;
    size_t size_;
    size_t places_;
    const Sought &sought_;
    Probe first_;
    uint8_t end_[2];
    Probe more_[MOST_PROBES];
    size_t learned_ = 0;
    ptrdiff_t gain_;
    ptrdiff_t effort_left_;
};

// Data that keeps on nearly matching is left to the linear search before the effort in vain outweighs the rest.
inline ptrdiff_t find_x86(const uint8_t *data, size_t size, const Sought &sought) {
    if (size < sought.span() + ProbingSearch<false>::WIDTH) {
        return find_plain(data, size, sought);
    }
    return sought.has_next ? ProbingSearch<true>(data, size, sought).find()
                           : ProbingSearch<false>(data, size, sought).find();
}

#undef VELKOR_AVX2_CODE

}  // namespace velkor

#endif
