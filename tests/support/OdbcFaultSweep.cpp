// The sweep of ODBC faults over a whole udmlgen run.
#include "OdbcFaultSweep.h"

#include "RunCommand.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace {

std::string Environment(long failAt, const std::string& log) {
    std::string asan = std::getenv("ASAN_OPTIONS") ? std::getenv("ASAN_OPTIONS") : "";
    // The injector comes before the sanitizer's runtime in the load order, which the runtime
    // accepts when told.
    asan += std::string(asan.empty() ? "" : ":") + "verify_asan_link_order=0";
    std::string text =
        "ASAN_OPTIONS=" + ShellQuote(asan) + " UDML_ODBC_FAULT_LOG=" + ShellQuote(log) +
        " LD_PRELOAD=" + ShellQuote(std::string(UDML_BINARY_DIR) + "/lib/libudml_odbc_faults.so");
    if (failAt > 0)
        text += " UDML_ODBC_FAULT_AT=" + std::to_string(failAt) +
                " UDML_ODBC_FAULT_STATE=" + (failAt % 2 == 0 ? "08S01" : "HY000");
    return text;
}

std::string LastLineStarting(const std::string& text, const std::string& start) {
    std::istringstream lines(text);
    std::string line, found;
    while (std::getline(lines, line))
        if (line.compare(0, start.size(), start) == 0)
            found = line.substr(start.size());
    return found;
}

} // namespace

OdbcFaultSweep SweepOdbcFaults(const std::string& arguments) {
    OdbcFaultSweep sweep;
    const std::string log = ScratchPath("odbc-faults.log");
    const std::string command = ShellQuote(UdmlgenPath()) + " " + arguments;
    std::remove(log.c_str());
    const CommandResult full = RunCommand("timeout 60 env " + Environment(0, log) + " " + command);
    if (full.exitStatus != 0) {
        sweep.problems = "the undisturbed run failed: " + full.standardError;
        return sweep;
    }
    sweep.calls = std::atol(LastLineStarting(ReadWholeFile(log), "calls ").c_str());
    int reported = 0;
    for (long n = 1; n <= sweep.calls && reported < 5; ++n) {
        std::remove(log.c_str());
        const CommandResult run = RunCommand("timeout 60 env " + Environment(n, log) + " " + command);
        // "N FUNCTION": the call that failed (a run whose threads called in another order may
        // have made fewer calls, and then none failed).
        const std::string failed = LastLineStarting(ReadWholeFile(log), "failed ");
        const std::string function = failed.substr(failed.find(' ') + 1);
        std::string problem;
        if (run.exitStatus == 0) {
            if (run.standardOutput != full.standardOutput)
                problem = "exit status 0 with output other than the complete one";
            else
                ++sweep.absorbedRuns;
        } else if (run.exitStatus != 1) {
            problem = "exit status " + std::to_string(run.exitStatus);
        } else if (run.standardError.find("injected fault in " + function) == std::string::npos &&
                   run.standardError.find("could not set up an environment") == std::string::npos) {
            problem = "the message does not name the failed call";
        } else if (n % 2 == 0 &&
                   run.standardError.find("connection to the data source ended or stalled") == std::string::npos &&
                   run.standardError.find("udmlgen: error: connecting") == std::string::npos) {
            problem = "a lost connection did not end the run";
        } else {
            ++sweep.failedRuns;
        }
        if (!problem.empty()) {
            ++reported;
            sweep.problems += "call " + std::to_string(n) + " (" + function + "): " + problem +
                              "; standard error:\n" + run.standardError + "\n";
        }
    }
    return sweep;
}
