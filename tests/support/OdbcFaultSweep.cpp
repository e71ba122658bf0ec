// The sweep of ODBC faults over a whole udmlgen run.
#include "OdbcFaultSweep.h"

#include "RunCommand.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>
#include <unistd.h>
#include <vector>

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
    const std::string command = ShellQuote(UdmlgenPath()) + " " + arguments;
    const std::string fullLog = ScratchPath("odbc-faults-" + std::to_string(getpid()) + ".log");
    std::remove(fullLog.c_str());
    const CommandResult full = RunCommand("timeout 60 env " + Environment(0, fullLog) + " " + command);
    if (full.exitStatus != 0) {
        sweep.problems = "the undisturbed run failed: " + full.standardError;
        return sweep;
    }
    sweep.calls = std::atol(LastLineStarting(ReadWholeFile(fullLog), "calls ").c_str());

    // Most of a run is spent waiting for the driver and the server, so four run side by side.
    std::mutex mutex;
    std::map<long, std::string> problems;
    std::atomic<long> next{1};
    auto work = [&](int worker) {
        const std::string log =
            ScratchPath("odbc-faults-" + std::to_string(getpid()) + "-" + std::to_string(worker));
        for (long n = next++; n <= sweep.calls; n = next++) {
            std::remove(log.c_str());
            const CommandResult run = RunCommand("timeout 60 env " + Environment(n, log) + " " + command);
            // "N FUNCTION": the call that failed (a run whose threads called in another order may
            // have made fewer calls, and then none failed).
            std::ifstream exists(log);
            const std::string failed = exists ? LastLineStarting(ReadWholeFile(log), "failed ") : "";
            const std::string function = failed.substr(failed.find(' ') + 1);
            std::string problem;
            bool absorbed = false;
            if (run.exitStatus == 0) {
                absorbed = run.standardOutput == full.standardOutput;
                if (!absorbed)
                    problem = "exit status 0 with output other than the complete one";
            } else if (run.exitStatus != 1) {
                problem = "exit status " + std::to_string(run.exitStatus);
            } else if (run.standardError.find("injected fault in " + function) == std::string::npos &&
                       run.standardError.find("could not set up an environment") == std::string::npos) {
                problem = "the message does not name the failed call";
            } else if (n % 2 == 0 &&
                       run.standardError.find("connection to the data source ended or stalled") ==
                           std::string::npos &&
                       // Before the walk (connecting, checking the request's names) a failure ends
                       // the run at once as an error.
                       run.standardError.find("udmlgen: error: ") == std::string::npos) {
                problem = "a lost connection did not end the run";
            }
            std::lock_guard<std::mutex> lock(mutex);
            if (!problem.empty())
                problems[n] = "call " + std::to_string(n) + " (" + function + "): " + problem +
                              "; standard error:\n" + run.standardError + "\n";
            else if (absorbed)
                ++sweep.absorbedRuns;
            else
                ++sweep.failedRuns;
        }
    };
    std::vector<std::thread> workers;
    for (int worker = 0; worker < 4; ++worker)
        workers.emplace_back(work, worker);
    for (std::thread& worker : workers)
        worker.join();
    int shown = 0;
    for (const auto& [n, problem] : problems)
        if (shown++ < 5)
            sweep.problems += problem;
    return sweep;
}
