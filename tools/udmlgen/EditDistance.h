// The edit distance behind udmlgen's "did you mean" and "closest names" suggestions.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace udmlgen {

/// Insertions, deletions and substitutions that turn `a` into `b`; `same` compares two units.
template <class Text, class Same> size_t EditDistance(const Text& a, const Text& b, Same same) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same(a[i - 1], b[j - 1]) ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

} // namespace udmlgen
