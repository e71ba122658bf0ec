// The in-memory source under the snapshot source: keys by exact names, and the indexed selection of
// tables and columns checked against a plain scan. The walks of whole sources are pinned by the
// golden texts.
#include "import/SearchPattern.h"
#include "support/FaultInjectingImport.h"
#include "support/SourceBuilder.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Names = std::vector<std::string>;

// A table of the given type and a column by its name alone; the shared builders do the rest.
MITable Typed(const TablePath& path, const WyString& type) {
    MITable table = Table(path);
    table.tableType_ = type;
    return table;
}
MIColumn Named(const TablePath& path, const WyString& name) {
    return Column(path, name, WyCharData, 1, 1);
}

std::shared_ptr<const SourceMetadata> Shared(SourceMetadata metadata) {
    return std::make_shared<const SourceMetadata>(std::move(metadata));
}

// "A_B" and "AXB" tell exact selection from pattern selection; rows of one table are spread out
// so that file order and grouping differ.
std::shared_ptr<const SourceMetadata> Sample() {
    SourceMetadata metadata;
    metadata.catalogs = {MICatalog(), MICatalog()};
    metadata.catalogs[0].catalog_ = L"C";
    metadata.catalogs[1].catalog_ = L"D";
    metadata.tables = {Table({L"C", L"S", L"A_B"}),
                       Typed({L"C", L"S", L"AXB"}, L"VIEW"),
                       Table({L"C", L"T", L"A_B"}),
                       Typed({L"D", L"S", L"A_B"}, L"SYSTEM TABLE"),
                       Typed({L"C", L"S", L"Orders"}, L"SYNONYM"),
                       Typed({L"C", L"S", L""}, L"")};
    metadata.columns = {Named({L"C", L"S", L"A_B"}, L"id"), Named({L"C", L"S", L"AXB"}, L"id"),
                        Named({L"C", L"S", L"A_B"}, L"name")};
    metadata.primaryKeys = {{L"C", L"S", L"AXB", L"id", 0, L""},
                            {L"C", L"S", L"A_B", L"id", 0, L""},
                            {L"D", L"S", L"A_B", L"id", 0, L""},
                            {L"C", L"S", L"A_B", L"name", 0, L""}};
    metadata.foreignKeys = {ForeignKey({L"C", L"S", L"AXB"}, L"", L"A_B", L"FK1"),
                            ForeignKey({L"C", L"S", L"A_B"}, L"", L"AXB", L"FK2"),
                            ForeignKey({L"C", L"S", L"Orders"}, L"", L"A_B", L"FK3")};
    return Shared(metadata);
}

std::string Dotted(std::initializer_list<const WyString*> parts) {
    std::string text;
    for (const WyString* part : parts)
        text += (text.empty() ? "" : ".") + Utf8(*part);
    return text;
}

TEST(MemoryImportTest, KeysTakeExactNamesAndEmptyMeansAll) {
    MemoryImport source(Sample());
    auto keyColumns = [&](WyString catalog, WyString schema, WyString table) {
        source.PrepareForPrimaryKey(catalog, schema, table);
        Names names;
        for (MIPrimaryKey key; source.Get(key);)
            names.push_back(Dotted({&key.catalog_, &key.table_, &key.columnName_}));
        return names;
    };
    EXPECT_EQ(Names({"C.A_B.id", "C.A_B.name"}), keyColumns(L"C", L"S", L"A_B"));
    EXPECT_EQ(Names({"C.A_B.id", "D.A_B.id", "C.A_B.name"}), keyColumns(L"", L"", L"A_B"));
    EXPECT_EQ(Names({"C.AXB.id", "C.A_B.id", "D.A_B.id", "C.A_B.name"}), keyColumns(L"", L"", L""));
    EXPECT_EQ(Names(), keyColumns(L"C", L"S", L"A%"));
    EXPECT_EQ(Names(), keyColumns(L"C%", L"S", L"A_B"));

    auto foreignKeyNames = [&](WyString pkCatalog, WyString pkTable, WyString fkTable) {
        WyString any;
        source.PrepareForForeignKey(pkCatalog, any, pkTable, any, any, fkTable);
        Names names;
        for (MIForeignKey key; source.Get(key);)
            names.push_back(Utf8(key.foreignKeyName_));
        return names;
    };
    EXPECT_EQ(Names({"FK2"}), foreignKeyNames(L"", L"", L"A_B"));
    EXPECT_EQ(Names({"FK1", "FK3"}), foreignKeyNames(L"", L"A_B", L""));
    EXPECT_EQ(Names({"FK1"}), foreignKeyNames(L"", L"A_B", L"AXB"));
    EXPECT_EQ(Names(), foreignKeyNames(L"", L"AXB", L"AXB"));
    EXPECT_EQ(Names(), foreignKeyNames(L"X", L"A_B", L""));
}

