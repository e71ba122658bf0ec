// Name selection shared by every import source: search patterns and the table-type selector. The
// index walk over sorted names is checked against this matcher through the memory source.
#include "import/SearchPattern.h"

#include <gtest/gtest.h>

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
        {L"O%s%", L"Os", nullptr},
        {L"%a%b", L"aab", L"aba"},
        {L"_", L"x", L""},
        {L"O_ders", L"Orders", L"Oders"},
        {L"A\\_B", L"A_B", L"AXB"},
        {L"100\\%", L"100%", L"1000"},
        {L"a\\\\b", L"a\\b", L"a\\\\b"},
        {L"a\\b", L"a\\b", L"ab"},
        {L"\\a%", L"\\abc", L"abc"},
        {L"a\\", L"a\\", L"a"},
        {L"%\\", L"xyz\\", L"xyz"},
        {L"\\%%", L"%abc", L"abc"},
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

TEST(TableTypeSelectorTest, BitsCoverTheirTypesIgnoringCase) {
    const struct {
        uint8_t selector;
        const wchar_t* type;
        bool selected;
    } cases[] = {
        {0, L"SYSTEM TABLE", true},
        {0, L"", true},
        {0x01, L"view", true},
        {0x01, L"MATERIALIZED VIEW", true},
        {0x01, L"system table", false},
        {0x01, L"Synonym", false},
        {0x02, L"System View", true},
        {0x02, L"TABLE", false},
        {0x04, L"alias", true},
        {0x08, L"global temporary", true},
        {0x0A, L"LOCAL TEMPORARY", true},
        {0x0A, L"VIEW", false},
        {0x10, L"TABLE", false}, // bits above the four known ones select nothing by themselves
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.selected, TableTypeSelected(c.selector, c.type))
            << c.selector << " " << testing::PrintToString(WyString(c.type));
}

} // namespace
