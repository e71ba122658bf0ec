// The two jobs of udmlgen: generating UDML from a source, and capturing a source as a snapshot.
#pragma once

#include "Options.h"

namespace udmlgen {

/// Each returns the exit status. They throw UsageError for a mistake found only now (an output
/// that is one of the inputs), and ErrorMessage when the source or an --existing file fails
/// before any output was opened.
int Generate(const Options& options);
int CaptureSnapshot(const Options& options);

} // namespace udmlgen
