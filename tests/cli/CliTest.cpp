// The udmlgen command as a user meets it: exit statuses, one-line messages on standard error and
// nothing else on standard output, the embedded sample through the SQLite ODBC driver, and the
// snapshot round trip.
#include "support/RunCommand.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

const std::string kSource = UDML_SOURCE_DIR;

CommandResult Udmlgen(const std::string& arguments) {
    return RunCommand(UdmlgenPath() + " " + arguments);
}

std::string WriteScratch(const std::string& name, const std::string& content) {
    const std::string path = ScratchPath(name);
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

int LineCount(const std::string& text) {
    int lines = 0;
    for (char c : text)
        lines += c == '\n';
    return lines;
}

// A failure the user must be able to act on: the documented status, one line naming the
// problem, and no partial output.
void ExpectFailure(const CommandResult& run, int status, const std::string& mention) {
    EXPECT_EQ(status, run.exitStatus) << run.standardError;
    EXPECT_EQ("", run.standardOutput);
    EXPECT_NE(std::string::npos, run.standardError.find(mention)) << run.standardError;
    EXPECT_EQ(0, run.standardError.rfind("udmlgen: ", 0)) << run.standardError;
}

const char kMinimalSnapshot[] = R"({"format": "udml-snapshot-1",
  "tables": [{"schema": "S", "table": "T", "tableType": "TABLE"}],
  "columns": [{"schema": "S", "table": "T", "columnName": "ID", "dataType": "WyInt4Data", "precision": 10}]})";

TEST(CliUsage, BadOptionsExitTwoWithOneMessage) {
    const std::string snapshot = WriteScratch("minimal.json", kMinimalSnapshot);
    ExpectFailure(Udmlgen("--bogus"), 2, "--bogus");
    ExpectFailure(Udmlgen(""), 2, "--connect SOURCE or --snapshot FILE");
    ExpectFailure(Udmlgen("--snapshot a --connect b"), 2, "exactly one source");
    ExpectFailure(Udmlgen("--snapshot " + snapshot + " --request view"), 2, "--request");
    ExpectFailure(Udmlgen("--snapshot " + snapshot + " --generate 'table,, schema'"), 2, "--generate");
    ExpectFailure(Udmlgen("--snapshot " + snapshot + " --table-types 256"), 2, "out of range");
    ExpectFailure(Udmlgen("--snapshot " + snapshot + " --table-types 0xZ"), 2, "--table-types");
    ExpectFailure(Udmlgen("--snapshot " + snapshot + " --depth x"), 2, "--depth");
    ExpectFailure(Udmlgen("--snapshot " + snapshot + " --join-within-module HR"), 2, "MODULE=VIEW");
}

TEST(CliUsage, HelpShowsExamplesAndExitsZero) {
    const CommandResult run = Udmlgen("--help");
    EXPECT_EQ(0, run.exitStatus);
    EXPECT_NE(std::string::npos, run.standardOutput.find("Examples:"));
    EXPECT_NE(std::string::npos, run.standardOutput.find("UDMLGEN_PASSWORD"));
}

TEST(CliOptions, GenerateListAndTableTypesSelectWhatIsWritten) {
    const std::string snapshot = WriteScratch("minimal.json", kMinimalSnapshot);
    const CommandResult all = Udmlgen("--snapshot " + snapshot + " --database D");
    ASSERT_EQ(0, all.exitStatus) << all.standardError;
    EXPECT_NE(std::string::npos, all.standardOutput.find("\nDECLARE SCHEMA \"D\".\"\".\"S\" AS \"S\";\n"));
    EXPECT_NE(std::string::npos,
              all.standardOutput.find("\nDECLARE TABLE \"D\".\"\".\"S\".\"T\" AS \"T\"\n HAVING("));

    const CommandResult tablesOnly = Udmlgen("--snapshot " + snapshot + " --database D --generate ' table '");
    ASSERT_EQ(0, tablesOnly.exitStatus) << tablesOnly.standardError;
    EXPECT_EQ(std::string::npos, tablesOnly.standardOutput.find("DECLARE SCHEMA"));
    EXPECT_NE(std::string::npos, tablesOnly.standardOutput.find("DECLARE TABLE"));

    // With no kind selected only the table statement's terminator remains: it does not depend on
    // the table bit.
    const CommandResult nothing = Udmlgen("--snapshot " + snapshot + " --database D --generate ''");
    ASSERT_EQ(0, nothing.exitStatus) << nothing.standardError;
    EXPECT_EQ(";\n", nothing.standardOutput);

    // Bit 0x02 selects only system tables, so the plain table disappears.
    const CommandResult system = Udmlgen("--snapshot " + snapshot + " --database D --table-types 0x02");
    ASSERT_EQ(0, system.exitStatus) << system.standardError;
    EXPECT_EQ(std::string::npos, system.standardOutput.find("DECLARE TABLE"));
}

TEST(CliOptions, DatabaseDefaultsToTheSnapshotName) {
    const std::string snapshot = WriteScratch("Warehouse.json", kMinimalSnapshot);
    const CommandResult run = Udmlgen("--snapshot " + snapshot);
    ASSERT_EQ(0, run.exitStatus) << run.standardError;
    EXPECT_EQ(0u, run.standardOutput.find("\nDECLARE SCHEMA \"Warehouse\""));
}

