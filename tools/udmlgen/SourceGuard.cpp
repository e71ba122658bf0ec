// The limits of --timeout, the report of the source's failures, and the cancellation of its calls.
#include "SourceGuard.h"

#include "Options.h"

#include "SMUOdbcGenerator.h"
#include "import/odbc/Cancellation.h"

#include <iostream>
#include <string>

namespace udmlgen {
namespace {

// Enough to see the pattern of a failure that repeats table after table.
constexpr size_t kShownFailures = 20;

std::string OneLine(const WyString& text) {
    std::string line = BaseStringUtil::StringToStdString(text, SystemUtility::GetMultiByteCodePage());
    for (char& c : line)
        if (c == '\n' || c == '\r')
            c = ' ';
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    return line;
}

} // namespace

void ApplySourceLimits(const Options& options) {
    odbc::SetTimeout(options.timeoutSeconds);
}

void ReportSourceFailures(const std::vector<FailureRecordingImport::Failure>& failures) {
    bool lost = false;
    for (size_t i = 0; i < failures.size(); ++i) {
        const FailureRecordingImport::Failure& failure = failures[i];
        lost = lost || failure.connectionLost;
        if (i >= kShownFailures)
            continue;
        // The ODBC source names what it was reading in the same words, often with more detail
        // (a pattern, a result column): then its words stand in place of ours.
        std::vector<WyString> messages = failure.messages;
        WyString what = failure.what;
        if (!messages.empty() && messages.front().compare(0, what.size(), what) == 0) {
            what = messages.front();
            messages.erase(messages.begin());
        }
        std::string line = "udmlgen: " + OneLine(what) + " failed";
        for (const WyString& message : messages)
            if (!OneLine(message).empty())
                line += ": " + OneLine(message);
        std::cerr << line << "\n";
    }
    if (failures.size() > kShownFailures)
        std::cerr << "udmlgen: ... and " << failures.size() - kShownFailures << " more failures\n";
    std::cerr
        << (lost ? "udmlgen: the connection to the data source ended or stalled, so the run stopped there; "
                 : "udmlgen: ")
        << "the output lacks what the failed reads would have given: fix the cause and run again\n";
}

void CancelRunningSourceCalls() {
    odbc::CancelRunningStatements();
}

} // namespace udmlgen
