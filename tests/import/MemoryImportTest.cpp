// The in-memory source: which records each preparation selects, in which order, and that the
// indexed path for per-table requests agrees with a plain scan.
#include "import/memory/MemoryImport.h"
#include "import/SearchPattern.h"
#include "tests/support/FakeImport.h"

#include <gtest/gtest.h>

#include <random>

namespace {

MITable Table(const WyString& catalog, const WyString& schema, const WyString& name,
              const WyString& type = L"TABLE") {
    MITable table;
    table.catalog_ = catalog;
    table.schema_ = schema;
    table.table_ = name;
    table.tableType_ = type;
    return table;
}

MIColumn Column(const WyString& catalog, const WyString& schema, const WyString& table,
                const WyString& name) {
    MIColumn column;
    column.catalog_ = catalog;
    column.schema_ = schema;
    column.table_ = table;
    column.columnName_ = name;
    return column;
}

MIPrimaryKey Key(const WyString& catalog, const WyString& schema, const WyString& table,
                 const WyString& column) {
    MIPrimaryKey key;
    key.catalog_ = catalog;
    key.schema_ = schema;
    key.table_ = table;
    key.columnName_ = column;
    return key;
}

MIForeignKey ForeignKey(const WyString& pkTable, const WyString& fkTable, const WyString& name) {
    MIForeignKey key;
    key.pkCatalog_ = L"C";
    key.pkSchema_ = L"S";
    key.pkTable_ = pkTable;
    key.fkCatalog_ = L"C";
    key.fkSchema_ = L"S";
    key.fkTable_ = fkTable;
    key.foreignKeyName_ = name;
    return key;
}

// "A_B" and "AXB" tell exact selection from pattern selection; rows of one table are spread out
// so that file order and grouping differ.
SourceMetadata SampleMetadata() {
    SourceMetadata metadata;
    metadata.catalogs = {MICatalog(), MICatalog()};
    metadata.catalogs[0].catalog_ = L"C";
    metadata.catalogs[1].catalog_ = L"D";
    metadata.schemas.resize(3);
    metadata.schemas[0].catalog_ = L"C", metadata.schemas[0].schema_ = L"S";
    metadata.schemas[1].catalog_ = L"C", metadata.schemas[1].schema_ = L"T";
    metadata.schemas[2].catalog_ = L"D", metadata.schemas[2].schema_ = L"S";
    metadata.tables = {Table(L"C", L"S", L"A_B"),
                       Table(L"C", L"S", L"AXB", L"VIEW"),
                       Table(L"C", L"T", L"A_B"),
                       Table(L"D", L"S", L"A_B", L"SYSTEM TABLE"),
                       Table(L"C", L"S", L"Orders", L"SYNONYM"),
                       Table(L"C", L"S", L"", L"")};
    metadata.columns = {Column(L"C", L"S", L"A_B", L"id"), Column(L"C", L"S", L"AXB", L"id"),
                        Column(L"C", L"T", L"A_B", L"id"), Column(L"C", L"S", L"A_B", L"name"),
                        Column(L"D", L"S", L"A_B", L"id"), Column(L"C", L"S", L"A_B", L"id_2")};
    metadata.primaryKeys = {Key(L"C", L"S", L"AXB", L"id"), Key(L"C", L"S", L"A_B", L"id"),
                            Key(L"D", L"S", L"A_B", L"id"), Key(L"C", L"S", L"A_B", L"name")};
    metadata.foreignKeys = {ForeignKey(L"A_B", L"AXB", L"FK1"), ForeignKey(L"AXB", L"A_B", L"FK2"),
                            ForeignKey(L"A_B", L"Orders", L"FK3")};
    return metadata;
}

std::shared_ptr<const SourceMetadata> Shared(SourceMetadata metadata) {
    return std::make_shared<const SourceMetadata>(std::move(metadata));
}

std::string Dotted(std::initializer_list<const WyString*> parts) {
    std::string text;
    for (const WyString* part : parts) {
        if (!text.empty())
            text += ".";
        text += Utf8(*part);
    }
    return text;
}

std::vector<std::string> Tables(MemoryImport& source, WyString catalog, WyString schema, WyString table,
                                uint8 types) {
    source.PrepareForTable(catalog, schema, table, types);
    std::vector<std::string> names;
    for (MITable record; source.Get(record);)
        names.push_back(Dotted({&record.catalog_, &record.schema_, &record.table_}));
    return names;
}

std::vector<std::string> ColumnNames(MemoryImport& source, WyString catalog, WyString schema, WyString table,
                                     WyString column) {
    source.PrepareForColumn(catalog, schema, table, column);
    std::vector<std::string> names;
    for (MIColumn record; source.Get(record);)
        names.push_back(Dotted({&record.catalog_, &record.schema_, &record.table_, &record.columnName_}));
    return names;
}

using Names = std::vector<std::string>;

TEST(MemoryImportTest, TablesFollowPatternsTypesAndFileOrder) {
    MemoryImport source(Shared(SampleMetadata()));
    EXPECT_EQ(Names({"C.S.A_B", "C.S.AXB", "C.T.A_B", "D.S.A_B", "C.S.Orders", "C.S."}),
              Tables(source, L"", L"", L"", 0));
    EXPECT_EQ(Names({"C.S.A_B", "C.S.AXB", "C.T.A_B", "C.S."}), Tables(source, L"", L"", L"", 1));
    EXPECT_EQ(Names({"C.S.A_B", "C.S.AXB", "C.T.A_B", "D.S.A_B"}), Tables(source, L"", L"", L"A_B", 0x03));
    EXPECT_EQ(Names({"C.S.A_B", "C.T.A_B", "D.S.A_B"}), Tables(source, L"", L"", L"A\\_B", 0));
    EXPECT_EQ(Names({"C.S.A_B", "C.S.AXB"}), Tables(source, L"C", L"S", L"A%", 1));
    EXPECT_EQ(Names({"C.S.Orders"}), Tables(source, L"_", L"%", L"Orders", 0x04));
    EXPECT_EQ(Names(), Tables(source, L"C", L"S", L"Orders", 0x01));
    EXPECT_EQ(Names(), Tables(source, L"", L"", L"orders", 0));
}

TEST(MemoryImportTest, ColumnsByPatternKeepFileOrder) {
    MemoryImport source(Shared(SampleMetadata()));
    EXPECT_EQ(Names({"C.S.A_B.id", "C.S.AXB.id", "C.S.A_B.name", "C.S.A_B.id_2"}),
              ColumnNames(source, L"C", L"S", L"A_B", L""));
    EXPECT_EQ(Names({"C.S.A_B.id", "C.S.A_B.name", "C.S.A_B.id_2"}),
              ColumnNames(source, L"C", L"S", L"A\\_B", L"%"));
    EXPECT_EQ(Names({"C.S.A_B.id", "C.S.A_B.id_2"}), ColumnNames(source, L"C", L"S", L"A\\_B", L"id%"));
    EXPECT_EQ(Names({"C.S.A_B.id", "C.T.A_B.id", "D.S.A_B.id"}),
              ColumnNames(source, L"", L"", L"A\\_B", L"id"));
    EXPECT_EQ(Names(), ColumnNames(source, L"C", L"S", L"Missing", L""));
}

TEST(MemoryImportTest, KeysTakeExactNamesAndEmptyMeansAll) {
    MemoryImport source(Shared(SampleMetadata()));
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

    auto foreignKeyNames = [&](WyString pkTable, WyString fkTable) {
        WyString any;
        source.PrepareForForeignKey(any, any, pkTable, any, any, fkTable);
        Names names;
        for (MIForeignKey key; source.Get(key);)
            names.push_back(Utf8(key.foreignKeyName_));
        return names;
    };
    EXPECT_EQ(Names({"FK2"}), foreignKeyNames(L"", L"A_B"));
    EXPECT_EQ(Names({"FK1", "FK3"}), foreignKeyNames(L"A_B", L""));
    EXPECT_EQ(Names({"FK1"}), foreignKeyNames(L"A_B", L"AXB"));
    EXPECT_EQ(Names(), foreignKeyNames(L"AXB", L"AXB"));
    EXPECT_EQ(Names({"FK1", "FK2", "FK3"}), foreignKeyNames(L"", L""));
    WyString wrong = L"X", any, pk = L"A_B";
    source.PrepareForForeignKey(wrong, any, pk, any, any, any);
    MIForeignKey unused;
    EXPECT_FALSE(source.Get(unused));
}

TEST(MemoryImportTest, ListingsOfDifferentKindsKeepTheirOwnCursors) {
    MemoryImport source(Shared(SampleMetadata()));
    WyString any, table = L"A_B", c = L"C", s = L"S";
    source.PrepareForTable(any, any, any, 0);
    MITable first, second;
    ASSERT_TRUE(source.Get(first));

    // The generator reads catalogs and columns while a table listing is open.
    source.PrepareForCatalog(any);
    source.PrepareForColumn(c, s, table, any);
    MICatalog catalog;
    MIColumn column;
    ASSERT_TRUE(source.Get(catalog));
    ASSERT_TRUE(source.Get(column));
    ASSERT_TRUE(source.Get(second));
    EXPECT_EQ(L"AXB", second.table_);
    ASSERT_TRUE(source.Get(catalog));
    EXPECT_EQ(L"D", catalog.catalog_);
    EXPECT_FALSE(source.Get(catalog));
    EXPECT_FALSE(source.Get(catalog));

    // Preparing again starts that listing over.
    source.PrepareForTable(any, any, any, 0);
    ASSERT_TRUE(source.Get(second));
    EXPECT_EQ(L"A_B", second.table_);
}

TEST(MemoryImportTest, EmptySourceAndUnpreparedListingsDeliverNothing) {
    MemoryImport source(nullptr);
    MITable table;
    MIViewLink link;
    EXPECT_FALSE(source.Get(table));
    EXPECT_FALSE(source.Get(link));
    WyString any;
    source.PrepareForTable(any, any, any, 0);
    EXPECT_FALSE(source.Get(table));
    source.PrepareForViewLink();
    EXPECT_FALSE(source.Get(link));
}

TEST(MemoryImportTest, SourceAnswersPickListsViewLinksAndFeatures) {
    SourceMetadata metadata;
    metadata.targetType = kZelV2;
    metadata.packagedApplication = true;
    metadata.eai = true;
    metadata.pickLists[L"Account Type"] = {{L"Type", L"Value"}, {L"Sub", L"Order"}};
    metadata.viewLinks.resize(2);
    metadata.viewLinks[0].name_ = L"First";
    metadata.viewLinks[1].name_ = L"Second";
    MemoryImport source(Shared(metadata));

    SUFeaturesTable features;
    TargetType target = kTargetDefault;
    EXPECT_TRUE(source.GetFeatures(features, target));
    EXPECT_EQ(kZelV2, target);
    EXPECT_TRUE(source.GetIsTavrinMetadata());
    EXPECT_TRUE(source.GetTavrinEAI());

    MIColumn column;
    column.picklistName = L"Account Type";
    column.pickListFieldName = {{L"old", L"old"}};
    source.GetPickList(column);
    ASSERT_EQ(2u, column.pickListFieldName.size());
    EXPECT_EQ(L"Sub", column.pickListFieldName[1].fieldName);
    EXPECT_EQ(L"Order", column.pickListFieldName[1].pickFieldName);

    MIColumn unknown;
    unknown.picklistName = L"account type";
    unknown.pickListFieldName = {{L"own", L"pair"}};
    source.GetPickList(unknown);
    ASSERT_EQ(1u, unknown.pickListFieldName.size());
    EXPECT_EQ(L"own", unknown.pickListFieldName[0].fieldName);

    MIViewLink link;
    EXPECT_FALSE(source.Get(link)) << "view links are delivered only after PrepareForViewLink";
    source.PrepareForViewLink();
    ASSERT_TRUE(source.Get(link));
    EXPECT_EQ(L"First", link.name_);
    ASSERT_TRUE(source.Get(link));
    EXPECT_EQ(L"Second", link.name_);
    EXPECT_FALSE(source.Get(link));
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
        metadata.tables.push_back(
            Table(randomText(1), L"S", randomText(4), row % 3 == 0 ? L"VIEW" : L"SYNONYM"));
        metadata.columns.push_back(Column(randomText(1), L"S", randomText(4), randomText(2)));
    }
    MemoryImport source(Shared(metadata));

