// udmlgen against real catalogs: the public sample schemas (db-servers.sh samples), one column of
// each refined type per DBMS, and awkward names and keys per DBMS. Every text is also what the
// per-table path and a snapshot's replay give. UDML_UPDATE_GOLDEN=1 rewrites the golden texts.
#include "tests/servers/ServerSettings.h"
#include "tests/support/RunCommand.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <stdexcept>
#include <string>

namespace {

using server_settings::Setting;

const std::string kRealDir = std::string(UDML_SOURCE_DIR) + "/tests/servers/real/";

enum class Dbms { PostgreSQL, MariaDB, SQLite };

const char* Name(Dbms dbms) {
    return dbms == Dbms::PostgreSQL ? "PostgreSQL" : dbms == Dbms::MariaDB ? "MariaDB" : "SQLite";
}

void Must(const CommandResult& run, const std::string& what) {
    if (run.exitStatus != 0)
        throw std::runtime_error(
            what + " failed (are the servers running? scripts/db-servers.sh start): " + run.standardError);
}

// Runs the SQL file of tests/servers/real (or `sql`, when given) as the test account; for SQLite into
// a new file, whose path is returned.
std::string Load(Dbms dbms, const std::string& file, const std::string& sql = "") {
    std::string path = kRealDir + file;
    if (!sql.empty()) {
        path = ScratchPath("real-" + file);
        std::ofstream(path) << sql;
    }
    if (dbms != Dbms::SQLite) {
        server_settings::RunSqlFile(dbms == Dbms::PostgreSQL ? "UDML_PG_" : "UDML_MARIADB_", path);
        return "";
    }
    const std::string database = ScratchPath("real-" + file + ".db");
    std::remove(database.c_str());
    Must(RunCommand("sqlite3 -bail " + ShellQuote(database) + " <" + ShellQuote(path)), "loading " + file);
    return database;
}

// The connection string of `database` (a PostgreSQL database, or an SQLite file; MariaDB's
// databases are catalogs of one connection).
std::string Connect(Dbms dbms, const std::string& database) {
    switch (dbms) {
    case Dbms::PostgreSQL: {
        std::string connect = Setting("UDML_PG_CONNECT");
        const std::string current = "Database=" + Setting("UDML_PG_DATABASE");
        if (!database.empty())
            connect.replace(connect.find(current), current.size(), "Database=" + database);
        return connect;
    }
    case Dbms::MariaDB:
        return Setting("UDML_MARIADB_CONNECT");
    case Dbms::SQLite:
        break;
    }
    return Setting("UDML_SQLITE_CONNECT") + database;
}

// udmlgen's text, read through the whole-schema path or table by table.
// The account that reads: MariaDB's samples are visible to an account of their own.
std::string User(Dbms dbms, const std::string& connect) {
    if (dbms == Dbms::SQLite)
        return "";
    return connect.find("Database=sample_") != std::string::npos ? "udml_sample" : Setting("UDML_DB_USER");
}

std::string Generate(Dbms dbms, const std::string& connect, const std::string& arguments, bool perTable) {
    const bool login = dbms != Dbms::SQLite;
    const CommandResult run = RunCommand(
        std::string("UDMLGEN_ODBC_PER_TABLE=") + (perTable ? "1" : "0") +
        " UDMLGEN_PASSWORD=" + ShellQuote(login ? Setting("UDML_DB_PASSWORD") : "") + " " +
        ShellQuote(UdmlgenPath()) + " -q --connect " + ShellQuote(connect) +
        (login ? " --user " + ShellQuote(User(dbms, connect)) : "") + " --database R " + arguments);
    EXPECT_EQ(0, run.exitStatus) << run.standardError;
    EXPECT_EQ("", run.standardError);
    return run.standardOutput;
}

// The whole-schema text, after checking that the per-table path and the replay of a capture give
// it byte for byte.
std::string GenerateEverywhere(Dbms dbms, const std::string& connect, const std::string& arguments) {
    const std::string live = Generate(dbms, connect, arguments, false);
    const std::string perTable = Generate(dbms, connect, arguments, true);
    EXPECT_TRUE(live == perTable) << "per-table path: " << DiffTexts(live, perTable);
    const std::string capture = ScratchPath(std::string("real-") + Name(dbms) + ".json");
    const bool login = dbms != Dbms::SQLite;
    const CommandResult snapshot = RunCommand(
        "UDMLGEN_PASSWORD=" + ShellQuote(login ? Setting("UDML_DB_PASSWORD") : "") + " " +
        ShellQuote(UdmlgenPath()) + " snapshot --connect " + ShellQuote(connect) +
        (login ? " --user " + ShellQuote(User(dbms, connect)) : "") + " -o " + ShellQuote(capture));
    EXPECT_EQ(0, snapshot.exitStatus) << snapshot.standardError;
    ExpectMatchesSnapshotSchema(capture);
    const CommandResult replay = RunCommand(ShellQuote(UdmlgenPath()) + " --snapshot " + ShellQuote(capture) +
                                            " --database R " + arguments);
    EXPECT_EQ(0, replay.exitStatus) << replay.standardError;
    EXPECT_TRUE(live == replay.standardOutput)
        << "snapshot replay: " << DiffTexts(live, replay.standardOutput);
    return live;
}

// Compares with the golden text `file` (gzip-compressed when it ends in .gz).
void ExpectGolden(const std::string& text, const std::string& file) {
    const std::string path = kRealDir + file;
    const bool compressed = file.size() > 3 && file.compare(file.size() - 3, 3, ".gz") == 0;
    if (std::getenv("UDML_UPDATE_GOLDEN")) {
        const std::string plain = ScratchPath("real-golden.txt");
        std::ofstream(compressed ? plain : path, std::ios::binary) << text;
        if (compressed)
            Must(RunCommand("gzip -9nc " + ShellQuote(plain) + " >" + ShellQuote(path)),
                 "compressing " + file);
        GTEST_SKIP() << "rewrote " << path;
    }
    const std::string expected =
        compressed ? RunCommand("gzip -dc " + ShellQuote(path)).standardOutput : ReadWholeFile(path);
    EXPECT_TRUE(expected == text) << file << ": " << DiffTexts(expected, text);
}

struct Sample {
    Dbms dbms;
    std::string name; // udml_<name> on the servers, <name>.db for SQLite
};

void PrintTo(const Sample& sample, std::ostream* out) {
    *out << Name(sample.dbms) << "_" << sample.name;
}

class RealSchema : public ::testing::TestWithParam<Sample> {
protected:
    static void SetUpTestSuite() {
        Must(RunCommand("bash " + ShellQuote(std::string(UDML_SOURCE_DIR) + "/scripts/db-servers.sh") +
                        " samples >/dev/null"),
             "db-servers.sh samples");
    }
};

TEST_P(RealSchema, GivesItsGoldenTextOnEveryPath) {
    const Sample& sample = GetParam();
    std::string connect = Connect(sample.dbms, "udml_" + sample.name), arguments;
    if (sample.dbms == Dbms::MariaDB) {
        connect = Connect(sample.dbms, "") + ";Database=sample_" + sample.name;
        arguments = "--request catalog --catalog sample_" + sample.name;
    }
    if (sample.dbms == Dbms::SQLite)
        connect = Connect(sample.dbms, Setting("UDML_SAMPLES_SQLITE_DIR") + "/" + sample.name + ".db");
    const std::string text = GenerateEverywhere(sample.dbms, connect, arguments);
    ExpectGolden(text, std::string(Name(sample.dbms)) + "-" + sample.name + ".udml.gz");
    if (sample.name == "adventureworks") {
        // Every comment of the sample reaches the text: 68 tables, 359 columns.
        const std::regex table("\n \\) DESCRIPTION \\{[^}]"), column(" DESCRIPTION \\{[^}][^\n]*\\}(, )?\n");
        EXPECT_EQ(
            68, std::distance(std::sregex_iterator(text.begin(), text.end(), table), std::sregex_iterator()));
        EXPECT_EQ(359, std::distance(std::sregex_iterator(text.begin(), text.end(), column),
                                     std::sregex_iterator()));
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, RealSchema,
                         ::testing::Values(Sample{Dbms::PostgreSQL, "pagila"},
                                           Sample{Dbms::PostgreSQL, "chinook"},
                                           Sample{Dbms::PostgreSQL, "northwind"},
                                           Sample{Dbms::PostgreSQL, "adventureworks"},
                                           Sample{Dbms::MariaDB, "chinook"}, Sample{Dbms::MariaDB, "sakila"},
                                           Sample{Dbms::SQLite, "chinook"}, Sample{Dbms::SQLite, "sakila"}),
                         [](const ::testing::TestParamInfo<Sample>& sample) {
                             return std::string(Name(sample.param.dbms)) + "_" + sample.param.name;
                         });

// Each test drops what it made, so that the other tests' listings of the servers stay as they were.
class PerDbms : public ::testing::TestWithParam<Dbms> {
protected:
    void TearDown() override {
        if (GetParam() == Dbms::PostgreSQL)
            Load(GetParam(), "drop.sql",
                 "SET client_min_messages = warning;\nDROP SCHEMA IF EXISTS udml_names, \"nm\\s\", "
                 "\"nm\\_s\", "
                 "\"nm_s\", \"nmXs\", udml_types CASCADE;\n");
        if (GetParam() == Dbms::MariaDB)
            Load(GetParam(), "drop.sql",
                 "DROP DATABASE IF EXISTS udml_names;\nDROP DATABASE IF EXISTS udml_types;\n");
    }
};

// Each table gets the columns and keys its name selects, the same on both paths and from a
// capture: "back\slash" its own and not "backslash"'s, "t%" no index columns (the generator passes
// names as search patterns, so "t%" also selects "trail\"), a table without a primary key none.
TEST_P(PerDbms, AwkwardNamesGetTheirOwnColumnsAndKeys) {
    const Dbms dbms = GetParam();
    const std::string file = std::string("names-") + (dbms == Dbms::PostgreSQL ? "postgres"
                                                      : dbms == Dbms::MariaDB  ? "mariadb"
                                                                               : "sqlite");
    const std::string database = Load(dbms, file + ".sql");
    const std::string connect = Connect(dbms, database);
    std::string text;
    if (dbms == Dbms::PostgreSQL) {
        // Schema names that are search patterns of one another ("nm_s" matches all four).
        for (const char* schema : {"udml_names", "nm\\s", "nm\\_s", "nm_s", "nmXs"})
            text += GenerateEverywhere(dbms, connect,
                                       "--request schema --catalog udml_test --schema " + ShellQuote(schema));
    } else if (dbms == Dbms::MariaDB)
        text = GenerateEverywhere(dbms, connect, "--request catalog --catalog udml_names");
    else
        text = GenerateEverywhere(dbms, connect, "");
    ExpectGolden(text, file + ".expected");
}

// One column of each type whose meaning the ODBC type code loses: what the text declares for it.
TEST_P(PerDbms, NativeTypesKeepTheirMeaning) {
    struct Row {
        const char* column;
        const char* declared; // TYPE, PRECISION and SCALE as written
    };
    static const std::map<Dbms, std::vector<Row>> kExpected{
        {Dbms::PostgreSQL,
         {{"c_bool", "BOOLEAN 1 0"},
          {"c_flag", "BOOLEAN 1 0"},
          {"c_label", "VARCHAR 20 0"},
          {"c_json", "LONGVARCHAR 1073741823 0"},
          {"c_jsonb", "LONGVARCHAR 1073741823 0"},
          {"c_int_array", "LONGVARCHAR 1073741823 0"},
          {"c_int4range", "LONGVARCHAR 1073741823 0"},
          {"c_mood", "LONGVARCHAR 63 0"},
          {"c_text", "LONGVARCHAR 1073741823 0"},
          {"c_varchar", "LONGVARCHAR 1073741823 0"},
          {"c_varchar_40", "VARCHAR 40 0"},
          {"c_varchar_1000", "VARCHAR 1000 0"},
          {"c_char_3", "CHAR 3 0"},
          {"c_uuid", "CHAR 36 0"},
          {"c_time_3", "TIME 8 3"},
          {"c_timetz", "TIME 8 6"},
          {"c_timestamp_3", "TIMESTAMP 23 3"},
          {"c_interval", "INTERVAL 32 6"},
          {"c_numeric_10_2", "NUMERIC 10 2"},
          {"c_bytea", "LONGVARBINARY 1073741823 0"},
          {"c_xml", "LONGVARCHAR 1073741823 0"},
          {"c_point", "LONGVARCHAR 1073741823 0"},
          {"c_inet", "VARCHAR 50 0"},
          {"c_bigint", "NUMERIC 19 0"}}},
        {Dbms::MariaDB,
         {{"c_bit_1", "BOOLEAN 1 0"},
          {"c_bit_8", "BIT 8 0"},
          {"c_bool", "BOOLEAN 1 0"},
          {"c_uuid", "CHAR 36 0"},
          {"c_inet6", "VARCHAR 45 0"},
          {"c_inet4", "VARCHAR 15 0"},
          {"c_datetime", "TIMESTAMP 19 0"},
          {"c_datetime_3", "TIMESTAMP 23 3"},
          {"c_timestamp_2", "TIMESTAMP 22 2"},
          {"c_time_4", "TIME 13 4"},
          {"c_longtext", "LONGVARCHAR 4294967295 0"},
          {"c_json", "LONGVARCHAR 4294967295 0"},
          {"c_mediumtext", "LONGVARCHAR 16777215 0"},
          {"c_longblob", "LONGVARBINARY 4294967295 0"},
          {"c_binary_4", "BINARY 4 0"},
          {"c_decimal_10_2", "NUMERIC 10 2"},
          {"c_int_u", "UINT 10 0"},
          {"c_year", "SMALLINT 4 0"}}},
        {Dbms::SQLite,
         {{"c_integer", "INT 10 0"},
          {"c_text", "LONGVARCHAR 1000000000 0"},
          {"c_varchar_40", "VARCHAR 40 0"},
          {"c_char_3", "CHAR 3 0"},
          {"c_decimal_10_5", "NUMERIC 10 5"},
          {"c_numeric_8_3", "NUMERIC 8 3"},
          {"c_numeric", "DOUBLE 53 0"},
          {"c_double", "DOUBLE 15 0"},
          {"c_blob", "LONGVARBINARY 1000000000 0"},
          {"c_timestamp", "TIMESTAMP 19 0"},
          {"c_boolean", "BOOLEAN 1 0"},
          {"c_untyped", "LONGVARCHAR 1000000000 0"},
          {"c_uuid", "CHAR 36 0"},
          {"c_nvarchar_9", "VARCHAR 9 0"}}},
    };
    const Dbms dbms = GetParam();
    const std::string file = std::string("types-") + (dbms == Dbms::PostgreSQL ? "postgres"
                                                      : dbms == Dbms::MariaDB  ? "mariadb"
                                                                               : "sqlite");
    const std::string connect = Connect(dbms, Load(dbms, file + ".sql"));
    const std::string arguments = dbms == Dbms::PostgreSQL ? "--request schema --schema udml_types"
                                  : dbms == Dbms::MariaDB  ? "--request catalog --catalog udml_types"
                                                           : "";
    const std::string text = GenerateEverywhere(dbms, connect, arguments);
    std::map<std::string, std::string> declared;
    const std::regex column("\"(c_[a-z0-9_]+)\" TYPE ([A-Z]+) PRECISION ([0-9]+) SCALE ([0-9]+)");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), column); it != std::sregex_iterator(); ++it)
        declared[(*it)[1]] = (*it)[2].str() + " " + (*it)[3].str() + " " + (*it)[4].str();
    for (const Row& row : kExpected.at(dbms))
        EXPECT_EQ(row.declared, declared[row.column]) << row.column;
}

INSTANTIATE_TEST_SUITE_P(Dbms, PerDbms, ::testing::Values(Dbms::PostgreSQL, Dbms::MariaDB, Dbms::SQLite),
                         [](const ::testing::TestParamInfo<Dbms>& dbms) { return Name(dbms.param); });

} // namespace
