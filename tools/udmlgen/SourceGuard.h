// udmlgen's guard over the data source: the limits of --timeout, the report of the source's failures,
// and the cancellation of its running calls.
#pragma once

#include "import/failures/FailureRecordingImport.h"

#include <vector>

namespace udmlgen {

struct Options;

/// Applies the limits of `options` to every connection the process opens.
void ApplySourceLimits(const Options& options);

/// Writes each failure on standard error as one line, what was being read and then the source's
/// messages, and a closing line that says the output lacks what those reads would have given.
void ReportSourceFailures(const std::vector<FailureRecordingImport::Failure>& failures);

/// Cancels every statement the ODBC source is running, on any connection; safe from any thread.
void CancelRunningSourceCalls();

} // namespace udmlgen
