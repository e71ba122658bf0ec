// The udmlgen command as a user meets it: how options are read, exit statuses, messages on
// standard error and nothing else on standard output, the output file replaced only on success,
// the embedded sample through the SQLite ODBC driver, and the snapshot round trip.
#include "support/RunCommand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>

namespace {

const std::string kSource = UDML_SOURCE_DIR;
const std::string kCases = kSource + "/tests/golden/cases/";

CommandResult Udmlgen(const std::string& arguments) {
    return RunCommand(UdmlgenPath() + " " + arguments);
}

std::string WriteScratch(const std::string& name, const std::string& content) {
    const std::string path = ScratchPath(name);
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// A failure the user must be able to act on: the documented status, a message naming the
// problem in our own words, and no output.
void ExpectFailure(const CommandResult& run, int status, const std::string& mention) {
    EXPECT_EQ(status, run.exitStatus) << run.standardError;
    EXPECT_EQ("", run.standardOutput);
    EXPECT_TRUE(Contains(run.standardError, mention))
        << "expected: " << mention << "\ngot: " << run.standardError;
    EXPECT_EQ(0, run.standardError.rfind("udmlgen: ", 0)) << run.standardError;
    for (const char* raw :
         {"Could not convert", "fractional", "At Most", "required", "unknown statement kind"})
        EXPECT_FALSE(Contains(run.standardError, raw)) << run.standardError;
}

const char kMinimalSnapshot[] = R"({"format": "udml-snapshot-1",
  "tables": [{"schema": "S", "table": "T", "tableType": "TABLE"}],
  "columns": [{"schema": "S", "table": "T", "columnName": "ID", "dataType": "WyInt4Data", "precision": 10}]})";

std::string Minimal() {
    return WriteScratch("minimal.json", kMinimalSnapshot);
}

// The mistakes within one run over a snapshot are pinned with their messages by the golden case
// "usage"; these need a command line of their own.
TEST(CliUsage, EachMistakeIsAUsageErrorNamingTheOptionTheValueAndWhatIsAccepted) {
    const std::string snapshot = Minimal();
    const struct {
        std::string arguments;
        std::string mention;
    } cases[] = {
        {"--snapshot S -q -v", "-q and -v"},
        {"", "give --connect SOURCE or --snapshot FILE"},
        {"--snapshot a --connect b", "give exactly one"},
        {"--snapshot -", "give --database NAME"},
        {"--connect 'Driver=x;Server=y'", "names no DSN= or DATABASE="},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        ExpectFailure(Udmlgen(std::regex_replace(c.arguments, std::regex("\\bS\\b"), snapshot)), 2,
                      std::regex_replace(c.mention, std::regex("\\bS\\b"), snapshot));
    }
}

