// udmlgen against a PostgreSQL server that stalls or drops its sessions: a catalog query waiting
// behind a lock that another session holds must yield to Ctrl-C, SIGTERM and --timeout at once,
// and a session that the server terminates mid-run must fail the run, never leave it short in
// silence. Every ODBC call of a walk is also made to fail in turn.
#include "tests/servers/ServerSettings.h"
#include "tests/support/OdbcFaultSweep.h"
#include "tests/support/RunCommand.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <iostream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using server_settings::Setting;
using Clock = std::chrono::steady_clock;

const std::string kServers = "bash " + ShellQuote(std::string(UDML_SOURCE_DIR) + "/scripts/db-servers.sh");

// psql as the test account with `arguments`.
std::string Psql(const std::string& arguments) {
    return "PGPASSWORD=" + ShellQuote(Setting("UDML_DB_PASSWORD")) +
           " psql -X -q -At -v ON_ERROR_STOP=1 -h " + ShellQuote(Setting("UDML_PG_HOST")) + " -p " +
           ShellQuote(Setting("UDML_PG_PORT")) + " -U " + ShellQuote(Setting("UDML_DB_USER")) + " -d " +
           ShellQuote(Setting("UDML_PG_DATABASE")) + " " + arguments;
}

// The first column of the first row of `sql`.
std::string Query(const std::string& sql) {
    const std::string out = RunCommand(Psql("-c " + ShellQuote(sql))).standardOutput;
    return out.substr(0, out.find('\n'));
}

pid_t Spawn(const std::string& command) {
    const pid_t pid = fork();
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    return pid;
}

int ExitStatus(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool Eventually(const std::function<bool()>& condition) {
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(15);
    while (Clock::now() < deadline) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

std::string Udmlgen(const std::string& options) {
    return "UDMLGEN_PASSWORD=" + ShellQuote(Setting("UDML_DB_PASSWORD")) + " " + ShellQuote(UdmlgenPath()) +
           " --connect " + ShellQuote(Setting("UDML_PG_CONNECT")) + " --user " +
           ShellQuote(Setting("UDML_DB_USER")) + " --database Warehouse " + options;
}

class PostgresTrouble : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        const CommandResult load =
            RunCommand(Psql("-f " + ShellQuote(std::string(UDML_SOURCE_DIR) + "/tests/servers/postgres.sql") +
                            " >/dev/null"));
        ASSERT_EQ(0, load.exitStatus) << load.standardError;
        const CommandResult run = RunCommand(Udmlgen(""));
        ASSERT_EQ(0, run.exitStatus) << run.standardError;
        complete = run.standardOutput;
    }

    // Holds an exclusive lock on pg_constraint in a superuser session, so that every query for
    // keys waits, until the end of the test.
    void HoldCatalogLock() {
        m_lockHolder = Spawn("echo 'BEGIN; LOCK TABLE pg_catalog.pg_constraint IN ACCESS EXCLUSIVE MODE; "
                             "SELECT pg_sleep(60); COMMIT;' | " +
                             kServers + " pg-admin >/dev/null 2>&1");
        ASSERT_TRUE(Eventually([] {
            return Query("SELECT count(*) FROM pg_locks WHERE granted AND mode = 'AccessExclusiveLock' AND "
                         "relation = 'pg_catalog.pg_constraint'::regclass") == "1";
        }));
    }
    static bool SessionWaitsForLock() {
        return Query("SELECT count(*) FROM pg_stat_activity WHERE usename = current_user AND "
                     "wait_event_type = 'Lock'") != "0";
    }
    void TearDown() override {
        if (m_lockHolder > 0) {
            RunCommand("echo \"SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE query LIKE "
                       "'%pg_sleep(60)%' AND pid <> pg_backend_pid();\" | " +
                       kServers + " pg-admin");
            ExitStatus(m_lockHolder);
        }
    }

    static std::string complete;
    pid_t m_lockHolder = -1;
};
std::string PostgresTrouble::complete;

// The promise is one second. A sanitizer build runs the whole process several times slower,
// its exit included, so there the bound leaves room for that and no more.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kInterruptSeconds = 2.5;
#else
constexpr double kInterruptSeconds = 1.0;
#endif

