// The ODBC source against the SQLite3 ODBC driver: the sample sales database built from
// examples/sample/sales.sql, plus a small database of awkward names. What is checked is what the
// records must say about sales.sql, as far as the driver reports it (see the notes in the source).
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
    std::vector<MIColumn> Columns(const WyString& table, const WyString& column = L"") {
        WyString catalog, schema, t = table, c = column;
        source.PrepareForColumn(catalog, schema, t, c);
        return All<MIColumn>(source);
    }
    std::vector<MIPrimaryKey> PrimaryKeys(const WyString& table) {
        WyString catalog, schema, t = table;
        source.PrepareForPrimaryKey(catalog, schema, t);
        return All<MIPrimaryKey>(source);
    }
    std::vector<MIForeignKey> ForeignKeys(const WyString& pkTable, const WyString& fkTable) {
        WyString c1, s1, c2, s2, pk = pkTable, fk = fkTable;
        source.PrepareForForeignKey(c1, s1, pk, c2, s2, fk);
        return All<MIForeignKey>(source);
    }

    OdbcImport source;
};

const std::vector<std::string> kAllTables = {"customers",   "employees", "products",    "orders",
                                             "order_lines", "shipments", "order_totals"};

TEST_F(OdbcSqliteTest, TableTypesPatternsAndTheMissingCatalogs) {
    const std::vector<MITable> every = Tables(L"", 0);
    ASSERT_EQ(TableNames(every), kAllTables);
    EXPECT_EQ(every[0].tableType_, L"TABLE");
    EXPECT_EQ(every[6].tableType_, L"VIEW");
    EXPECT_EQ(every[0].catalog_ + every[0].schema_ + every[0].remarks_, L""); // NULL becomes empty
    EXPECT_EQ(TableNames(Tables(L"", 1)), kAllTables);                        // bit 0x01 covers views as well
    EXPECT_THAT(Tables(L"", 0x0E), IsEmpty()); // the driver lists no system tables
    EXPECT_THAT(Tables(L"", 0x10), IsEmpty()); // a bit without table types selects nothing

    EXPECT_THAT(TableNames(Tables(L"order_%", 1)), ElementsAre("orders", "order_lines", "order_totals"));
    EXPECT_THAT(TableNames(Tables(L"order\\_%", 1)), ElementsAre("order_lines", "order_totals"));
    EXPECT_THAT(TableNames(Tables(L"%ers", 1)), ElementsAre("customers", "orders"));
    EXPECT_THAT(Tables(L"ORDER%", 1), IsEmpty()); // the driver matches ignoring case; the source does not

    // Without catalogs the generator lists tables with the schema pattern "%".
    WyString all, percent = L"%";
    source.PrepareForCatalog(all);
    EXPECT_THAT(All<MICatalog>(source), IsEmpty());
    source.PrepareForSchema(all, percent);
    EXPECT_THAT(All<MISchema>(source), IsEmpty());
    WyString table;
    source.PrepareForTable(all, percent, table, 1);
    EXPECT_EQ(TableNames(All<MITable>(source)), kAllTables);
}

TEST_F(OdbcSqliteTest, ColumnsCarryTypeSizeAndNullability) {
    struct Expected {
        const char* name;
        WyDataType type;
        const char* typeName;
        uint32 precision;
        uint16 nullable;
    };
    // Mapped from the declared types: the driver reports DECIMAL(10,2) as SQL_VARCHAR of size 2.
    const Expected expected[] = {
        {"employee_id", WyInt4Data, "INTEGER", 10, 0},
        {"full_name", WyVarCharData, "VARCHAR(80)", 80, 0},
        {"manager_id", WyInt4Data, "INTEGER", 10, 1},
        {"hire_date", WyDateData, "DATE", 10, 0},
        {"salary", WyDecimalData, "DECIMAL(10,2)", 10, 1},
        {"photo", WyLongVarBinaryData, "BLOB", 1000000000, 1},
    };
    const std::vector<MIColumn> columns = Columns(L"employees");
    ASSERT_EQ(columns.size(), std::size(expected));
    for (size_t i = 0; i < columns.size(); ++i) {
        SCOPED_TRACE(expected[i].name);
        EXPECT_EQ(columns[i].table_, L"employees");
        EXPECT_EQ(Narrow(columns[i].columnName_), expected[i].name);
        EXPECT_EQ(columns[i].dataType_, expected[i].type);
        EXPECT_EQ(Narrow(columns[i].typeName_), expected[i].typeName);
        EXPECT_EQ(columns[i].precision_, expected[i].precision);
        EXPECT_EQ(columns[i].nullable_, expected[i].nullable);
        EXPECT_EQ(columns[i].remarks_ + columns[i].fullyQualifiedName_ + columns[i].userName_, L"");
    }
    // The view's computed column has no declared type.
    const std::vector<MIColumn> total = Columns(L"order_totals", L"total");
    ASSERT_EQ(total.size(), 1u);
    EXPECT_EQ(total[0].typeName_, L"");
    EXPECT_EQ(total[0].dataType_, WyLongVarCharData);

    std::vector<std::string> found;
    for (const MIColumn& c : Columns(L"order%", L"%\\_id"))
        found.push_back(Narrow(c.table_ + L"." + c.columnName_));
    EXPECT_THAT(found, ElementsAre("orders.order_id", "orders.customer_id", "orders.employee_id",
                                   "order_lines.order_id", "order_lines.product_id", "order_totals.order_id",
                                   "order_totals.customer_id"));
    EXPECT_THAT(Columns(L"orders", L"ORDER_ID"), IsEmpty());
}

