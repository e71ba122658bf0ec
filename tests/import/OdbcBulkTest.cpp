// The ODBC source's whole-schema reads against the SQLite3 ODBC driver: for every table of the
// sample database and of a database of awkward names and every column type, the records equal
// those of the driver's per-table catalog calls.
#include "import/odbc/OdbcImport.h"
#include "tests/import/OdbcEquality.h"
#include "tests/support/RunCommand.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

using odbc_equality::ExpectSameRecords;

WyString Wide(const std::string& text) {
    return WyString(text.begin(), text.end());
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

class OdbcBulkTest : public ::testing::Test {
protected:
    static std::string Database(const std::string& name, const std::string& sql) {
        const std::string path = ScratchPath(std::to_string(getpid()) + "-bulk-" + name);
        std::remove(path.c_str());
        const std::string sqlPath = path + ".sql";
        std::ofstream(sqlPath) << sql;
        const CommandResult run =
            RunCommand("sqlite3 -bail " + ShellQuote(path) + " <" + ShellQuote(sqlPath));
        EXPECT_EQ(run.exitStatus, 0) << run.standardError;
        return path;
    }

    static std::string SampleConnection() {
        const std::string path = ScratchPath(std::to_string(getpid()) + "-bulk-sales.db");
        const CommandResult run =
            RunCommand("bash " + ShellQuote(std::string(UDML_SOURCE_DIR) + "/scripts/sample-db.sh") + " " +
                       ShellQuote(path));
        EXPECT_EQ(run.exitStatus, 0) << run.standardError;
        std::string connection = run.standardOutput;
        while (!connection.empty() && (connection.back() == '\n' || connection.back() == '\r')) {
            connection.pop_back();
        }
        return connection;
    }

    // The connection string of the sample's driver, aimed at another database file.
    static std::string ConnectionTo(const std::string& path) {
        const std::string sample = SampleConnection();
        const size_t at = sample.find("Database=");
        EXPECT_NE(at, std::string::npos) << sample;
        return sample.substr(0, at) + "Database=" + path;
    }

    static void Open(OdbcImport& source, const std::string& connection, bool perTable) {
        source.SetPerTableReads(perTable);
        WyString text = Wide(connection), user, password;
        source.OpenConnection(text, user, password, false);
    }
};

TEST_F(OdbcBulkTest, SampleDatabaseMatchesThePerTableCalls) {
    const std::string connection = SampleConnection();
    OdbcImport fast, plain;
    Open(fast, connection, false);
    Open(plain, connection, true);
    EXPECT_EQ(ExpectSameRecords(fast, plain, L"", L""), 7u);
    EXPECT_EQ(fast.WholeSchemaReads(), 1u);
    EXPECT_EQ(plain.WholeSchemaReads(), 0u);
}

TEST_F(OdbcBulkTest, PatternNamesAndEveryTypeMatchThePerTableCalls) {
    const std::string connection = ConnectionTo(Database("awkward.db", kAwkwardSql));
    OdbcImport fast, plain;
    Open(fast, connection, false);
    Open(plain, connection, true);
    EXPECT_EQ(ExpectSameRecords(fast, plain, L"", L""), 11u);
    EXPECT_EQ(fast.WholeSchemaReads(), 1u);

    // Patterns that select several tables, or tables only by their escapes, keep the driver's order.
    for (const wchar_t* pattern :
         {L"x_y", L"x%", L"a%b", L"a\\%b", L"_", L"\\_", L"%", L"back\\\\slash", L"X_Y"}) {
        SCOPED_TRACE(odbc_equality::Narrow(pattern));
        WyString none, table = pattern, all = L"%";
        fast.PrepareForColumn(none, none, table, all);
        const auto fastColumns = odbc_equality::Read<MIColumn>(fast);
        plain.PrepareForColumn(none, none, table, all);
        EXPECT_EQ(fastColumns, odbc_equality::Read<MIColumn>(plain));
    }
    EXPECT_EQ(fast.WholeSchemaReads(), 1u); // the schema was read once
}

TEST_F(OdbcBulkTest, LoneTableAndColumnPatternsGoToTheDriver) {
    const std::string connection = ConnectionTo(Database("lone.db", kAwkwardSql));
    OdbcImport fast;
    Open(fast, connection, false);
    WyString none, table = L"types", column = L"d%";
    fast.PrepareForColumn(none, none, table, column);
    EXPECT_EQ(odbc_equality::Read<MIColumn>(fast).size(), 4u); // dec, d, dt, dtm
    for (const wchar_t* every : {L"%", L"", L"%"}) {
        column = every;
        fast.PrepareForColumn(none, none, table, column);
        EXPECT_EQ(odbc_equality::Read<MIColumn>(fast).size(), 21u);
    }
    fast.PrepareForPrimaryKey(none, none, table);
    EXPECT_EQ(odbc_equality::Read<MIPrimaryKey>(fast).size(), 0u);
    EXPECT_EQ(fast.WholeSchemaReads(), 0u); // one table does not warrant reading the schema
}

TEST_F(OdbcBulkTest, ReadsAfterReconnectingComeFromTheNewDatabase) {
    const std::string first =
        ConnectionTo(Database("first.db", "CREATE TABLE t (a INTEGER, b TEXT); CREATE TABLE u (x INTEGER);"));
    const std::string second =
        ConnectionTo(Database("second.db", "CREATE TABLE t (c REAL); CREATE TABLE v (y INTEGER);"));
    OdbcImport fast, plain;
    Open(fast, first, false);
    Open(plain, first, true);
    ExpectSameRecords(fast, plain, L"", L"");
    Open(fast, second, false);
    Open(plain, second, true);
    ExpectSameRecords(fast, plain, L"", L"");
    EXPECT_EQ(fast.WholeSchemaReads(), 2u);
}

} // namespace