TEST_F(PostgresTrouble, SignalsEndARunStalledBehindALockWithinASecond) {
    HoldCatalogLock();
    for (const int signal : {SIGINT, SIGTERM}) {
        SCOPED_TRACE(signal == SIGINT ? "SIGINT" : "SIGTERM");
        const std::string output = ScratchPath("stalled.udml");
        const std::string errors = ScratchPath("stalled.err");
        const pid_t run = Spawn(Udmlgen("-o " + ShellQuote(output)) + " 2>" + ShellQuote(errors));
        ASSERT_TRUE(Eventually(SessionWaitsForLock));
        // The shell has handed over to udmlgen by now: it waits in the server.
        const Clock::time_point sent = Clock::now();
        RunCommand("pkill -" + std::to_string(signal) + " -P " + std::to_string(run));
        const int status = ExitStatus(run);
        const double seconds = std::chrono::duration<double>(Clock::now() - sent).count();
        EXPECT_EQ(128 + signal, status) << ReadWholeFile(errors);
        EXPECT_LT(seconds, kInterruptSeconds);
        EXPECT_NE(std::string::npos, ReadWholeFile(errors).find("interrupted"));
        // -o FILE is replaced only on success: what an interrupted run wrote is kept beside it.
        const std::string partial = ReadWholeFile(output + ".partial");
        EXPECT_LT(partial.size(), complete.size());
        EXPECT_EQ(0, complete.compare(0, partial.size(), partial)) << "not a prefix of the complete output";
    }
}

TEST_F(PostgresTrouble, TimeoutEndsAStalledRunWithStatusOne) {
    HoldCatalogLock();
    const Clock::time_point start = Clock::now();
    const CommandResult run = RunCommand(Udmlgen("--timeout 1"));
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    EXPECT_EQ(1, run.exitStatus);
    EXPECT_LT(seconds, 4.0) << "every stalled listing waited its own timeout";
    EXPECT_NE(std::string::npos, run.standardError.find("no answer within the timeout of 1 seconds"))
        << run.standardError;
    EXPECT_EQ(0, complete.compare(0, run.standardOutput.size(), run.standardOutput));
}

// A session of the test account, started before udmlgen, terminates the oldest (the main
// connection) or the newest (the key prefetch) of udmlgen's sessions as soon as both exist.
pid_t TerminateOnceTwoSessionsExist(bool oldest) {
    const std::string sql =
        "DO $$ DECLARE victim int; stop timestamptz := clock_timestamp() + interval '20 s'; BEGIN "
        "LOOP PERFORM pg_stat_clear_snapshot(); "
        "SELECT CASE WHEN count(*) >= 2 THEN (array_agg(pid ORDER BY backend_start " +
        std::string(oldest ? "ASC" : "DESC") +
        "))[1] END INTO victim FROM pg_stat_activity WHERE usename = current_user AND "
        "backend_type = 'client backend' AND pid <> pg_backend_pid(); "
        "IF victim IS NOT NULL THEN PERFORM pg_terminate_backend(victim); EXIT; END IF; "
        "EXIT WHEN clock_timestamp() > stop; PERFORM pg_sleep(0.001); END LOOP; END $$";
    const pid_t killer = Spawn(Psql("-c " + ShellQuote(sql)));
    Eventually(
        [] { return Query("SELECT count(*) FROM pg_stat_activity WHERE query LIKE 'DO $$%'") != "0"; });
    return killer;
}

TEST_F(PostgresTrouble, TerminatedConnectionsFailTheRunOrLeaveItComplete) {
    // A terminated main connection fails the run. The key prefetch is an optimisation: when its
    // session is gone, the main connection reads the keys itself, and the output is complete.
    for (const bool main : {true, false}) {
        SCOPED_TRACE(main ? "main connection" : "key prefetch");
        const pid_t killer = TerminateOnceTwoSessionsExist(main);
        const CommandResult run = RunCommand(Udmlgen(""));
        EXPECT_EQ(0, ExitStatus(killer));
        EXPECT_EQ(main ? 1 : 0, run.exitStatus) << run.standardError;
        if (main) {
            EXPECT_NE(std::string::npos, run.standardError.find("connection to the data source ended"))
                << run.standardError;
            EXPECT_LT(run.standardOutput.size(), complete.size());
        } else {
            EXPECT_TRUE(run.standardOutput == complete);
        }
    }
}

// One schema's walk: the per-table reads of its first table, the whole-schema reads, the second
// connection's key prefetch.
TEST_F(PostgresTrouble, EveryOdbcCallOfASchemaWalkFailsTheRunOrChangesNothing) {
    setenv("UDMLGEN_PASSWORD", Setting("UDML_DB_PASSWORD").c_str(), 1);
    const OdbcFaultSweep sweep = SweepOdbcFaults("--connect " + ShellQuote(Setting("UDML_PG_CONNECT")) +
                                                 " --user " + ShellQuote(Setting("UDML_DB_USER")) +
                                                 " --database Warehouse --request schema --schema hr");
    EXPECT_EQ(sweep.problems, "");
    EXPECT_GT(sweep.failedRuns, sweep.calls / 10);
    std::cout << sweep.calls << " ODBC calls: " << sweep.failedRuns << " failed the run, "
              << sweep.absorbedRuns << " were absorbed with the complete output\n";
}

} // namespace
