// udmlgen diff and --only-new as an administrator uses them after the source changed: every kind
// of change gets its line and the documented status, and what --only-new writes, read together
// with the old file, leaves nothing to report (on a snapshot pair and on the SQLite sample).
#include "support/RunCommand.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

CommandResult Udmlgen(const std::string& arguments) {
    return RunCommand(UdmlgenPath() + " " + arguments);
}

std::string Scratch(const std::string& name, const std::string& content) {
    const std::string path = ScratchPath(name);
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

// The columns and keys of the base side; the changed side edits them as its comments say.
std::string Snapshot(bool changed) {
    const std::string column = R"({"schema": "S", "table": ")";
    auto col = [&column](const std::string& table, const std::string& rest) {
        return column + table + "\", " + rest + "},\n";
    };
    std::string columns = col("CUSTOMER", R"("columnName": "ID", "dataType": "WyInt4Data", "precision": 10)");
    columns += changed
                   ? col("CUSTOMER", R"("columnName": "NAME", "dataType": "WyVarCharData", "precision": 80, )"
                                     R"("remarks": "full name")")
                   : col("CUSTOMER", R"("columnName": "NAME", "dataType": "WyVarCharData", "precision": 40, )"
                                     R"("nullable": 1, "remarks": "name")");
    columns += col("ORDERS", R"("columnName": "ID", "dataType": "WyInt4Data", "precision": 10)");
    columns += col("ORDERS", R"("columnName": "CUST", "dataType": "WyInt4Data", "precision": 10)");
    columns +=
        col("ORDERS", std::string(R"("columnName": "AMOUNT", "dataType": ")") +
                          (changed ? "WyDoubleData" : "WyDecimalData") + R"(", "precision": 12, "scale": 2)");
    columns += changed
                   ? col("ORDERS", R"("columnName": "ADDED", "dataType": "WyInt4Data", "precision": 10)")
                   : col("ORDERS", R"("columnName": "NOTE", "dataType": "WyVarCharData", "precision": 10)");
    columns +=
        col(changed ? "NEW" : "OLD", R"("columnName": "X", "dataType": "WyInt4Data", "precision": 10)");
    columns.resize(columns.size() - 2);
    return R"({"format": "udml-snapshot-1",
  "tables": [{"schema": "S", "table": "CUSTOMER", "tableType": "TABLE", "remarks": ")" +
           std::string(changed ? "clients" : "buyers") + R"("},
             {"schema": "S", "table": "ORDERS", "tableType": "TABLE"},
             {"schema": "S", "table": ")" +
           (changed ? "NEW" : "OLD") + R"(", "tableType": "TABLE"}],
  "columns": [)" +
           columns +
           R"(],
  "primaryKeys": [
    {"schema": "S", "table": "CUSTOMER", "columnName": "ID", "keySequence": 1, "primaryKeyName": "PK_CUSTOMER"},
    {"schema": "S", "table": "ORDERS", "columnName": "ID", "keySequence": 1, "primaryKeyName": "PK_ORDERS"})" +
           (changed ? R"(,
    {"schema": "S", "table": "CUSTOMER", "columnName": "NAME", "keySequence": 2, "primaryKeyName": "PK_CUSTOMER"},
    {"schema": "S", "table": "NEW", "columnName": "X", "keySequence": 1, "primaryKeyName": "PK_NEW"})"
                    : "") +
           R"(],
  "foreignKeys": [{"pkSchema": "S", "pkTable": ")" +
           (changed ? "NEW\", \"pkColumnName\": \"X" : "CUSTOMER\", \"pkColumnName\": \"ID") +
           R"(", "fkSchema": "S", "fkTable": "ORDERS",
    "fkColumnName": "CUST", "keySequence": 1, "foreignKeyName": "FK_CUST", "primaryKeyName": ")" +
           (changed ? "PK_NEW" : "PK_CUSTOMER") + R"("}]})";
}

