// Breaks each ODBC call of a whole walk over the SQLite sample database in turn: every run ends
// with exit status 1 and a message naming what failed, or, where the source has another way to
// the same answer, with the complete output; none ends in success with less.
#include "support/OdbcFaultSweep.h"
#include "support/RunCommand.h"

#include <gtest/gtest.h>

#include <iostream>

TEST(OdbcFaults, EveryCallOfASqliteWalkFailsTheRunOrChangesNothing) {
    const CommandResult built = RunCommand("bash " + std::string(UDML_SOURCE_DIR) + "/scripts/sample-db.sh " +
                                           ShellQuote(ScratchPath("fault-sales.db")));
    ASSERT_EQ(0, built.exitStatus) << built.standardError;
    const std::string connection = built.standardOutput.substr(0, built.standardOutput.find('\n'));

    const OdbcFaultSweep sweep = SweepOdbcFaults("--connect " + ShellQuote(connection) + " --database Sales");
    EXPECT_EQ(sweep.problems, "");
    EXPECT_GT(sweep.calls, 100);
    EXPECT_GT(sweep.failedRuns, sweep.calls / 4);
    std::cout << sweep.calls << " ODBC calls: " << sweep.failedRuns << " failed the run, "
              << sweep.absorbedRuns << " were absorbed with the complete output\n";
}
