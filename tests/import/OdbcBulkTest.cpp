// The ODBC source's whole-schema reads against the SQLite3 ODBC driver: for every table of the
// sample database and of a database of awkward names and every column type, the records equal
// those of the driver's per-table catalog calls.
#include "tests/import/OdbcEquality.h"

namespace {

using odbc_equality::ExpectSameRecords;
using odbc_equality::Read;
using sqlite_sample::ConnectionTo;
using sqlite_sample::Database;

// `fast` answers from whole-schema reads where it can, `plain` asks the driver table by table.
void Open(OdbcImport& fast, OdbcImport& plain, const std::string& connection) {
    fast.SetPerTableReads(false);
    plain.SetPerTableReads(true);
    sqlite_sample::Open(fast, connection);
    sqlite_sample::Open(plain, connection);
}

// Names that are search patterns of one another, escapes, and one column of each declared type.
const char* const kAwkwardSql = R"sql(
CREATE TABLE "x_y" (id INTEGER PRIMARY KEY, a TEXT);
CREATE TABLE "xzy" (id INTEGER PRIMARY KEY, b VARCHAR(20) NOT NULL);
CREATE TABLE "xy" (c INTEGER);
CREATE TABLE "a%b" (k1 INTEGER, k2 VARCHAR(5), PRIMARY KEY (k2, k1));
CREATE TABLE "aXYZb" (k INTEGER PRIMARY KEY);
CREATE TABLE "back\slash" (k INTEGER);
CREATE TABLE "_" (u INTEGER);
CREATE TABLE "%" (p INTEGER);
CREATE TABLE types (
  i INTEGER NOT NULL, bi BIGINT, si SMALLINT, ti TINYINT, iu INTEGER UNSIGNED, t TEXT, vc VARCHAR(30),
  ch CHAR(3), dec DECIMAL(10,2), num NUMERIC(8,3), r REAL, d DOUBLE, f FLOAT, b BLOB, dt DATE,
  tm TIME, ts TIMESTAMP, dtm DATETIME, bo BOOLEAN, untyped, ws WVARCHAR(9)
);
CREATE TABLE child (
  id INTEGER PRIMARY KEY,
  k1 INTEGER, k2 VARCHAR(5), xy INTEGER,
  FOREIGN KEY (k2, k1) REFERENCES "a%b" (k2, k1) ON DELETE CASCADE,
  FOREIGN KEY (xy) REFERENCES "x_y" (id) ON UPDATE SET NULL
);
CREATE VIEW "x_view" AS SELECT id, a || 'z' AS computed FROM "x_y";
)sql";

TEST(OdbcBulkTest, SampleDatabaseMatchesThePerTableCalls) {
    const std::string& connection = sqlite_sample::SampleConnection();
    OdbcImport fast, plain;
    Open(fast, plain, connection);
    EXPECT_EQ(ExpectSameRecords(fast, plain, L"", L""), 7u);
    EXPECT_EQ(fast.WholeSchemaReads(), 1u);
    EXPECT_EQ(plain.WholeSchemaReads(), 0u);
}

TEST(OdbcBulkTest, PatternNamesAndEveryTypeMatchThePerTableCalls) {
    const std::string connection = ConnectionTo(Database("awkward.db", kAwkwardSql));
    // One table, or a column pattern, does not warrant reading the whole schema.
    OdbcImport lone;
    lone.SetPerTableReads(false);
    sqlite_sample::Open(lone, connection);
    WyString none, table = L"types", column = L"d%";
    lone.PrepareForColumn(none, none, table, column);
    EXPECT_EQ(Read<MIColumn>(lone).size(), 4u); // dec, d, dt, dtm
    for (const wchar_t* every : {L"%", L"", L"%"}) {
        column = every;
        lone.PrepareForColumn(none, none, table, column);
        EXPECT_EQ(Read<MIColumn>(lone).size(), 21u);
    }
    lone.PrepareForPrimaryKey(none, none, table);
    EXPECT_EQ(Read<MIPrimaryKey>(lone).size(), 0u);
    EXPECT_EQ(lone.WholeSchemaReads(), 0u);

    OdbcImport fast, plain;
    Open(fast, plain, connection);
    EXPECT_EQ(ExpectSameRecords(fast, plain, L"", L""), 11u);
    // Patterns that select several tables, or tables only by their escapes, keep the driver's order.
    for (const wchar_t* pattern :
         {L"x_y", L"x%", L"a%b", L"a\\%b", L"_", L"\\_", L"%", L"back\\\\slash", L"X_Y"}) {
        SCOPED_TRACE(odbc_equality::Narrow(pattern));
        WyString all = L"%";
        table = pattern;
        fast.PrepareForColumn(none, none, table, all);
        const auto fastColumns = Read<MIColumn>(fast);
        plain.PrepareForColumn(none, none, table, all);
        EXPECT_EQ(fastColumns, Read<MIColumn>(plain));
    }
    EXPECT_EQ(fast.WholeSchemaReads(), 1u); // the schema was read once
}

TEST(OdbcBulkTest, ReadsAfterReconnectingComeFromTheNewDatabase) {
    const std::string first =
        ConnectionTo(Database("first.db", "CREATE TABLE t (a INTEGER, b TEXT); CREATE TABLE u (x INTEGER);"));
    const std::string second =
        ConnectionTo(Database("second.db", "CREATE TABLE t (c REAL); CREATE TABLE v (y INTEGER);"));
    OdbcImport fast, plain;
    Open(fast, plain, first);
    ExpectSameRecords(fast, plain, L"", L"");
    Open(fast, plain, second);
    ExpectSameRecords(fast, plain, L"", L"");
    EXPECT_EQ(fast.WholeSchemaReads(), 2u);
}

} // namespace
