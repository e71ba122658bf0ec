// Name selection shared by every import source: search patterns, the table-type selector, and
// the data-type names the snapshot format spells out.
#include "import/SearchPattern.h"
#include "import/MIRecords.h"

#include <gtest/gtest.h>

#include <chrono>

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

TEST(SearchPatternTest, ManyPercentSignsStayFast) {
    const WyString pattern = WyString(40, L'%') + L"a" + WyString(40, L'%') + L"b_";
    const WyString name(20000, L'a');
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(MatchesSearchPattern(pattern, name));
    EXPECT_TRUE(MatchesSearchPattern(pattern, name + L"bc"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(TableTypeSelectorTest, BitsCoverTheirTypesIgnoringCase) {
    EXPECT_TRUE(TableTypeSelected(0, L"SYSTEM TABLE"));
    EXPECT_TRUE(TableTypeSelected(0, L""));

    EXPECT_TRUE(TableTypeSelected(0x01, L"TABLE"));
    EXPECT_TRUE(TableTypeSelected(0x01, L"view"));
    EXPECT_TRUE(TableTypeSelected(0x01, L""));
    EXPECT_TRUE(TableTypeSelected(0x01, L"MATERIALIZED VIEW"));
    EXPECT_TRUE(TableTypeSelected(0x01, L"SYSTEM"));
    EXPECT_FALSE(TableTypeSelected(0x01, L"system table"));
    EXPECT_FALSE(TableTypeSelected(0x01, L"Synonym"));
    EXPECT_FALSE(TableTypeSelected(0x01, L"LOCAL TEMPORARY"));

    EXPECT_TRUE(TableTypeSelected(0x02, L"System View"));
    EXPECT_FALSE(TableTypeSelected(0x02, L"TABLE"));
    EXPECT_TRUE(TableTypeSelected(0x04, L"alias"));
    EXPECT_FALSE(TableTypeSelected(0x04, L"SYSTEM TABLE"));
    EXPECT_TRUE(TableTypeSelected(0x08, L"global temporary"));
    EXPECT_FALSE(TableTypeSelected(0x08, L"TEMPORARY"));
    EXPECT_TRUE(TableTypeSelected(0x0A, L"SYSTEM TABLE"));
    EXPECT_TRUE(TableTypeSelected(0x0A, L"LOCAL TEMPORARY"));
    EXPECT_FALSE(TableTypeSelected(0x0A, L"VIEW"));
    // Bits above the four known ones select nothing by themselves.
    EXPECT_FALSE(TableTypeSelected(0x10, L"TABLE"));
}

TEST(DataTypeNameTest, EveryNameReadsBackAndOthersAreRefused) {
    for (int32_t value = WyBitData; value <= WyMaxType; ++value) {
        const char* name = WyDataTypeName(static_cast<WyDataType>(value));
        ASSERT_NE(nullptr, name) << value;
        WyDataType type = WyUnknown;
        ASSERT_TRUE(WyDataTypeFromName(WyString(name, name + std::char_traits<char>::length(name)), type));
        EXPECT_EQ(value, type);
    }
    EXPECT_STREQ("WyVarCharData", WyDataTypeName(WyVarCharData));
    EXPECT_STREQ("WyMaxType", WyDataTypeName(WyMaxType));
    EXPECT_EQ(nullptr, WyDataTypeName(static_cast<WyDataType>(-1)));
    EXPECT_EQ(nullptr, WyDataTypeName(static_cast<WyDataType>(27)));

    WyDataType type = WyCharData;
    EXPECT_FALSE(WyDataTypeFromName(L"wyvarchardata", type));
    EXPECT_FALSE(WyDataTypeFromName(L"WyVarCharData ", type));
    EXPECT_FALSE(WyDataTypeFromName(L"WyVarChar", type));
    EXPECT_FALSE(WyDataTypeFromName(L"", type));
    EXPECT_EQ(WyCharData, type);
}

} // namespace
