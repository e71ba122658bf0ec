// The name selection rules that every import source shares: ODBC search patterns and the
// table-type selector.
#pragma once

#include "platform/WyString.h"

#include <cstdint>
#include <limits>

/// ODBC search pattern: "%" matches any sequence, "_" any one character, and "\" before "%", "_"
/// or "\" makes that character literal; a "\" before any other character, or at the very end,
/// stands for itself (so `a\b` names only itself). Case-sensitive. The empty pattern matches every
/// name.
bool MatchesSearchPattern(const WyString& pattern, const WyString& name);

/// When the pattern character at `pos` is an escaping "\", the position of the character it
/// makes literal; otherwise `pos`.
inline size_t SearchPatternLiteralAt(const WyString& pattern, size_t pos) {
    if (pattern[pos] == L'\\' && pos + 1 < pattern.size()) {
        const wchar_t next = pattern[pos + 1];
        if (next == L'%' || next == L'_' || next == L'\\')
            return pos + 1;
    }
    return pos;
}

namespace search_pattern_detail {

// Longer patterns are matched by scanning: the walk recurses once per "_" position.
constexpr size_t kMaxWalkedPatternLength = 256;

template <typename Pos, typename LowerBound, typename NameOf, typename Visit>
void Walk(const WyString& pattern, size_t pos, WyString prefix, LowerBound& lowerBound, const Pos& end,
          NameOf& nameOf, Visit& visit) {
    auto inRange = [&](const Pos& at) {
        return at != end && nameOf(at).compare(0, prefix.size(), prefix) == 0;
    };
    while (pos < pattern.size()) {
        if (pattern[pos] == L'%') {
            // What follows a "%" can start anywhere; the whole pattern decides for each name.
            for (Pos at = lowerBound(prefix); inRange(at); ++at) {
                if (MatchesSearchPattern(pattern, nameOf(at)))
                    visit(at);
            }
            return;
        }
        if (pattern[pos] == L'_') {
            // One branch per distinct character that follows the prefix among the names.
            Pos at = lowerBound(prefix);
            while (inRange(at)) {
                const WyString& name = nameOf(at);
                if (name.size() == prefix.size()) {
                    ++at;
                    continue;
                }
                const wchar_t next = name[prefix.size()];
                Walk(pattern, pos + 1, prefix + next, lowerBound, end, nameOf, visit);
                if (next == std::numeric_limits<wchar_t>::max())
                    break;
                at = lowerBound(prefix + static_cast<wchar_t>(next + 1));
            }
            return;
        }
        pos = SearchPatternLiteralAt(pattern, pos);
        prefix += pattern[pos++];
    }
    const Pos at = lowerBound(prefix);
    if (at != end && nameOf(at) == prefix)
        visit(at);
}

} // namespace search_pattern_detail

/// Calls `visit(position)`, in ascending order, for every name of a sorted collection of distinct
/// names that the search pattern matches, looking only at names that can match: literal characters
/// narrow the range by binary search and each "_" branches once per character present, as a trie
/// would. `lowerBound(prefix)` answers the first position whose name is not below `prefix`, `end`
/// the end of the collection, and `nameOf(position)` the name there.
template <typename Pos, typename LowerBound, typename NameOf, typename Visit>
void ForEachMatchingName(const WyString& pattern, LowerBound lowerBound, const Pos& end, NameOf nameOf,
                         Visit visit) {
    if (pattern.empty() || pattern.size() > search_pattern_detail::kMaxWalkedPatternLength) {
        for (Pos at = lowerBound(WyString()); at != end; ++at) {
            if (MatchesSearchPattern(pattern, nameOf(at)))
                visit(at);
        }
        return;
    }
    search_pattern_detail::Walk(pattern, 0, WyString(), lowerBound, end, nameOf, visit);
}

/// The table-type selector: bit 0x01 every type not named below (TABLE, VIEW and the rest),
/// 0x02 SYSTEM TABLE and SYSTEM VIEW, 0x04 SYNONYM and ALIAS, 0x08 GLOBAL TEMPORARY and LOCAL
/// TEMPORARY, compared ignoring case; 0 selects every type.
bool TableTypeSelected(uint8_t selector, const WyString& tableType);