TEST(Diff, IdenticalSidesReportNothingAndEachChangeGetsItsLine) {
    const std::string base = Scratch("diff-base.json", Snapshot(false));
    const std::string changed = Scratch("diff-changed.json", Snapshot(true));
    const CommandResult generated = Udmlgen("--snapshot " + base + " --database D -q");
    ASSERT_EQ(0, generated.exitStatus) << generated.standardError;
    const std::string existing = Scratch("diff-base.udml", generated.standardOutput);

    const CommandResult same = Udmlgen("diff --snapshot " + base + " --database D --existing " + existing);
    EXPECT_EQ(0, same.exitStatus) << same.standardError;
    EXPECT_EQ("", same.standardOutput);

    const CommandResult run = Udmlgen("diff --snapshot " + changed + " --database D --existing " + existing);
    EXPECT_EQ(3, run.exitStatus) << run.standardError;
    const std::string expected =
        R"("D".""."S"
  changed table "D".""."S"."CUSTOMER" description: "buyers" -> "clients"
    changed column "D".""."S"."CUSTOMER"."NAME" precision: "40" -> "80"
    changed column "D".""."S"."CUSTOMER"."NAME" nullable: "NULLABLE" -> "NOT NULLABLE"
    changed column "D".""."S"."CUSTOMER"."NAME" description: "name" -> "full name"
    changed table key "D".""."S"."CUSTOMER"."PK_CUSTOMER" columns: ("D".""."S"."CUSTOMER"."ID") -> ("D".""."S"."CUSTOMER"."ID", "D".""."S"."CUSTOMER"."NAME")
  added table "D".""."S"."NEW"
  removed table "D".""."S"."OLD"
  "D".""."S"."ORDERS"
    changed column "D".""."S"."ORDERS"."AMOUNT" type: "NUMERIC" -> "DOUBLE"
    added column "D".""."S"."ORDERS"."ADDED"
    changed foreign key "D".""."S"."ORDERS"."FK_CUST" references: ("D".""."S"."CUSTOMER"."PK_CUSTOMER") -> ("D".""."S"."NEW"."PK_NEW")
    removed column "D".""."S"."ORDERS"."NOTE"
11 differences: 2 added, 2 removed, 7 changed
)";
    EXPECT_TRUE(expected == run.standardOutput) << DiffTexts(expected, run.standardOutput);

    // A table the selection leaves out is out of sight, not removed.
    const CommandResult selected = Udmlgen("diff --snapshot " + changed + " --database D --existing " +
                                           existing + " --exclude-table S.OLD");
    EXPECT_EQ(3, selected.exitStatus) << selected.standardError;
    EXPECT_EQ(std::string::npos, selected.standardOutput.find("OLD")) << selected.standardOutput;

    const CommandResult json =
        Udmlgen("diff --format json --snapshot " + changed + " --database D --existing " + existing);
    EXPECT_EQ(3, json.exitStatus) << json.standardError;
    EXPECT_NE(std::string::npos,
              json.standardOutput.find(
                  R"({"change": "changed", "kind": "column", "name": "\"D\".\"\".\"S\".\"ORDERS\".)"
                  R"(\"AMOUNT\"", "schema": "\"D\".\"\".\"S\"", "table": )"
                  R"("\"D\".\"\".\"S\".\"ORDERS\"", "piece": "type", "old": "NUMERIC", "new": "DOUBLE"})"))
        << json.standardOutput;
}

// Snapshots that write one key name twice, and names with quotes, braces and blanks everywhere.
TEST(Diff, GeneratedTextDiffsEmptyAgainstItsSource) {
    for (const std::string& source : {std::string("--snapshot keys.json --database W"),
                                      std::string("--snapshot hostile-names.json --database \"Sales 'DB'\""),
                                      std::string("--snapshot eai-picklists.json --database SRC")}) {
        const std::string command =
            "cd " + ShellQuote(std::string(UDML_SOURCE_DIR) + "/tests/golden/cases") + " && ";
        const CommandResult generated = RunCommand(command + UdmlgenPath() + " -q " + source);
        ASSERT_EQ(0, generated.exitStatus) << source << generated.standardError;
        const std::string existing = Scratch("identical.udml", generated.standardOutput);
        const CommandResult run =
            RunCommand(command + UdmlgenPath() + " diff " + source + " --existing " + existing);
        EXPECT_EQ(0, run.exitStatus) << source << "\n" << run.standardOutput << run.standardError;
    }
}

// A source that only gained objects: --only-new writes them and nothing else, and the old file
// with the new one then describes the source completely.
void ExpectRoundTrip(const std::string& source, const std::string& existing, const std::string& name) {
    const CommandResult onlyNew = Udmlgen(source + " --only-new -q --existing " + existing);
    ASSERT_EQ(0, onlyNew.exitStatus) << onlyNew.standardError;
    EXPECT_NE(std::string::npos, onlyNew.standardOutput.find("\nDECLARE COLUMN ")) << onlyNew.standardOutput;
    EXPECT_NE(std::string::npos, onlyNew.standardOutput.find("\nDECLARE TABLE ")) << onlyNew.standardOutput;
    const std::string added = Scratch(name, onlyNew.standardOutput);
    const CommandResult before = Udmlgen("diff " + source + " --existing " + existing);
    EXPECT_EQ(3, before.exitStatus) << before.standardOutput << before.standardError;
    const CommandResult after =
        Udmlgen("diff " + source + " --existing " + existing + " --existing " + added);
    EXPECT_EQ(0, after.exitStatus) << after.standardOutput << after.standardError;
    EXPECT_EQ("", after.standardOutput);
}

