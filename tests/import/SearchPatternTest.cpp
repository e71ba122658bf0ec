// Name selection shared by every import source: search patterns and the table-type selector.
#include "import/SearchPattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <vector>

namespace {

struct PatternCase {
    const wchar_t* pattern;
    const wchar_t* name;
    bool matches;
};

TEST(SearchPatternTest, WildcardsAndCaseAndBackslashEscapesOnlyPercentUnderscoreAndItself) {
    const PatternCase cases[] = {
        {L"", L"anything", true},
        {L"", L"", true},
        {L"%", L"", true},
        {L"Orders", L"Orders", true},
        {L"Orders", L"orders", false},
        {L"Orders", L"Orders2", false},
        {L"Ord%", L"Orders", true},
        {L"%ers", L"Orders", true},
        {L"%rde%", L"Orders", true},
        {L"O%s%", L"Os", true},
        {L"%a%b", L"aab", true},
        {L"%a%b", L"aba", false},
        {L"_", L"", false},
        {L"_", L"x", true},
        {L"O_ders", L"Orders", true},
        {L"O_ders", L"Oders", false},
        {L"A_B", L"AXB", true},
        {L"A\\_B", L"AXB", false},
        {L"A\\_B", L"A_B", true},
        {L"100\\%", L"100%", true},
        {L"100\\%", L"1000", false},
        {L"a\\\\b", L"a\\b", true},
        {L"a\\b", L"a\\b", true},
        {L"a\\b", L"ab", false},
        {L"a\\b", L"axb", false},
        {L"a\\\\b", L"a\\\\b", false},
        {L"\\a%", L"\\abc", true},
        {L"a\\b_", L"a\\bc", true},
        {L"a\\", L"a\\", true},
        {L"a\\", L"a", false},
        {L"\\", L"\\", true},
        {L"%\\", L"xyz\\", true},
        {L"%\\", L"xyz", false},
        {L"\\%%", L"%abc", true},
        {L"\\%%", L"abc", false},
        {L"%%%%", L"abc", true},
        {L"_%_", L"a", false},
        {L"_%_", L"ab", true},
        {L"\u00c4%", L"\u00c4rger", true},
    };
    for (const PatternCase& c : cases)
        EXPECT_EQ(c.matches, MatchesSearchPattern(c.pattern, c.name))
            << "pattern \"" << testing::PrintToString(WyString(c.pattern)) << "\" name "
            << testing::PrintToString(WyString(c.name));
}

// The index walk that the memory source and the ODBC schema cache share must find exactly the
// names the matcher accepts, over names and patterns dense in wildcards, escapes and prefixes.
TEST(SearchPatternTest, IndexWalkFindsExactlyWhatTheMatcherAccepts) {
    std::mt19937 random(20240611);
    auto randomText = [&random](size_t most) {
        WyString text(random() % (most + 1), L'a');
        for (wchar_t& c : text)
            c = L"ab_%\\"[random() % 5];
        return text;
    };
    for (int round = 0; round < 300; ++round) {
        std::set<WyString> names;
        while (names.size() < 40)
            names.insert(randomText(4));
        const std::vector<WyString> sorted(names.begin(), names.end());
        const WyString pattern = randomText(5);
        std::vector<WyString> expected, found;
        std::copy_if(sorted.begin(), sorted.end(), std::back_inserter(expected),
                     [&pattern](const WyString& name) { return MatchesSearchPattern(pattern, name); });
        using Pos = std::vector<WyString>::const_iterator;
        ForEachMatchingName(
            pattern,
            [&sorted](const WyString& prefix) {
                return std::lower_bound(sorted.begin(), sorted.end(), prefix);
            },
            sorted.end(), [](const Pos& at) -> const WyString& { return *at; },
            [&found](const Pos& at) { found.push_back(*at); });
        ASSERT_EQ(expected, found) << testing::PrintToString(pattern);
    }
}

TEST(TableTypeSelectorTest, BitsCoverTheirTypesIgnoringCase) {
    const struct {
        uint8_t selector;
        const wchar_t* type;
        bool selected;
    } cases[] = {
        {0, L"SYSTEM TABLE", true},
        {0, L"", true},
        {0x01, L"view", true},
        {0x01, L"", true},
        {0x01, L"MATERIALIZED VIEW", true},
        {0x01, L"SYSTEM", true},
        {0x01, L"system table", false},
        {0x01, L"Synonym", false},
        {0x01, L"LOCAL TEMPORARY", false},
        {0x02, L"System View", true},
        {0x02, L"TABLE", false},
        {0x04, L"alias", true},
        {0x08, L"global temporary", true},
        {0x08, L"TEMPORARY", false},
        {0x0A, L"LOCAL TEMPORARY", true},
        {0x0A, L"VIEW", false},
        {0x10, L"TABLE", false}, // bits above the four known ones select nothing by themselves
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.selected, TableTypeSelected(c.selector, c.type))
            << c.selector << " " << testing::PrintToString(WyString(c.type));
}

} // namespace
