// The two jobs of udmlgen: generating UDML from a source, and capturing a source as a snapshot.
#pragma once

#include "Options.h"

#include "platform/WyString.h"

class CUdmlGenerator;

namespace udmlgen {

/// Each returns the exit status. They throw UsageError for a mistake found only now (an output
/// that is one of the inputs), and ErrorMessage when the source or an --existing file fails
/// before any output was opened.
int Generate(const Options& options);
int CaptureSnapshot(const Options& options);

/// Sends the request of `options` to `generator` unless a signal came first (a request clears the
/// abort flag as it starts, so such a signal is honoured here); the generator's answer.
bool SendRequest(CUdmlGenerator& generator, const Options& options, WyString& errorText);

} // namespace udmlgen