TEST(Diff, OnlyNewOutputCompletesTheRepository) {
    std::string grown = Snapshot(false);
    grown.replace(grown.find("\"tables\": ["), 11,
                  R"("tables": [{"schema": "S", "table": "LATER", "tableType": "TABLE"}, )");
    grown.replace(
        grown.find("\"columns\": ["), 12,
        R"("columns": [{"schema": "S", "table": "LATER", "columnName": "Y", "dataType": "WyInt4Data"},
                    {"schema": "S", "table": "ORDERS", "columnName": "MORE", "dataType": "WyInt4Data"}, )");
    const std::string base = Scratch("grow-base.json", Snapshot(false));
    const CommandResult generated = Udmlgen("--snapshot " + base + " --database D -q");
    ASSERT_EQ(0, generated.exitStatus) << generated.standardError;
    const std::string existing = Scratch("grow-base.udml", generated.standardOutput);
    const std::string source = "--database D --snapshot " + Scratch("grow.json", grown);
    const CommandResult onlyNew = Udmlgen(source + " --only-new -q --existing " + existing);
    EXPECT_EQ(
        "\nDECLARE TABLE \"D\".\"\".\"S\".\"LATER\" AS \"LATER\"\n HAVING( \n    "
        "\"D\".\"\".\"S\".\"LATER\".\"Y\" AS \"Y\" TYPE INT PRECISION 0 SCALE 0 NOT NULLABLE VALUE TYPE  "
        "MAPPED "
        "COLUMN ''  MVLINK ''  DESCRIPTION {}\n );\n"
        "\nDECLARE COLUMN \"D\".\"\".\"S\".\"ORDERS\".\"MORE\" AS \"MORE\" TYPE INT PRECISION 0 SCALE 0 NOT "
        "NULLABLE VALUE TYPE  MAPPED COLUMN ''  MVLINK ''  DESCRIPTION {};\n",
        onlyNew.standardOutput);
    ExpectRoundTrip(source, existing, "grow-new.udml");
}

TEST(Diff, OnlyNewRoundTripOnTheSqliteSample) {
    const CommandResult built = RunCommand("bash " + std::string(UDML_SOURCE_DIR) + "/scripts/sample-db.sh " +
                                           ShellQuote(ScratchPath("diff-sales.db")));
    ASSERT_EQ(0, built.exitStatus) << built.standardError;
    std::string connection = built.standardOutput;
    while (!connection.empty() && connection.back() == '\n')
        connection.pop_back();
    const std::string source = "--database Sales --connect " + ShellQuote(connection);
    const CommandResult generated = Udmlgen(source + " -q");
    ASSERT_EQ(0, generated.exitStatus) << generated.standardError;
    const std::string existing = Scratch("diff-sales.udml", generated.standardOutput);

    const CommandResult altered =
        RunCommand("sqlite3 " + ShellQuote(ScratchPath("diff-sales.db")) +
                   " 'ALTER TABLE customers ADD COLUMN loyalty_tier VARCHAR(10); "
                   "CREATE TABLE vouchers (code VARCHAR(12) PRIMARY KEY, amount NUMERIC(8,2));'");
    ASSERT_EQ(0, altered.exitStatus) << altered.standardError;
    const CommandResult diff = Udmlgen("diff " + source + " --existing " + existing);
    EXPECT_EQ(3, diff.exitStatus) << diff.standardError;
    EXPECT_NE(std::string::npos,
              diff.standardOutput.find("added column \"Sales\".\"\".\"\".\"customers\".\"loyalty_tier\"\n"))
        << diff.standardOutput;
    EXPECT_NE(std::string::npos, diff.standardOutput.find("added table \"Sales\".\"\".\"\".\"vouchers\"\n"))
        << diff.standardOutput;
    EXPECT_NE(std::string::npos, diff.standardOutput.find("\n2 differences: 2 added, 0 removed, 0 changed\n"))
        << diff.standardOutput;
    ExpectRoundTrip(source, existing, "diff-sales-new.udml");
}

} // namespace