TEST_F(OdbcSqliteTest, KeysOfOneTableOrOfEveryTable) {
    std::vector<std::string> primary;
    for (const MIPrimaryKey& k : PrimaryKeys(L""))
        primary.push_back(Narrow(k.table_ + L"." + k.columnName_ + k.primaryKeyName_) + ":" +
                          std::to_string(k.keySequence_));
    EXPECT_THAT(primary, ElementsAre("customers.customer_id:1", "employees.employee_id:1",
                                     "products.product_id:1", "orders.order_id:1", "order_lines.order_id:1",
                                     "order_lines.line_no:2", "shipments.shipment_id:1"));
    EXPECT_EQ(PrimaryKeys(L"order_lines").size(), 2u);
    EXPECT_THAT(PrimaryKeys(L"order_line_"), IsEmpty()); // not a pattern

    auto describe = [](const std::vector<MIForeignKey>& keys) {
        std::vector<std::string> out;
        for (const MIForeignKey& k : keys)
            out.push_back(Narrow(k.fkTable_ + L"." + k.fkColumnName_ + L"->" + k.pkTable_ + L"." +
                                 k.pkColumnName_ + k.foreignKeyName_ + k.primaryKeyName_) +
                          ":" + std::to_string(k.keySequence_) + ":" + std::to_string(k.deleteRule_));
        return out;
    };
    // Table by table in the driver's table order; SQLite lists a table's keys last declared first.
    EXPECT_THAT(
        describe(ForeignKeys(L"", L"")),
        ElementsAre(
            "employees.manager_id->employees.employee_id:1:3",
            "orders.employee_id->employees.employee_id:1:3", "orders.customer_id->customers.customer_id:1:3",
            "order_lines.product_id->products.product_id:1:3", "order_lines.order_id->orders.order_id:1:0",
            "shipments.order_id->order_lines.order_id:1:3", "shipments.line_no->order_lines.line_no:2:3"));
    EXPECT_EQ(describe(ForeignKeys(L"", L"shipments")).size(), 2u);
    EXPECT_THAT(describe(ForeignKeys(L"orders", L"")),
                ElementsAre("order_lines.order_id->orders.order_id:1:0"));
    EXPECT_THAT(ForeignKeys(L"orders", L"shipments"), IsEmpty());
}

TEST_F(OdbcSqliteTest, ListingsOfDifferentKindsRunSideBySide) {
    WyString catalog, schema, table;
    source.PrepareForTable(catalog, schema, table, 1);
    std::vector<std::string> seen;
    for (MITable t; source.Get(t);) {
        // Columns and keys are read while the table listing is still open.
        const size_t columns = Columns(t.table_).size();
        seen.push_back(Narrow(t.table_) + ":" + std::to_string(columns) + ":" +
                       std::to_string(PrimaryKeys(t.table_).size()));
    }
    EXPECT_THAT(seen, ElementsAre("customers:6:1", "employees:6:1", "products:7:1", "orders:6:1",
                                  "order_lines:6:2", "shipments:5:1", "order_totals:3:0"));
    // A listing prepared again starts over, even in the middle of the one before.
    MITable first;
    source.PrepareForTable(catalog, schema, table, 1);
    ASSERT_TRUE(source.Get(first));
    source.PrepareForTable(catalog, schema, table, 1);
    EXPECT_EQ(TableNames(All<MITable>(source)), kAllTables);
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

// Messages: the first says what was being done, the next ones are the driver's diagnostics.
void ExpectDiagnostic(const ErrorMessage& error, const std::string& context, const std::string& sqlstate) {
    ASSERT_GE(error.Messages().size(), 2u) << error.what();
    EXPECT_THAT(Narrow(error.Messages()[0]), ::testing::HasSubstr(context));
    EXPECT_THAT(Narrow(error.Messages()[1]), ::testing::MatchesRegex(sqlstate + " \\[-?[0-9]+\\] .+"));
}

TEST(OdbcConnectTest, FailuresNameTheSourceAndTheSqlState) {
    OdbcImport source;
    WyString dsn = L"NoSuchDataSource", user = L"ada", password = L"lantern";
    try {
        source.OpenConnection(dsn, user, password, false);
        FAIL() << "connected to an unknown data source";
    } catch (const ErrorMessage& error) {
        ExpectDiagnostic(error, "data source \"NoSuchDataSource\" as user \"ada\"", "IM002");
        EXPECT_EQ(std::string(error.what()).find("lantern"), std::string::npos);
    }

    WyString connection = L"Driver=/nonexistent/libnodriver.so;Database=x", secret = L"s e;cret";
    try {
        source.OpenConnection(connection, user, secret, false);
        FAIL() << "connected through a missing driver";
    } catch (const ErrorMessage& error) {
        ExpectDiagnostic(error, "Driver=/nonexistent/libnodriver.so;Database=x;UID=ada;PWD=***",
                         "[0-9A-Z]{5}");
        EXPECT_EQ(std::string(error.what()).find("cret"), std::string::npos);
    }

    // Without a connection: a clear message for a Prepare, false for a Get, no harm in closing.
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
