// The ODBC source against the SQLite3 ODBC driver: table types and patterns over the sample sales
// database, awkward names, connection failures. The sample's columns and keys are pinned by its
// golden text (examples/sample/sales.expected, checked by the cli tests).
#include "import/DbGatewayDllMgr.h"
#include "tests/import/SqliteSample.h"

#include <gmock/gmock.h>

#include <memory>

namespace {

using sqlite_sample::All;
using sqlite_sample::Wide;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string Narrow(const WyString& text) {
    return std::string(text.begin(), text.end());
}

std::vector<std::string> TableNames(const std::vector<MITable>& tables) {
    std::vector<std::string> names;
    for (const MITable& t : tables)
        names.push_back(Narrow(t.table_));
    return names;
}

class OdbcSqliteTest : public ::testing::Test {
protected:
    void SetUp() override { sqlite_sample::Open(source, sqlite_sample::SampleConnection()); }

    std::vector<MITable> Tables(const WyString& table, uint8 selector) {
        WyString catalog, schema, pattern = table;
        source.PrepareForTable(catalog, schema, pattern, selector);
        return All<MITable>(source);
    }

    OdbcImport source;
};

const std::vector<std::string> kAllTables = {"customers",   "employees", "products",    "orders",
                                             "order_lines", "shipments", "order_totals"};

TEST_F(OdbcSqliteTest, TableTypesAndPatterns) {
    const std::vector<MITable> every = Tables(L"", 0);
    ASSERT_EQ(TableNames(every), kAllTables);
    EXPECT_EQ(every[0].tableType_, L"TABLE");
    EXPECT_EQ(every[6].tableType_, L"VIEW");
    EXPECT_EQ(every[0].catalog_ + every[0].schema_ + every[0].remarks_, L""); // NULL becomes empty
    EXPECT_EQ(TableNames(Tables(L"", 1)), kAllTables);                        // bit 0x01 covers views as well
    EXPECT_THAT(Tables(L"", 0x0E), IsEmpty()); // the driver lists no system tables

    EXPECT_THAT(TableNames(Tables(L"order_%", 1)), ElementsAre("orders", "order_lines", "order_totals"));
    EXPECT_THAT(TableNames(Tables(L"order\\_%", 1)), ElementsAre("order_lines", "order_totals"));
    EXPECT_THAT(Tables(L"ORDER%", 1), IsEmpty()); // the driver matches ignoring case; the source does not
}

TEST(OdbcSqliteNamesTest, AwkwardNamesSurviveTheWideEntryPoints) {
    const std::string longName(700, 'q'); // longer than one piece of SQLGetData
    const std::string path = sqlite_sample::Database(
        "names.db",
        "CREATE TABLE \"Straße_😀\" (\"größe_😀\" INTEGER UNSIGNED NOT NULL, " + longName +
            " TINYINT UNSIGNED, plain unsignedint); CREATE TABLE orderXlines (y INT); CREATE TABLE " +
            longName + " (z INT);");
    OdbcImport names;
    sqlite_sample::Open(names, sqlite_sample::ConnectionTo(path));

    // Characters beyond ASCII in patterns, also where the driver manager cannot pass them on.
    WyString catalog, schema, table = L"Stra\u00DFe\\_%\U0001F600";
    names.PrepareForTable(catalog, schema, table, 1);
    const std::vector<MITable> tables = All<MITable>(names);
    ASSERT_EQ(tables.size(), 1u);
    EXPECT_EQ(tables[0].table_, L"Stra\u00DFe_\U0001F600");

    WyString tableName = tables[0].table_, column;
    names.PrepareForColumn(catalog, schema, tableName, column);
    const std::vector<MIColumn> columns = All<MIColumn>(names);
    ASSERT_EQ(columns.size(), 3u);
    EXPECT_EQ(columns[0].columnName_, L"gr\u00F6\u00DFe_\U0001F600");
    EXPECT_EQ(columns[0].dataType_, WyUInt4Data);
    EXPECT_EQ(columns[1].columnName_, Wide(longName));
    EXPECT_EQ(columns[1].dataType_, WyUInt1Data);
    EXPECT_EQ(columns[2].typeName_, L"unsignedint");
    EXPECT_NE(columns[2].dataType_, WyUInt4Data);

    // "_" matches the "X" of orderXlines unless escaped.
    WyString like = L"order_lines", exact = L"order\\_lines";
    names.PrepareForTable(catalog, schema, like, 1);
    EXPECT_EQ(All<MITable>(names).size(), 1u);
    names.PrepareForTable(catalog, schema, exact, 1);
    EXPECT_THAT(All<MITable>(names), IsEmpty());

    // The driver's per-table call lists nothing for a name of 512 bytes or more: the whole schema
    // is read instead, or, where only per-table calls are allowed, the failure says why.
    WyString longTable = Wide(longName);
    names.PrepareForColumn(catalog, schema, longTable, column);
    EXPECT_EQ(All<MIColumn>(names).size(), 1u);
    OdbcImport perTable;
    perTable.SetPerTableReads(true);
    sqlite_sample::Open(perTable, sqlite_sample::ConnectionTo(path));
    try {
        perTable.PrepareForColumn(catalog, schema, longTable, column);
        ADD_FAILURE() << "a long name was asked of the driver";
    } catch (const ErrorMessage& error) {
        EXPECT_THAT(error.what(), ::testing::HasSubstr("512 bytes or longer"));
    }
}

// Unknown data sources and missing drivers are met through udmlgen (the cli tests); the source
// alone must also behave without a connection.
TEST(OdbcConnectTest, WithoutAConnectionPrepareFailsClearlyAndGetEndsTheListing) {
    OdbcImport source;
    WyString none;
    try {
        source.PrepareForTable(none, none, none, 1);
        FAIL() << "listed tables without a connection";
    } catch (const ErrorMessage& error) {
        ASSERT_EQ(error.Messages().size(), 2u);
        EXPECT_EQ(error.Messages()[0], L"reading the tables");
        EXPECT_THAT(Narrow(error.Messages()[1]), ::testing::HasSubstr("not connected"));
    }
    MITable table;
    EXPECT_FALSE(source.Get(table));
    source.CloseConnection();
    source.CloseConnection();
}

TEST(OdbcFactoryTest, HandsOutTheOdbcSourceForOdbcOnly) {
    std::unique_ptr<MIMetaDataImport> odbc(DbGatewayDllMgr::MakeMIMetaDataImport(ServerInfo::kCLI_ODBC350));
    ASSERT_NE(dynamic_cast<OdbcImport*>(odbc.get()), nullptr);
    odbc->PrepareForViewLink();
    MIViewLink link;
    EXPECT_FALSE(odbc->Get(link));
    for (int other : {0, 1, 2, 4, int(ServerInfo::kCLI_ZEL_HTTP), int(ServerInfo::kCLI_WS)})
        EXPECT_EQ(DbGatewayDllMgr::MakeMIMetaDataImport(other), nullptr) << other;
}

} // namespace