    for (int round = 0; round < 1500; ++round) {
        WyString catalog = round % 4 == 0 ? randomText(1) : WyString();
        WyString schema = L"S";
        WyString table = randomText(5);
        WyString column = round % 2 == 0 ? randomText(2) : WyString();
        const uint8 types = round % 5 == 0 ? 0x04 : 0;

        std::vector<size_t> expected;
        for (size_t row = 0; row < metadata.tables.size(); ++row) {
            const MITable& t = metadata.tables[row];
            if (MatchesSearchPattern(catalog, t.catalog_) && MatchesSearchPattern(table, t.table_) &&
                TableTypeSelected(types, t.tableType_))
                expected.push_back(row);
        }
        source.PrepareForTable(catalog, schema, table, types);
        size_t delivered = 0;
        for (MITable record; source.Get(record); ++delivered) {
            ASSERT_LT(delivered, expected.size());
            const MITable& want = metadata.tables[expected[delivered]];
            ASSERT_EQ(want.catalog_, record.catalog_);
            ASSERT_EQ(want.table_, record.table_);
            ASSERT_EQ(want.tableType_, record.tableType_);
        }
        ASSERT_EQ(expected.size(), delivered) << "table pattern " << testing::PrintToString(table);

        expected.clear();
        for (size_t row = 0; row < metadata.columns.size(); ++row) {
            const MIColumn& c = metadata.columns[row];
            if (MatchesSearchPattern(catalog, c.catalog_) && MatchesSearchPattern(table, c.table_) &&
                MatchesSearchPattern(column, c.columnName_))
                expected.push_back(row);
        }
        source.PrepareForColumn(catalog, schema, table, column);
        delivered = 0;
        for (MIColumn record; source.Get(record); ++delivered) {
            ASSERT_LT(delivered, expected.size());
            const MIColumn& want = metadata.columns[expected[delivered]];
            ASSERT_EQ(want.catalog_, record.catalog_);
            ASSERT_EQ(want.table_, record.table_);
            ASSERT_EQ(want.columnName_, record.columnName_);
        }
        ASSERT_EQ(expected.size(), delivered) << "table pattern " << testing::PrintToString(table);
    }
}

} // namespace
