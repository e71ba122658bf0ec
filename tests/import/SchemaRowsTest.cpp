// The look-up of a schema's rows by table name: the rows come in the order the driver listed them.
#include "import/odbc/SchemaRows.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

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
