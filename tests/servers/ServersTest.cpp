// udmlgen against live PostgreSQL and MariaDB servers (started by scripts/db-servers.sh): whole-source
// output against golden texts and connection failures (the replay of captures is checked with the
// real databases' texts).
// UDML_UPDATE_GOLDEN=1 rewrites the golden texts from the current output.
#include "tests/servers/ServerSettings.h"
#include "tests/support/RunCommand.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>

namespace {

const std::string kSourceDir = UDML_SOURCE_DIR;

// What `db-servers.sh env` prints: KEY='value' lines, values quoted for the shell.
using server_settings::Setting;

struct Server {
    std::string name;         // test name suffix
    std::string prefix;       // of the settings keys: UDML_PG_, UDML_MARIADB_
    std::string fixture;      // SQL file in tests/servers
    std::string golden;       // expected text in tests/servers
    std::string repositoryDb; // --database
};

// Names the case in test output instead of dumping its bytes.
void PrintTo(const Server& server, std::ostream* out) {
    *out << server.name;
}

const Server kPostgres{"PostgreSQL", "UDML_PG_", "postgres.sql", "postgres.expected", "Warehouse"};
const Server kMariaDb{"MariaDB", "UDML_MARIADB_", "mariadb.sql", "mariadb.expected", "Shop"};

std::string TestsDir() {
    return kSourceDir + "/tests/servers/";
}

// Loads the server's catalog fixture once per process; the fixture rebuilds its objects itself.
void LoadFixture(const Server& server) {
    static std::set<std::string> loaded;
    if (loaded.count(server.name))
        return;
    server_settings::RunSqlFile(server.prefix, TestsDir() + server.fixture);
    loaded.insert(server.name);
}

// udmlgen with the test account's password in its environment and the given arguments.
CommandResult Udmlgen(const std::string& password, const std::string& arguments) {
    return RunCommand("UDMLGEN_PASSWORD=" + ShellQuote(password) + " " + ShellQuote(UdmlgenPath()) + " " +
                      arguments);
}

std::string ConnectArguments(const std::string& connect) {
    return "--connect " + ShellQuote(connect) + " --user " + ShellQuote(Setting("UDML_DB_USER"));
}

CommandResult LiveOutput(const Server& server) {
    return Udmlgen(Setting("UDML_DB_PASSWORD"), ConnectArguments(Setting(server.prefix + "CONNECT")) +
                                                    " --database " + ShellQuote(server.repositoryDb));
}

// A failed connection: status 1, nothing on standard output, one line on standard error that
// carries an SQLSTATE with its native error, then only hints, and never the password.
void ExpectConnectionFailure(const CommandResult& run, const std::string& password) {
    EXPECT_EQ(1, run.exitStatus);
    EXPECT_EQ("", run.standardOutput);
    ASSERT_FALSE(run.standardError.empty());
    const std::string firstLine = run.standardError.substr(0, run.standardError.find('\n'));
    EXPECT_TRUE(
        std::regex_match(run.standardError.substr(firstLine.size()), std::regex("(\nudmlgen: hint: .*)*\n")))
        << run.standardError;
    EXPECT_TRUE(std::regex_search(firstLine, std::regex("(^|[^0-9A-Z])[0-9A-Z]{5} \\[-?[0-9]+\\]")))
        << "no SQLSTATE in: " << run.standardError;
    if (!password.empty()) {
        EXPECT_EQ(std::string::npos, run.standardError.find(password)) << run.standardError;
    }
}

class LiveServer : public ::testing::TestWithParam<Server> {};

TEST_P(LiveServer, WholeSourceMatchesGolden) {
    LoadFixture(GetParam());
    const CommandResult run = LiveOutput(GetParam());
    ASSERT_EQ(0, run.exitStatus) << run.standardError;
    EXPECT_TRUE(std::regex_match(run.standardError, std::regex("udmlgen: wrote [^\n]* s\n")))
        << run.standardError;
    const std::string goldenPath = TestsDir() + GetParam().golden;
    if (std::getenv("UDML_UPDATE_GOLDEN")) {
        std::ofstream(goldenPath, std::ios::binary) << run.standardOutput;
        GTEST_SKIP() << "rewrote " << goldenPath;
    }
    const std::string expected = ReadWholeFile(goldenPath);
    EXPECT_TRUE(expected == run.standardOutput) << DiffTexts(expected, run.standardOutput);
}

TEST_P(LiveServer, WrongPasswordFailsWithOneLine) {
    const std::string wrong = "not the pw;x";
    const CommandResult run = Udmlgen(wrong, ConnectArguments(Setting(GetParam().prefix + "CONNECT")) +
                                                 " --database " + ShellQuote(GetParam().repositoryDb));
    ExpectConnectionFailure(run, wrong);
    EXPECT_NE(std::string::npos,
              run.standardError.find("hint: the password is read from the environment variable "
                                     "UDMLGEN_PASSWORD"))
        << run.standardError;
}

TEST_P(LiveServer, ServerDownFailsWithOneLine) {
    // Port 1 on the loopback address: nothing listens there, so the connection is refused at once.
    std::string connect = Setting(GetParam().prefix + "CONNECT");
    const std::string port = "Port=" + Setting(GetParam().prefix + "PORT");
    const size_t at = connect.find(port);
    ASSERT_NE(std::string::npos, at) << connect;
    connect.replace(at, port.size(), "Port=1");
    const CommandResult run =
        Udmlgen(Setting("UDML_DB_PASSWORD"),
                ConnectArguments(connect) + " --database " + ShellQuote(GetParam().repositoryDb));
    ExpectConnectionFailure(run, Setting("UDML_DB_PASSWORD"));
}

INSTANTIATE_TEST_SUITE_P(Servers, LiveServer, ::testing::Values(kPostgres, kMariaDb),
                         [](const ::testing::TestParamInfo<Server>& server) { return server.param.name; });

// MariaDB lists every database the user may see as a catalog; a connection string that names one
// describes that one only.
TEST(MariaDbDatabase, ConnectionStringDatabaseIsTheOnlyCatalog) {
    LoadFixture(kMariaDb);
    const CommandResult run =
        Udmlgen(Setting("UDML_DB_PASSWORD"),
                ConnectArguments(Setting("UDML_MARIADB_CONNECT") + ";Database=udml_hr") + " --database Shop");
    ASSERT_EQ(0, run.exitStatus) << run.standardError;
    std::set<std::string> catalogs;
    const std::regex named("\"Shop\"\\.\"([^\"]*)\"");
    for (std::sregex_iterator it(run.standardOutput.begin(), run.standardOutput.end(), named), end; it != end;
         ++it)
        catalogs.insert((*it)[1]);
    EXPECT_EQ(std::set<std::string>{"udml_hr"}, catalogs);
    EXPECT_NE(std::string::npos, run.standardOutput.find("DECLARE TABLE \"Shop\".\"udml_hr\".\"\".\"dept\""));
}

} // namespace