// Names and patterns drawn from a tiny alphabet that includes the pattern characters, so the
// indexed selection meets escapes, look-alikes, prefixes and empty names; a plain scan with the
// same matcher is the model it must agree with, row for row.
TEST(MemoryImportTest, IndexedSelectionAgreesWithAScan) {
    std::mt19937 random(20240611);
    const wchar_t alphabet[] = {L'a', L'b', L'_', L'%', L'\\'};
    auto randomText = [&](size_t maxLength) {
        std::uniform_int_distribution<size_t> length(0, maxLength), letter(0, 4);
        WyString text(length(random), L'a');
        for (wchar_t& c : text)
            c = alphabet[letter(random)];
        return text;
    };
    SourceMetadata metadata;
    for (int row = 0; row < 400; ++row) {
        metadata.tables.push_back(Typed({randomText(1), L"S", randomText(4)}, row % 3 == 0   ? L"VIEW"
                                                                              : row % 3 == 1 ? L"SYNONYM"
                                                                                             : L""));
        metadata.columns.push_back(Named({randomText(1), L"S", randomText(4)}, randomText(2)));
    }
    MemoryImport source(Shared(metadata));

    // The rows the scan selects, then the rows the source delivers.
    auto expectSame = [](const auto& rows, auto selects, auto deliver) {
        Names expected, delivered;
        for (const auto& row : rows)
            if (selects(row))
                expected.push_back(Dotted({&row.catalog_, &row.table_}));
        deliver(delivered, rows.size());
        EXPECT_EQ(expected, delivered);
        return expected == delivered;
    };
    for (int round = 0; round < 1500; ++round) {
        WyString catalog = round % 4 == 0 ? randomText(1) : WyString();
        WyString schema = L"S";
        WyString table = randomText(5);
        WyString column = round % 2 == 0 ? randomText(2) : WyString();
        const uint8 types = round % 5 == 0 ? 0x04 : round % 5 == 1 ? 0x01 : 0;
        SCOPED_TRACE("table pattern " + testing::PrintToString(table));

        source.PrepareForTable(catalog, schema, table, types);
        const bool tablesAgree = expectSame(
            metadata.tables,
            [&](const MITable& t) {
                return MatchesSearchPattern(catalog, t.catalog_) && MatchesSearchPattern(table, t.table_) &&
                       TableTypeSelected(types, t.tableType_);
            },
            [&](Names& out, size_t most) {
                for (MITable record; out.size() <= most && source.Get(record);)
                    out.push_back(Dotted({&record.catalog_, &record.table_}));
            });
        source.PrepareForColumn(catalog, schema, table, column);
        const bool columnsAgree = expectSame(
            metadata.columns,
            [&](const MIColumn& c) {
                return MatchesSearchPattern(catalog, c.catalog_) && MatchesSearchPattern(table, c.table_) &&
                       MatchesSearchPattern(column, c.columnName_);
            },
            [&](Names& out, size_t most) {
                for (MIColumn record; out.size() <= most && source.Get(record);)
                    out.push_back(Dotted({&record.catalog_, &record.table_}));
            });
        if (!tablesAgree || !columnsAgree)
            return;
    }
}

// The source remembers the answer of a wildcard pattern for the last name it saw: names that
// alternate between matching and not matching must still be told apart, and an escaped pattern
// asked next must not inherit those answers.
TEST(MemoryImportTest, WildcardAnswersDoNotLingerOverAlternatingNames) {
    SourceMetadata metadata;
    metadata.columns = {Named({L"wh_1", L"s_a", L"t_1"}, L"a"),  Named({L"wh_1", L"s_a", L"t_1"}, L"b"),
                        Named({L"wh1", L"s_a", L"t_1"}, L"c"),   Named({L"whX1", L"s_a", L"t_1"}, L"d"),
                        Named({L"wh_12", L"s_a", L"t_1"}, L"e"), Named({L"wh_1", L"sa", L"t_1"}, L"f"),
                        Named({L"wh_1", L"sXa", L"t_1"}, L"g"),  Named({L"wh_1", L"s_a", L"tX1"}, L"h"),
                        Named({L"wh_1", L"s_a", L"t_12"}, L"i"), Named({L"whX1", L"s_a", L"t_1"}, L"j")};
    MemoryImport source(Shared(metadata));
    auto columnNames = [&](WyString catalog, WyString schema, WyString table) {
        WyString all = L"%";
        source.PrepareForColumn(catalog, schema, table, all);
        Names names;
        for (MIColumn record; source.Get(record);)
            names.push_back(Utf8(record.columnName_));
        return names;
    };
    EXPECT_EQ(Names({"a", "b", "d", "g", "h", "j"}), columnNames(L"wh_1", L"s_a", L"t_1"));
    EXPECT_EQ(Names({"a", "b"}), columnNames(L"wh\\_1", L"s\\_a", L"t\\_1"));
}

} // namespace
