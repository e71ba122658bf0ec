// ODBC search patterns and the table-type selector. Patterns are matched with one backtracking
// point (the last "%"), so the cost stays proportional to pattern length times name length even
// for patterns such as "%%%%a" that a naive recursive matcher would explore exponentially.
#include "import/SearchPattern.h"

#include "platform/BaseStringUtil.h"

#include <vector>

namespace {

// One position of a pattern after escapes are resolved: a literal character or a wildcard.
struct PatternToken {
    enum Kind { kLiteral, kAnyOne, kAnySequence } kind;
    wchar_t literal;
};

std::vector<PatternToken> TokenizePattern(const WyString& pattern) {
    std::vector<PatternToken> tokens;
    tokens.reserve(pattern.size());
    for (size_t pos = 0; pos < pattern.size(); ++pos) {
        const size_t literal = SearchPatternLiteralAt(pattern, pos);
        const wchar_t c = pattern[pos];
        if (literal != pos)
            tokens.push_back({PatternToken::kLiteral, pattern[pos = literal]});
        else if (c == L'%') {
            // Consecutive "%" mean the same as one; collapsing them keeps the matcher simple.
            if (tokens.empty() || tokens.back().kind != PatternToken::kAnySequence)
                tokens.push_back({PatternToken::kAnySequence, 0});
        } else if (c == L'_')
            tokens.push_back({PatternToken::kAnyOne, 0});
        else
            tokens.push_back({PatternToken::kLiteral, c});
    }
    return tokens;
}

bool TokenMatches(const PatternToken& token, wchar_t c) {
    return token.kind == PatternToken::kAnyOne ||
           (token.kind == PatternToken::kLiteral && token.literal == c);
}

bool IsAnyOf(const WyString& tableType, std::initializer_list<const wchar_t*> names) {
    for (const wchar_t* name : names)
        if (BaseStringUtil::IsCaseInsensitiveMatch(tableType, name))
            return true;
    return false;
}

} // namespace

bool MatchesSearchPattern(const WyString& pattern, const WyString& name) {
    if (pattern.empty())
        return true;
    // Most patterns the generator passes are plain names or "%": answer those without tokenizing.
    if (pattern.find_first_of(L"%_\\") == WyString::npos)
        return pattern == name;
    if (pattern == L"%")
        return true;
    const std::vector<PatternToken> tokens = TokenizePattern(pattern);

    // Greedy matching: on a mismatch, let the most recent "%" swallow one more character. An
    // earlier "%" never needs revisiting, because the later one can absorb anything it could.
    size_t tokenPos = 0, namePos = 0;
    size_t starToken = tokens.size(), starName = 0;
    while (namePos < name.size()) {
        if (tokenPos < tokens.size() && tokens[tokenPos].kind == PatternToken::kAnySequence) {
            starToken = tokenPos++;
            starName = namePos;
        } else if (tokenPos < tokens.size() && TokenMatches(tokens[tokenPos], name[namePos])) {
            ++tokenPos;
            ++namePos;
        } else if (starToken != tokens.size()) {
            tokenPos = starToken + 1;
            namePos = ++starName;
        } else
            return false;
    }
    while (tokenPos < tokens.size() && tokens[tokenPos].kind == PatternToken::kAnySequence)
        ++tokenPos;
    return tokenPos == tokens.size();
}

bool TableTypeSelected(uint8_t selector, const WyString& tableType) {
    if (selector == 0)
        return true;
    if (IsAnyOf(tableType, {L"SYSTEM TABLE", L"SYSTEM VIEW"}))
        return (selector & 0x02) != 0;
    if (IsAnyOf(tableType, {L"SYNONYM", L"ALIAS"}))
        return (selector & 0x04) != 0;
    if (IsAnyOf(tableType, {L"GLOBAL TEMPORARY", L"LOCAL TEMPORARY"}))
        return (selector & 0x08) != 0;
    return (selector & 0x01) != 0;
}