TEST(CliOptions, OutputFileReceivesTheTextAndStandardOutputStaysEmpty) {
    const std::string snapshot = WriteScratch("minimal.json", kMinimalSnapshot);
    const std::string output = ScratchPath("minimal.udml");
    const CommandResult toFile = Udmlgen("--snapshot " + snapshot + " --database D -o " + output);
    ASSERT_EQ(0, toFile.exitStatus) << toFile.standardError;
    EXPECT_EQ("", toFile.standardOutput);
    EXPECT_EQ(Udmlgen("--snapshot " + snapshot + " --database D").standardOutput, ReadWholeFile(output));

    ExpectFailure(Udmlgen("--snapshot " + snapshot + " -o /nonexistent-folder/out.udml"), 1,
                  "/nonexistent-folder/out.udml");
}

TEST(CliFailures, MissingOrMalformedInputsNameTheFileAndPlace) {
    ExpectFailure(Udmlgen("--snapshot /nonexistent.json"), 1, "/nonexistent.json");

    const std::string broken =
        WriteScratch("broken.json", "{\"format\": \"udml-snapshot-1\",\n \"tables\": [}");
    const CommandResult syntax = Udmlgen("--snapshot " + broken);
    ExpectFailure(syntax, 1, "broken.json");
    EXPECT_EQ(1, LineCount(syntax.standardError));

    const std::string wrongField =
        WriteScratch("wrong-field.json", R"({"format": "udml-snapshot-1", "columns": [{"precision": -1}]})");
    ExpectFailure(Udmlgen("--snapshot " + wrongField), 1, "precision");

    const std::string snapshot = WriteScratch("minimal.json", kMinimalSnapshot);
    const std::string existing =
        WriteScratch("existing.udml", "\nDECLARE CATALOG \"D\".\"C\" AS \"C\";\nDECLARE oops;");
    const CommandResult badExisting = Udmlgen("--snapshot " + snapshot + " --existing " + existing);
    ExpectFailure(badExisting, 1, "existing.udml:3");
    EXPECT_EQ(1, LineCount(badExisting.standardError));
}

TEST(CliFailures, UnknownDataSourceIsReportedWithTheDriverManagersWords) {
    const CommandResult run = Udmlgen("--connect udmlgen-no-such-dsn");
    ExpectFailure(run, 1, "IM002");
    EXPECT_NE(std::string::npos, run.standardError.find("udmlgen-no-such-dsn"));
    EXPECT_EQ(1, LineCount(run.standardError));
}

TEST(CliExisting, CatalogsAndSchemasTheRepositoryHoldsAreSkipped) {
    const std::string snapshot = WriteScratch("minimal.json", kMinimalSnapshot);
    const std::string existing =
        WriteScratch("has-schema.udml", "\nDECLARE SCHEMA \"D\".\"\".\"S\" AS \"S\";\n");
    const CommandResult run = Udmlgen("--snapshot " + snapshot + " --database D --existing " + existing);
    ASSERT_EQ(0, run.exitStatus) << run.standardError;
    EXPECT_EQ(std::string::npos, run.standardOutput.find("DECLARE SCHEMA"));
    EXPECT_NE(std::string::npos, run.standardOutput.find("DECLARE TABLE"));
}

class CliSample : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        const CommandResult built =
            RunCommand("bash " + kSource + "/scripts/sample-db.sh " + ShellQuote(ScratchPath("sales.db")));
        ASSERT_EQ(0, built.exitStatus) << built.standardError;
        connection = built.standardOutput;
        while (!connection.empty() && connection.back() == '\n')
            connection.pop_back();
    }
    static std::string connection;
};
std::string CliSample::connection;

TEST_F(CliSample, SampleDatabaseGivesItsGoldenText) {
    const CommandResult run = Udmlgen("--connect " + ShellQuote(connection) + " --database Sales");
    ASSERT_EQ(0, run.exitStatus) << run.standardError;
    const std::string expectedPath = kSource + "/examples/sample/sales.expected";
    if (std::getenv("UDML_UPDATE_GOLDEN"))
        std::ofstream(expectedPath, std::ios::binary) << run.standardOutput;
    const std::string expected = ReadWholeFile(expectedPath);
    EXPECT_TRUE(expected == run.standardOutput) << DiffTexts(expected, run.standardOutput);
}

TEST_F(CliSample, SnapshotOfTheSampleGivesTheSameOutputAsTheLiveSource) {
    const std::string snapshot = ScratchPath("sales-capture.json");
    const CommandResult capture = Udmlgen("snapshot --connect " + ShellQuote(connection) + " -o " + snapshot);
    ASSERT_EQ(0, capture.exitStatus) << capture.standardError;
    ExpectMatchesSnapshotSchema(snapshot);
    const CommandResult again = Udmlgen("snapshot --connect " + ShellQuote(connection));
    EXPECT_EQ(ReadWholeFile(snapshot), again.standardOutput) << "two captures differ";

    const CommandResult live = Udmlgen("--connect " + ShellQuote(connection) + " --database Sales");
    const CommandResult offline = Udmlgen("--snapshot " + snapshot + " --database Sales");
    ASSERT_EQ(0, offline.exitStatus) << offline.standardError;
    EXPECT_TRUE(live.standardOutput == offline.standardOutput)
        << DiffTexts(live.standardOutput, offline.standardOutput);
}

} // namespace
