// Fuzzes the ODBC search-pattern matcher against a plain dynamic-programming matcher written
// here from the pattern rules, over alphabets dense in wildcards, escapes and near-misses. Long
// runs of "%" against long names must stay fast (libFuzzer's timeout catches a slow matcher).
#include "FuzzCheck.h"
#include "FuzzText.h"

#include "import/SearchPattern.h"

#include <vector>

namespace {

// "%" any sequence, "_" any one character, "\" before "%", "_" or "\" that character literally
// and before anything else (or at the very end) itself; the empty pattern matches every name. Table of which
// pattern suffixes match which name suffixes, filled from the end.
bool IsEscapable(wchar_t c) {
    return c == L'%' || c == L'_' || c == L'\\';
}

bool ReferenceMatch(const WyString& pattern, const WyString& name) {
    if (pattern.empty())
        return true;
    struct Item {
        enum { kLiteral, kOne, kAny } kind;
        wchar_t c;
    };
    std::vector<Item> items;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == L'\\' && i + 1 < pattern.size() && IsEscapable(pattern[i + 1]))
            items.push_back({Item::kLiteral, pattern[++i]});
        else if (pattern[i] == L'%')
            items.push_back({Item::kAny, 0});
        else if (pattern[i] == L'_')
            items.push_back({Item::kOne, 0});
        else
            items.push_back({Item::kLiteral, pattern[i]});
    }
    const size_t n = name.size();
    std::vector<char> next(n + 1, 0), current(n + 1, 0);
    next[n] = 1; // the empty pattern suffix matches only the empty name suffix
    for (size_t p = items.size(); p-- > 0;) {
        for (size_t k = n + 1; k-- > 0;) {
            switch (items[p].kind) {
            case Item::kAny:
                current[k] = next[k] || (k < n && current[k + 1]);
                break;
            case Item::kOne:
                current[k] = k < n && next[k + 1];
                break;
            default:
                current[k] = k < n && name[k] == items[p].c && next[k + 1];
                break;
            }
        }
        std::swap(next, current);
    }
    return next[0] != 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const bool large = in.ConsumeBool();
    const WyString alphabet = in.ConsumeBool() ? WyString(L"%_\\ab") : WyString(L"%_\\abAB\xE9");
    const WyString pattern = FuzzText(in, alphabet, large ? 400 : 24);
    // Names come from the same letters without the wildcards meaning anything special.
    const WyString name = FuzzText(in, alphabet, large ? 2000 : 24);
    FUZZ_CHECK(MatchesSearchPattern(pattern, name) == ReferenceMatch(pattern, name),
               "the matcher agrees with the reference");
    return 0;
}
