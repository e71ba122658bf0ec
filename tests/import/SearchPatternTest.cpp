// Name selection shared by every import source: search patterns and the table-type selector.
#include "import/SearchPattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <vector>

namespace {

TEST(SearchPatternTest, WildcardsAndCaseAndBackslashEscapesOnlyPercentUnderscoreAndItself) {
    const struct {
        const wchar_t* pattern;
        const wchar_t* matching;
        const wchar_t* notMatching; // or null
    } cases[] = {
        {L"", L"anything", nullptr},
        {L"%", L"", nullptr},
        {L"Orders", L"Orders", L"orders"},
        {L"Ord%", L"Orders", L"Or"},
        {L"%ers", L"Orders", nullptr},
        {L"O%s%", L"Os", nullptr},
        {L"%a%b", L"aab", L"aba"},
        {L"_", L"x", L""},
        {L"O_ders", L"Orders", L"Oders"},
        {L"A\\_B", L"A_B", L"AXB"},
        {L"100\\%", L"100%", L"1000"},
        {L"a\\\\b", L"a\\b", L"a\\\\b"},
        {L"a\\b", L"a\\b", L"ab"},
        {L"a\\b", L"a\\b", L"axb"},
        {L"\\a%", L"\\abc", L"abc"},
        {L"a\\b_", L"a\\bc", nullptr},
        {L"a\\", L"a\\", L"a"},
        {L"\\", L"\\", nullptr},
        {L"%\\", L"xyz\\", L"xyz"},
        {L"\\%%", L"%abc", L"abc"},
        {L"%%%%", L"abc", nullptr},
        {L"_%_", L"ab", L"a"},
        {L"\u00c4%", L"\u00c4rger", nullptr},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(MatchesSearchPattern(c.pattern, c.matching))
            << testing::PrintToString(WyString(c.pattern));
        EXPECT_FALSE(c.notMatching && MatchesSearchPattern(c.pattern, c.notMatching))
            << testing::PrintToString(WyString(c.pattern));
    }
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
        const WyString pattern = randomText(5);
        std::vector<WyString> expected, found;
        std::copy_if(names.begin(), names.end(), std::back_inserter(expected),
                     [&pattern](const WyString& name) { return MatchesSearchPattern(pattern, name); });
        using Pos = std::set<WyString>::const_iterator;
        ForEachMatchingName(
            pattern, [&names](const WyString& prefix) { return names.lower_bound(prefix); }, names.end(),
            [](const Pos& at) -> const WyString& { return *at; },
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