// Options read as the rulings say: each pair must write the same text.
TEST(CliOptions, ValuesAreReadAsTheRulingsSay) {
    const std::string app = kCases + "app-view-links.json --database AppDB";
    const struct {
        std::string arguments, sameAs;
    } cases[] = {
        {"--depth 08", "--depth 8"},
        {"--depth=-1", ""},
        {"--generate 'catalog,'", "--generate catalog"},
        {"--generate ' , '", "--generate ''"},
        {"--table-types 001", "--table-types 0x01"},
        {"--table= --view-links", "--view-links"},
        {"--view-links --view-links", "--view-links"},
        {"--view-links --join-within-module HR=HREmpView --join-within-module HR=EmpView",
         "--view-links --join-within-module 'HR=HREmpView;EmpView'"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const CommandResult run = Udmlgen("-q --snapshot " + app + " " + c.arguments);
        const CommandResult same = Udmlgen("-q --snapshot " + app + " " + c.sameAs);
        ASSERT_EQ(0, run.exitStatus) << run.standardError;
        ASSERT_EQ(0, same.exitStatus) << same.standardError;
        EXPECT_TRUE(run.standardOutput == same.standardOutput)
            << DiffTexts(same.standardOutput, run.standardOutput);
        EXPECT_EQ("", run.standardError);
    }
}

TEST(CliOptions, DatabaseDefaultsToTheSnapshotNameWithoutItsExtension) {
    const std::string snapshot = WriteScratch("Ware.house.json", kMinimalSnapshot);
    const CommandResult run = Udmlgen("--snapshot " + snapshot);
    ASSERT_EQ(0, run.exitStatus) << run.standardError;
    EXPECT_EQ(0u, run.standardOutput.find("\nDECLARE SCHEMA \"Ware.house\""));

    // Standard input has no name: --database names the database.
    const CommandResult piped =
        RunCommand("cat " + snapshot + " | " + UdmlgenPath() + " --snapshot - --database D");
    ASSERT_EQ(0, piped.exitStatus) << piped.standardError;
    EXPECT_EQ(0u, piped.standardOutput.find("\nDECLARE SCHEMA \"D\""));
}

TEST(CliOutput, OutputFileIsReplacedOnlyWhenTheRunSucceeds) {
    const std::string snapshot = Minimal();
    const std::string output = WriteScratch("kept.udml", "old text");
    ::remove((output + ".partial").c_str());

    // --view-links cannot read back table statements that --generate leaves out: the run fails
    // after writing, so the file stays and what was written is kept beside it.
    const CommandResult failed =
        Udmlgen("--snapshot " + snapshot + " --generate schema --view-links -o " + output);
    EXPECT_EQ(1, failed.exitStatus);
    EXPECT_TRUE(Contains(failed.standardError, "add table to --generate")) << failed.standardError;
    EXPECT_TRUE(Contains(failed.standardError, output + ".partial")) << failed.standardError;
    EXPECT_EQ("old text", ReadWholeFile(output));
    EXPECT_EQ("\nDECLARE SCHEMA \"minimal\".\"\".\"S\" AS \"S\";\n;\n", ReadWholeFile(output + ".partial"));

    const CommandResult succeeded = Udmlgen("--snapshot " + snapshot + " -o " + output);
    ASSERT_EQ(0, succeeded.exitStatus) << succeeded.standardError;
    EXPECT_EQ("", succeeded.standardOutput);
    EXPECT_EQ(Udmlgen("--snapshot " + snapshot).standardOutput, ReadWholeFile(output));

    // Nothing is created before generation starts.
    ExpectFailure(Udmlgen("--snapshot /nonexistent.json -o " + ScratchPath("never.udml")), 1,
                  "/nonexistent.json");
    EXPECT_THROW(ReadWholeFile(ScratchPath("never.udml")), std::runtime_error);
}

TEST(CliOutput, WriteErrorsNameTheFileAndTheRealReason) {
    const std::string snapshot = Minimal();
    const CommandResult device = Udmlgen("--snapshot " + snapshot + " -o /dev/full");
    EXPECT_EQ(1, device.exitStatus);
    EXPECT_TRUE(Contains(device.standardError, "writing /dev/full failed: No space left on device"))
        << device.standardError;
    const CommandResult standardOutput = Udmlgen("--snapshot " + snapshot + " > /dev/full");
    EXPECT_EQ(1, standardOutput.exitStatus);
    EXPECT_TRUE(
        Contains(standardOutput.standardError, "writing standard output failed: No space left on device"))
        << standardOutput.standardError;
    ExpectFailure(Udmlgen("--snapshot " + snapshot + " -o /nonexistent-folder/out.udml"), 1,
                  "/nonexistent-folder/out.udml");
}

TEST(CliViewLinks, LinkWithUnequalColumnListsFailsAndItsJoinIsWithheld) {
    std::string json = ReadWholeFile(kCases + "app-view-links.json");
    const std::string good = R"("sourceColumns": ["DeptId"], "destinationColumns": ["Id"])";
    json.replace(json.find(good), good.size(),
                 R"("sourceColumns": ["DeptId", "LocId"], "destinationColumns": ["Id"])");
    const std::string snapshot = WriteScratch("uneven-link.json", json);
    const CommandResult run = Udmlgen("--snapshot " + snapshot +
                                      " --database AppDB --view-links --join-within-module HR=HREmpView");
    EXPECT_EQ(1, run.exitStatus);
    EXPECT_TRUE(Contains(run.standardError,
                         "view link \"PayDeptLink\" (join \"PayrollCheckView_DeptView\"): 2 source "
                         "columns but 1 destination columns"))
        << run.standardError;
    // Everything before that join, nothing of it.
    const std::string expected = ReadWholeFile(kCases + "app-view-links.expected");
    EXPECT_EQ(expected.substr(0, expected.find("\nDECLARE JOIN \"PayrollCheckView_DeptView\"")),
              run.standardOutput);
}

TEST(CliMessages, SummaryVersionVerbosityAndHelp) {
    const std::string snapshot = Minimal();
    const CommandResult normal = Udmlgen("--snapshot " + snapshot);
    EXPECT_TRUE(
        std::regex_match(normal.standardError,
                         std::regex("udmlgen: wrote 0 catalogs, 1 schemas, 1 tables, 1 columns, 0 keys, 0 "
                                    "foreign keys, 0 joins in [0-9]+\\.[0-9]{2} s\n")))
        << normal.standardError;
    EXPECT_EQ("", Udmlgen("--snapshot " + snapshot + " -q").standardError);
    const CommandResult verbose = Udmlgen("--snapshot " + snapshot + " -v");
    EXPECT_TRUE(Contains(verbose.standardError, "udmlgen: opened the source: snapshot "))
        << verbose.standardError;
    EXPECT_EQ(normal.standardOutput, verbose.standardOutput);

    EXPECT_TRUE(
        std::regex_match(Udmlgen("--version").standardOutput, std::regex("udmlgen [0-9]+\\.[0-9.]+\n")));
    const CommandResult help = Udmlgen("--help");
    EXPECT_EQ(0, help.exitStatus);
    for (const char* part : {"Depth levels", "Table types", "--depth 4", "--table-types 5",
                             "Examples:", "UDMLGEN_PASSWORD", "Exit status", "letter case is ignored"})
        EXPECT_TRUE(Contains(help.standardOutput, part)) << part;
    const CommandResult sources = Udmlgen("sources");
    EXPECT_EQ(0, sources.exitStatus);
    EXPECT_TRUE(Contains(sources.standardOutput, "Data sources:\n") &&
                Contains(sources.standardOutput, "Drivers:\n"));
}

TEST(CliFailures, MissingOrMalformedInputsNameTheFileAndPlace) {
    const std::string broken =
        WriteScratch("broken.json", "{\"format\": \"udml-snapshot-1\",\n \"tables\": [}");
    const CommandResult syntax = Udmlgen("--snapshot " + broken);
    ExpectFailure(syntax, 1, "broken.json");
    EXPECT_EQ(1, std::count(syntax.standardError.begin(), syntax.standardError.end(), '\n'));

    const std::string wrongField =
        WriteScratch("wrong-field.json", R"({"format": "udml-snapshot-1", "columns": [{"precision": -1}]})");
    ExpectFailure(Udmlgen("--snapshot " + wrongField), 1, "precision");

    const std::string existing =
        WriteScratch("existing.udml", "\nDECLARE CATALOG \"D\".\"C\" AS \"C\";\nDECLARE oops;");
    const CommandResult badExisting = Udmlgen("--snapshot " + Minimal() + " --existing " + existing);
    ExpectFailure(badExisting, 1, "existing.udml:3");
    EXPECT_EQ(1, std::count(badExisting.standardError.begin(), badExisting.standardError.end(), '\n'));
}

TEST(CliFailures, UnknownDataSourceGivesTheDriverManagersWordsAndWhatToDoNext) {
    const CommandResult run = Udmlgen("--connect udmlgen-no-such-dsn");
    ExpectFailure(run, 1, "IM002");
    EXPECT_TRUE(Contains(run.standardError, "udmlgen-no-such-dsn"));
    EXPECT_TRUE(Contains(run.standardError, "\nudmlgen: hint: 'udmlgen sources'")) << run.standardError;

    const CommandResult driver = Udmlgen("--connect 'Driver=/nonexistent/libnone.so;Database=x'");
    EXPECT_EQ(1, driver.exitStatus);
    EXPECT_TRUE(Contains(driver.standardError, "odbc-postgresql")) << driver.standardError;
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
    EXPECT_TRUE(
        std::regex_search(run.standardError, std::regex("wrote 0 catalogs, 0 schemas, [1-9][0-9]* tables, "
                                                        "[1-9][0-9]* columns, [1-9][0-9]* keys, "
                                                        "[1-9][0-9]* foreign keys, 0 joins")))
        << run.standardError;

    // Without --database a connection string names the database after its DATABASE= value, the
    // key read ignoring case.
    const std::string path = ScratchPath("sales.db");
    std::string lowerCase = connection;
    lowerCase.replace(lowerCase.find("Database=" + path), 9 + path.size(), "database=" + path);
    const CommandResult unnamed = Udmlgen("-q --connect " + ShellQuote(lowerCase));
    ASSERT_EQ(0, unnamed.exitStatus) << unnamed.standardError;
    EXPECT_EQ(0u, unnamed.standardOutput.find("\nDECLARE TABLE \"" + path + "\""))
        << unnamed.standardOutput.substr(0, 80);
}

TEST_F(CliSample, SnapshotOfTheSampleGivesTheSameOutputAsTheLiveSource) {
    const std::string snapshot = WriteScratch("sales-capture.json", "an older capture");
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
