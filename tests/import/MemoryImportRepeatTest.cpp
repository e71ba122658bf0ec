// The in-memory source remembers the answer of a wildcard pattern for the last name it saw:
// records whose names alternate between matching and not matching must still be told apart.
#include "import/memory/MemoryImport.h"

#include <gtest/gtest.h>

namespace {

MIColumn Column(const WyString& catalog, const WyString& schema, const WyString& table,
                const WyString& name) {
    MIColumn column;
    column.catalog_ = catalog;
    column.schema_ = schema;
    column.table_ = table;
    column.columnName_ = name;
    return column;
}

std::vector<WyString> ColumnNames(MemoryImport& import, WyString catalog, WyString schema, WyString table) {
    WyString all = L"%";
    import.PrepareForColumn(catalog, schema, table, all);
    std::vector<WyString> names;
    MIColumn column;
    while (import.Get(column))
        names.push_back(column.columnName_);
    return names;
}

TEST(MemoryImportRepeats, WildcardPatternsOverAlternatingNames) {
    auto metadata = std::make_shared<SourceMetadata>();
    // "_" in the catalog and schema patterns matches one character: "wh_1" takes "wh_1" and
    // "whX1" but not "wh1" or "wh_12"; runs of equal names alternate with changes.
    metadata->columns = {Column(L"wh_1", L"s_a", L"t_1", L"a"),  Column(L"wh_1", L"s_a", L"t_1", L"b"),
                         Column(L"wh1", L"s_a", L"t_1", L"c"),   Column(L"whX1", L"s_a", L"t_1", L"d"),
                         Column(L"wh_12", L"s_a", L"t_1", L"e"), Column(L"wh_1", L"sa", L"t_1", L"f"),
                         Column(L"wh_1", L"sXa", L"t_1", L"g"),  Column(L"wh_1", L"s_a", L"tX1", L"h"),
                         Column(L"wh_1", L"s_a", L"t_12", L"i"), Column(L"whX1", L"s_a", L"t_1", L"j")};
    MemoryImport import(metadata);

    EXPECT_EQ((std::vector<WyString>{L"a", L"b", L"d", L"g", L"h", L"j"}),
              ColumnNames(import, L"wh_1", L"s_a", L"t_1"));
    // The same source then answers escaped patterns exactly: nothing of the earlier answers lingers.
    EXPECT_EQ((std::vector<WyString>{L"a", L"b"}), ColumnNames(import, L"wh\\_1", L"s\\_a", L"t\\_1"));
}

} // namespace
