// The look-up of a schema's rows by table-name pattern: the names it finds are exactly those the
// search pattern matches, and the rows come in the order the driver listed them.
#include "import/odbc/SchemaRows.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(SchemaRowsTest, NamesMatchingFindsWhatThePatternMatches) {
    std::map<WyString, int> names;
    for (const wchar_t* name :
         {L"x_y", L"xzy", L"xy", L"xyy", L"x_yz", L"a%b", L"aXb", L"ab", L"_", L"%", L"", L"back\\slash",
          L"backslash", L"t_00001", L"t_00002", L"t100001", L"T_00001", L"\u00e4_y"}) {
        names[name] = 0;
    }
    for (const wchar_t* pattern : {L"x_y",   L"x\\_y",         L"x%",          L"%y",      L"_",
                                   L"__",    L"\\%",           L"\\_",         L"%",       L"a%b",
                                   L"a\\%b", L"back\\\\slash", L"back\\slash", L"back\\",  L"t_0000_",
                                   L"t%1",   L"_\\_y",         L"x_y%",        L"nothing", L"x_y_"}) {
        std::vector<WyString> expected;
        for (const auto& entry : names) {
            if (MatchesSearchPattern(pattern, entry.first)) {
                expected.push_back(entry.first);
            }
        }
        std::vector<WyString> found;
        for (const auto& entry : NamesMatching(names, pattern)) {
            found.push_back(entry->first);
        }
        EXPECT_EQ(found, expected) << std::wstring(pattern).size();
    }
    EXPECT_EQ(NamesMatching(names, L"").size(), names.size());
}

TEST(SchemaRowsTest, TablesComeInTheOrderTheyWereFirstAdded) {
    SchemaRows<int> rows;
    rows.Reset(L"", L"s");
    // Not in name order, and one name in two schemas.
    rows.Add(L"c", L"s", L"xzy", 1);
    rows.Add(L"c", L"s", L"xzy", 2);
    rows.Add(L"c", L"s", L"x_y", 3);
    rows.Add(L"c", L"t", L"xzy", 4);
    rows.Add(L"c", L"t", L"other", 5);
    EXPECT_FALSE(rows.Holds(L"", L"s"));
    rows.Loaded();
    EXPECT_TRUE(rows.Holds(L"", L"s"));
    EXPECT_FALSE(rows.Holds(L"", L"t"));

    auto collect = [&rows](const WyString& pattern, bool exact) {
        std::vector<std::string> seen;
        rows.ForTables(
            pattern, exact, [&seen](const WyString&, const WyString& schema, const WyString& table, int row) {
                seen.push_back(std::string(schema.begin(), schema.end()) + "." +
                               std::string(table.begin(), table.end()) + ":" + std::to_string(row));
            });
        return seen;
    };
    EXPECT_EQ(collect(L"x_y", false), (std::vector<std::string>{"s.xzy:1", "s.xzy:2", "s.x_y:3", "t.xzy:4"}));
    EXPECT_EQ(collect(L"x_y", true), (std::vector<std::string>{"s.x_y:3"}));
    EXPECT_EQ(collect(L"xzy", true), (std::vector<std::string>{"s.xzy:1", "s.xzy:2", "t.xzy:4"}));
    EXPECT_TRUE(collect(L"X_Y", false).empty());
}

} // namespace
