// Breaks every ODBC call of a whole udmlgen run in turn, through the fault injector of
// tests/faults/ loaded in front of the driver manager.
#pragma once

#include <string>

struct OdbcFaultSweep {
    long calls = 0;        // ODBC calls of the undisturbed run
    long failedRuns = 0;   // runs that ended with exit status 1
    long absorbedRuns = 0; // runs that ended with exit status 0 and the complete output
    std::string problems;  // empty when every run kept the promise
};

/// Runs udmlgen with `arguments` once undisturbed, then once for each of its ODBC calls, that call
/// failing (SQLSTATE HY000 on odd calls, 08S01, a lost connection, on even ones). Each run must end
/// within a minute either with exit status 1 and a message naming the failed call's fault, or with
/// exit status 0 and the complete output; `problems` describes the first runs that did neither.
OdbcFaultSweep SweepOdbcFaults(const std::string& arguments);
