#include "line_diff.h"

#include <algorithm>
#include <optional>
#include <span>
#include <unordered_map>
#include <utility>

namespace tool {

namespace {

using Lines = std::span<const std::string>;
using Pairs = std::vector<std::pair<size_t, size_t>>;

// Where a line stands on each side, if exactly once.
struct Places {
    size_t before_count = 0;
    size_t after_count = 0;
    size_t before = 0;
    size_t after = 0;
};

// In the order of the first side.
Pairs lines_once_on_both(Lines before, Lines after) {
    std::unordered_map<std::string, Places> places;
    for (size_t i = 0; i < before.size(); ++i) {
        Places &place = places[before[i]];
        ++place.before_count;
        place.before = i;
    }
    for (size_t i = 0; i < after.size(); ++i) {
        Places &place = places[after[i]];
        ++place.after_count;
        place.after = i;
    }
    Pairs pairs;
    for (const auto &[line, place] : places) {
        if (place.before_count == 1 && place.after_count == 1) {
            pairs.emplace_back(place.before, place.after);
        }
    }
    std::ranges::sort(pairs);
    return pairs;
}

// The longest run of pairs that rises on the second side too.
Pairs longest_rising(const Pairs &pairs) {
    std::vector<size_t> tops;  // the pair on top of each pile
    std::vector<std::optional<size_t>> previous(pairs.size());
    for (size_t i = 0; i < pairs.size(); ++i) {
        const auto pile =
            std::ranges::lower_bound(tops, pairs[i].second, {}, [&](size_t top) { return pairs[top].second; });
        if (pile != tops.begin()) {
            previous[i] = *(pile - 1);
        }
        if (pile == tops.end()) {
            tops.push_back(i);
        } else {
            *pile = i;
        }
    }
    Pairs run;
    for (std::optional<size_t> i = tops.empty() ? std::nullopt : std::optional(tops.back()); i; i = previous[*i]) {
        run.push_back(pairs[*i]);
    }
    std::ranges::reverse(run);
    return run;
}

class Differ {
public:
    void compare(Lines before, Lines after) {
        size_t begin = 0;
        while (begin < before.size() && begin < after.size() && before[begin] == after[begin]) {
            ++begin;
        }
        put(DiffLine::Kind::same, before.first(begin));
        before = before.subspan(begin);
        after = after.subspan(begin);
        size_t end = 0;
        while (end < before.size() && end < after.size() &&
               before[before.size() - end - 1] == after[after.size() - end - 1]) {
            ++end;
        }
        compare_inside(before.first(before.size() - end), after.first(after.size() - end));
        put(DiffLine::Kind::same, before.last(end));
    }

    std::vector<DiffLine> take() { return std::move(lines_); }

private:
    void compare_inside(Lines before, Lines after) {
        const Pairs anchors = longest_rising(lines_once_on_both(before, after));
        if (anchors.empty()) {
            put(DiffLine::Kind::removed, before);
            put(DiffLine::Kind::added, after);
            return;
        }
        size_t before_at = 0;
        size_t after_at = 0;
        for (const auto &[before_anchor, after_anchor] : anchors) {
            compare(before.subspan(before_at, before_anchor - before_at),
                    after.subspan(after_at, after_anchor - after_at));
            put(DiffLine::Kind::same, before.subspan(before_anchor, 1));
            before_at = before_anchor + 1;
            after_at = after_anchor + 1;
        }
        compare(before.subspan(before_at), after.subspan(after_at));
    }

    void put(DiffLine::Kind kind, Lines lines) {
        for (const std::string &line : lines) {
            lines_.push_back({kind, line});
        }
    }

    std::vector<DiffLine> lines_;
};

}  // namespace

std::vector<DiffLine> difference_of(const std::vector<std::string> &before, const std::vector<std::string> &after) {
    Differ differ;
    differ.compare(before, after);
    return differ.take();
}

}  // namespace tool
